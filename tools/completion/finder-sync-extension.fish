complete -c @FINDER_SYNC_EXTENSION_PROGRAM@ -f
complete -c @FINDER_SYNC_EXTENSION_PROGRAM@ -l help -d 'Show the names that are in use'
complete -c @FINDER_SYNC_EXTENSION_PROGRAM@ -l version -d 'Show the version'
