"""Sessions with the real extension, played to their end while chosen calls fail."""

import dataclasses
import os
import pathlib
import queue
import re
import struct
import subprocess
import tempfile
import time
from concurrent.futures import ThreadPoolExecutor

from conftest import BUS_NAME, EXTENSION, Process, Session, line
from jeepney import (DBusAddress, HeaderFields, MessageType, Properties, message_bus,
                     new_method_call)

BUILD = pathlib.Path(os.environ["FINDER_SYNC_BIN"]).parent
LIBRARY = BUILD / "tests" / "libfailing-calls.so"
BUFFER_SIZE = 1024
REPORT = struct.Struct("<16xqQ")  # without what the heap holds now
REPORT_SIZE = REPORT.size + (1 << 24)
TIMEOUT = 5  # seconds until it counts as hanging; a whole session takes 50 ms
ANSWER_TIMEOUT = 0.5  # seconds until an answer counts as dropped

PING = new_method_call(DBusAddress("/FinderSync", bus_name=BUS_NAME,
                                   interface="org.freedesktop.DBus.Peer"), "Ping")

ROOT = "/srv/Sync"
COMPOSED, DECOMPOSED = "/srv/Caf\u00e9", "/srv/Cafe\u0301"
SETTINGS = {"RootFolder": "/", "DisplayUrlLink": 0, "ShareContactTitle": "Contact",
            "ShareViaUrlTitle": "Caf\u00e9", "BackupTitle": "Backup"}


class Hang(Exception):
    """The extension neither answers nor ends."""


@dataclasses.dataclass
class Call:
    function: str
    number: int  # among the calls of that function
    ways: int  # in which it can fail
    argument: int  # the first one
    allocations: int  # made before it


class Report:
    """What the library has written of one process."""

    def __init__(self, file):
        with file.open("rb") as report:
            self.blocks_at_end, length = REPORT.unpack(report.read(REPORT.size))
            lines = report.read(length).decode().splitlines()
        assert REPORT.size + length <= REPORT_SIZE, "the report has no room for every call"
        self.calls = []
        self.allocations = []  # the objects whose code made them
        self.failed = []  # lines about what has failed
        for text in lines:
            words = text.split()
            if words[0] == "call":
                number, function, ways, argument = words[1:]
                self.calls.append(Call(function, int(number), int(ways), int(argument),
                                       len(self.allocations)))
            elif words[0] == "failed":
                self.failed.append(text)
            if "memory" in words[:2]:
                self.allocations.append(words[-2])

    @property
    def leaked_blocks(self):
        """Blocks left at the end, without the buffer that each has-bytes event keeps on purpose."""
        return self.blocks_at_end - sum(
            call.function == "malloc" and call.argument == BUFFER_SIZE for call in self.calls)


def preloaded(orders, report_file):
    """The environment in which a program's calls fail, and an empty report."""
    report_file.write_bytes(b"")
    os.truncate(report_file, REPORT_SIZE)
    return {"LD_PRELOAD": str(LIBRARY), "LD_BIND_NOW": "1", "FAILING_CALLS": orders,
            "FAILING_CALLS_REPORT": str(report_file)}


@dataclasses.dataclass
class Outcome:
    """What became of one session."""
    orders: str
    code: int | None  # the exit code, negative for a signal; none if it had to be killed
    output: str
    error: str
    answers: dict  # by step
    descriptors: list  # how many there were, at several times
    report: Report


def url(path):
    return "file://" + path.replace("\u00e9", "%C3%A9").replace("\u0301", "%CC%81")


