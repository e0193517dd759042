# Parts that are built when what they need is installed.
#
# add_component(<group> <name> [<found> <what> <Debian package>]...)
#
#   Declares the cache variable FINDER_SYNC_<NAME>, which says whether the part is built:
#     AUTO  if everything that it needs was found (the default)
#     ON    always; configuring fails when something is missing
#     OFF   never
#   Each need is a variable that is true when it was found, the text to call it by, and the package
#   that has it. Sets HAS_<NAME> in the caller's scope, appends the name to one of the global
#   properties FINDER_SYNC_BUILT_<group> and FINDER_SYNC_LEFT_OUT_<group>, and reports the outcome.
#
#     find_package(Boost 1.81 QUIET COMPONENTS json)
#     add_component(Parts tools Boost_FOUND "Boost.JSON 1.81" libboost-json-dev)
#     if(NOT HAS_TOOLS)
#       return()
#     endif()
#
# report_component(<group> <name> <text>)
#
#   Adds "<name> <text>" to the summary, for something that is left out for another reason.
#
# summarize_components()
#
#   Prints the summary, one line for each group.
function(add_component group name)
  string(TOUPPER ${name} upper)
  string(REPLACE "-" "_" upper ${upper})
  set(FINDER_SYNC_${upper} AUTO CACHE STRING "${group}: whether ${name} is built (AUTO, ON or OFF)")
  set_property(CACHE FINDER_SYNC_${upper} PROPERTY STRINGS AUTO ON OFF)
  set(wish ${FINDER_SYNC_${upper}})
  if(NOT wish MATCHES "^(AUTO|ON|OFF)$")
    message(FATAL_ERROR "FINDER_SYNC_${upper} is AUTO, ON or OFF, not \"${wish}\"")
  endif()

  set(missing "")
  set(packages "")
  set(needs ${ARGN})
  while(needs)
    list(POP_FRONT needs found what package)
    if(NOT ${found})
      list(APPEND missing ${what})
      list(APPEND packages ${package})
    endif()
  endwhile()
  list(JOIN missing ", " missing)
  list(REMOVE_DUPLICATES packages)
  list(JOIN packages " " packages)

  if(wish STREQUAL ON AND missing)
    message(FATAL_ERROR "FINDER_SYNC_${upper}=ON, but not found: ${missing}. On Debian: apt install ${packages}")
  elseif(wish STREQUAL OFF)
    report_component(${group} ${name} "no (FINDER_SYNC_${upper}=OFF)")
  elseif(missing)
    report_component(${group} ${name} "no (${missing} not found)")
  else()
    report_component(${group} ${name} yes)
    set_property(GLOBAL APPEND PROPERTY FINDER_SYNC_BUILT_${group} ${name})
    set(HAS_${upper} TRUE PARENT_SCOPE)
    return()
  endif()
  set_property(GLOBAL APPEND PROPERTY FINDER_SYNC_LEFT_OUT_${group} ${name})
  set(HAS_${upper} FALSE PARENT_SCOPE)
endfunction()

function(report_component group name text)
  get_property(groups GLOBAL PROPERTY FINDER_SYNC_COMPONENT_GROUPS)
  if(NOT group IN_LIST groups)
    set_property(GLOBAL APPEND PROPERTY FINDER_SYNC_COMPONENT_GROUPS ${group})
  endif()
  set_property(GLOBAL APPEND PROPERTY "FINDER_SYNC_COMPONENTS_${group}" "${name} ${text}")
endfunction()

function(summarize_components)
  get_property(groups GLOBAL PROPERTY FINDER_SYNC_COMPONENT_GROUPS)
  foreach(group IN LISTS groups)
    get_property(components GLOBAL PROPERTY "FINDER_SYNC_COMPONENTS_${group}")
    list(JOIN components ", " components)
    message(STATUS "${group}: ${components}")
  endforeach()
endfunction()
