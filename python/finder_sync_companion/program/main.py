"""The command line of `finder-sync-companion`."""

import argparse
import asyncio
import gettext
import pathlib
import signal
import sys

from . import configuration
from .application import Application, described
from .log import log

VERSION = "0.1.0"


def main(group: str = "com.example.companion", control_program: str = "finderctl",
         locale_folder: str | None = None) -> int:
    """Runs the program for the extension of an application group; gives the exit status."""
    parser = argparse.ArgumentParser(
        prog="finder-sync-companion",
        description="Badges on folders, and menu entries that run commands of your own.")
    parser.add_argument("command", nargs="?", choices=["run", "check", "example", "enable"],
                        default="run", help="run (the default), check the settings file, print an "
                        "example of one, or have systemd run the program when the extension connects")
    parser.add_argument("--settings", type=pathlib.Path, metavar="FILE",
                        default=configuration.default_file(), help="another settings file")
    parser.add_argument("--version", action="version", version=f"%(prog)s {VERSION}")
    arguments = parser.parse_args()
    if arguments.command == "example":
        print(configuration.EXAMPLE, end="")
        return 0
    try:
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
        log(str(error))
        return 1
    return 0


def check(file: pathlib.Path) -> int:
    """Says what is wrong with the file, and what it names that is not there."""
    _, problems = configuration.parse(file.read_text(encoding="utf-8"), looks_at_machine=True)
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
