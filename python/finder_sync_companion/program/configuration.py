"""The settings file, in TOML: folders, and what the two entries do."""

import dataclasses
import os
import pathlib
import re
import shutil
import tomllib
from collections.abc import Iterator
from typing import Any

from ..settings import config_home
from ..state import Companion
from .sources import Folder, folder_of

EXAMPLE = """\
# Folders that get a badge, and the entries on what is in them. A table gives a folder another name
# for the commands: { path = "~/Pictures", name = "photos" }
folders = ["~/Sync"]

# What the entries do. Commands run without a shell. In them, {path} is the picked item, {relative} its
# path inside the folder, and {folder} the folder's name.
[link]
command = ["echo", "https://example.com/{folder}/{relative}"]
# title = "Copy link"       # otherwise in your language
# clipboard = true          # copies the first line that the command prints

# [backup]
# command = ["restic", "backup", "{path}"]
"""
PLACEHOLDER = re.compile(r"\{\{|\}\}|\{(\w*)\}|[{}]")
PLACEHOLDERS = ("path", "relative", "folder")


@dataclasses.dataclass(frozen=True)
class Entry:
    """What an entry of the menu does. Without a title, it has one in the user's language."""

    command: tuple[str, ...]
    title: str | None
    clipboard: bool


@dataclasses.dataclass(frozen=True)
class Configuration:
    """What stands in a file. The link's entry is always shown, the other if it does something."""

    folders: tuple[Folder, ...] = ()
    source: tuple[str, ...] = ()
    """The program that finds more folders, with its arguments."""
    link: Entry | None = None
    backup: Entry | None = None


@dataclasses.dataclass(frozen=True)
class Problem:
    """What is wrong, and where: lines and columns count from 1."""

    line: int
    column: int
    text: str


def default_file() -> pathlib.Path:
    return config_home() / "finder-sync-companion/settings.toml"


def how_to_begin(file: pathlib.Path) -> str:
    """A sentence for those who have no settings file yet."""
    return (f'{file} does not exist: begin with "mkdir -p {file.parent} '
            f'&& finder-sync-companion example >{file}"')


def read(file: pathlib.Path) -> str:
    """The text of a settings file; a byte that is no UTF-8 is a lone surrogate. Raises OSError."""
    return file.read_text(encoding="utf-8", errors="surrogateescape")


def parse(text: str, looks_at_machine: bool = False) -> tuple[Configuration, list[Problem]]:
    """The settings, and what is wrong with them; they are of use only if nothing is.

    What they name and the machine does not have is found as well if that is wished.
    """
    if stray := re.search("[\ud800-\udfff]", text):
        return Configuration(), [_problem_at(text, stray.start(), "a byte is no UTF-8")]
    try:
        values = tomllib.loads(text)
    except (ValueError, RecursionError) as error:  # the latter by lists in lists in lists
        return Configuration(), [_problem_of_syntax(text, str(error))]
    reader = _Reader(text, looks_at_machine)
    reader.check_keys(values, None, {"folders", "source", "link", "backup"})
    folders = tuple(reader.folders(values.get("folders", [])))
    source = reader.command("source", values["source"]) if "source" in values else ()
    entries = {name: reader.entry(name, values[name], clipboard=name == "link")
               for name in ("link", "backup") if name in values}
    return Configuration(folders, source, **entries), reader.problems


def filled_in(command: tuple[str, ...], values: dict[str, str]) -> list[str]:
    """The command with its placeholders replaced; braces are doubled to stand for themselves."""
    def replacement(match: re.Match[str]) -> str:
        return values[match[1]] if match[1] else match[0][0]

    return [PLACEHOLDER.sub(replacement, word) for word in command]


def _problem_of_syntax(text: str, message: str) -> Problem:
    place = re.search(r" \(at (?:line (\d+), column (\d+)|end of document)\)$", message)
    if place and place[1]:
        return Problem(int(place[1]), int(place[2]), message[:place.start()])
    return _problem_at(text, len(text), message[:place.start()] if place else message)


