#compdef finder-sync-companion

_arguments \
    '--settings[another settings file]:file:_files -g "*.toml"' \
    '(- *)'{-h,--help}'[show the help]' \
    '(- *)--version[show the version]' \
    '1:command:((run\:"serve the extension" check\:"say what is wrong with the settings" example\:"print example settings" enable\:"have systemd start the program" syncthing-folders\:"print the folders of Syncthing" syncthing-rescan\:"have Syncthing look for changes" git-annex-folders\:"print the repositories of git-annex"))'
