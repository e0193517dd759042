# App extensions without Xcode: laid out by install rules, which are the same on every system, and
# signed on a Mac.
set(FINDER_SYNC_SIGNING_IDENTITY "-" CACHE STRING
  "Identity that codesign signs the app extension with; \"-\" signs ad hoc, which is good on this Mac only")

# install_app_extension(<target> COMPONENT <component> INFO_PLIST <file> RESOURCES <file>...)
#
# Installs <target>.appex. The component is installed only when it is asked for by name.
function(install_app_extension target)
  cmake_parse_arguments(PARSE_ARGV 1 arg "" "COMPONENT;INFO_PLIST" "RESOURCES")
  set(contents ${target}.appex/Contents)
  set(component COMPONENT ${arg_COMPONENT} EXCLUDE_FROM_ALL)
  install(PROGRAMS $<TARGET_FILE:${target}> DESTINATION ${contents}/MacOS RENAME ${target} ${component})
  install(FILES ${arg_INFO_PLIST} DESTINATION ${contents} RENAME Info.plist ${component})
  install(FILES ${arg_RESOURCES} DESTINATION ${contents}/Resources ${component})
endfunction()

# sign_app_extension(<target> COMPONENT <component> ENTITLEMENTS <file> DEPENDS <file>...)
#
# Adds a target named like the component, which lays out <target>.appex in the build tree and signs
# it. DEPENDS names the files that the bundle is made of, besides the program.
function(sign_app_extension target)
  cmake_parse_arguments(PARSE_ARGV 1 arg "" "COMPONENT;ENTITLEMENTS" "DEPENDS")
  set(bundle ${PROJECT_BINARY_DIR}/${target}.appex)
  # A timestamp comes from a server, and only a signature that others are to trust needs one.
  if(FINDER_SYNC_SIGNING_IDENTITY STREQUAL "-")
    set(timestamp --timestamp=none)
    if(FINDER_SYNC_GROUP MATCHES "^group\\.")
      message(WARNING "macOS 15 and later will not open the settings: signed ad hoc, the extension may not use the group ${FINDER_SYNC_GROUP}. Set FINDER_SYNC_SIGNING_IDENTITY, and begin FINDER_SYNC_GROUP with your team identifier")
    endif()
  else()
    set(timestamp --timestamp)
  endif()
  add_custom_command(
    OUTPUT ${bundle}/Contents/_CodeSignature/CodeResources
    # From nothing, so that no file of an earlier build is sealed in.
    COMMAND ${CMAKE_COMMAND} -E rm -rf ${bundle}
    COMMAND ${CMAKE_COMMAND} --install ${PROJECT_BINARY_DIR} --component ${arg_COMPONENT}
      --prefix ${PROJECT_BINARY_DIR}
    COMMAND codesign --force --sign ${FINDER_SYNC_SIGNING_IDENTITY} --options runtime ${timestamp}
      --entitlements ${arg_ENTITLEMENTS} ${bundle}
    DEPENDS ${target} ${arg_ENTITLEMENTS} ${arg_DEPENDS}
    COMMENT "Laying out and signing ${target}.appex"
    VERBATIM)
  add_custom_target(${arg_COMPONENT} ALL DEPENDS ${bundle}/Contents/_CodeSignature/CodeResources)
endfunction()
