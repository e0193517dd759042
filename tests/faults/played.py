"""One session with the real extension, played to its end while chosen calls fail."""

import dataclasses
import os
import pathlib
import re
import select
import socket
import struct
import subprocess
import tempfile
import threading

from jeepney import (DBusAddress, HeaderFields, MessageType, Properties, message_bus,
                     new_method_call)

from conftest import BUS_NAME, EXTENSION, Process, Session, line

BUILD = pathlib.Path(os.environ["FINDER_SYNC_BIN"]).parent
LIBRARY = BUILD / "tests" / "libfailing-calls.so"

BUFFER_SIZE = 1024
REPORT = struct.Struct("<qQ")
REPORT_SIZE = REPORT.size + (1 << 18)
PATIENCE = 5  # seconds; a hundred times what a whole session takes

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
    number: int  # of the calls of that function
    ways: int  # in which it can fail
    argument: int  # the first one
    allocations: int  # that came before it


@dataclasses.dataclass
class Outcome:
    """What became of one session."""
    orders: str
    code: int | None  # the exit code, negative for a signal; none if it had to be killed
    output: str
    error: str
    answers: dict  # of every step that was taken
    calls: list
    allocations: list  # the objects whose code made them, by number from 1
    failed: list  # lines about what has failed
    blocks_at_end: int
    descriptors: list  # how many there were, at several times
    hang: str  # in what way it had not come to an end

    @property
    def undeliberate_blocks(self):
        """What is left at the end but for the buffer that each has-bytes event keeps for good."""
        events = sum(call.function == "malloc" and call.argument == BUFFER_SIZE
                     for call in self.calls)
        return self.blocks_at_end - events


def url(path):
    return "file://" + path.replace("\u00e9", "%C3%A9").replace("\u0301", "%CC%81")


def padded(message):
    return line(**message)[:-1].ljust(1023) + b"\n"


def read_report(file):
    """The calls, the allocations, the failures, and the blocks of memory left at the end."""
    report = file.read_bytes()
    blocks_at_end, length = REPORT.unpack_from(report)
    calls, allocations, failed = [], [], []
    for text in report[REPORT.size:REPORT.size + length].decode().splitlines():
        words = text.split()
        if words[0] == "call":
            number, function, ways, argument = words[1:]
            calls.append(Call(function, int(number), int(ways), int(argument), len(allocations)))
        elif words[0] == "failed":
            failed.append(text)
        if "memory" in words[:2]:
            allocations.append(words[-2])
    return calls, allocations, failed, blocks_at_end


