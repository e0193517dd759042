"""Runs what an entry does: without a shell, cancellable, with what it has to say at the end."""

import asyncio
import dataclasses
import os
import signal
from collections.abc import Callable, Sequence

_SHOWN_LIMIT = 4096  # bytes of a line that are shown
_TAKEN_LIMIT = 1 << 24  # bytes of a line that is taken
_TIME_TO_END = 5.0  # seconds between the request to end and the kill
_PAUSE = 0.05  # seconds between looks whether it has ended
_TIME_TO_READ = 1.0  # seconds in which what has been written is read


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
        self._latest = b""

    @property
    def last_line(self) -> str:
        """What the command has written last, for those who wait."""
        return _as_text(self._latest)

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
        reading = {asyncio.create_task(self._read(output, "output", take)),
                   asyncio.create_task(self._read(error, "error"))}
        left, has_ended = reading, False
        try:
            # What it leaves behind, such as a browser, may keep the output open for long.
            while left and (take or not has_ended):
                has_ended = self._process.returncode is not None
                done, left = await asyncio.wait(left, timeout=_TIME_TO_READ,
                                                return_when=asyncio.FIRST_EXCEPTION)
                for each in done:
                    each.result()
            status = self._process.returncode
            if status is None:
                status = await self._process.wait()
        except (asyncio.CancelledError, ValueError):
            for each in reading:
                each.cancel()
            await self._end()
            raise
        return Outcome(status == 0, _as_text(self._first),
                       _as_text(self._last["error"]) or f"exit status {status}")

    async def _read(self, stream: asyncio.StreamReader, name: str,
                    take: Callable[[bytes], object] | None = None) -> None:
        rest = b""
        while data := await stream.read(65536):
            first, *others = data.replace(b"\r", b"\n").split(b"\n")
            *lines, rest = (rest + first, *others)
            self._note(lines, name, take)
            if take and len(rest) > _TAKEN_LIMIT:
                raise ValueError("a line is longer than 16 MiB")
            rest = rest if take else rest[:_SHOWN_LIMIT]
        self._note([rest], name, take)

    def _note(self, lines: list[bytes], name: str,
              take: Callable[[bytes], object] | None) -> None:
        lines = [*filter(bytes.strip, lines)]
        if take:
            for line in lines:
                take(line)
        if lines and name == "output" and not self._first:
            self._first = lines[0]
        if lines:
            self._last[name] = self._latest = lines[-1]

    async def _end(self) -> None:
        for number in (signal.SIGTERM, signal.SIGKILL):
            self._signal(number)
            for _ in range(round(_TIME_TO_END / _PAUSE)):
                if self._process.returncode is not None:
                    return
                await asyncio.sleep(_PAUSE)

    def _signal(self, number: int) -> None:
        try:
            os.killpg(self._process.pid, number)
        except ProcessLookupError:
            pass  # it has just ended


def _as_text(line: bytes) -> str:
    return line[:_SHOWN_LIMIT].decode(errors="replace").replace("\0", "").strip()