class Stage:
    """A bus and a companion, for one session after the other."""

    def __init__(self, folder):
        self.folder = folder
        self.session = Session(folder)
        self.bus = self.session.connect_to_bus()
        self.peer = self.session.listen()
        self.session.store_settings(SETTINGS | {"ServerPort": self.peer.port})

    def play(self, orders="", steps=None):
        report_file = self.folder / "report"
        self.process = Process(
            [str(BUILD / "bin" / "finder-sync-extension")],
            self.session.environment | {"JOURNAL_STREAM": "1:1"} | preloaded(orders, report_file),
            self.folder)
        self.answers, self.descriptors, self.peer.connection, code = {}, [], None, None
        try:
            for name, *arguments in STEPS if steps is None else steps:
                if self.is_running():
                    getattr(self, name)(*arguments)
            self.process.popen.terminate()
            code = self.process.popen.wait(TIMEOUT)
        except (Hang, subprocess.TimeoutExpired):
            pass
        finally:
            self.process.popen.kill()
            self.process.popen.wait()
            self.close_connection()
        error = self.process.error_file.read_bytes().decode(errors="replace")
        return Outcome(orders, code, self.process.output(), error, self.answers, self.descriptors,
                       Report(report_file))

    def is_running(self):
        return self.process.popen.poll() is None

    # Steps

    def wait_for_name(self):
        deadline = time.monotonic() + TIMEOUT
        while self.is_running() and self.ask(message_bus.NameHasOwner(BUS_NAME)) != (True,):
            if time.monotonic() > deadline:
                raise Hang
            time.sleep(0.002)

    def wait_for_end(self):
        self.process.popen.wait(TIMEOUT)

    def ask(self, message, step=None):
        """Sends a call. Its answer, or the name of its error, is kept under the step's name."""
        try:
            reply = self.bus.send_and_get_reply(
                message, timeout=TIMEOUT if message is PING else ANSWER_TIMEOUT)
        except TimeoutError:
            answer = "no answer"
            if message is not PING:
                self.ask(PING)
            elif self.is_running():
                raise Hang from None
        else:
            is_error = reply.header.message_type == MessageType.error
            answer = ("error " + reply.header.fields[HeaderFields.error_name] if is_error
                      else reply.body)
        if step is not None:
            self.note(step, answer)
        return answer

    def note(self, step, answer):
        self.answers[f"{len(self.answers)} {step}"] = answer

    def call(self, step, member, signature, *arguments):
        self.ask(new_method_call(EXTENSION, member, signature, arguments), step)

    def set(self, name, signature, value):
        self.ask(Properties(EXTENSION).set(name, signature, value), "set " + name)

    def settle(self):
        """Returns when the extension has handled whatever has reached it: an event that is there
        when the first question is asked has been handled when the second is answered."""
        for _ in range(3):
            self.ask(PING)

    def accept_waiting(self):
        self.peer.listener.setblocking(False)
        try:
            self.peer.accept()
            self.peer.connection.setblocking(False)
        except BlockingIOError:
            self.peer.connection = None
        return self.peer.connection

    def close_connection(self):
        """Also if nobody has accepted it."""
        while self.peer.connection or self.accept_waiting():
            self.peer.connection.close()
            self.peer.connection = None

    def send(self, data):
        try:
            if self.peer.connection:
                self.peer.connection.send(data)
        except OSError:
            pass  # the extension has gone
        self.settle()

    def receive(self, step):
        try:
            answer = self.peer.connection.recv(65536) if self.peer.connection else None
        except OSError as error:
            answer = type(error).__name__
        self.note(step, answer)

    def count_descriptors(self):
        try:
            self.descriptors.append(len(os.listdir(f"/proc/{self.process.popen.pid}/fd")))
        except OSError:
            pass  # it has ended


