# Answers find_package in the cross build: of libraries that tests use, only headers are needed, since
# test programs are compiled and not linked.
macro(provide_headers method name)
  if("${name}" MATCHES "^(GTest|Boost|ICU)$")
    set(${name}_FOUND TRUE)
    foreach(library GTest::gtest GTest::gtest_main Boost::json ICU::uc)
      if(NOT TARGET ${library} AND "${library}" MATCHES "^${name}::")
        add_library(${library} INTERFACE IMPORTED)
      endif()
    endforeach()
  endif()
endmacro()
cmake_language(SET_DEPENDENCY_PROVIDER provide_headers SUPPORTED_METHODS FIND_PACKAGE)
