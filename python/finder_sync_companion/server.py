"""Serves every extension of the user, on asyncio's event loop."""

import asyncio
import errno
import os
import socket
import sys
from collections.abc import Callable, Coroutine
from typing import TextIO

from . import settings
from .connection import Connection
from .pacing import has_room
from .reports import Report
from .state import Companion

_READ_SIZE = 65536
_SHORTEST_PAUSE, _LONGEST_PAUSE = 0.0001, 0.005  # seconds between looks at the receive window
_PAUSE_AFTER_FAILURE = 0.1  # seconds
_LOOKS_WITHOUT_PAUSE = 50
_FIRST_SYSTEMD_DESCRIPTOR = 3
_TABLE = "/proc/self/net/tcp" if sys.platform == "linux" else os.devnull  # of connections


class Server:
    """Listens on 127.0.0.1, tells each extension the companion's state and calls back.

    `on_report` is called for each report, `on_connected` when an extension has connected, and
    `on_disconnected` with the reason when it is gone, all from the event loop. Connections of other
    users are closed before a byte is sent; on macOS nobody can tell whose they are. Changes of the
    companion are told by themselves; change it from the thread of the event loop.
    """

    def __init__(self, companion: Companion, on_report: Callable[[Report], None],
                 on_connected: Callable[[], None] = lambda: None,
                 on_disconnected: Callable[[str], None] = lambda reason: None) -> None:
        self.companion = companion
        self._on_report = on_report
        self._on_connected = on_connected
        self._on_disconnected = on_disconnected
        self._listener: socket.socket | None = None
        self._links: set[_Link] = set()
        self._tasks: set[asyncio.Task[None]] = set()
        self.port = 0
        """The port that the extension has to connect to, once the server has started."""

    async def start(self, port: int = 0) -> None:
        """Listens on the socket that systemd has passed, if any, else on the port, 0 for a free one.

        Raises OSError when that fails.
        """
        listener = _socket_of_systemd() or _socket_on(port)
        listener.setblocking(False)
        self._listener = listener
        self.port = listener.getsockname()[1]
        self.companion.watchers.append(self._tell_all)
        self._run(self._accept(listener))

    async def close(self) -> None:
        """Closes all connections. Their extensions show no menu until they are started anew."""
        self.companion.watchers.remove(self._tell_all)
        for task in self._tasks:
            task.cancel()
        await asyncio.gather(*self._tasks, return_exceptions=True)
        if self._listener:
            self._listener.close()

    def write_settings(self, group: str, root_folder: str | None = None) -> None:
        """Writes the shared settings of the application group: the port, the companion's titles and
        backup switch, so that no entry is ever blank, and the watched directory if it is given.
        Raises OSError, and ValueError when the file that is there is malformed."""
        values: dict[str, str | int] = {"ServerPort": self.port}
        if root_folder is not None:
            values["RootFolder"] = root_folder
        if titles := self.companion.titles:
            values |= {"ShareContactTitle": titles.share_contact,
                       "ShareViaUrlTitle": titles.share_via_url, "BackupTitle": titles.backup}
        if self.companion.backup is not None:
            values["DisplayBackup"] = int(self.companion.backup)
        settings.write(group, values)

    def _run(self, coroutine: Coroutine[None, None, None]) -> None:
        task = asyncio.get_running_loop().create_task(coroutine)
        self._tasks.add(task)
        task.add_done_callback(self._tasks.discard)

    async def _accept(self, listener: socket.socket) -> None:
        # Opened beforehand: a connection that takes the last descriptor has an owner too.
        with open(_TABLE, encoding="ascii") as table:
            while True:
                try:
                    accepted, _ = await asyncio.get_running_loop().sock_accept(listener)
                except OSError:  # as when no descriptor is left
                    await asyncio.sleep(_PAUSE_AFTER_FAILURE)
                    continue
                if _is_of_this_user(accepted, table):
                    self._run(self._serve(accepted))
                else:
                    accepted.close()

    async def _serve(self, accepted: socket.socket) -> None:
        link = _Link(accepted, self.companion)
        self._links.add(link)
        loop = asyncio.get_running_loop()  # which also reports what a callback raises
        loop.call_soon(self._on_connected)
        teller = asyncio.create_task(link.tell())
        try:
            reason = await link.receive(self._on_report)
        finally:
            teller.cancel()
            self._links.discard(link)
            accepted.close()
        loop.call_soon(self._on_disconnected, reason)

    def _tell_all(self) -> None:
        for link in self._links:
            link.has_changed.set()


