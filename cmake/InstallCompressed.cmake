# Debian wants manual pages and changelogs compressed, and everybody can read them so.
find_program(GZIP gzip REQUIRED)

# install_compressed(<component> <file> <destination>)
#
# Installs a file under another name, to which .gz is added. The same file gives the same bytes.
function(install_compressed component file destination)
  set(compressed ${PROJECT_BINARY_DIR}/compressed/${destination}.gz)
  get_filename_component(build_folder ${compressed} DIRECTORY)
  file(MAKE_DIRECTORY ${build_folder})
  add_custom_command(
    OUTPUT ${compressed}
    COMMAND sh -c "\"$1\" -9n <\"$2\" >\"$3\"" sh ${GZIP} ${file} ${compressed}
    DEPENDS ${file}
    VERBATIM)
  string(MAKE_C_IDENTIFIER ${destination} target)
  add_custom_target(compressed_${target} ALL DEPENDS ${compressed})
  add_dependencies(programs compressed_${target})
  get_filename_component(folder ${destination} DIRECTORY)
  install(FILES ${compressed} DESTINATION ${folder} COMPONENT ${component})
endfunction()
