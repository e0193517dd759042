"""What a companion tells every extension: its folders, the titles of the entries, the backup switch."""

import dataclasses
import enum
import json
from collections.abc import Callable, Iterable

BLOCK_SIZE = 1024
"""Bytes that the extension reads at once, and so the most that a message may have."""


class Reason(enum.Enum):
    """Why a path or a title was refused; the value completes a sentence that begins with it."""

    NOT_ABSOLUTE = "is not an absolute path"
    NOT_UTF8 = "is not UTF-8"
    HOLDS_NUL = "holds a NUL character"
    TOO_LONG = "is too long: its message would exceed 1,024 bytes"
    NOT_NORMALIZED = 'is not as the file system spells it: it has a needless "/", "." or ".."'


@dataclasses.dataclass(frozen=True)
class Refusal:
    """A path, or the key of a title, that was not taken; as text, a sentence that names it."""

    path: str
    reason: Reason

    def __str__(self) -> str:
        return f"{self.path.encode(errors='backslashreplace').decode()} {self.reason.value}"


@dataclasses.dataclass(frozen=True)
class Titles:
    """The titles of the menu entries; the first is shown nowhere."""

    share_contact: str = ""
    share_via_url: str = ""
    backup: str = ""


def message_line(message: dict[str, str]) -> bytes:
    """The message as it goes over the wire, with its line feed."""
    return json.dumps(message, ensure_ascii=False, separators=(",", ":")).encode() + b"\n"


def titles_message(titles: Titles) -> dict[str, str]:
    return {"type": "set_locale", "shareContactTitle": titles.share_contact,
            "shareViaUrlTitle": titles.share_via_url, "backupTitle": titles.backup}


class Companion:
    """The state that every connection is told: whole, and replaced as a whole.

    What was never set is not told, so that the extension keeps what the shared settings say. Two
    folders whose names are canonically equivalent are one to the extension.
    """

    def __init__(self) -> None:
        self._folders: dict[str, None] = {}
        self._titles: Titles | None = None
        self._backup: bool | None = None
        self._changes = 0
        self.watchers: list[Callable[[], None]] = []
        """Are called whenever anything has been set."""

    @property
    def folders(self) -> list[str]:
        """The folders that were taken, in order."""
        return list(self._folders)

    @property
    def titles(self) -> Titles | None:
        """The titles as they are told, None until they are set."""
        return self._titles

    @property
    def backup(self) -> bool | None:
        """Whether the backup entry is shown, None until it is set."""
        return self._backup

    @property
    def changes(self) -> int:
        """Grows whenever anything is set, so that a connection sees that it has to compare."""
        return self._changes

    def set_folders(self, paths: Iterable[str]) -> list[Refusal]:
        """Replaces all folders. Refused paths are left out, duplicates are taken once."""
        refusals = []
        self._folders = {}
        for path in paths:
            if reason := _reason_to_refuse(path):
                refusals.append(Refusal(path, reason))
            else:
                self._folders[path] = None
        self._has_changed()
        return refusals

    def set_titles(self, titles: Titles) -> list[Refusal]:
        """Replaces all titles; one that is refused keeps its former text.

        Titles that do not fit into one message together are not refused: each is cut to a third of
        the room, at a character's boundary.
        """
        former = self._titles or Titles()
        refusals = []
        for name, key in (("share_contact", "shareContactTitle"),
                          ("share_via_url", "shareViaUrlTitle"), ("backup", "backupTitle")):
            if not _is_utf8(getattr(titles, name)):
                refusals.append(Refusal(key, Reason.NOT_UTF8))
                titles = dataclasses.replace(titles, **{name: getattr(former, name)})
        self._titles = _fitting(titles)
        self._has_changed()
        return refusals

    def set_backup(self, is_shown: bool) -> None:
        """Shows or hides the backup entry."""
        self._backup = is_shown
        self._has_changed()

    def folders_around(self, path: str) -> list[str]:
        """The folders that contain a normalized path or are it, the innermost first."""
        found = []
        while path not in ("", "/"):
            if path in self._folders:
                found.append(path)
            path = path.rpartition("/")[0]
        return found + ["/"] if "/" in self._folders else found

    def _has_changed(self) -> None:
        self._changes += 1
        for watcher in self.watchers:
            watcher()


def _is_utf8(text: str) -> bool:
    try:
        text.encode()
    except UnicodeEncodeError:
        return False
    return True


def _reason_to_refuse(path: str) -> Reason | None:
    if not path.startswith("/"):
        return Reason.NOT_ABSOLUTE
    if not _is_utf8(path):
        return Reason.NOT_UTF8
    if "\0" in path:
        return Reason.HOLDS_NUL
    if len(message_line({"type": "add_folder", "path": path})) > BLOCK_SIZE:
        return Reason.TOO_LONG
    if path != "/" and not {"", ".", ".."}.isdisjoint(path[1:].split("/")):
        return Reason.NOT_NORMALIZED
    return None


def _fitting(titles: Titles) -> Titles:
    if len(message_line(titles_message(titles))) <= BLOCK_SIZE:
        return titles
    share = (BLOCK_SIZE - len(message_line(titles_message(Titles())))) // 3
    return Titles(*(_cut(title, share) for title in dataclasses.astuple(titles)))


def _cut(text: str, limit: int) -> str:
    """The longest beginning that takes no more bytes than the limit on the wire."""
    for index, character in enumerate(text):
        limit -= len(json.dumps(character, ensure_ascii=False).encode()) - 2
        if limit < 0:
            return text[:index]
    return text
