# Every warning counts, and stops the build.
add_compile_options(
  -Wall -Wextra -Wpedantic -Werror
  -Wconversion -Wsign-conversion -Wdouble-promotion -Wformat=2
  -Wshadow -Wold-style-cast -Wcast-align -Wcast-qual -Wunused
  -Wnon-virtual-dtor -Woverloaded-virtual -Wnull-dereference -Wundef
  -Wextra-semi -Wimplicit-fallthrough)
if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
  add_compile_options(-Wduplicated-cond -Wduplicated-branches -Wlogical-op -Wuseless-cast)
  # gcc 12 sees overlaps in the joining of strings that are not there (its bug 105651).
  add_compile_options(-Wno-restrict)
endif()