FILE = url(ROOT + "/a.txt")
STEPS = [
    ("wait_for_name",), ("settle",), ("accept_waiting",), ("settle",),
    # The companion speaks.
    ("send", line(type="add_folder", path=ROOT)),
    ("send", line(type="add_folder", path=COMPOSED) + line(type="add_folder", path=DECOMPOSED) +
     line(type="set_locale", shareContactTitle="C", shareViaUrlTitle="Lien \ufdd0\u00e9",
          backupTitle="B") + line(type="set_menu_usage", displayBackup="1")),
    ("send", line(type="add_folder", path="/srv/Gone")[:-1].ljust(BUFFER_SIZE - 1) + b"\n" +
     line(type="del_folder", path="/srv/Gone") + line(type="hello")),
    ("count_descriptors",),
    # A file manager asks.
    ("call", "begin", "BeginObservingDirectoryAtURL", "s", url(ROOT)),
    ("call", "badge", "RequestBadgeIdentifierForURL", "s", url(ROOT)),
    ("call", "badges", "RequestBadgeIdentifiersForURLs", "as",
     [url(DECOMPOSED), url("/srv/other"), url(ROOT)]),
    ("call", "no URL", "RequestBadgeIdentifierForURL", "s", "http://example.com/"),
    ("call", "menu", "MenuForMenuKind", "uas", 0, [FILE]),
    ("call", "accents' menu", "MenuForMenuKind", "uas", 0, [url(DECOMPOSED + "/\u00e9")]),
    ("call", "click", "PerformAction", "sas", "backupClicked:", [url(COMPOSED + "/a.txt")]),
    ("call", "no action", "PerformAction", "sas", "connect", []),
    ("receive", "report"),
    ("call", "end", "EndObservingDirectoryAtURL", "s", url(ROOT)),
    ("count_descriptors",),
    # Properties are used.
    ("set", "shareContactTitle", "s", "Caf\u00e9"),
    ("ask", Properties(EXTENSION).get("shareViaUrlTitle"), "get title"),
    ("set", "myFolderURL", "s", url("/srv")),
    ("set", "displayBackup", "x", 2),
    ("set", "serverPort", "u", 5000),
    ("set", "isSocketConnected", "b", True),
    ("set", "pathsOfRootFolders", "as", [COMPOSED, ROOT]),
    ("settle",),
    ("ask", Properties(EXTENSION).get_all(), "state"),
    ("count_descriptors",),
    ("call", "badge", "RequestBadgeIdentifiersForURLs", "as", [url(DECOMPOSED)]),
    ("call", "menu", "MenuForMenuKind", "uas", 0, [FILE]),
    # The companion leaves.
    ("close_connection",), ("settle",),
    ("ask", Properties(EXTENSION).get("isSocketConnected"), "is connected"),
    ("call", "last menu", "MenuForMenuKind", "uas", 0, [FILE]),
    ("count_descriptors",),
]


class Stages:
    """As many stages as there are cores."""

    def __init__(self, folder):
        self.all = [Stage(pathlib.Path(tempfile.mkdtemp(dir=folder)))
                    for _ in os.sched_getaffinity(0)]
        self.free = queue.SimpleQueue()
        for stage in self.all:
            self.free.put(stage)

    def play(self, jobs, take=lambda outcome: outcome):
        """What is taken of the outcomes of sessions with these orders."""
        def work(orders):
            stage = self.free.get()
            try:
                return take(stage.play(orders))
            finally:
                self.free.put(stage)

        with ThreadPoolExecutor(len(self.all)) as pool:
            return list(pool.map(work, jobs))

    def end(self):
        for stage in self.all:
            stage.session.end()


# What can fail, and what is to fail

def functions_called_by(file):
    """Of libraries, by a program or a plug-in."""
    symbols = subprocess.run(["readelf", "--wide", "--dyn-syms", file], check=True, text=True,
                             stdout=subprocess.PIPE).stdout
    return set(re.findall(r" UND (\w+)", symbols))


def functions_that_can_fail():
    """Patterns, in which "?" is any character."""
    source = pathlib.Path(__file__).with_name("FailingCalls.cpp").read_text()
    table = source[source.index("groups[]"):source.index("/// More than any")]
    return set(" ".join(re.findall(r'"(.*?)"', table)).split())


def each_call(clean, from_there_on="", ways=None):
    """Every call in every way; an allocation is none of them."""
    return [f"{call.function}:{call.number}{from_there_on}:{way}" for call in clean.calls
            for way in range(1, 1 + min(call.ways, ways or call.ways))]


def each_allocation(clean, from_there_on=""):
    return [f"memory:{number}{from_there_on}:1" for number in range(1, len(clean.allocations) + 1)]


def pairs(orders, report):
    """A call that failed and was survived, together with each one after it."""
    calls = each_call(report, ways=1)
    return [f"{orders} {call}" for call in calls[calls.index(orders) + 1:]]