class Stage:
    """A bus and a companion, for one session after the other."""

    def __init__(self, folder):
        self.folder = folder
        self.session = Session(folder)
        self.bus = self.session.connect_to_bus()
        self.peer = self.session.listen()
        self.session.store_settings(SETTINGS | {"ServerPort": self.peer.port})
        self.report_file = folder / "report"

    def end(self):
        self.session.end()

    def play(self, orders="", scene=None):
        self.report_file.write_bytes(bytes(REPORT_SIZE))
        self.process = Process([str(BUILD / "bin" / "finder-sync-extension")],
                               self.session.environment | {
                                   "LD_PRELOAD": str(LIBRARY), "LD_BIND_NOW": "1",
                                   "JOURNAL_STREAM": "1:1", "FAILING_CALLS": orders,
                                   "FAILING_CALLS_REPORT": str(self.report_file)}, self.folder)
        self.answers, self.descriptors, self.connection, self.hang = {}, [], None, ""
        try:
            (scene or whole_session)(self)
            if self.process.popen.poll() is None:
                self.process.popen.terminate()
            code = self.process.popen.wait(PATIENCE)
        except (Hang, subprocess.TimeoutExpired) as hang:
            code, self.hang = None, f"{hang}, {self.state()}"
        finally:
            self.process.popen.kill()
            self.process.popen.wait()
            self.leave()
        return self.outcome(orders, code)

    def outcome(self, orders, code):
        calls, allocations, failed, blocks_at_end = read_report(self.report_file)
        return Outcome(orders, code, self.process.output(),
                       self.process.error_file.read_bytes().decode(errors="replace"),
                       self.answers, calls, allocations, failed, blocks_at_end, self.descriptors,
                       self.hang)

    # What scenes are made of.

    def is_running(self):
        return self.process.popen.poll() is None

    def state(self):
        process = pathlib.Path(f"/proc/{self.process.popen.pid}")
        return process.joinpath("stat").read_text().split()[2] + " in system call " + \
            process.joinpath("syscall").read_text().split()[0]

    def ask(self, message, step=None):
        """Sends a call; its answer, or the name of its error, is kept under the step's name."""
        try:
            patience = PATIENCE if message is PING else 0.5
            reply = self.bus.send_and_get_reply(message, timeout=patience)
        except TimeoutError:
            answer = "no answer"
            if message is not PING:
                self.ask(PING)
            elif self.is_running():
                raise Hang("it does not answer") from None
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

    def settle(self):
        """Comes back when the extension has handled whatever has reached it. An event that is
        there when the first question is asked has been handled when the second is answered."""
        for _ in range(3):
            self.ask(PING)

    def wait_for_name(self):
        exit_of_process = os.pidfd_open(self.process.popen.pid)
        try:
            for _ in range(PATIENCE * 500):
                if self.ask(message_bus.NameHasOwner(BUS_NAME)) == (True,):
                    return
                if select.select([exit_of_process], [], [], 0.002)[0]:
                    return
        finally:
            os.close(exit_of_process)
        raise Hang("it neither takes its name nor ends")

    def accept(self):
        self.peer.listener.setblocking(False)
        try:
            self.connection, _ = self.peer.listener.accept()
            self.connection.setblocking(False)
            self.connection.setsockopt(socket.IPPROTO_TCP, socket.TCP_NODELAY, 1)
        except BlockingIOError:
            self.connection = None

    def send(self, data):
        try:
            if self.connection:
                self.connection.send(data)
        except OSError:
            pass  # the extension has gone
        self.settle()

    def receive(self, step):
        try:
            answer = self.connection.recv(65536) if self.connection else None
        except OSError as error:
            answer = type(error).__name__
        self.note(step, answer)

    def count_descriptors(self):
        try:
            self.descriptors.append(len(os.listdir(f"/proc/{self.process.popen.pid}/fd")))
        except OSError:
            pass

    def leave(self):
        while True:
            if self.connection:
                self.connection.close()
            self.accept()
            if self.connection is None:
                return


def companion_speaks(stage):
    stage.send(line(type="add_folder", path=ROOT))
    stage.send(line(type="add_folder", path=COMPOSED) + line(type="add_folder", path=DECOMPOSED) +
               line(type="set_locale", shareContactTitle="C", shareViaUrlTitle="Lien \ufdd0\u00e9",
                    backupTitle="B") + line(type="set_menu_usage", displayBackup="1"))
    stage.send(padded({"type": "add_folder", "path": "/srv/Gone"}) +
               line(type="del_folder", path="/srv/Gone") + line(type="hello"))


def file_manager_asks(stage):
    stage.call("begin", "BeginObservingDirectoryAtURL", "s", url(ROOT))
    stage.call("badge", "RequestBadgeIdentifierForURL", "s", url(ROOT))
    stage.call("badges", "RequestBadgeIdentifiersForURLs", "as",
               [url(DECOMPOSED), url("/srv/other"), url(ROOT)])
    stage.call("no URL", "RequestBadgeIdentifierForURL", "s", "http://example.com/")
    stage.call("menu", "MenuForMenuKind", "uas", 0, [url(ROOT + "/a.txt")])
    stage.call("accents' menu", "MenuForMenuKind", "uas", 0, [url(DECOMPOSED + "/\u00e9")])
    stage.call("click", "PerformAction", "sas", "backupClicked:", [url(COMPOSED + "/a.txt")])
    stage.call("no action", "PerformAction", "sas", "connect", [])
    stage.receive("report")
    stage.call("end", "EndObservingDirectoryAtURL", "s", url(ROOT))


