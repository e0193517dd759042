"""File managers without windows, which have loaded their plug-ins as ever, and how long they
wait."""

import contextlib
import os
import select
import subprocess
import threading
import time

from conftest import PATIENCE, line, wait_for

NAMES = ["caja", "nemo", "nautilus", "thunar", "dolphin"]
ROOT = "file:///sync"
FILE = "file:///sync/a"
TITLE = "Copy link"

# A plug-in waits for a menu a tenth of a second at the most; then it has to be let go on.
PATIENCE_OF_PLUGINS = 100.0  # milliseconds
ALLOWANCE = 25.0

longest = {}  # milliseconds, by attack and by file manager
requests = {}  # how many menus, by attack
growths = {}  # kilobytes of the extension's own memory, by attack


class HeadlessFileManager:
    """A plug-in in a process of its own, which answers one order at a time."""

    def __init__(self, session, name):
        self.name = name
        self.has_badges = name != "thunar"
        program = session.programs.parent / "tests" / f"headless-{name}"
        self.log = open(session.folder / f"{name}.log", "wb")
        self.popen = subprocess.Popen([program], env=session.environment, stderr=self.log,
                                      stdin=subprocess.PIPE, stdout=subprocess.PIPE)

    def order(self, text):
        self.popen.stdin.write(text.encode() + b"\n")
        self.popen.stdin.flush()

    def answer(self):
        readable, _, _ = select.select([self.popen.stdout], [], [], PATIENCE)
        assert readable, f"{self.name} hangs"
        answer = self.popen.stdout.readline().decode(errors="replace")
        assert answer, f"{self.name} has ended with {self.popen.wait(PATIENCE)}"
        return answer.rstrip("\n")

    def end(self):
        self.popen.stdin.close()
        try:
            assert self.popen.wait(PATIENCE) == 0, self.name
        finally:
            self.popen.kill()
            self.popen.stdout.close()
            self.log.close()


class Desktop:
    """One file manager of each kind, or of some."""

    def __init__(self, session, names=NAMES):
        self.session = session
        self.attack = "none"
        self.has_waited = False  # for a menu in vain, and asks for none now
        self.file_managers = [HeadlessFileManager(session, name) for name in names]

    def order(self, text, by_turns=False):
        """Has all of them do the same, at the same time or by turns. Gives their answers, by
        name."""
        if by_turns:
            return {each.name: each.order(text) or each.answer() for each in self.file_managers}
        for each in self.file_managers:
            each.order(text)
        return {each.name: each.answer() for each in self.file_managers}

    def menus(self, url=FILE, by_turns=False):
        """Opens a menu in each. Gives the labels by name, once they have come in time."""
        labels = {}
        for name, answer in self.order("menu " + url, by_turns).items():
            words, *labels[name] = answer.split("\t")
            took = int(words.split()[1]) / 1000
            of_attack = longest.setdefault(self.attack, {})
            of_attack[name] = max(of_attack.get(name, 0), took)
            self.has_waited = self.has_waited or took > 90
            assert took <= PATIENCE_OF_PLUGINS + ALLOWANCE, f"{name}: {took} ms, {self.attack}"
        requests[self.attack] = requests.get(self.attack, 0) + len(labels)
        return labels

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

    def end(self):
        for file_manager in self.file_managers:
            file_manager.end()


def own_memory(process):
    """Kilobytes that are the process's own."""
    with open(f"/proc/{process}/status", encoding="ascii") as status:
        return next(int(each.split()[1]) for each in status if each.startswith("RssAnon:"))


def descriptors(process):
    return len(os.listdir(f"/proc/{process}/fd"))


def is_instrumented(process):
    """Whether a sanitizer keeps its own account of the process's memory."""
    with open(f"/proc/{process}/maps", encoding="ascii") as maps:
        return "libasan" in maps.read()


def announce(peer):
    """What a companion says first."""
    for message in [line(type="add_folder", path="/sync"),
                    line(type="set_locale", shareContactTitle="", shareViaUrlTitle=TITLE,
                         backupTitle="")]:
        peer.send(message[:-1].ljust(1023) + b"\n")


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
    and again with nothing, until it gives False or its connection is broken."""
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
            thread.join(PATIENCE)


def for_a_while(seconds, do):
    deadline = time.monotonic() + seconds
    while time.monotonic() < deadline:
        do()
