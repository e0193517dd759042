# Sets HAS_TESTS: whether tests and benches are built. PYTEST_PYTHON is the Python that runs pytest,
# the system's, since distributions package the modules for that one.
#
# The tests call the programs by their names, and there is one set of names that they know.
if(NOT FINDER_SYNC_NAME STREQUAL "finder-sync")
  if(FINDER_SYNC_TESTS STREQUAL ON)
    message(FATAL_ERROR "FINDER_SYNC_TESTS=ON needs the default FINDER_SYNC_NAME, finder-sync")
  endif()
  set(HAS_TESTS FALSE)
  report_component(Parts tests "no (FINDER_SYNC_NAME is not finder-sync)")
  return()
endif()

find_package(GTest QUIET)
find_program(PYTEST_PYTHON NAMES python3 PATHS /usr/bin NO_DEFAULT_PATH)
set(needs
  GTest_FOUND GTest libgtest-dev
  PYTEST_PYTHON /usr/bin/python3 python3)
set(modules pytest)
if(NOT FINDER_SYNC_MACOS)
  list(APPEND modules jeepney) # speaks D-Bus
endif()
foreach(module IN LISTS modules)
  set(HAS_PYTHON_${module} FALSE)
  if(PYTEST_PYTHON)
    execute_process(COMMAND ${PYTEST_PYTHON} -c "import ${module}" RESULT_VARIABLE failure ERROR_QUIET)
    if(failure EQUAL 0)
      set(HAS_PYTHON_${module} TRUE)
    endif()
  endif()
  list(APPEND needs HAS_PYTHON_${module} "Python module ${module}" python3-${module})
endforeach()
add_component(Parts tests ${needs})
