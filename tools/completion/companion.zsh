#compdef @FINDER_SYNC_COMPANION_PROGRAM@

local state line
_arguments \
    '--port[port to listen on]:port:' \
    '(--no-pad)--pad[pad each line to the bytes that the extension reads at once]' \
    '(--pad)--no-pad[do not pad lines]' \
    '--write-settings[write the port into the settings of the extension first]' \
    '*--set[one more setting to write]:setting:->setting' \
    '--color[color the output]:when:(auto always never)' \
    '*'{-c,--command}'[a command to start with]:line:' \
    '--follow[show the lines that are written to this named pipe too]:pipe:_files' \
    '(- *)'{-h,--help}'[show the help]' \
    '(- *)--version[show the version]' && return

[[ $state != setting ]] || compadd -S = -- RootFolder ServerPort DisplayUrlLink DisplayBackup \
    ShareContactTitle ShareViaUrlTitle BackupTitle
