"""One life of the extension's process beside the model: both are given the same events, and every
line, every answer, every report and the heap must be as the model says."""

import collections
import copy
import mmap
import os
import pathlib
import re
import select
import signal
import socket
import struct
import subprocess
import time
import urllib.parse

from conftest import BUS_NAME, TIMEOUT, BusError, Session, line, wait_for
from jeepney import message_bus
from jeepney.io.blocking import open_dbus_connection
from oracle import compare, model
from oracle.compare import Different
from oracle.over_bus import (answer_to_menu, ask, printed, sent_over_bus, visible,
                             without_parsers_words)
from oracle.text import decomposed

BUFFER = 1024  # bytes that stay for each has-bytes-available event, on purpose
# KiB of resident memory beyond the buffers: the allocator's bookkeeping, and gaps between blocks.
RESIDENT_SLACK, RESIDENT_BUFFER = 2048, 1.1
SIGNAL_INTERVAL = 0.06  # seconds within which changed properties have been signalled
IDLE = 5  # times in a row that the process must sleep with an unchanged heap to count as idle
CONTROL_CHARACTER = re.compile(rb"[\x00-\x1f\x7f]")
JOURNAL_PREFIX = b"<7>"

# The values of all properties while the heap is measured. The texts have a fixed length, since a
# string may keep the capacity that it once had.
AT_REST = {"pathsOfRootFolders": [], "displayBackup": 0, "displayUrlLink": 1, "serverPort": 1,
           "myFolderURL": "/at/rest" * 8,
           **{title: f"{title} at rest".ljust(64, ".") for title in model.TITLES}}

# Each match of "K" in it ends inside a grapheme, after many others: the break iterator then goes
# back, and keeps the cache that it needs for that.
CHARACTERS = ("long" * 20 + "K" + "\u0301" * 70 + "\U0001f1e6" * 81) * 2


def require(expected, actual, what):
    if actual != expected:
        raise Different(f"{what}: expected {expected!r}, but got {actual!r}")


class Written:
    """A file that the process appends to."""

    def __init__(self, path):
        self.path = path
        path.touch()
        self.file = open(path, "rb")
        self.unread = b""

    def read_until(self, is_enough):
        deadline = time.monotonic() + TIMEOUT
        while not is_enough() and time.monotonic() < deadline:
            self.unread += self.file.read()
            time.sleep(0.0002)

    def expect(self, expected):
        """Waits until exactly this has been appended."""
        self.read_until(lambda: len(self.unread) >= len(expected))
        if not self.unread.startswith(expected):
            at = len(os.path.commonprefix([self.unread, expected]))
            raise Different(f"{self.path.name}: expected ...{expected[at:at + 600]!r}\n"
                            f"     but got ...{self.unread[at:at + 600]!r}")
        self.unread = self.unread[len(expected):]

    def line(self):
        """Waits until a line has been appended."""
        self.read_until(lambda: b"\n" in self.unread)
        line, end, self.unread = self.unread.partition(b"\n")
        return line + end

    def require_nothing(self):
        self.unread += self.file.read()
        if self.unread:
            raise Different(f"{self.path.name}: unexpected: {self.unread[:600]!r}")
        os.truncate(self.path, 0)
        self.file.seek(0)


