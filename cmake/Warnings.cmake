# Every warning counts; in the presets, one stops the build. What is generated in C is left alone.
set(warnings
  -Wall -Wextra -Wpedantic
  -Wconversion -Wsign-conversion -Wdouble-promotion -Wformat=2
  -Wshadow -Wold-style-cast -Wcast-align -Wcast-qual -Wunused
  -Wnon-virtual-dtor -Woverloaded-virtual -Wnull-dereference -Wundef
  -Wextra-semi -Wimplicit-fallthrough)
if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
  list(APPEND warnings -Wduplicated-cond -Wduplicated-branches -Wlogical-op -Wuseless-cast)
  # gcc 12 sees overlaps in the joining of strings that are not there (its bug 105651).
  list(APPEND warnings -Wno-restrict)
endif()
if(CMAKE_UNITY_BUILD)
  # Files that are compiled as one share what is meant for each alone.
  list(APPEND warnings -Wno-shadow)
  if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
    list(APPEND warnings -Wno-subobject-linkage)
  endif()
endif()
add_compile_options("$<$<COMPILE_LANGUAGE:CXX,OBJCXX>:${warnings}>")
