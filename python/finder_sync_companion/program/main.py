"""The command line of `finder-sync-companion`."""

import argparse
import asyncio
import gettext
import pathlib
import signal
import sys
from collections.abc import Callable

from . import configuration, git_annex, syncthing
from .application import Application, described
from .log import log

VERSION = "0.1.0"
FOR_SETTINGS: dict[str, Callable[..., None]] = {
    "syncthing-folders": syncthing.print_folders,
    "syncthing-rescan": syncthing.rescan,
    "git-annex-folders": git_annex.print_folders,
}


def main(group: str = "com.example.companion", control_program: str = "finderctl",
         locale_folder: str | None = None) -> int:
    """Runs the program for the extension of an application group; gives the exit status."""
    parser = argparse.ArgumentParser(
        prog="finder-sync-companion",
        description="Badges on folders, and menu entries that run commands of your own.")
    parser.add_argument("command", nargs="?", choices=["run", "check", "example", "enable", *FOR_SETTINGS],
                        default="run", metavar="COMMAND", help="run (the default), check the settings "
                        "file, print an example of one, enable: have systemd run the program when the "
                        f"extension connects; or, for settings files, {', '.join(FOR_SETTINGS)}")
    parser.add_argument("words", nargs="*", metavar="WORD", help="of syncthing-rescan: folder and path")
    parser.add_argument("--settings", type=pathlib.Path, metavar="FILE",
                        default=configuration.default_file(), help="another settings file")
    parser.add_argument("--version", action="version", version=f"%(prog)s {VERSION}")
    arguments = parser.parse_args()
    if len(arguments.words) != (2 if arguments.command == "syncthing-rescan" else 0):
        parser.error("syncthing-rescan takes a folder and a path, and nothing else does")
    if arguments.command == "example":
        print(configuration.EXAMPLE, end="")
        return 0
    try:
        if arguments.command in FOR_SETTINGS:
            signal.signal(signal.SIGINT, signal.SIG_DFL)
            FOR_SETTINGS[arguments.command](*arguments.words)
            return 0
        if arguments.command == "check":
            return check(arguments.settings)
        translations = gettext.translation("finder-sync-companion", locale_folder, fallback=True)
        application = Application(group, control_program, arguments.settings, translations.gettext)
        asyncio.run(_until_signal(application, arguments.command == "enable"))
    except FileNotFoundError as error:
        is_settings = error.filename == str(arguments.settings)
        log(configuration.how_to_begin(arguments.settings) if is_settings else str(error))
        return 1
    except (OSError, ValueError) as error:
        log(*str(error).splitlines())
        return 1
    return 0


def check(file: pathlib.Path) -> int:
    """Says what is wrong with the file, and what it names that is not there."""
    _, problems = configuration.parse(configuration.read(file), looks_at_machine=True)
    lines = described(file, problems)
    print("\n".join(lines or [f"{file}: nothing is wrong"]))
    return 1 if lines else 0


async def _until_signal(application: Application, is_to_enable: bool) -> None:
    task = asyncio.create_task(application.enable() if is_to_enable else application.run())
    for number in (signal.SIGINT, signal.SIGTERM, signal.SIGHUP):
        asyncio.get_running_loop().add_signal_handler(number, task.cancel)
    try:
        await task
    except asyncio.CancelledError:
        pass


if __name__ == "__main__":
    sys.exit(main())
