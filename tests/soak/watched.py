"""The extension as the session bus starts it, watched from outside: what it writes, what its heap
holds, its descriptors and threads, and how it ends."""

import collections
import fcntl
import mmap
import os
import pathlib
import re
import select
import signal
import struct
import threading
import time

from conftest import BUS_NAME, EXTENSION, PATIENCE, BusError, Session, wait_for
from jeepney import message_bus, new_method_call
from jeepney.io.blocking import open_dbus_connection

PIPE_SIZE = 1 << 20
IDLE = 5  # looks at a process that waits and changes nothing until it counts as idle
LOG_PREFIX = re.compile(
    rb"^\d{4}-\d\d-\d\d \d\d:\d\d:\d\d\.\d{3} finder-sync-extension\[\d+\] ", re.MULTILINE)
CONTROL_CHARACTER = re.compile(rb"[\x00-\x1f\x7f]")

# The process is the bus's child, so its exit code goes to a file.
STARTER = """#!/bin/sh
exec 2>/dev/null
cd {folder} || exit
(exec env LD_PRELOAD={allocator} FINDER_SYNC_BENCH_LIVE_BYTES={folder}/live-bytes \\
    JOURNAL_STREAM="$(cat journal)" {program} >trace 2>log)
echo $? >ended.new
mv ended.new ended
"""


class Different(Exception):
    """The extension does not do what it must."""


def shortened(data):
    return data if len(data) <= 600 else data[:600] + b"..."


class Outputs(threading.Thread):
    """What the process writes, gathered beside everything else, so that it never has to wait."""

    def __init__(self, files):
        super().__init__(daemon=True)
        self.pipes = {}
        for name, file in files.items():
            os.mkfifo(file)
            pipe = os.open(file, os.O_RDWR | os.O_NONBLOCK)  # as a writer too: it never ends
            fcntl.fcntl(pipe, fcntl.F_SETPIPE_SZ, PIPE_SIZE)
            self.pipes[pipe] = name
        self.gathered = {name: bytearray() for name in files}
        self.arrival = threading.Condition()
        self.wake, self.end_of_all = os.pipe()
        self.start()

    def run(self):
        while True:
            ready, _, _ = select.select([*self.pipes, self.wake], [], [])
            if self.wake in ready:
                return
            for pipe in ready:
                with self.arrival:
                    data = os.read(pipe, PIPE_SIZE)
                    self.gathered[self.pipes[pipe]] += data
                    self.arrival.notify()

    def expect(self, name, expected, without=None):
        """Takes what must have been written, or comes to be; `without` is a pattern for what does
        not count. Gives what was taken."""
        gathered = self.gathered[name]

        def counted():
            return without.sub(b"", gathered) if without else gathered

        with self.arrival:
            self.arrival.wait_for(lambda: len(counted()) >= len(expected), PATIENCE)
            actual = bytes(counted() if without else gathered[:len(expected)])
            if actual != expected:
                at = len(os.path.commonprefix([actual, expected]))
                raise Different(f"{name}: expected ...{shortened(expected[at:])!r}\n"
                                f"     but got ...{shortened(actual[at:])!r}")
            taken = bytes(gathered) if without else expected
            del gathered[:len(taken)]
        return taken

    def take(self, name, length):
        with self.arrival:
            self.arrival.wait_for(lambda: len(self.gathered[name]) >= length, PATIENCE)
            taken = bytes(self.gathered[name][:length])
            del self.gathered[name][:length]
        return taken

    def require_nothing(self):
        for name, gathered in self.gathered.items():
            if gathered:
                raise Different(f"{name}: something that nothing caused: {shortened(gathered)!r}")

    def wait_for_rest(self):
        """Waits for what a process wrote that has ended. It is in the pipes by now."""
        wait_for(lambda: not select.select(list(self.pipes), [], [], 0)[0], "empty pipes")
        with self.arrival:  # what was read last is gathered by then
            pass

    def close(self):
        os.close(self.end_of_all)
        self.join()
        for descriptor in (*self.pipes, self.wake):
            os.close(descriptor)


class Heap:
    """What the process has requested of its heap and not freed, as the counting allocator of the
    benches keeps it in a file."""

    State = collections.namedtuple("State", "bytes blocks")

    def __init__(self, file):
        file.write_bytes(bytes(16))
        with open(file, "r+b") as opened:
            self.memory = mmap.mmap(opened.fileno(), 16)

    def state(self):
        return self.State(*struct.unpack("qq", self.memory))


