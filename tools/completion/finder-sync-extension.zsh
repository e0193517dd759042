#compdef @FINDER_SYNC_EXTENSION_PROGRAM@

_arguments '(- *)--help[show the names that are in use]' '(- *)--version[show the version]'
