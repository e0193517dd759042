# add_completion(<component> <source> <file>)
#
# Installs what a shell completes a program's words with as the file below share/, with the names of
# this configuration in it. It lies below share/ of the build folder as well.
function(add_completion component source file)
  set(configured ${PROJECT_BINARY_DIR}/share/${file})
  configure_file(${source} ${configured} @ONLY)
  get_filename_component(folder ${file} DIRECTORY)
  install(FILES ${configured} DESTINATION ${CMAKE_INSTALL_DATADIR}/${folder} COMPONENT ${component})
endfunction()
