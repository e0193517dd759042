# The names that the extension goes by: a product has an application group, from which the names of
# the bus, the unit, the settings and the icons are derived, and a name, by which its programs,
# packages, pages and folders are called. Products that differ in both install beside each other.
#
# On a Mac, a suite of settings may not be called like the application that opens it, so the group
# has something before the companion's identifier.
if(APPLE)
  set(default_group "group.com.example.companion")
else()
  set(default_group "com.example.companion")
endif()
set(FINDER_SYNC_GROUP ${default_group} CACHE STRING
  "Application-group identifier shared with the companion application; names the settings, the bus name and the bundle")
set(FINDER_SYNC_COMPANION_IDENTIFIER "" CACHE STRING
  "Bundle identifier of the companion application on macOS; when empty, the group without its team prefix or \"group.\"")

set(FINDER_SYNC_NAME finder-sync CACHE STRING
  "Name of the product: the programs, packages, manual pages and the folder of images are called after it")

set(FINDER_SYNC_HOMEPAGE https://example.com/finder-sync CACHE STRING
  "Page of the product on the web, which packages and software centres link to")

block(PROPAGATE companion_identifier extension_identifier)
  string(REPEAT "[A-Z0-9]" 10 team)
  set(domain "[A-Za-z_][A-Za-z0-9_-]*(\\.[A-Za-z_][A-Za-z0-9_-]*)+")

  # A team identifier may begin with a digit. Names on D-Bus may not, so only a Mac takes it.
  if(APPLE)
    set(group "(${team}\\.)?${domain}")
  else()
    set(group "${domain}")
  endif()
  if(NOT FINDER_SYNC_GROUP MATCHES "^${group}$")
    message(FATAL_ERROR "FINDER_SYNC_GROUP must be a reverse domain name such as com.example.product, not \"${FINDER_SYNC_GROUP}\"")
  endif()
  if(APPLE AND NOT FINDER_SYNC_GROUP MATCHES "^(${team}|group)\\.${domain}$")
    message(NOTICE "FINDER_SYNC_GROUP \"${FINDER_SYNC_GROUP}\" has neither a team identifier nor \"group.\" before it: for development only")
  endif()

  if(NOT FINDER_SYNC_COMPANION_IDENTIFIER STREQUAL "")
    set(companion_identifier "${FINDER_SYNC_COMPANION_IDENTIFIER}")
  elseif(FINDER_SYNC_GROUP MATCHES "^(${team}|group)\\.(${domain})$")
    set(companion_identifier "${CMAKE_MATCH_2}")
  else()
    set(companion_identifier "${FINDER_SYNC_GROUP}")
  endif()
  if(NOT companion_identifier MATCHES "^[A-Za-z0-9_-]+(\\.[A-Za-z0-9_-]+)+$")
    message(FATAL_ERROR "FINDER_SYNC_COMPANION_IDENTIFIER must be a bundle identifier such as com.example.product, not \"${companion_identifier}\"")
  endif()

  # An extension's identifier begins with that of the app that contains it.
  set(extension_identifier "${companion_identifier}.FinderSync")
endblock()

# What Debian allows in the name of a package, without the "+" that scdoc refuses in a page's name.
if(NOT FINDER_SYNC_NAME MATCHES "^[a-z0-9][a-z0-9.-]+$")
  message(FATAL_ERROR "FINDER_SYNC_NAME must be a package's name such as example-sync (lower-case letters, digits, \".\" and \"-\"; two at least, the first a letter or a digit), not \"${FINDER_SYNC_NAME}\"")
endif()
set(FINDER_SYNC_EXTENSION_PROGRAM ${FINDER_SYNC_NAME}-extension)
set(FINDER_SYNC_CONTROL_PROGRAM ${FINDER_SYNC_NAME}-finderctl)
set(FINDER_SYNC_COMPANION_PROGRAM ${FINDER_SYNC_NAME}-companion)
if(FINDER_SYNC_NAME STREQUAL "finder-sync") # short ones, where no second product has to be told apart
  set(FINDER_SYNC_CONTROL_PROGRAM finderctl)
  set(FINDER_SYNC_COMPANION_PROGRAM companion)
endif()

set(FINDER_SYNC_BUS_NAME ${FINDER_SYNC_GROUP}.FinderSync)