class WatchedSession(Session):
    """A session in which the extension is watched from outside: what it writes, its descriptors and
    threads and, with an allocator that counts, what its heap holds."""

    def __init__(self, folder, allocator=None):
        super().__init__(folder)
        self.allocator = allocator
        self.trace, self.log = Written(folder / "trace"), Written(folder / "log")
        live_bytes = folder / "live-bytes"  # which the allocator fills in
        live_bytes.write_bytes(bytes(16))
        with open(live_bytes, "r+b") as file:
            self.heap = mmap.mmap(file.fileno(), 16)
        self.store_settings({})
        self.bus = open_dbus_connection(self.address)
        self.process = None
        self.known = {}
        self.tally = collections.Counter()

    def call(self, message):
        reply = self.bus.send_and_get_reply(message, timeout=TIMEOUT)
        if reply.header.message_type.name == "error":
            raise BusError(reply)
        return reply.body

    def begin(self):
        log = os.stat(self.log.path)
        environment = self.environment | {
            "TMPDIR": str(self.folder), "JOURNAL_STREAM": f"{log.st_dev}:{log.st_ino}",
            "LD_PRELOAD": str(self.allocator or ""),
            "FAILING_CALLS_REPORT": str(self.folder / "live-bytes")}
        with open(self.trace.path, "ab") as trace, open(self.log.path, "ab") as log:
            self.process = subprocess.Popen(
                [self.programs / "finder-sync-extension"], env=environment, stdout=trace,
                stderr=log, stdin=subprocess.DEVNULL, cwd=self.folder, start_new_session=True)
        self.proc = pathlib.Path(f"/proc/{self.process.pid}")
        self.wait_for_name()

    def wait_for_end(self, code):
        """Waits until the process has ended in the way that it must, and its name is free."""
        require(code, self.process.wait(TIMEOUT), "exit code")
        wait_for(lambda: not self.call(message_bus.NameHasOwner(BUS_NAME))[0], "the free name")

    def settled_heap(self):
        """Bytes and blocks on the heap once the process has nothing to do any more."""
        time.sleep(SIGNAL_INTERVAL)
        looks, before = 0, None
        while looks < IDLE:
            time.sleep(0.001)
            now = struct.unpack("qq", self.heap)
            stat = (self.proc / "stat").read_text(encoding="ascii")
            looks = looks + 1 if now == before and stat.rsplit(")", 1)[1].split()[0] == "S" else 0
            before = now
        return now

    def levels(self):
        return {"descriptors": len(os.listdir(self.proc / "fd")),
                "threads": len(os.listdir(self.proc / "task")),
                "descriptors of the bus": len(os.listdir(f"/proc/{self.daemon.pid}/fd"))}

    def resident(self):
        """Resident memory in KiB."""
        return int(re.search(r"VmRSS:\s+(\d+)", (self.proc / "status").read_text())[1])

    def left_behind(self):
        """Every file in the session's folder, and every name on the bus."""
        files = {str(file.relative_to(self.folder)) for file in self.folder.rglob("*")}
        return files.union(self.call(message_bus.ListNames())[0])

    def require_same(self, kind, actual):
        """The first measurement of each kind is the one that all later ones must equal."""
        known = self.known.setdefault(kind, actual)
        if isinstance(actual, set) and actual != known:
            raise Different(f"{kind}: {actual - known} more, and {known - actual} less")
        require(known, actual, kind)

    def end(self):
        if self.process:
            self.process.kill()
            self.process.wait()
        self.bus.close()
        super().end()


