#compdef @FINDER_SYNC_CONTROL_PROGRAM@

local -a commands=(
    'state:print all properties of the extension'
    'badge:print which badge items carry'
    'menu:print what it adds to the menu on a selection'
    'click:pick the entry of an action, with a selection'
    'observe:tell that the user starts viewing directories'
    'unobserve:tell that the user stops viewing directories'
    'monitor:print what changes until interrupted'
    'restart:end the extension and start it anew, so that it connects anew'
    'doctor:find out what keeps badges and menus from being shown'
)
local state line
_arguments -C \
    '--group[ask the extension of another product]:application group:' \
    '--json[print JSON]' \
    '--kind[where the menu opens]:kind:(items container sidebar toolbar)' \
    '(- *)'{-h,--help}'[show the help]' \
    '(- *)--version[show the version]' \
    '1:command:->command' \
    '*::argument:->argument' && return

case $state in
    command)
        _describe command commands
        ;;
    argument)
        case $words[1] in
            click)
                if ((CURRENT == 2)); then
                    compadd -- createLinkClicked: backupClicked: shareContactsClicked: \
                        inProgressClicked: notSyncedClicked: syncedClicked:
                else
                    _files
                fi
                ;;
            badge | menu) _files ;;
            observe | unobserve) _files -/ ;;
        esac
        ;;
esac
