"""One life of the extension's process beside the model: everything that happens is given to both,
and every line, every answer, every report and the heap must be as the model says."""

import copy
import json
import re
import select
import signal
import socket
import urllib.parse

from conftest import EXTENSION, line
from jeepney import Properties
from oracle import compare, model
from oracle.over_bus import METHODS, WRITABLE, answers_of, printed, sent_over_bus, visible
from oracle.text import decomposed
from watched import Different, log_line, method

BUFFER = 1024  # bytes that stay for each has-bytes-available event, on purpose
# KiB that the system may give beside them: the allocator's notes, and gaps between blocks.
RESIDENT_SLACK, RESIDENT_BUFFER = 2048, 1.1
MORE_WRITABLE = {"myFolderURL": "s", "serverPort": "u", "isSocketConnected": "b"}
SIGNATURES = WRITABLE | MORE_WRITABLE
RECEIVING = re.compile(rb"^receiving\n", re.MULTILINE)
ABORTED, KILLED = 128 + signal.SIGABRT, 128 + signal.SIGKILL

# Where every property is written to before the heap is looked at: texts of a fixed length, since
# what a text once needed it may keep.
AT_REST = {"pathsOfRootFolders": [], "displayBackup": 0, "displayUrlLink": 1, "serverPort": 1,
           "myFolderURL": "/at/rest" * 8,
           **{title: f"{title} at rest".ljust(64, ".") for title in model.TITLES}}

# A search for "K" in it ends inside a character each time, behind many others: the iterator over
# characters then looks back, and keeps the room that it takes for that.
CHARACTERS = ("long" * 20 + "K" + "\u0301" * 70 + "\U0001f1e6" * 81) * 2


class Levels:
    """What the first moment showed, and every later one that is alike has to show. The heap may not
    differ by a single byte."""

    def __init__(self):
        self.known = {}

    def expect(self, what, actual):
        """A number, or a set of things."""
        known = self.known.setdefault(what, actual)
        if actual == known:
            return
        if isinstance(actual, set):
            raise Different(f"{what}: {sorted(actual - known)} more, and "
                            f"{sorted(known - actual)} less")
        raise Different(f"{actual} {what}, and not {known}")

    def expect_heap(self, heap, kind, buffers, name_length):
        """The bus gives each process another name; the rest is the same."""
        actual = (heap.bytes - buffers * BUFFER - name_length, heap.blocks - buffers)
        known = self.known.setdefault(kind, actual)
        if actual != known:
            raise Different(f"the heap holds {actual[0] - known[0]} bytes in "
                            f"{actual[1] - known[1]} blocks more than it must, {kind}: "
                            f"{actual[0]} bytes without its {buffers} buffers, and not {known[0]}")


