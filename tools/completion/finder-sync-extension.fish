complete -c @FINDER_SYNC_EXTENSION_PROGRAM@ -f
complete -c @FINDER_SYNC_EXTENSION_PROGRAM@ -l help -d 'Show the names that are in use'
complete -c @FINDER_SYNC_EXTENSION_PROGRAM@ -l version -d 'Show the version'
complete -c @FINDER_SYNC_EXTENSION_PROGRAM@ -l log-level -x -d 'Log only lines as urgent as this' \
    -a 'emerg alert crit err warning notice info debug'
