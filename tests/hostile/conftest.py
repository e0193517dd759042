"""A session with the extension, a companion, and one file manager of each kind without windows,
whose plug-ins open menus during each attack and time them."""

import collections
import contextlib
import fcntl
import json
import os
import pathlib
import re
import select
import signal
import subprocess
import termios
import threading
import time

import pytest
from conftest import BUS_NAME, TIMEOUT, line, wait_for

NAMES = ["caja", "nemo", "nautilus", "thunar", "dolphin"]
ROOT, FILE = "file:///sync", "file:///sync/a"
TITLE = "Copy link"
# A plug-in waits for a menu for at most a tenth of a second; then the system has to wake it.
MENU_TIMEOUT, ALLOWANCE = 100.0, 25.0  # milliseconds
READ_LENGTH = 1024  # of the extension; a message that a read cuts in two ends it
GROWTH = 4096  # kilobytes; the allocator keeps what the largest request has taken
UNIT = pathlib.Path(__file__).parents[2] / "hosts/linux/FinderSync.systemd.service.in"
MEMORY_MAX = int(re.search(r"^MemoryMax=(\d+)M$", UNIT.read_text(), re.MULTILINE)[1]) << 10

longest = collections.defaultdict(collections.Counter)  # milliseconds, by attack and file manager


class FileManager:
    """A plug-in in a process of its own, which answers one order at a time."""

    def __init__(self, session, name):
        self.name = name
        self.has_badges = name != "thunar"
        program = session.programs.parent / "tests" / f"headless-{name}"
        with open(session.folder / f"{name}.log", "wb") as log:
            self.popen = subprocess.Popen([program], env=session.environment, stderr=log,
                                          stdin=subprocess.PIPE, stdout=subprocess.PIPE)

    def order(self, text):
        self.popen.stdin.write(text.encode() + b"\n")
        self.popen.stdin.flush()

    def answer(self):
        readable, _, _ = select.select([self.popen.stdout], [], [], TIMEOUT)
        assert readable, f"{self.name} hangs"
        answer = self.popen.stdout.readline().decode(errors="replace")
        assert answer, f"{self.name} has ended with {self.popen.wait(TIMEOUT)}"
        return answer.rstrip("\n")

    def end(self):
        self.popen.stdin.close()
        try:
            assert self.popen.wait(TIMEOUT) == 0, self.name
        finally:
            self.popen.kill()
            self.popen.stdout.close()


class Scene:
    def __init__(self, session, attack):
        self.session, self.attack = session, attack
        self.peer = self.extension = None
        self.file_managers = []
        self.processors_of_file_managers = os.sched_getaffinity(0)
        self.has_waited = False  # a file manager, in vain: it asks for no menu for five seconds
        self.start_bus()

    def start_bus(self, **limits):
        self.session.start_bus(BUS_NAME, limits=limits)

    # The beginning

    def begin(self, **options):
        """The extension with a companion that has announced a folder, and file managers that show
        its badge and offer its entry."""
        self.peer, self.extension = self.session.start_connected(**options)
        self.announce()
        self.begin_attack()
        return self.peer.connection

    def begin_without_link(self, peer, menus=True):
        """The extension with whatever a peer is to it. The bus announces a folder."""
        self.peer = peer
        self.extension = self.session.start_extension({
            "ServerPort": peer.port, "ShareViaUrlTitle": TITLE})
        self.session.wait_for_name()
        self.session.set("pathsOfRootFolders", "as", ["/sync"])
        self.begin_attack(menus)

    def begin_attack(self, menus=True):
        self.open_file_managers()
        self.wait_ready(menus)
        self.memory = own_memory(self.extension.popen)
        self.descriptors = descriptors(self.extension)

    def announce(self):
        """What a companion says first."""
        self.peer.send(block(type="add_folder", path="/sync"))
        self.peer.send(block(type="set_locale", shareContactTitle="", shareViaUrlTitle=TITLE,
                             backupTitle=""))

    def open_file_managers(self, names=tuple(NAMES)):
        self.close_file_managers()
        self.has_waited = False
        with kept_on(self.processors_of_file_managers):
            self.file_managers = [FileManager(self.session, name) for name in names]

    def close_file_managers(self):
        while self.file_managers:
            self.file_managers.pop().end()

    # What the file managers do

    def order(self, text, by_turns=False):
        """Makes all of them do the same, at the same time or by turns. Gives their answers, by
        name."""
        if by_turns:
            return {each.name: each.order(text) or each.answer() for each in self.file_managers}
        for each in self.file_managers:
            each.order(text)
        return {each.name: each.answer() for each in self.file_managers}

    def menus(self, by_turns=False):
        """Opens a menu in each. Gives the labels by name, once they have come in time."""
        labels = {}
        for name, answer in self.order("menu " + FILE, by_turns).items():
            words, *labels[name] = answer.split("\t")
            took = int(words.split()[1]) / 1000
            longest[self.attack][name] = max(longest[self.attack][name], took)
            self.has_waited = self.has_waited or took > 90
            assert took <= MENU_TIMEOUT + ALLOWANCE, f"{name}: {took} ms, {self.attack}"
        return labels

    def keep_asking(self, seconds=0.3, by_turns=False):
        deadline = time.monotonic() + seconds
        while time.monotonic() < deadline:
            self.menus(by_turns)
            time.sleep(0.02)

    def offer(self, titles):
        """Whether the menus of all have these entries."""
        return all(labels == titles for labels in self.menus().values())

    def are_badged(self):
        answers = self.order("badge " + ROOT)
        self.order("show " + ROOT)
        return all(answers[each.name] == "badge 1" for each in self.file_managers
                   if each.has_badges)

    def wait_ready(self, menus=True):
        self.order("show " + ROOT)
        wait_for(self.are_badged, "the badges")
        if menus:
            wait_for(lambda: self.offer([TITLE]), "the menus")

    # The end

    def stays_level(self, growth=0):
        """The extension has not grown by more than so many kilobytes, nor kept a descriptor, nor
        ever taken more memory than its unit allows."""
        assert self.extension.popen.poll() is None
        grown = own_memory(self.extension.popen) - self.memory
        assert memory(self.extension.popen, "VmHWM") < MEMORY_MAX
        wait_for(lambda: descriptors(self.extension) <= self.descriptors, "closed descriptors")
        assert grown <= growth + GROWTH

    def is_as_before(self, growth=0):
        self.stays_level(growth)
        self.works()
        reports = [{"type": "clicked_create_url_link", "items": ["/sync/a"]}] * len(NAMES)
        assert self.receive(len(reports)) == reports

    def withstands(self, *attacks, seconds=0.3):
        """Everything is as before these functions were called over and over."""
        with meanwhile(*attacks):
            self.keep_asking(seconds)
        self.is_as_before()

    def works(self):
        """Badges, menus and clicks, in each file manager."""
        if self.has_waited:
            self.open_file_managers()
        self.wait_ready()
        self.order("pick")

    def receive(self, count):
        """So many reports of clicks."""
        text, reports = "", []
        while len(reports) < count:
            text += self.peer.connection.recv(65536).decode()
            with contextlib.suppress(ValueError):
                while text:
                    report, end = json.JSONDecoder().raw_decode(text)
                    reports.append(report)
                    text = text[end:]
        return reports

    def has_closed_link(self):
        """The companion is gone as far as the extension knows: no menus, and badges as ever."""
        self.session.wait_for_value("isSocketConnected", False)
        self.stays_level()
        wait_for(lambda: self.offer([]))
        assert self.are_badged()

    def has_lost_link(self):
        """The link is broken, which the extension does not take for its end."""
        self.stays_level()
        self.works()
        assert self.session.get("isSocketConnected") is True

    def has_ended(self):
        """The attack was fatal, as it is meant to be."""
        assert self.extension.wait() == -signal.SIGABRT
        self.comes_back()

    def recovers_from(self, impostor):
        """Another program gives the name back."""
        self.peer = self.session.listen()
        self.session.store_settings({"ServerPort": self.peer.port})
        impostor.end()
        self.comes_back()

    def comes_back(self):
        """The bus starts the extension, since the file managers want it."""
        wait_for(lambda: self.menus() and
                 select.select([self.peer.listener], [], [], 0)[0], "the extension")
        self.peer.accept()
        self.announce()
        self.works()
        assert len(self.receive(len(NAMES))) == len(NAMES)


