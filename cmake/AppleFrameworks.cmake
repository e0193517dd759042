# What the macOS code is built against.
if(APPLE)
  add_library(apple-frameworks INTERFACE)
  target_compile_options(apple-frameworks INTERFACE $<$<COMPILE_LANGUAGE:OBJCXX>:-fno-objc-arc>)
  target_link_libraries(apple-frameworks INTERFACE
    "-framework AppKit" "-framework CoreFoundation" "-framework FinderSync" "-framework Foundation")
else()
  add_subdirectory(tests/gnustep)
endif()
