"""Click reports: what the user has picked in a menu."""

import dataclasses
import enum
import json
import re
from collections.abc import Iterator

SIZE_LIMIT = 1 << 20
"""Bytes that a report may have."""


class ReportType(enum.Enum):
    """The entries of the menu, by the names of the wire. The first two are shown to users."""

    CREATE_URL_LINK = "clicked_create_url_link"
    BACKUP = "clicked_backup"
    SHARE_CONTACTS = "clicked_share_contacts"
    IN_PROGRESS = "clicked_in_progress"
    NOT_SYNCED = "clicked_not_synced"
    SYNCED = "clicked_synced"


@dataclasses.dataclass(frozen=True)
class Report:
    """A pick of a menu entry, and the normalized paths of what was selected."""

    type: ReportType
    paths: tuple[str, ...] = ()


class MalformedReport(ValueError):
    """The bytes are no report; the text says why."""


class ReportParser:
    """Finds reports in bytes that come without separators, in pieces of any size."""

    _WHITESPACE = re.compile(rb"[ \t\r\n]*")
    _OUTSIDE_STRING = re.compile(rb'[^"{}]*')
    _INSIDE_STRING = re.compile(rb'(?:[^"\\]|\\.)*', re.DOTALL)

    def __init__(self) -> None:
        self._buffer = bytearray()
        self._restart()

    def take(self, data: bytes) -> Iterator[Report]:
        """Takes the next bytes and gives the reports that they complete, with paths as they stand.

        Raises MalformedReport once the bytes are no report; nothing more can be taken then.
        """
        self._buffer += data
        while (end := self._end_of_report()) is not None:
            _check_size(end)
            text = bytes(self._buffer[:end])
            del self._buffer[:end]
            self._restart()
            yield _parsed(text)
        _check_size(len(self._buffer))

    def _restart(self) -> None:
        self._position = 0  # up to which the buffer has been looked at
        self._depth = 0
        self._is_in_string = False

    def _end_of_report(self) -> int | None:
        if self._position == 0:
            del self._buffer[:_end(self._WHITESPACE, self._buffer, 0)]
            if self._buffer and self._buffer[0] != ord("{"):
                raise MalformedReport('not JSON: a report does not begin with "{"')
        while True:
            pattern = self._INSIDE_STRING if self._is_in_string else self._OUTSIDE_STRING
            self._position = _end(pattern, self._buffer, self._position)
            found = bytes(self._buffer[self._position:self._position + 1])
            if found in (b"", b"\\"):  # what follows the backslash has not arrived
                return None
            self._position += 1
            if found == b'"':
                self._is_in_string = not self._is_in_string
            else:
                self._depth += 1 if found == b"{" else -1
                if self._depth == 0:
                    return self._position


def _end(pattern: re.Pattern[bytes], buffer: bytearray, position: int) -> int:
    match = pattern.match(buffer, position)
    assert match  # since each pattern matches nothing at all as well
    return match.end()


def _check_size(size: int) -> None:
    if size > SIZE_LIMIT:
        raise MalformedReport("a report is longer than 1 MiB")


def _parsed(text: bytes) -> Report:
    try:
        report = json.loads(text.decode())
        json.dumps(report, ensure_ascii=False).encode()  # fails for lone surrogates
    except (ValueError, RecursionError) as error:
        raise MalformedReport(f"not JSON: {error}") from None
    if (report.keys() != {"type", "items"} or not isinstance(report["type"], str)
            or not isinstance(report["items"], list)
            or not all(isinstance(item, str) for item in report["items"])):
        raise MalformedReport("a report has not the shape of a report")
    try:
        return Report(ReportType(report["type"]), tuple(report["items"]))
    except ValueError:
        raise MalformedReport(f"a report has an unknown type: {report['type']}") from None
