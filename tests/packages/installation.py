"""Programs that run with /usr as it is after an installation."""

import os
import pathlib
import subprocess

SOURCES = pathlib.Path(__file__).parents[2]
BUILD = pathlib.Path(os.environ["FINDER_SYNC_BIN"]).parent


def run(*command, **options):
    return subprocess.run(command, check=True, text=True, stdout=subprocess.PIPE, **options).stdout


class Root:
    def __init__(self, folder):
        self.folder = folder

    def command(self, *command):
        """The words of a command that is to run with /usr as it is after the installation."""
        user = [] if os.geteuid() == 0 else ["--map-root-user"]
        over = 'mount -t overlay overlay -o "lowerdir=$1/usr:/usr" /usr && shift && exec "$@"'
        return ["unshare", *user, "--mount", "sh", "-c", over, "sh", str(self.folder), *command]