def block(length=READ_LENGTH, **message):
    """A message that fills a read of the extension, or a part of it."""
    return line(**message)[:-1].ljust(length - 1) + b"\n"


def deliver(connection, data):
    """Returns once the other end's system has taken all of it."""
    connection.sendall(data)
    while fcntl.ioctl(connection, termios.TIOCOUTQ, bytes(4)) != bytes(4):
        pass


def own_memory(process):
    """Kilobytes that are the process's own."""
    return memory(process, "RssAnon")


def memory(process, kind):
    """Kilobytes of one kind, as the kernel names it."""
    status = pathlib.Path("/proc", str(process.pid), "status").read_text()
    return int(re.search(rf"^{kind}:\s*(\d+)", status, re.MULTILINE)[1])


def descriptors(process):
    return len(os.listdir(f"/proc/{process.popen.pid}/fd"))


@contextlib.contextmanager
def kept_on(processors):
    """Whatever is started within the block stays on these processors."""
    before = os.sched_getaffinity(0)
    os.sched_setaffinity(0, processors)
    try:
        yield
    finally:
        os.sched_setaffinity(0, before)


@contextlib.contextmanager
def meanwhile(*works):
    """Runs functions in threads of their own for as long as the block lasts. Each is called again
    and again, until it gives False or its connection is broken."""
    stop = threading.Event()

    def repeat(work):
        with contextlib.suppress(OSError):
            while not stop.is_set() and work() is not False:
                pass

    threads = [threading.Thread(target=repeat, args=(work,)) for work in works]
    for thread in threads:
        thread.start()
    try:
        yield
    finally:
        stop.set()
        for thread in threads:
            thread.join(TIMEOUT)


@pytest.fixture
def scene(session, request):
    scene = Scene(session, request.node.name.removeprefix("test_"))
    try:
        yield scene
    finally:
        scene.close_file_managers()


@pytest.fixture
def processor_of_their_own(scene):
    """Gives the file managers one that the attack does not use, if there are two. A kernel without
    preemption runs a system call to its end, and one that copies many megabytes keeps everybody
    else on that processor waiting, whatever their priority."""
    everywhere = os.sched_getaffinity(0)
    *others, last = sorted(everywhere)
    scene.processors_of_file_managers = {last}
    with kept_on(others or everywhere):
        scene.start_bus()
        yield


def pytest_terminal_summary(terminalreporter):
    """How long the file managers have waited for their menus."""
    terminalreporter.write_line("longest menu, in milliseconds: " + ", ".join(NAMES))
    for attack, waits in longest.items():
        terminalreporter.write_line(
            " ".join(f"{waits[name]:6.1f}" for name in NAMES) + "  " + attack)
