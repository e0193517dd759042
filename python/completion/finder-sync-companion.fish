set -l program finder-sync-companion
set -l commands run check example enable syncthing-folders syncthing-rescan git-annex-folders

complete -c $program -f
complete -c $program -n "not __fish_seen_subcommand_from $commands" -a run -d 'Serve the extension'
complete -c $program -n "not __fish_seen_subcommand_from $commands" -a check -d 'Say what is wrong with the settings'
complete -c $program -n "not __fish_seen_subcommand_from $commands" -a example -d 'Print example settings'
complete -c $program -n "not __fish_seen_subcommand_from $commands" -a enable -d 'Have systemd start the program'
complete -c $program -n "not __fish_seen_subcommand_from $commands" -a syncthing-folders -d 'Print the folders of Syncthing'
complete -c $program -n "not __fish_seen_subcommand_from $commands" -a syncthing-rescan -d 'Have Syncthing look for changes'
complete -c $program -n "not __fish_seen_subcommand_from $commands" -a git-annex-folders -d 'Print the repositories of git-annex'
complete -c $program -l settings -r -F -d 'Another settings file'
complete -c $program -s h -l help -d 'Show the help'
complete -c $program -l version -d 'Show the version'
