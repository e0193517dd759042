set -l program @FINDER_SYNC_COMPANION_PROGRAM@
set -l settings RootFolder= ServerPort= DisplayUrlLink= DisplayBackup= ShareContactTitle= \
    ShareViaUrlTitle= BackupTitle=

complete -c $program -f
complete -c $program -l port -x -d 'Port to listen on'
complete -c $program -l pad -d 'Pad each line to the bytes that the extension reads at once'
complete -c $program -l no-pad -d 'Do not pad lines'
complete -c $program -l write-settings -d 'Write the port into the settings of the extension first'
complete -c $program -l set -x -a "$settings" -d 'One more setting to write'
complete -c $program -l color -x -a 'auto always never' -d 'Color the output'
complete -c $program -s c -l command -x -d 'A command to start with'
complete -c $program -l follow -r -F -d 'Show the lines that are written to this named pipe too'
complete -c $program -s h -l help -d 'Show the help'
complete -c $program -l version -d 'Show the version'
