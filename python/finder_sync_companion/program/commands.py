"""Runs what an entry does: without a shell, cancellable, with what it has to say at the end."""

import asyncio
import dataclasses
import os
import re
import signal
from collections.abc import Callable, Sequence

_SHOWN_LIMIT = 4096  # bytes of a line that are shown
_TAKEN_LIMIT = 1 << 24  # bytes of a line that is taken
_TIME_TO_END = 5.0  # seconds between the request to end and the kill


@dataclasses.dataclass(frozen=True)
class Outcome:
    """How a command has ended."""

    succeeded: bool
    first_line: str
    """Of the output."""
    last_error: str
    """The last line on standard error, or else what the system says of the command."""


class Command:
    """A command that runs in a process group of its own."""

    def __init__(self, process: asyncio.subprocess.Process) -> None:
        self._process = process
        self._first = b""
        self._last = {"output": b"", "error": b""}
        self.last_line = ""
        """What the command has written last, for those who wait."""

    @classmethod
    async def start(cls, words: Sequence[str], folder: str) -> "Command":
        """Starts it in the folder. Raises OSError, and ValueError for a word that holds a NUL."""
        pipe = asyncio.subprocess.PIPE
        return cls(await asyncio.create_subprocess_exec(
            *words, cwd=folder, stdin=asyncio.subprocess.DEVNULL, stdout=pipe, stderr=pipe,
            start_new_session=True))

    async def wait(self, take: Callable[[bytes], object] | None = None) -> Outcome:
        """Waits for its end, and has each line of the output taken.

        If the waiting task is cancelled, or a line raises ValueError, the command is ended.
        """
        output, error = self._process.stdout, self._process.stderr
        assert output and error
        try:
            await asyncio.gather(self._read(output, "output", take), self._read(error, "error"))
            status = await self._process.wait()
        except (asyncio.CancelledError, ValueError):
            await self._end()
            raise
        return Outcome(status == 0, _as_text(self._first),
                       _as_text(self._last["error"]) or f"exit status {status}")

    async def _read(self, stream: asyncio.StreamReader, name: str,
                    take: Callable[[bytes], object] | None = None) -> None:
        rest = b""
        while data := await stream.read(65536):
            first, *others = re.split(rb"[\r\n]+", data)
            *lines, rest = (rest + first, *others)
            self._note(lines, name, take)
            rest = rest[:_TAKEN_LIMIT if take else _SHOWN_LIMIT]
        self._note([rest], name, take)

    def _note(self, lines: list[bytes], name: str,
              take: Callable[[bytes], object] | None) -> None:
        for line in filter(bytes.strip, lines):
            if take:
                take(line)
            if name == "output" and not self._first:
                self._first = line
            self._last[name] = line
            self.last_line = _as_text(line)

    async def _end(self) -> None:
        self._signal(signal.SIGTERM)
        try:
            await asyncio.wait_for(self._process.wait(), _TIME_TO_END)
        except asyncio.TimeoutError:
            self._signal(signal.SIGKILL)
            await self._process.wait()

    def _signal(self, number: int) -> None:
        try:
            os.killpg(self._process.pid, number)
        except ProcessLookupError:
            pass  # it has just ended


def _as_text(line: bytes) -> str:
    return line[:_SHOWN_LIMIT].decode(errors="replace").replace("\0", "").strip()
