# add_manual_page(<component> <program> <source>)
#
# Makes a program's manual page below share/man in the build folder from its scdoc source, with the
# names of this configuration in it, and installs it. Without scdoc there are no manual pages.
find_program(SCDOC scdoc)
if(NOT SCDOC)
  report_component(Parts "manual pages" "no (scdoc not found)")
endif()

# A lone underscore starts underlined text in the pages' source.
string(REPLACE "_" "\\_" ESCAPED_GROUP "${FINDER_SYNC_GROUP}")

function(add_manual_page component program source)
  if(NOT SCDOC)
    return()
  endif()
  set(page ${program}.1)
  set(configured ${CMAKE_CURRENT_BINARY_DIR}/${page}.scd)
  configure_file(${source} ${configured} @ONLY)
  set(folder ${PROJECT_BINARY_DIR}/share/man/man1)
  file(MAKE_DIRECTORY ${folder})
  add_custom_command(
    OUTPUT ${folder}/${page}
    COMMAND sh -c "\"$1\" <\"$2\" >\"$3\"" sh ${SCDOC} ${configured} ${folder}/${page}
    DEPENDS ${configured}
    VERBATIM)
  add_custom_target(${page} ALL DEPENDS ${folder}/${page})
  add_dependencies(programs ${page})
  install(FILES ${folder}/${page} DESTINATION ${CMAKE_INSTALL_MANDIR}/man1 COMPONENT ${component})
endfunction()
