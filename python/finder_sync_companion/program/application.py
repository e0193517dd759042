"""The companion that runs: tells folders and titles, and runs commands for what users pick."""

import asyncio
import errno
import pathlib
from collections.abc import Callable, Coroutine, Iterable, Sequence
from typing import Any

from .. import settings
from ..reports import Report, ReportType
from ..server import Server, restart_extension
from ..state import Companion, Titles
from . import configuration, desktop, systemd
from .configuration import Configuration, Entry, Problem
from .log import log
from .pick import Pick
from .sources import Folder, follow

FILE_INTERVAL = 1.0  # seconds between looks at the settings file
CONNECTION_TIME = 1.0  # seconds in which an extension that systemd has started us for is there


class Application:
    """Serves the extension of a group, by the settings in a file, until it is cancelled."""

    def __init__(self, group: str, control_program: str, file: pathlib.Path,
                 translate: Callable[[str], str]) -> None:
        self._group = group
        self._control_program = control_program
        self._file = file
        self._translate = translate
        self._companion = Companion()
        self._server = Server(self._companion, self._reported, self._connected)
        self._configuration = Configuration()
        self._found: Sequence[Folder] = ()
        self._refusals: set[str] = set()
        self._source: asyncio.Task[None] | None = None
        self._tasks: set[asyncio.Task[None]] = set()
        self._is_connected = asyncio.Event()

    async def run(self) -> None:
        """Waits for settings that are missing or wrong, since systemd would start it at once again.

        Raises OSError when the port or the shared settings cannot be used, ValueError when these are
        malformed.
        """
        await self._listen()
        self._server.write_settings(self._group)
        try:
            await asyncio.gather(self._watch_file(), self._have_extension_connect())
        finally:
            await self._close()

    async def enable(self) -> None:
        """Has systemd listen on the port in the program's place, and start it when the extension
        connects. Raises as `run` does, and also when the settings are missing or wrong."""
        loaded, problems = configuration.parse(configuration.read(self._file))
        if problems:
            raise ValueError("\n".join(described(self._file, problems)))
        self._set_entries(loaded)
        self._server.port = self._port_of_settings()
        if not self._server.port:
            await self._listen()
            await self._close()
        self._server.write_settings(self._group)
        await systemd.enable_socket(self._server.port)
        if failure := await restart_extension(self._group, self._control_program):
            raise OSError(failure)

    async def _listen(self) -> None:
        port = self._port_of_settings()
        try:
            await self._server.start(port)
        except OSError as error:
            hint = ". Does the program run already?" if error.errno == errno.EADDRINUSE else ""
            raise OSError(f"port {port} of 127.0.0.1 cannot be had: {error.strerror}{hint}") from None
        log(f"listening on 127.0.0.1:{self._server.port}")

    async def _close(self) -> None:
        for task in self._tasks:
            task.cancel()
        await asyncio.gather(*self._tasks, return_exceptions=True)
        await self._server.close()

    def _port_of_settings(self) -> int:
        """The port of the last time, so that an extension that starts first knows it."""
        port = settings.read(self._group).get("ServerPort")
        return port if isinstance(port, int) and 0 < port < 65536 else 0

    async def _have_extension_connect(self) -> None:
        """One that has connected to another companion, or tried while there was none, starts anew."""
        try:
            await asyncio.wait_for(self._is_connected.wait(), CONNECTION_TIME)
        except asyncio.TimeoutError:
            if failure := await restart_extension(self._group, self._control_program):
                log(*failure.splitlines())

    def _connected(self) -> None:
        self._is_connected.set()
        log("the extension has connected")

    async def _watch_file(self) -> None:
        text = None
        while True:
            try:
                edited = configuration.read(self._file)
            except OSError as error:  # as when an editor is about to put it in place
                if text is None:
                    log(configuration.how_to_begin(self._file)
                        if isinstance(error, FileNotFoundError) else str(error))
                edited = text = text or ""
            if edited != text:
                text = edited
                await self._take_over(edited)
            await asyncio.sleep(FILE_INTERVAL)

    async def _take_over(self, text: str) -> None:
        """Keeps what was there while something is wrong with the file."""
        loaded, problems = configuration.parse(text)
        if problems:
            lines = described(self._file, problems)
            log(*lines)
            await desktop.Notification().show(self._translate("The settings are wrong"), "\n".join(lines))
        else:
            self._apply(loaded)
            try:
                self._server.write_settings(self._group)
            except (OSError, ValueError) as error:
                log(str(error))
            log(f"{self._file} has been read")

    def _apply(self, loaded: Configuration) -> None:
        self._set_entries(loaded)
        former, self._configuration = self._configuration, loaded
        if loaded.source != former.source:
            self._found = ()
            if self._source:
                self._source.cancel()
            self._source = self._start(follow(
                loaded.source, self._have_found, self._source_has_failed)) if loaded.source else None
        self._tell_folders()

    def _set_entries(self, loaded: Configuration) -> None:
        self._companion.set_titles(Titles(
            "", (loaded.link and loaded.link.title) or self._translate("Copy link"),
            (loaded.backup and loaded.backup.title) or self._translate("Back up now")))
        self._companion.set_backup(loaded.backup is not None)

    def _have_found(self, folders: Sequence[Folder]) -> None:
        if folders != self._found:
            self._found = folders
            self._tell_folders()

    async def _source_has_failed(self, reason: str, has_lasted: bool) -> None:
        """Its folders stay: they are what they were, even while nobody can be asked for them."""
        program = " ".join(self._configuration.source)
        if has_lasted:
            await desktop.Notification().show(self._translate("Failed: %s") % program, reason)
        else:
            log(f"{program}: {reason}")

    def _folders(self) -> list[Folder]:
        return [*self._configuration.folders, *self._found]

    def _tell_folders(self) -> None:
        refusals = {*map(str, self._companion.set_folders(folder.path for folder in self._folders()))}
        for refusal in sorted(refusals - self._refusals):
            log(refusal)
        self._refusals = refusals

    def _reported(self, report: Report) -> None:
        entries = {ReportType.CREATE_URL_LINK: self._configuration.link,
                   ReportType.BACKUP: self._configuration.backup}
        entry = entries.get(report.type)
        for path in report.paths:
            self._start(self._act(entry, path))

    def _start(self, work: Coroutine[Any, Any, None]) -> asyncio.Task[None]:
        task = asyncio.create_task(work)
        self._tasks.add(task)
        task.add_done_callback(self._tasks.discard)
        return task

    async def _act(self, entry: Entry | None, path: str) -> None:
        pick = Pick(path, self._translate)
        folder = self._folder_around(path)
        if not entry:
            await pick.fail(self._translate("The settings have no command for this entry"))
        elif folder:  # it may have been withdrawn since
            await pick.run(entry, folder)

    def _folder_around(self, path: str) -> Folder | None:
        """The innermost one that contains the path or is it."""
        known = {folder.path: folder for folder in self._folders()}
        around = self._companion.folders_around(path)
        return known.get(around[0]) if around else None


def described(file: pathlib.Path, problems: Iterable[Problem]) -> list[str]:
    """A line for each problem, in the form that editors understand."""
    return [f"{file}:{problem.line}:{problem.column}: {problem.text}" for problem in problems]
