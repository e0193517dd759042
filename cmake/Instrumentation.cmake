# Sanitizers, fuzzing and coverage, each for the whole build.
if(FINDER_SYNC_SANITIZE)
  # Of the debugger's information, a finding needs no more than lines.
  add_compile_options(-fsanitize=${FINDER_SYNC_SANITIZE} -fno-sanitize-recover=all -fno-omit-frame-pointer -g1)
  add_link_options(-fsanitize=${FINDER_SYNC_SANITIZE})
  # The sanitizers' own checks make gcc see null pointers where there are none.
  add_compile_options(-Wno-null-dereference)
endif()

if(FINDER_SYNC_FUZZ)
  if(NOT CMAKE_CXX_COMPILER_ID STREQUAL "Clang")
    message(FATAL_ERROR "FINDER_SYNC_FUZZ needs clang: configure with the preset \"fuzz\"")
  endif()
  add_compile_options(-fsanitize=fuzzer-no-link,address,undefined,float-cast-overflow -fno-sanitize-recover=all)
  add_link_options(-fsanitize=address,undefined,float-cast-overflow)
endif()

if(FINDER_SYNC_COVERAGE)
  add_compile_definitions(FINDER_SYNC_COVERAGE)
  add_compile_options(--coverage -fprofile-update=atomic -fno-inline)
  add_link_options(--coverage)
endif()