class Life:
    """`peer` is the companion; without one, nobody listens on the port."""

    def __init__(self, session, port, peer, settings):
        self.session, self.peer = session, peer
        self.settings = {"ServerPort": port} | settings
        self.run = model.Run()
        self.extension, self.world = self.run.extension, self.run.world
        self.link = "up" if peer else "refused"
        self.is_peer_gone = False
        self.resident_at_first = None
        session.store_settings(self.settings)
        session.begin()
        if peer:
            peer.accept()
            self.run.play(("port", port))
        for key, value in self.settings.items():
            kind = "string" if isinstance(value, str) else "integer"
            self.run.play(("setting", key, kind, value))
        self.play("start")
        self.match()
        self.folder_url = "file://" + urllib.parse.quote(self.extension.properties["myFolderURL"])
        self.name_length = len(session.call(message_bus.GetNameOwner(BUS_NAME))[0])
        self.require_state()
        self.require_level("fresh")
        session.tally["lives"] += 1

    # The process and the model

    def play(self, *event):
        """Gives an event to the model alone."""
        self.run.play(event)
        self.run.play(("turns",))

    def perform(self, name, *arguments):
        """Gives an event to both."""
        self.session.tally["events"] += 1
        self.session.tally[f"    {name}"] += 1
        try:
            if hasattr(self, name):
                getattr(self, name)(*arguments)
            else:
                ask(self.session, name, *arguments)
                self.play(name, *arguments)
        except model.Death as death:
            self.match()
            error = without_parsers_words(self.session.log.line().decode())
            require(f"<2>{death}\n", error, "fatal error")
            self.finish(-signal.SIGABRT)
        else:
            self.match()

    def match(self):
        """Compares the trace, the log and the reports with the model's."""
        records, world = self.world.records, self.world
        self.session.trace.expect(printed(records).encode())
        self.session.log.expect(b"".join(map(self.logged, filter(is_logged, records))))
        if world.received:
            reports = compare.parse_reports(self.peer.receive(len(world.received)))
            require(compare.parse_reports(world.received), reports, "reports")
        records.clear()
        world.assignments.clear()
        world.received = b""

    def logged(self, record):
        form, argument = record.removeprefix("NSLog: ").split(" <- ", 1)
        if form.startswith("FinderSync()"):
            argument = str(self.session.share / "finder-sync")
        return JOURNAL_PREFIX + log_line(form.replace("%@", argument)) + b"\n"

    # Events. `perform` handles those without an answer.

    def send(self, data):
        self.peer.send(data)
        self.play("send", data)

    def close(self):
        self.peer.connection.shutdown(socket.SHUT_WR)
        self.link = "closed"
        self.play("close")

    def leave(self):
        """The companion's process ends, after it has closed."""
        self.peer.connection.close()
        self.is_peer_gone = True

    def reset(self):
        self.peer.reset()
        self.link = "reset"
        self.is_peer_gone = True
        self.play("reset")

    def menu(self, kind, selection):
        answer = ask(self.session, "menu", kind, selection)
        expected = ["no menu"]
        if all(self.is_watched(path) for _, path, _ in selection):
            self.play("menu", kind, selection)
            expected = answer_to_menu(self.world.records)
        require(expected, answer, ("menu", selection))

    def observe(self, which, url):
        ask(self.session, "observe", which, url)
        if self.is_watched(url[1]):
            self.play("observe", which, url)

    def badge(self, url):
        self.require_badges([url], list(ask(self.session, "badge", url)))

    def badges(self, urls):
        badges, = self.session.method("RequestBadgeIdentifiersForURLs", "as",
                                      [url for url, _, _ in urls])
        self.require_badges(urls, badges)

    def require_badges(self, urls, badges):
        expected = []
        for url in urls:
            first = len(self.world.records)
            if self.is_watched(url[1]):
                self.play("badge", url)
            is_badged = "setBadgeIdentifier:forURL: FolderIco " + url[0] in (
                self.world.records[first:])
            expected.append("FolderIco" if is_badged else "")
        require(expected, badges, urls)
        self.session.tally["badges shown"] += expected.count("FolderIco")

    def is_watched(self, path):
        folder = resolved(self.world.watched[0])
        return resolved(path)[:len(folder)] == folder

    def set(self, name, value):
        written = value
        if name == "myFolderURL":
            written = self.folder_url = sent_over_bus(("", value))[0]
        ask(self.session, "set", name, written)
        self.play("set", name, value)

    # What must hold at any time

    def require_state(self):
        properties = self.extension.properties
        expected = properties | {
            "myFolderURL": self.folder_url,
            "pathsOfRootFolders": list(map(visible, self.extension.paths)),
            **{title: visible(properties[title]) for title in model.TITLES},
            "directoryURLs": ["file://" + urllib.parse.quote(self.world.watched[0])],
            "badges": {"FolderIco": (str(self.session.share / "finder-sync/icon_Folder.svg"),
                                     "Folder Icon")}}
        require(expected, self.session.get_all(), "properties")

    def heap(self):
        """Bytes and blocks on the heap, without the buffers and the name on the bus, which vary."""
        size, blocks = self.session.settled_heap()
        buffers = self.world.buffers
        return size - buffers * BUFFER - self.name_length, blocks - buffers

    def require_level(self, stage):
        """Compares descriptors, threads and heap with those of other lives at the same stage."""
        kind = (stage, self.link, *(value for value in sorted(self.settings.items())
                                    if value[0] != "ServerPort"))
        if self.session.allocator:
            self.session.require_same(("bytes and blocks on the heap", *kind), self.heap())
        self.session.require_same(("levels", self.link), self.session.levels())

    def require_little_memory(self):
        """Notices what the count of the heap misses, such as mapped memory."""
        resident = self.session.resident() - self.world.buffers * RESIDENT_BUFFER
        self.resident_at_first = self.resident_at_first or resident
        if resident > self.resident_at_first + RESIDENT_SLACK:
            raise Different(f"{resident - self.resident_at_first} KiB of memory more")

    def come_to_rest(self):
        """Brings the process into a state that all lives can reach, and compares it with theirs."""
        is_connected = self.extension.properties["isSocketConnected"]
        self.perform("set", "isSocketConnected", True)
        # The break iterator keeps its last text.
        self.perform("set", "pathsOfRootFolders", ["Ko\u0308"])
        self.perform("menu", 0, [self.item("/Ko\u0308/x")])
        for name, value in AT_REST.items():
            self.perform("set", name, value)
        self.require_state()
        self.require_nothing_written()
        self.require_level("at rest")
        if self.session.allocator:
            self.require_little_memory()
        if self.peer and select.select([self.peer.listener], [], [], 0)[0]:
            raise Different("a second connection within one life")
        self.perform("set", "isSocketConnected", is_connected)
        self.session.tally["moments compared"] += 1

    def require_nothing_written(self):
        self.session.trace.require_nothing()
        self.session.log.require_nothing()

    def item(self, path):
        """An item inside the watched folder."""
        return sent_over_bus(("", self.world.watched[0].rstrip("/") + path))

    def warm_up(self):
        """Makes the process allocate what it keeps for its life: room for the longest lines,
        images, tables."""
        self.perform("observe", "begin", self.item("/" + "long" * 10_000))
        self.perform("set", "pathsOfRootFolders", ["K"])
        self.perform("menu", 0, [self.item("/" + CHARACTERS)])
        self.perform("set", "pathsOfRootFolders", ["Ko\u0308", "a\u0323\u0301"])
        self.perform("set", "displayBackup", 1)
        for path in ("/Ko\u0308/x", "/K\u00f6x", "/Ko\u0308\u0301", "/a\u0301\u0323/\uac01"):
            self.perform("menu", 0, [self.item(path)])
            self.perform("badge", self.item(path))
        if self.link == "up":
            titles = dict.fromkeys(model.TITLES, "before the rest")
            self.perform("send", line(type="add_folder", path="/b") +
                         line(type="set_locale", **titles) +
                         line(type="set_menu_usage", displayBackup="0"))
            self.perform("click", "backupClicked:", [sent_over_bus(("", "/b"))])

    # The end

    def end(self, with_signal):
        self.session.process.send_signal(with_signal)
        self.finish(-signal.SIGKILL if with_signal == signal.SIGKILL else 0)

    def finish(self, code):
        self.session.wait_for_end(code)
        self.require_nothing_written()
        self.session.require_same("left behind", self.session.left_behind())
        if self.peer and not self.is_peer_gone:
            try:
                require(b"", self.peer.connection.recv(1), "beside the reports")
            except ConnectionResetError:
                if code != -signal.SIGABRT:  # what it died of had not been read to its end
                    raise
            self.peer.connection.close()

    def would_end_it(self, data):
        """Whether the process must end when it is sent this."""
        trial = copy.deepcopy(self.run)
        try:
            trial.play(("send", data))
            trial.play(("turns",))
        except model.Death:
            return True
        return False


def is_logged(record):
    return isinstance(record, str) and record.startswith("NSLog: ")


def log_line(text):
    """A line as the log shows it."""
    return CONTROL_CHARACTER.sub(lambda found: b"\\x%02X" % ord(found[0]), text.encode())


def resolved(path):
    """The components of a path, as the rule for watched folders sees them."""
    components = []
    for component in decomposed(path).split("/"):
        if component == "..":
            del components[-1:]
        elif component not in ("", "."):
            components.append(component)
    return components