class _Link:
    """One extension that has connected."""

    def __init__(self, accepted: socket.socket, companion: Companion) -> None:
        accepted.setblocking(False)
        accepted.setsockopt(socket.IPPROTO_TCP, socket.TCP_NODELAY, 1)
        self._socket = accepted
        self._connection = Connection(companion, os.path.realpath)
        self.has_changed = asyncio.Event()

    async def tell(self) -> None:
        """Writes what has to be told, until the connection is lost."""
        loop = asyncio.get_running_loop()
        try:
            while True:
                await self._wait_for_room()
                self.has_changed.clear()
                if block := self._connection.next_block():
                    await loop.sock_sendall(self._socket, block)
                else:
                    await self.has_changed.wait()
        except OSError:
            pass  # reading says why

    async def _wait_for_room(self) -> None:
        """No event tells of an acknowledgement or a larger window, so it looks ever less often."""
        looks, pause = 0, _SHORTEST_PAUSE
        while not has_room(self._socket):
            looks += 1
            if looks < _LOOKS_WITHOUT_PAUSE:
                await asyncio.sleep(0)
            else:
                await asyncio.sleep(pause)
                pause = min(2 * pause, _LONGEST_PAUSE)

    async def receive(self, on_report: Callable[[Report], None]) -> str:
        """Hands on reports until the connection has ended; gives the reason."""
        loop = asyncio.get_running_loop()
        while True:
            try:
                data = await loop.sock_recv(self._socket, _READ_SIZE)
            except OSError as error:
                return error.strerror or str(error)
            if not data:
                return "the extension has closed the connection"
            for report in self._connection.receive(data):
                loop.call_soon(on_report, report)
            if self._connection.failed:
                return self._connection.failed


async def restart_extension(group: str, program: str = "finderctl") -> str | None:
    """Has the extension of the application group end and start anew, so that it connects.

    Runs `finderctl restart`, which comes with the extension on Linux; a product with a name of its
    own has a program of its own. Gives what is wrong, None when the extension has connected.
    """
    try:
        child = await asyncio.create_subprocess_exec(
            program, "--group", group, "restart", stdin=asyncio.subprocess.DEVNULL,
            stdout=asyncio.subprocess.DEVNULL, stderr=asyncio.subprocess.PIPE)
    except OSError as error:
        return f"{program} cannot be started: {error.strerror}"
    _, message = await child.communicate()
    return message.decode(errors="replace").strip() if child.returncode else None


def _socket_on(port: int) -> socket.socket:
    listener = socket.socket()
    try:
        listener.setsockopt(socket.SOL_SOCKET, socket.SO_REUSEADDR, 1)
        listener.bind(("127.0.0.1", port))
        listener.listen()
    except OSError:
        listener.close()
        raise
    return listener


def _socket_of_systemd() -> socket.socket | None:
    """Only once: children do not get the variables."""
    process = os.environ.pop("LISTEN_PID", "")
    count = os.environ.pop("LISTEN_FDS", "")
    if process != str(os.getpid()) or count != "1":
        return None
    listener = socket.socket(fileno=_FIRST_SYSTEMD_DESCRIPTOR)
    listener.set_inheritable(False)
    if listener.family != socket.AF_INET:
        raise OSError(errno.EAFNOSUPPORT, os.strerror(errno.EAFNOSUPPORT))
    listener.listen()
    return listener


def _is_of_this_user(accepted: socket.socket, table: TextIO) -> bool:
    """By the line of the system's table of connections whose local address is the peer's."""
    if sys.platform != "linux":
        return True
    try:
        ends = [_as_in_table(accepted.getpeername()), _as_in_table(accepted.getsockname())]
    except OSError:
        return False  # it is gone already
    table.seek(0)
    rows = map(str.split, table)
    return any(row[1:3] == ends and row[7] == str(os.getuid()) for row in rows)


def _as_in_table(address: tuple[str, int]) -> str:
    number = int.from_bytes(socket.inet_aton(address[0]), sys.byteorder)
    return f"{number:08X}:{address[1]:04X}"
