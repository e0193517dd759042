# Writes what the packages of a product are made by:
#
#   cmake [-DFINDER_SYNC_<option>=<value>...] -DFILE_MANAGERS=<file manager>[;...] -DSOURCES=<folder>
#     -DREVISION=<Debian's> -P packaging/configure.cmake
#
# into SOURCES, which becomes the source package, its debian/, and beside it <name>.spec for rpmbuild
# and PKGBUILD for makepkg. Their date is $SOURCE_DATE_EPOCH. Names that a build would refuse are refused
# here.
cmake_minimum_required(VERSION 3.25)
get_filename_component(project ${CMAKE_CURRENT_LIST_DIR} DIRECTORY)
include(${project}/cmake/Names.cmake)
set(FINDER_SYNC_MAINTAINER "Finder Sync extension developers <maintainers@example.com>" CACHE STRING
  "Maintainer of the packages: name and mail address")
file(STRINGS ${project}/CMakeLists.txt version REGEX "^project\\(finder-sync VERSION")
string(REGEX MATCH "[0-9.]+" FINDER_SYNC_VERSION "${version}")
string(TIMESTAMP DEBIAN_DATE "%a, %d %b %Y %H:%M:%S +0000" UTC)
string(TIMESTAMP RPM_DATE "%a %b %d %Y" UTC)

set(plugins caja dolphin nautilus nemo thunar)
set(debian_needs libcaja-extension-dev "libkf6kio-dev | libkf5kio-dev" libnautilus-extension-dev
  libnemo-extension-dev libthunarx-3-dev)
set(rpm_needs "pkgconfig(libcaja-extension)" "cmake(KF6KIO)" "pkgconfig(libnautilus-extension-4)"
  "pkgconfig(libnemo-extension)" "pkgconfig(thunarx-3)")

set(packages ${FINDER_SYNC_EXTENSION_PROGRAM} ${FINDER_SYNC_NAME}-tools)
set(components extension tools)
# Plug-ins, the libraries and the companion for everybody serve every product and carry no product's name,
# so one source package has them all.
if(NOT FINDER_SYNC_NAME STREQUAL "finder-sync")
  set(FILE_MANAGERS "")
else()
  set(FINDER_SYNC_COMPANION "finder-sync-companion libfinder-sync-companion")
  list(APPEND packages finder-sync-companion python3-finder-sync-companion libfinder-sync-companion-dev)
  list(APPEND components companion companion-python companion-library)
  file(READ ${CMAKE_CURRENT_LIST_DIR}/debian/control.companion FINDER_SYNC_PLUGINS_CONTROL)
  string(STRIP "${FINDER_SYNC_PLUGINS_CONTROL}" FINDER_SYNC_PLUGINS_CONTROL)
  string(PREPEND FINDER_SYNC_PLUGINS_CONTROL "\n\n")
  string(PREPEND FINDER_SYNC_PLUGINS_SPEC "%companion")
endif()
set(FINDER_SYNC_OPTIONS "-DFINDER_SYNC_NAME=${FINDER_SYNC_NAME} -DFINDER_SYNC_GROUP=${FINDER_SYNC_GROUP} -DFINDER_SYNC_HOMEPAGE=${FINDER_SYNC_HOMEPAGE} -DFINDER_SYNC_TESTS=OFF -DFINDER_SYNC_TOOLS=ON")
foreach(FILE_MANAGER debian_need rpm_need IN ZIP_LISTS plugins debian_needs rpm_needs)
  string(TOUPPER ${FILE_MANAGER} upper)
  set(wanted OFF)
  if(FILE_MANAGER IN_LIST FILE_MANAGERS)
    set(wanted ON)
    list(APPEND packages ${FILE_MANAGER}-finder-sync)
    list(APPEND components ${FILE_MANAGER})
    string(APPEND FINDER_SYNC_PLUGINS " ${FILE_MANAGER}")
    string(APPEND FINDER_SYNC_PLUGINS_DEBIAN_NEEDS ",\n ${debian_need}")
    string(APPEND FINDER_SYNC_PLUGINS_SPEC "\n%plug_in ${FILE_MANAGER} ${rpm_need}")
    file(READ ${CMAKE_CURRENT_LIST_DIR}/debian/control.plug-in.in control)
    string(CONFIGURE "${control}" control @ONLY)
    string(STRIP "${control}" control)
    string(APPEND FINDER_SYNC_PLUGINS_CONTROL "\n\n${control}")
  endif()
  string(APPEND FINDER_SYNC_OPTIONS " -DFINDER_SYNC_${upper}=${wanted}")
endforeach()
foreach(package component IN ZIP_LISTS packages components)
  string(APPEND FINDER_SYNC_INSTALL "\n\t$(call install,${package},${component})")
endforeach()
list(JOIN components " " FINDER_SYNC_COMPONENTS)

foreach(file changelog control copyright rules source/format source/lintian-overrides)
  set(template ${CMAKE_CURRENT_LIST_DIR}/debian/${file})
  if(EXISTS ${template}.in)
    configure_file(${template}.in ${SOURCES}/debian/${file} @ONLY)
  else()
    configure_file(${template} ${SOURCES}/debian/${file} COPYONLY)
  endif()
endforeach()
file(CHMOD ${SOURCES}/debian/rules PERMISSIONS
  OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)

configure_file(${CMAKE_CURRENT_LIST_DIR}/product.spec.in ${SOURCES}/../${FINDER_SYNC_NAME}.spec @ONLY)
configure_file(${CMAKE_CURRENT_LIST_DIR}/PKGBUILD.in ${SOURCES}/../PKGBUILD @ONLY)
