"""One pick of an entry on one item: runs its command, and tells the user what has become of it."""

import asyncio
import os
from collections.abc import Callable

from . import desktop
from .commands import Command
from .configuration import Entry, filled_in
from .log import log
from .sources import Folder

_PROGRESS_INTERVAL = 2.0  # seconds until a command is shown as running, and between shown lines


class Pick:
    """The texts are translated, and name the item."""

    def __init__(self, path: str, translate: Callable[[str], str]) -> None:
        self._path = path
        self._name = os.path.basename(path) or path
        self._translate = translate
        self._notification = desktop.Notification()

    async def run(self, entry: Entry, folder: Folder) -> None:
        """Runs the command to its end, copies what it prints and notifies the user."""
        relative = os.path.relpath(self._path, folder.path)
        values = {"path": self._path, "relative": relative, "folder": folder.name}
        words = filled_in(entry.command, values)
        try:
            command = await Command.start(words, folder.path)
        except (OSError, ValueError) as error:
            missing = getattr(error, "filename", None) or words[0]  # or the folder
            await self.fail(f"{missing}: {getattr(error, 'strerror', None) or error}")
            return
        task = asyncio.current_task()
        assert task
        progress = asyncio.create_task(self._show_progress(command, task.cancel))
        try:
            outcome = await command.wait()
        except asyncio.CancelledError:
            await self._say(self._translate("Cancelled"), self._name)
            return
        finally:
            progress.cancel()
        if not outcome.succeeded:
            await self.fail(outcome.last_error)
        elif entry.clipboard and outcome.first_line:
            await self._copy(outcome.first_line)
        else:
            await self._say(self._translate("Done"), self._name)

    async def fail(self, reason: str) -> None:
        """Tells the user what went wrong."""
        log(f"{self._path}: {reason}")
        await self._say(self._translate("Failed: %s") % self._name, reason)

    async def _copy(self, text: str) -> None:
        try:
            await desktop.copy(text)
        except desktop.NoClipboard:
            await self.fail(self._translate(
                "Nothing can write to the clipboard: install wl-clipboard, xclip or xsel"))
        else:
            await self._say(self._translate("Copied"), text)

    async def _show_progress(self, command: Command, cancel: Callable[[], object]) -> None:
        shown = None
        while True:
            await asyncio.sleep(_PROGRESS_INTERVAL)
            if command.last_line != shown:
                shown = command.last_line
                await self._notification.show(self._translate("Working on %s") % self._name, shown,
                                              self._translate("Cancel"), cancel)

    async def _say(self, title: str, body: str) -> None:
        log(f"{self._path}: {title}")
        await self._notification.show(title, body)
