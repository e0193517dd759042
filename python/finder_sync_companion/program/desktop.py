"""The clipboard and notifications, by the programs that desktops have for them."""

import asyncio
import html
import os
import shutil
from collections.abc import Callable

CLIPBOARD_PROGRAMS = (
    ("WAYLAND_DISPLAY", ["wl-copy"]),
    ("DISPLAY", ["xclip", "-selection", "clipboard"]),
    ("DISPLAY", ["xsel", "--clipboard", "--input"]),
)
_NULL, _PIPE = asyncio.subprocess.DEVNULL, asyncio.subprocess.PIPE


class NoClipboard(Exception):
    """No program can write to the clipboard of this session."""


async def copy(text: str) -> None:
    """Puts the text into the clipboard. Raises NoClipboard."""
    for display, command in CLIPBOARD_PROGRAMS:
        if not os.environ.get(display) or not shutil.which(command[0]):
            continue
        # The program goes on in the background, until another takes the clipboard.
        try:
            child = await asyncio.create_subprocess_exec(*command, stdin=_PIPE, stdout=_NULL,
                                                         stderr=_NULL)
        except OSError:
            continue
        assert child.stdin
        child.stdin.write(text.encode())
        child.stdin.close()
        if await child.wait() == 0:
            return
    raise NoClipboard


class Notification:
    """One bubble on the desktop, whose text can be replaced."""

    def __init__(self) -> None:
        self._number = "0"
        self._waiting: asyncio.subprocess.Process | None = None
        self._task: asyncio.Task[None] | None = None

    async def show(self, title: str, body: str = "", cancel: str = "",
                   on_cancel: Callable[[], object] | None = None) -> None:
        """Shows it, or other texts in its place, with a button if there is something to cancel."""
        self._stop_waiting()
        title, body = title.replace("\0", ""), html.escape(body.replace("\0", ""), quote=False)
        options = ["--app-name", "finder-sync-companion", "--print-id", "--replace-id",
                   self._number, *(["--action", f"cancel={cancel}"] if on_cancel else [])]
        try:
            child = await asyncio.create_subprocess_exec(
                "notify-send", *options, "--", title, body, stdin=_NULL, stdout=_PIPE, stderr=_NULL)
        except OSError:
            return  # without notifications, the log says the same
        assert child.stdout
        self._number = (await child.stdout.readline()).decode().strip() or "0"
        if on_cancel:
            self._waiting = child
            self._task = asyncio.create_task(self._wait_for_button(child, on_cancel))

    async def _wait_for_button(self, child: asyncio.subprocess.Process,
                               on_cancel: Callable[[], object]) -> None:
        assert child.stdout
        if (await child.stdout.readline()).strip() == b"cancel":
            on_cancel()
        await child.wait()

    def _stop_waiting(self) -> None:
        if self._waiting and self._waiting.returncode is None:
            self._waiting.terminate()
        self._waiting = None
