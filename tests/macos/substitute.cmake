# Writes the property lists of the app extension for the names given with -D into the folder OUTPUT.
cmake_minimum_required(VERSION 3.25)
set(sources ${CMAKE_CURRENT_LIST_DIR}/../..)
include(${sources}/cmake/Names.cmake)
foreach(file Info.plist FinderSync.entitlements DevelopmentApp/Info.plist)
  configure_file(${sources}/hosts/macos/${file}.in ${OUTPUT}/${file} @ONLY)
endforeach()