class Life:
    """`peer` is the companion; without one, nobody listens on the port."""

    def __init__(self, session, levels, tally, port, peer=None, settings=None, is_journal=True,
                 by_question=False):
        self.session, self.levels, self.tally, self.peer = session, levels, tally, peer
        self.settings = settings or {}
        self.run = model.Run()
        self.extension, self.world = self.run.extension, self.run.world
        self.buffers = 0
        self.link = "up" if peer else "refused"
        self.is_peer_gone = False
        self.resident_at_first = None
        self.kind = None
        session.store_settings({"ServerPort": port} | self.settings)
        session.write_as_to_a_journal(is_journal)
        self.begin(port, by_question)

    def begin(self, port, by_question):
        session = self.session
        self.process = session.started_by_question() if by_question else session.started_by_name()
        if self.peer:
            self.peer.accept()
            self.run.play(("port", port))
        for key, value in ({"ServerPort": port} | self.settings).items():
            kind = "string" if isinstance(value, str) else "integer"
            self.run.play(("setting", key, kind, value))
        self.play("start")
        self.match()
        self.folder_url = "file://" + urllib.parse.quote(self.extension.root)
        self.name_length = len(session.own_unique_name())
        self.require_state()
        self.require_level("fresh")
        self.tally["lives"] += 1

    # Both sides at once

    def play(self, *event):
        """For the model alone."""
        self.run.play(event)
        self.run.play(("turns",))

    def perform(self, name, *arguments):
        """An event for both."""
        self.tally["events"] += 1
        try:
            getattr(self, name)(*arguments)
        except model.Death as death:
            self.match()
            self.session.expect_fatal(compare.reason(death))
            self.finish(ABORTED)
        else:
            self.match()

    def match(self):
        """What the model wrote must have been written, and its reports must have arrived."""
        records, world = self.world.records, self.world
        trace = self.session.outputs.expect("trace", printed(records).encode())
        self.count_buffers(trace)
        self.session.expect_log(list(map(self.logged, filter(is_logged, records))))
        if world.received:
            self.receive(world.received)
        records.clear()
        world.assignments.clear()
        world.received = b""

    def count_buffers(self, trace):
        count = len(RECEIVING.findall(trace))
        self.buffers += count
        self.tally["has-bytes-available events"] += count

    def logged(self, record):
        form, argument = record.removeprefix("NSLog: ").split(" <- ", 1)
        if form.startswith("FinderSync()"):
            argument = str(self.session.programs.parent / "share/finder-sync")
        return log_line(form.replace("%@", argument))

    def receive(self, expected):
        received = b""
        while len(received) < len(expected):
            piece = self.peer.connection.recv(len(expected) - len(received))
            if not piece:
                raise Different("the link has ended before a report came")
            received += piece
        if compare.parse_reports(received) != compare.parse_reports(expected):
            raise Different(f"reports: expected {expected!r}, but got {received!r}")
        self.tally["reports"] += len(compare.parse_reports(expected))

    def require(self, expected, actual, question):
        if actual != expected:
            raise Different(f"{question}: expected {expected!r}, but got {actual!r}")

    # Events

    def send(self, data):
        self.peer.send(data)
        self.tally["bytes"] += len(data)
        self.play("send", data)

    def burst(self, blocks):
        """Blocks in one go. How many of them one event finds is left open."""
        self.peer.send(b"".join(blocks))
        self.tally["bytes"] += sum(map(len, blocks))
        for block in blocks:
            self.play("send", block)
        expected = RECEIVING.sub(b"", printed(self.world.records).encode())
        trace = self.session.outputs.expect("trace", expected, without=RECEIVING)
        self.count_buffers(trace)
        self.world.records[:] = filter(is_logged, self.world.records)

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
        urls = [url for url, _, _ in selection]
        is_offered, entries = self.session.call(method("MenuForMenuKind", "uas", kind, urls))
        flat = [part for title, action, image in entries for part in (title, action, "", image)]
        expected = ["no menu"]
        if all(self.is_watched(path) for _, path, _ in selection):
            self.play("menu", kind, selection)
            expected, = answers_of(self.world.records)
        self.require(expected, [f"menu {len(entries)}", *flat] if is_offered else ["no menu"],
                    ("menu", kind, urls))
        self.tally["menus offered"] += is_offered
        self.tally["menus"] += 1

    def badge(self, url):
        badge, = self.session.call(method("RequestBadgeIdentifierForURL", "s", url[0]))
        self.require(self.badges_of([url]), [badge], url)

    def badges(self, urls):
        badges, = self.session.call(
            method("RequestBadgeIdentifiersForURLs", "as", [url[0] for url in urls]))
        self.require(self.badges_of(urls), badges, urls)

    def badges_of(self, urls):
        expected = []
        for url in urls:
            first = len(self.world.records)
            if self.is_watched(url[1]):
                self.play("badge", url)
            is_badged = "setBadgeIdentifier:forURL: FolderIco " + url[0] in (
                self.world.records[first:])
            expected.append("FolderIco" if is_badged else "")
            self.tally["badges shown"] += is_badged
        self.tally["badge requests"] += len(urls)
        return expected

    def is_watched(self, path):
        folder = resolved(self.world.watched[0])
        return resolved(path)[:len(folder)] == folder

    def observe(self, which, url):
        self.session.call(method(METHODS[which], "s", url[0]))
        self.play("observe", which, url)

    def click(self, selector, selection):
        urls = [url for url, _, _ in selection]
        self.session.call(method("PerformAction", "sas", selector, urls))
        self.play("click", selector, selection)
        self.tally["clicks"] += 1

    def set(self, name, value):
        written = value
        if name == "myFolderURL":
            written = self.folder_url = sent_over_bus(("", value))[0]
        self.session.call(Properties(EXTENSION).set(name, SIGNATURES[name], written))
        self.play("set", name, value)

    # What must hold at any time

    def require_state(self):
        extension = self.extension
        root = urllib.parse.quote(self.world.watched[0])
        expected = {
            "myFolderURL": self.folder_url, "serverAddress": "127.0.0.1",
            "pathsOfRootFolders": list(map(visible, extension.paths)),
            "serverPort": extension.port, "isSocketConnected": extension.is_connected,
            "displayUrlLink": extension.display_url_link,
            "displayBackup": extension.display_backup,
            **dict(zip(model.TITLES, map(visible, extension.titles))),
            "directoryURLs": ["file://" + root],
            "badges": {"FolderIco": (str(self.session.programs.parent /
                                         "share/finder-sync/icon_Folder.svg"), "Folder Icon")}}
        values, = self.session.call(Properties(EXTENSION).get_all())
        self.require(expected.keys(), values.keys(), "properties")
        for name, value in expected.items():
            self.require(value, values[name][1], name)

    def require_level(self, stage):
        """Descriptors, threads and heap, at a stage of its life at which all lives are alike."""
        session = self.session
        # What comes before each line has the number of the process in it.
        log = "journal" if session.is_journal else f"terminal, {len(str(self.process))} digits"
        self.kind = (stage, self.link, log, *sorted(self.settings.items()))
        self.levels.expect_heap(session.settled_heap(), self.kind, self.buffers, self.name_length)
        self.levels.expect("descriptors", session.descriptors())
        self.levels.expect("threads", session.threads())
        self.levels.expect("descriptors of the bus", session.bus_descriptors())

    def require_little_memory(self):
        """What the heap's count does not see, mapped memory for one, shows here."""
        resident = self.session.resident()
        if self.resident_at_first is None:
            self.resident_at_first = resident - self.buffers * RESIDENT_BUFFER
        limit = self.resident_at_first + self.buffers * RESIDENT_BUFFER + RESIDENT_SLACK
        if resident > limit:
            raise Different(f"{resident} KiB of memory, and not {limit:.0f} at the most")

    def come_to_rest(self):
        """Everything that can be compared with another such moment, in any life."""
        is_connected = self.extension.is_connected
        self.perform("set", "isSocketConnected", True)
        self.search_last()
        for name, value in AT_REST.items():
            self.perform("set", name, value)
        self.require_state()
        self.session.outputs.require_nothing()
        self.require_level("at rest")
        self.require_little_memory()
        if self.peer and select.select([self.peer.listener], [], [], 0)[0]:
            raise Different("a second connection within one life")
        self.perform("set", "isSocketConnected", is_connected)
        self.tally["moments compared"] += 1

    def search_last(self):
        """A search for a root folder, since the iterator over characters keeps its last text."""
        self.perform("set", "pathsOfRootFolders", ["Ko\u0308"])
        self.perform("menu", 0, [self.item("/Ko\u0308/x")])

    def item(self, path):
        """An item inside the watched folder."""
        return sent_over_bus(("", self.world.watched[0].rstrip("/") + path))

    def measures(self):
        heap = self.session.settled_heap()
        return {"descriptors": self.session.descriptors(), "threads": self.session.threads(),
                "heap without its buffers, bytes": heap.bytes - self.buffers * BUFFER -
                self.name_length,
                "resident memory, KiB": self.session.resident(),
                "descriptors of the bus": self.session.bus_descriptors()}

    def warm_up(self):
        """What a process takes once and keeps: room for the longest lines, images, tables."""
        self.perform("observe", "begin", sent_over_bus(("", "/" + "long" * 10_000)))
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
        self.session.signal(with_signal)
        self.finish(KILLED if with_signal == signal.SIGKILL else 0)

    def finish(self, code):
        self.session.wait_for_end(code)
        self.session.outputs.wait_for_rest()
        self.session.outputs.require_nothing()
        self.levels.expect("left behind", self.session.left_behind())
        if self.peer and not self.is_peer_gone:
            if self.rest_of_link(code):
                raise Different("something more than the reports was sent")
            self.peer.connection.close()

    def rest_of_link(self, code):
        try:
            return self.peer.connection.recv(1)
        except ConnectionResetError:
            if code == ABORTED:  # what it died of had not been read to its end
                return b""
            raise

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


def resolved(path):
    """The components of a path, as the rule for watched folders sees them."""
    components = []
    for component in decomposed(path).split("/"):
        if component == "..":
            del components[-1:]
        elif component not in ("", "."):
            components.append(component)
    return components


def padded(**message):
    """A message as long as a read."""
    return json.dumps(message).encode().ljust(BUFFER - 1) + b"\n"
