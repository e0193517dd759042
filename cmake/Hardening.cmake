# What makes a mistake of ours, or of a library, harder to exploit, in what users get. Sanitizers and
# fuzzers replace these checks by stronger ones of their own. tests/hardening looks at the programs.
if(NOT CMAKE_SYSTEM_NAME STREQUAL "Linux" OR NOT CMAKE_BUILD_TYPE STREQUAL "Release"
    OR FINDER_SYNC_SANITIZE OR FINDER_SYNC_FUZZ OR FINDER_SYNC_COVERAGE)
  return()
endif()

# CMAKE_POSITION_INDEPENDENT_CODE says how to compile; this has programs linked accordingly.
include(CheckPIESupported)
check_pie_supported(LANGUAGES CXX)

# Whoever builds packages may have asked for a lower level already.
add_compile_options(-U_FORTIFY_SOURCE -D_FORTIFY_SOURCE=3)
add_compile_options(-fstack-protector-strong -fstack-clash-protection)
add_link_options(-Wl,-z,relro,-z,now,-z,noexecstack)

if(CMAKE_SYSTEM_PROCESSOR MATCHES "^(x86_64|AMD64|i.86)$")
  add_compile_options(-fcf-protection=full)
  # The linker marks a program as fit for shadow stacks and for checked indirect branches when every
  # object in it is. The C library's start files may not say so; they are fit for shadow stacks all
  # the same, since they return to where they were called from. Of branches that is not true.
  add_link_options(-Wl,-z,shstk)
endif()
