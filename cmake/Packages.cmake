# Debian packages: a product's extension and its tools for developers, and a plug-in for each file
# manager. A plug-in serves every product, so its package carries no product's name and needs none.
# Included after the tools and the plug-ins, since only what is built is packaged.
set(FINDER_SYNC_MAINTAINER "Finder Sync extension developers <maintainers@example.com>" CACHE STRING
  "Maintainer of the packages: name and mail address")

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME finder-sync)
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "") # package() sets one for each
set(CPACK_PACKAGE_CONTACT ${FINDER_SYNC_MAINTAINER})
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_PACKAGE_DIRECTORY ${PROJECT_SOURCE_DIR}/build/packages)
set(CPACK_STRIP_FILES ON)
set(CPACK_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS
  OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_RELEASE 1)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS OFF)
set(this_version "= ${PROJECT_VERSION}-${CPACK_DEBIAN_PACKAGE_RELEASE}")

# package(<component> <name> SECTION <section> DEPENDS <packages> SUMMARY <line> DESCRIPTION <text>)
#
# Describes the package of a component and installs the documents that every package has.
# A macro, since CPack reads the variables that it sets.
macro(package component name)
  cmake_parse_arguments(arg "" "SECTION;DEPENDS;SUMMARY;DESCRIPTION" "" ${ARGN})
  string(TOUPPER ${component} upper)
  list(APPEND CPACK_COMPONENTS_ALL ${component})
  set(CPACK_DEBIAN_${upper}_PACKAGE_NAME ${name})
  set(CPACK_DEBIAN_${upper}_PACKAGE_SECTION ${arg_SECTION})
  set(CPACK_DEBIAN_${upper}_PACKAGE_DEPENDS "${arg_DEPENDS}")
  set(CPACK_DEBIAN_${upper}_DESCRIPTION "${arg_SUMMARY}\n${arg_DESCRIPTION}")
  install_documents(${name} ${component})
endmacro()

function(install_documents FINDER_SYNC_PACKAGE component)
  set(documents ${CMAKE_INSTALL_DATADIR}/doc/${FINDER_SYNC_PACKAGE})
  set(folder ${PROJECT_BINARY_DIR}/documents/${FINDER_SYNC_PACKAGE})
  file(READ ${PROJECT_SOURCE_DIR}/LICENSE licence)
  string(REGEX REPLACE "^MIT License\n\nCopyright \\(c\\) ([^\n]*)\n\n" "" licence "${licence}")
  set(FINDER_SYNC_COPYRIGHT "${CMAKE_MATCH_1}")
  string(STRIP "${licence}" licence)
  string(REPLACE "\n\n" "\n.\n" licence "${licence}")
  string(REPLACE "\n" "\n " FINDER_SYNC_LICENCE " ${licence}")
  configure_file(packaging/copyright.in ${folder}/copyright @ONLY)
  install(FILES ${folder}/copyright DESTINATION ${documents} COMPONENT ${component})

  string(TIMESTAMP FINDER_SYNC_DATE "%a, %d %b %Y 00:00:00 +0000" UTC)
  configure_file(packaging/changelog.Debian.in ${folder}/changelog.Debian @ONLY)
  install_compressed(${component} ${folder}/changelog.Debian ${documents}/changelog.Debian)
  install_compressed(${component} ${PROJECT_SOURCE_DIR}/CHANGELOG.md ${documents}/changelog)
endfunction()

package(extension ${FINDER_SYNC_EXTENSION_PROGRAM}
  SECTION utils
  DEPENDS "hicolor-icon-theme, default-dbus-session-bus | dbus-session-bus"
  SUMMARY "badges and menu entries for the folders of a sync client"
  DESCRIPTION "The process that tells file managers which badge and which menu entries
the folders of a sync client get, and tells the sync client what the user has
picked. The session bus starts it when a file manager asks for it.
.
File managers need a plug-in, such as the package caja-finder-sync.
${FINDER_SYNC_CONTROL_PROGRAM} shows in a terminal what they get.")
if(TARGET finderctl)
  package(tools ${FINDER_SYNC_NAME}-tools
    SECTION devel
    DEPENDS "${FINDER_SYNC_EXTENSION_PROGRAM} (${this_version})"
    SUMMARY "Finder Sync extension: tools for developers"
    DESCRIPTION "What the developers of sync clients and of plug-ins for file managers need:
${FINDER_SYNC_COMPANION_PROGRAM} plays a sync client in the terminal, and a file
describes the interface of the extension on the session bus.")
endif()

get_property(file_managers GLOBAL PROPERTY FINDER_SYNC_BUILT_Plug-ins)
foreach(file_manager IN LISTS file_managers)
  package(${file_manager} ${file_manager}-finder-sync
    SECTION utils
    DEPENDS ${file_manager}
    SUMMARY "badges and menu entries of sync clients in ${file_manager}"
    DESCRIPTION "Shows the badges of every installed Finder Sync extension in the file manager
${file_manager}, and their entries in the menu.")
endforeach()

include(CPack)