def properties_are_used(stage):
    properties = Properties(EXTENSION)
    stage.ask(properties.set("shareContactTitle", "s", "Caf\u00e9"), "set title")
    stage.ask(properties.get("shareViaUrlTitle"), "get title")
    stage.ask(properties.set("myFolderURL", "s", url("/srv")), "set URL")
    stage.ask(properties.set("displayBackup", "x", 2), "set number")
    stage.ask(properties.set("serverPort", "u", 5000), "set port")
    stage.ask(properties.set("isSocketConnected", "b", True), "set flag")
    stage.ask(properties.set("pathsOfRootFolders", "as", [COMPOSED, ROOT]), "set paths")
    stage.settle()
    stage.ask(properties.get_all(), "state")


def file_manager_asks_again(stage):
    stage.call("badge", "RequestBadgeIdentifiersForURLs", "as", [url(DECOMPOSED)])
    stage.call("menu", "MenuForMenuKind", "uas", 0, [url(ROOT + "/a.txt")])


def companion_leaves(stage):
    if stage.connection:
        stage.connection.close()
        stage.connection = None
    stage.settle()
    stage.ask(Properties(EXTENSION).get("isSocketConnected"), "is connected")
    stage.call("last menu", "MenuForMenuKind", "uas", 0, [url(ROOT + "/a.txt")])


def whole_session(stage):
    stage.wait_for_name()
    stage.settle()
    stage.accept()
    stage.settle()
    for scene in (companion_speaks, file_manager_asks, properties_are_used,
                  file_manager_asks_again, companion_leaves):
        if not stage.is_running():
            return
        scene(stage)
        stage.count_descriptors()


def second_instance(stage):
    """Somebody else has the name."""
    stage.process.popen.wait(PATIENCE)


def in_parallel(folder, jobs, take=lambda outcome: outcome):
    """What is taken of the outcomes of sessions with these orders, played on as many stages as there
    are cores. Tens of thousands of outcomes are too much to keep: Python stops for most of a second
    when it looks for garbage among them, and takes answers for late."""
    results = [None] * len(jobs)
    numbers = iter(range(len(jobs)))
    lock = threading.Lock()
    failures = []

    def work():
        stage = Stage(pathlib.Path(tempfile.mkdtemp(dir=folder)))
        try:
            while not failures:
                with lock:
                    number = next(numbers, None)
                if number is None:
                    return
                results[number] = take(stage.play(jobs[number]))
        except BaseException as failure:
            failures.append(failure)
        finally:
            stage.end()

    cores = len(os.sched_getaffinity(0))
    threads = [threading.Thread(target=work) for _ in range(cores)]
    for thread in threads:
        thread.start()
    for thread in threads:
        thread.join()
    if failures:
        raise failures[0]
    return results


# What can fail, and what is to fail.

def functions_called_by(file):
    """Of libraries, by a program or a plug-in."""
    symbols = subprocess.run(["readelf", "--wide", "--dyn-syms", file], check=True, text=True,
                             stdout=subprocess.PIPE).stdout
    return set(re.findall(r" UND (\w+)", symbols))


def functions_that_can_fail():
    table = pathlib.Path(__file__).with_name("FailingCalls.cpp").read_text()
    return set(re.findall(r'\{"(\w+)",', table))


def each_call(clean, from_there_on=""):
    """Every call in every way; an allocation is none of them."""
    return [f"{call.function}:{call.number}{from_there_on}:{way}"
            for call in clean.calls for way in range(1, call.ways + 1)]


def each_allocation(clean, from_there_on=""):
    return [f"memory:{number}{from_there_on}:1" for number in range(1, len(clean.allocations) + 1)]


def pairs(outcome):
    """A call that failed, and that the extension outlived, together with each one after it."""
    calls = [f"{call.function}:{call.number}:1" for call in outcome.calls if call.ways]
    return [f"{outcome.orders} {call}" for call in calls[calls.index(outcome.orders) + 1:]]
