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

# Debian's zsh finds what packages bring in a folder of its own.
set(zsh_completions zsh/site-functions)
if(EXISTS /etc/debian_version)
  set(zsh_completions zsh/vendor-completions)
endif()

# add_completions(<component> <program> <source>)
#
# The same for bash, zsh and fish, from <source>, <source>.zsh and <source>.fish.
function(add_completions component program source)
  add_completion(${component} ${source} bash-completion/completions/${program})
  add_completion(${component} ${source}.zsh ${zsh_completions}/_${program})
  add_completion(${component} ${source}.fish fish/vendor_completions.d/${program}.fish)
endfunction()
