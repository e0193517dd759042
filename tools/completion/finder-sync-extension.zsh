#compdef @FINDER_SYNC_EXTENSION_PROGRAM@

_arguments '(- *)--help[show the names that are in use]' '(- *)--version[show the version]' \
    '--log-level[log only lines as urgent as this]:level:(emerg alert crit err warning notice info debug)'
