set -l program @FINDER_SYNC_CONTROL_PROGRAM@

complete -c $program -f
complete -c $program -l group -x -d 'Ask the extension of another product'
complete -c $program -l json -d 'Print JSON'
complete -c $program -l kind -x -a 'items container sidebar toolbar' -d 'Where the menu opens'
complete -c $program -s h -l help -d 'Show the help'
complete -c $program -l version -d 'Show the version'

set -l first __fish_use_subcommand
complete -c $program -n $first -a state -d 'Print all properties of the extension'
complete -c $program -n $first -a badge -d 'Print which badge items carry'
complete -c $program -n $first -a menu -d 'Print what it adds to the menu on a selection'
complete -c $program -n $first -a click -d 'Pick the entry of an action, with a selection'
complete -c $program -n $first -a observe -d 'Tell that the user starts viewing directories'
complete -c $program -n $first -a unobserve -d 'Tell that the user stops viewing directories'
complete -c $program -n $first -a monitor -d 'Print what changes until interrupted'
complete -c $program -n $first -a restart -d 'End the extension and start it anew'
complete -c $program -n $first -a doctor -d 'Find out what keeps badges and menus from being shown'

complete -c $program -n '__fish_seen_subcommand_from badge menu click' -F
complete -c $program -n '__fish_seen_subcommand_from observe unobserve' -a '(__fish_complete_directories)'
complete -c $program -n 'string match -q -- click (commandline -opc)[-1]' -a 'createLinkClicked: \
    backupClicked: shareContactsClicked: inProgressClicked: notSyncedClicked: syncedClicked:'
