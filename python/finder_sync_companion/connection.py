"""The link to one extension, without input and output."""

import collections
from collections.abc import Callable, Iterable

from .reports import MalformedReport, Report, ReportParser
from .state import BLOCK_SIZE, Companion, Titles, message_line, titles_message


class Connection:
    """One extension that has connected: what it has to be told, and what it reports.

    `resolve` gives the path without symbolic links. A path counts as inside a folder if it is
    inside it as text and also after both are resolved.
    """

    def __init__(self, companion: Companion, resolve: Callable[[str], str] = str) -> None:
        self._companion = companion
        self._resolve = resolve
        self._parser = ReportParser()
        self._pending: collections.deque[dict[str, str]] = collections.deque()
        self._compared = -1  # the companion's count of changes at the last comparison
        self._told_titles: Titles | None = None
        self._told_backup: bool | None = None
        self._told_folders: dict[str, None] = {}
        self.failed: str | None = None
        """Why the connection has to be closed: what arrived is no report."""
        self.dropped_paths = 0
        """How many reported paths were inside no folder."""

    def next_block(self) -> bytes | None:
        """The next 1,024 bytes for the extension, or None when it has been told all.

        They count as told: write all of them, or close the connection.
        """
        if self._compared != self._companion.changes:
            self._compared = self._companion.changes
            self._pending = collections.deque(self._differences())
        block = b""
        while self._pending and not self.failed:
            line = message_line(self._pending[0])
            if len(block) + len(line) > BLOCK_SIZE:
                break
            block += line
            self._count_as_told(self._pending.popleft())
        return block[:-1].ljust(BLOCK_SIZE - 1) + b"\n" if block else None

    def receive(self, data: bytes) -> list[Report]:
        """Takes bytes that have arrived; gives the reports that they complete.

        Only paths inside a folder remain; a report that loses all its paths is dropped.
        """
        reports: list[Report] = []
        try:
            for report in () if self.failed else self._parser.take(data):
                paths = tuple(self._inside(report.paths))
                if paths or not report.paths:
                    reports.append(Report(report.type, paths))
        except MalformedReport as malformed:
            self.failed = str(malformed)
        return reports

    def _differences(self) -> Iterable[dict[str, str]]:
        state = self._companion
        if state.titles is not None and state.titles != self._told_titles:
            yield titles_message(state.titles)
        if state.backup is not None and state.backup != self._told_backup:
            yield {"type": "set_menu_usage", "displayBackup": "1" if state.backup else "0"}
        wanted = dict.fromkeys(state.folders)
        for path in self._told_folders:
            if path not in wanted:
                yield {"type": "del_folder", "path": path}
        for path in wanted:
            if path not in self._told_folders:
                yield {"type": "add_folder", "path": path}

    def _count_as_told(self, message: dict[str, str]) -> None:
        match message:
            case {"type": "set_locale"}:
                self._told_titles = self._companion.titles
            case {"displayBackup": _}:
                self._told_backup = self._companion.backup
            case {"type": "del_folder", "path": path}:
                del self._told_folders[path]
            case {"path": path}:
                self._told_folders[path] = None

    def _inside(self, paths: Iterable[str]) -> Iterable[str]:
        for path in paths:
            if path.startswith("/") and "\0" not in path and self._is_inside(_normalized(path)):
                yield _normalized(path)
            else:
                self.dropped_paths += 1

    def _is_inside(self, path: str) -> bool:
        for folder in self._companion.folders_around(path):
            outer = self._resolve(folder).rstrip("/") + "/"
            if (self._resolve(path).rstrip("/") + "/").startswith(outer):
                return True
        return False


def _normalized(path: str) -> str:
    """The absolute path with its empty, "." and ".." components resolved as text."""
    parts: list[str] = []
    for part in path.split("/"):
        if part == "..":
            del parts[-1:]
        elif part not in ("", "."):
            parts.append(part)
    return "/" + "/".join(parts)
