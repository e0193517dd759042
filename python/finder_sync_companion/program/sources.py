"""Folders, from the settings file and from a program that finds more of them."""

import asyncio
import dataclasses
import json
import os
from collections.abc import Awaitable, Callable, Sequence
from typing import Any

from .commands import Command

LONGEST_PAUSE = 60.0  # seconds between two runs of a program that fails


@dataclasses.dataclass(frozen=True)
class Folder:
    """A folder with the badge, and what commands call it."""

    path: str
    name: str


def folder_of(value: Any) -> Folder:
    """From a path, or a table with path and name. Raises ValueError."""
    table = value if isinstance(value, dict) else {"path": value}
    path, name = table.get("path"), table.get("name", "")
    if table.keys() - {"path", "name"} or not isinstance(path, str) or not isinstance(name, str):
        raise ValueError("a folder is a text, or a table with the texts path and name")
    expanded = os.path.expanduser(path)
    expanded = expanded.rstrip("/") or expanded[:1]  # an empty path is not "/"
    return Folder(expanded, name or os.path.basename(expanded))


async def follow(command: Sequence[str], found: Callable[[Sequence[Folder]], None],
                 failed: Callable[[str, bool], Awaitable[None]]) -> None:
    """Runs a program that prints all of its folders, and prints them again when they have changed.

    Returns when it has ended well. If it fails, it is run again after a pause, which grows. `failed`
    is called with what is wrong when that is new, and once more, with True, when it has lasted: a
    program that starts with the session may need others which start then, too.
    """
    clock = asyncio.get_running_loop().time
    pause, said = 1.0, ""
    while True:
        started = clock()
        failure = await _run(command, found)
        if failure is None:
            return
        if clock() - started > LONGEST_PAUSE:
            pause, said = 1.0, ""
        if failure != said:
            await failed(failure, False)
        if pause == 8:
            await failed(failure, True)
        said = failure
        await asyncio.sleep(pause)
        pause = min(2 * pause, LONGEST_PAUSE)


async def _run(command: Sequence[str], found: Callable[[Sequence[Folder]], None]) -> str | None:
    """What has gone wrong, None if nothing has."""
    try:
        process = await Command.start(command, os.path.expanduser("~"))
        outcome = await process.wait(lambda line: found(_folders_of(line)))
    except OSError as error:
        return f"{command[0]}: {error.strerror}"
    except ValueError as error:
        return str(error)
    return None if outcome.succeeded else outcome.last_error


def _folders_of(line: bytes) -> list[Folder]:
    try:
        values = json.loads(line)
    except (ValueError, RecursionError):
        values = None
    if not isinstance(values, list):
        raise ValueError("each line has to be a list of folders in JSON, and this one is not: "
                         + line[:100].decode(errors="replace"))
    return [folder_of(value) for value in values]
