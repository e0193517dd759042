"""The real process against the model, in sessions made at random: over TCP, where an idle process
reads what was written in one go, and over D-Bus."""

import random
import signal
import socket
import urllib.parse

import pytest
from conftest import wait_for
from oracle import compare, model
from oracle.sessions import Maker

SESSIONS = 50
SEED = 3
WRITABLE = {"pathsOfRootFolders": "as", "displayBackup": "x", "displayUrlLink": "x",
            "shareContactTitle": "s", "shareViaUrlTitle": "s", "backupTitle": "s"}
METHODS = {"begin": "BeginObservingDirectoryAtURL", "end": "EndObservingDirectoryAtURL"}


def has_bus_form(path):
    """Whether the bus carries a path, as the path of an item."""
    return path is not None and path.startswith("/") and "\0" not in path


def sent_over_bus(url):
    """A URL as the bus brings it: of a file, and without a "/" at the end of its path."""
    path = url[1].rstrip("/") or "/"
    return "file://" + urllib.parse.quote(path), path, True


def playable(event):
    """The event in a form that the real process can be given, or none."""
    name, *arguments = event
    if name == "send" and arguments[0]:
        return event
    if name in ("menu", "click"):
        kind, selection = arguments
        if selection is None or not all(has_bus_form(url[1]) for url in selection):
            return None
        return name, kind & 0xffffffff if name == "menu" else kind, [
            sent_over_bus(url) for url in selection]
    if name in ("badge", "observe") and has_bus_form(arguments[-1][1]):
        return name, *arguments[:-1], sent_over_bus(arguments[-1])
    if name == "set" and arguments[0] in WRITABLE and "\0" not in "".join(
            arguments[1] if isinstance(arguments[1], list) else str(arguments[1])):
        return event
    return event if name == "close" else None


def make_events(seed):
    """What happens after the start: a dozen events or more."""
    generator = random.Random(seed)
    events = []
    is_closed = False
    while len(events) < 12:
        for event in filter(None, map(playable, Maker(generator).session())):
            if not is_closed or event[0] not in ("send", "close"):
                events.append(event)
            is_closed = is_closed or event[0] == "close"
    return events


def visible(text):
    """A text as the bus shows it."""
    return text.split("\0")[0]


def answers_of(records):
    """What the model answers to each badge request and each menu request."""
    answers = []
    for record in records:
        if record in ("event badge", "event menu"):
            answers.append([])
        elif isinstance(record, str) and answers and record.startswith("answer: "):
            answers[-1].append(visible(record.removeprefix("answer: ")))
        elif isinstance(record, str) and record.startswith("setBadgeIdentifier:forURL: "):
            answers[-1].append("FolderIco")
    return answers


def printed(records):
    return "".join(record.removeprefix("print: ") + "\n" for record in records
                   if isinstance(record, str) and record.startswith("print: "))


class Play:
    """One session of the real process."""

    def __init__(self, session, settings):
        self.session = session
        self.peer, self.extension = session.start_connected(settings)
        session.wait_for_name()
        self.answers = []
        self.received = b""

    def perform(self, name, *arguments):
        getattr(self, name)(*arguments)

    def send(self, data):
        self.peer.send(data)

    def close(self):
        self.peer.connection.shutdown(socket.SHUT_WR)

    def menu(self, kind, selection):
        urls = [url for url, _, _ in selection]
        is_offered, entries = self.session.method("MenuForMenuKind", "uas", kind, urls)
        flat = [part for title, action, image in entries for part in (title, action, "", image)]
        self.answers.append([f"menu {len(entries)}", *flat] if is_offered else ["no menu"])

    def badge(self, url):
        badge, = self.session.method("RequestBadgeIdentifierForURL", "s", url[0])
        self.answers.append([badge] if badge else [])

    def observe(self, which, url):
        self.session.method(METHODS[which], "s", url[0])

    def click(self, selector, selection):
        self.session.method("PerformAction", "sas", selector, [url for url, _, _ in selection])

    def set(self, name, value):
        self.session.set(name, WRITABLE[name], value)

    def receive(self, length):
        while len(self.received) < length:
            self.received += self.peer.connection.recv(length - len(self.received))


@pytest.mark.parametrize("number", range(SESSIONS))
def test_a_session_goes_as_the_model_says(session, number):
    events = make_events(SEED << 20 | number)
    settings = {"DisplayBackup": number % 3, "BackupTitle": "Back up", "ShareViaUrlTitle": "Link"}
    play = Play(session, settings)
    run = model.Run()
    start = [("port", play.peer.port), ("setting", "ServerPort", "integer", play.peer.port),
             *(("setting", key, "string" if isinstance(value, str) else "integer", value)
               for key, value in settings.items()), ("start",), ("turns",)]
    world, extension, death = run.world, run.extension, None
    try:
        for event in start:
            run.play(event)
        for event in events:
            play.perform(*event)
            run.play(event)
            run.play(("turns",))
            wait_for(lambda: len(play.extension.output()) >= len(printed(world.records)), event)
    except model.Death as end:
        death = end
        assert play.extension.wait() == -signal.SIGABRT
        assert play.extension.error().endswith(compare.reason(death) + "\n")

    play.receive(len(world.received))
    assert play.extension.output() == printed(world.records)
    assert play.answers == answers_of(world.records)
    assert compare.parse_reports(play.received) == compare.parse_reports(world.received)
    if death:
        return
    state = session.get_all()
    assert [state["myFolderURL"], *state["directoryURLs"]] == ["file:///", "file:///"]
    assert state["pathsOfRootFolders"] == [visible(path) for path in extension.paths]
    assert [state[title] for title in model.TITLES] == [visible(text) for text in extension.titles]
    assert state["isSocketConnected"] == extension.is_connected
    assert (state["displayBackup"], state["displayUrlLink"]) == (
        extension.display_backup, extension.display_url_link)