class WatchedSession(Session):
    """A session whose bus starts the extension under watch. All its files are in one folder."""

    def __init__(self, folder):
        self.share = folder / "share"
        self.bus_options = (f"--address=unix:path={folder}/bus",)
        for name in ("runtime", "tmp", "share/dbus-1/services"):
            (folder / name).mkdir(parents=True)
        super().__init__(folder)
        self.outputs = Outputs({"trace": folder / "trace", "log": folder / "log"})
        self.heap = Heap(folder / "live-bytes")
        self.store_settings({})
        self.write_as_to_a_journal(True)
        self.bus = open_dbus_connection(self.address)
        self.process = None

    def start_bus(self, **environment):
        folder = self.folder
        self.environment |= {"XDG_RUNTIME_DIR": str(folder / "runtime"),
                             "TMPDIR": str(folder / "tmp")}
        self.write_service()
        super().start_bus(XDG_DATA_DIRS=str(self.share), **environment)

    def write_service(self):
        """What the bus starts: the program, with the pipes and the counting allocator."""
        program = self.programs / "finder-sync-extension"
        allocator = self.programs.parent / "bench" / "libcounting-allocator.so"
        for file in (program, allocator):
            if not file.exists():
                raise FileNotFoundError(f"there is no {file}; build first: cmake --preset release "
                                        "&& cmake --build --preset release")
        starter = self.folder / "starter"
        starter.write_text(STARTER.format(allocator=allocator, folder=self.folder,
                                          program=program))
        starter.chmod(0o700)
        (self.share / "dbus-1/services" / f"{BUS_NAME}.service").write_text(
            f"[D-BUS Service]\nName={BUS_NAME}\nExec={starter}\n")

    def write_as_to_a_journal(self, is_journal):
        """How the lines of the log that come next begin."""
        self.is_journal = is_journal
        status = os.stat(self.folder / "log")
        stream = f"{status.st_dev}:{status.st_ino}" if is_journal else ""
        (self.folder / "journal").write_text(stream)

    def call(self, message):
        reply = self.bus.send_and_get_reply(message, timeout=PATIENCE)
        if reply.header.message_type.name == "error":
            raise BusError(reply)
        return reply.body

    # The life of the process

    def started_by_question(self):
        self.get("serverAddress")
        return self.begin_watch()

    def started_by_name(self):
        self.call(message_bus.StartServiceByName(BUS_NAME))
        self.get("serverAddress")  # it answers once it is at its run loop
        return self.begin_watch()

    def begin_watch(self):
        self.process = self.call(message_bus.GetConnectionUnixProcessID(BUS_NAME))[0]
        return self.process

    def wait_for_end(self, code):
        """Waits until the process has ended in the way that it must, and its name is free."""
        ended = self.folder / "ended"
        wait_for(ended.exists, "the end of the process")
        actual = int(ended.read_text())
        ended.unlink()
        if actual != code:
            raise Different(f"the process ended with {actual}, and not with {code}")
        wait_for(lambda: not self.call(message_bus.NameHasOwner(BUS_NAME))[0], "the free name")
        self.process = None

    def signal(self, number):
        os.kill(self.process, number)

    # What it has of the system

    def settled_heap(self):
        """The heap once the process has nothing to do any more."""
        looks, before = 0, None
        while looks < IDLE:
            time.sleep(0.001)
            now = self.heap.state()
            looks = looks + 1 if now == before and self.waits() else 0
            before = now
        return now

    def waits(self):
        stat = pathlib.Path(f"/proc/{self.process}/stat").read_text(encoding="ascii")
        return stat.rsplit(")", 1)[1].split()[0] == "S"

    def descriptors(self):
        return len(os.listdir(f"/proc/{self.process}/fd"))

    def threads(self):
        return len(os.listdir(f"/proc/{self.process}/task"))

    def resident(self):
        """Resident memory in KiB."""
        status = pathlib.Path(f"/proc/{self.process}/status").read_text(encoding="ascii")
        return int(re.search(r"VmRSS:\s+(\d+)", status)[1])

    def bus_descriptors(self):
        return len(os.listdir(f"/proc/{self.daemon.pid}/fd"))

    def own_unique_name(self):
        return self.call(message_bus.GetNameOwner(BUS_NAME))[0]

    def left_behind(self):
        """Every file in the session's folder, and every name on the bus."""
        files = {str(file.relative_to(self.folder)) for file in self.folder.rglob("*")}
        return files.union(self.call(message_bus.ListNames())[0])

    # The log

    def expect_log(self, lines):
        if not lines:
            return
        if self.is_journal:
            self.outputs.expect("log", b"".join(b"<6>%b\n" % line for line in lines))
            return
        prefix = len("2026-01-31 12:00:00.123 ") + len(f"finder-sync-extension[{self.process}] ")
        expected = b"".join(b"%b\n" % line for line in lines)
        actual = self.outputs.take("log", len(expected) + prefix * len(lines))
        if LOG_PREFIX.sub(b"", actual) != expected:
            raise Different(f"log: expected {shortened(expected)!r}\n"
                            f"      but got {shortened(actual)!r}")

    def expect_fatal(self, reason):
        begin = "<2>" if self.is_journal else "finder-sync-extension: "
        self.outputs.expect("log", (begin + reason + "\n").encode())

    def end(self):
        """Ends everything, also in the middle of something."""
        self.bus.close()
        try:
            process = super().call(message_bus.GetConnectionUnixProcessID(BUS_NAME))[0]
            os.kill(process, signal.SIGKILL)
            wait_for((self.folder / "ended").exists, "the end of the process")
        except (BusError, ProcessLookupError):
            pass  # it does not run
        super().end()
        self.outputs.close()


def log_line(text):
    """A line as the log shows it."""
    return CONTROL_CHARACTER.sub(lambda found: b"\\x%02X" % ord(found[0]), text.encode())


def method(name, signature, *arguments):
    return new_method_call(EXTENSION, name, signature, arguments)