def _problem_at(text: str, position: int, what: str) -> Problem:
    column = position - (text.rfind("\n", 0, position) + 1) + 1
    return Problem(text.count("\n", 0, position) + 1, column, what)


class _Reader:
    """Takes values out of what was parsed, and says where in the text something is wrong."""

    def __init__(self, text: str, looks_at_machine: bool) -> None:
        self._text = text
        self._looks_at_machine = looks_at_machine
        self.problems: list[Problem] = []

    def complain(self, what: str, table: str | None, key: str, value: str = "") -> None:
        self.problems.append(_problem_at(self._text, self._position(table, key, value), what))

    def _position(self, table: str | None, key: str, value: str) -> int:
        """Where the value stands, or else the key, or else its table."""
        headers = [*re.finditer(r"(?m)^[ \t]*\[+[ \t]*([^]\n]*?)[ \t]*\]", self._text)]
        start, end = 0, headers[0].start() if headers else len(self._text)
        for header, following in zip(headers, [*headers[1:], None]):
            if header[1].strip("\"'") == table:
                start, end = header.start(), following.start() if following else len(self._text)
        found = re.compile(rf"(?m)^[ \t]*([\"']?){re.escape(key)}\1[ \t]*[.=]").search(
            self._text, start, end)
        if not found:
            return start
        key_start = found.end() - len(found[0].lstrip())
        if value:
            for spelling in (f'"{value}"', f"'{value}'", value):
                value_start = self._text.find(spelling, found.end(), end)
                if value_start >= 0:
                    return value_start
        return key_start

    def check_keys(self, values: dict[str, Any], table: str | None, known: set[str]) -> None:
        for key in values:
            if key not in known:
                listed = ", ".join(f'"{name}"' for name in sorted(known))
                self.complain(f'unknown key "{key}"; there are {listed}', table, key)

    def folders(self, values: Any) -> Iterator[Folder]:
        if not isinstance(values, list):
            self.complain('"folders" is not a list', None, "folders")
            return
        for value in values:
            path = str((value.get("path") if isinstance(value, dict) else value) or "")
            try:
                folder = folder_of(value)
            except ValueError as error:
                self.complain(str(error), None, "folders", path)
                continue
            for refusal in Companion().set_folders([folder.path]):
                self.complain(str(refusal), None, "folders", path)
            if self._looks_at_machine and not os.path.isdir(folder.path):
                self.complain(f"there is no folder {folder.path}", None, "folders", path)
            yield folder

    def command(self, name: str, values: Any, *others: str) -> tuple[str, ...]:
        """The command of a table, in which there may be other keys."""
        if not isinstance(values, dict):
            self.complain(f'"{name}" is not a table', None, name)
            return ()
        self.check_keys(values, name, {"command", *others})
        command = values.get("command")
        if not isinstance(command, list) or not command or not all(isinstance(word, str) for word in command):
            self.complain("a command is a list of texts, its program and each argument: "
                          'it runs without a shell', name, "command")
            return ()
        if self._looks_at_machine and not shutil.which(command[0]):
            self.complain(f"there is no program {command[0]}", name, "command", command[0])
        return tuple(command)

    def entry(self, name: str, values: Any, clipboard: bool) -> Entry:
        command = self.command(name, values, "title", "clipboard")
        if not isinstance(values, dict):
            return Entry(command, None, clipboard)
        for word in command:
            self._check_placeholders(word, name)
        if not isinstance(values.get("title", ""), str):
            self.complain("a title is a text", name, "title")
        if not isinstance(values.get("clipboard", False), bool):
            self.complain('"clipboard" is true or false', name, "clipboard")
        return Entry(command, values.get("title"), values.get("clipboard", clipboard))

    def _check_placeholders(self, word: str, table: str) -> None:
        for match in PLACEHOLDER.finditer(word):
            if match[0] not in ("{{", "}}") and match[1] not in PLACEHOLDERS:
                listed = ", ".join(f"{{{name}}}" for name in PLACEHOLDERS)
                self.complain(f'"{match[0]}" is no placeholder; there are {listed}, and {{{{ and }}}} '
                              "stand for braces", table, "command", match[0])
