"""What happens to the extension in a long run."""

import random
import signal
import socket
import unicodedata

from conftest import line
from life import JOURNAL_PREFIX, Life, log_line, padded, require
from oracle import model
from oracle.over_bus import playable, sent_over_bus
from oracle.sessions import Maker
from oracle.text import decomposed

SETTINGS = [{}, {}, {"RootFolder": "/Sync"}, {"DisplayBackup": 1, "BackupTitle": "Back up"},
            {"ShareContactTitle": "Share", "ShareViaUrlTitle": "Copy link", "DisplayUrlLink": "0"}]
ENDS = ("SIGTERM", "SIGINT", "SIGKILL", "fatal error")
LENGTHS = [30, 300, 300, 300, 3000]  # events of a life
BETWEEN_RESTS = 100  # events
BLOCKS = 32  # padded messages that may be under way at a time
BATCH = 500  # badge requests
NAMES = ("Caf\u00e9", "Projekt", "\u00dcbersicht", "\u4f5c\u54c1", "Team")
ELSEWHERE = ("/x.txt", "Old", "/a/b", "\u0301")


class Churn:
    """Lives of the process in which everything happens at random."""

    def __init__(self, session, levels, tally, seed):
        self.session, self.levels, self.tally = session, levels, tally
        self.random = random.Random(seed)
        self.peer = session.listen()
        self.nobody = socket.socket()  # has a port to itself, and does not listen there
        self.nobody.bind(("127.0.0.1", 0))
        self.events = iter(())

    def lives(self):
        """Yields at each moment of rest, without an end."""
        while True:
            self.begin()
            self.life.warm_up()
            length = self.random.choice(LENGTHS)
            for number in range(length):
                if number % BETWEEN_RESTS == 0:
                    self.life.come_to_rest()
                    yield
                self.step()
            self.life.come_to_rest()
            yield
            self.end(self.random.choice(ENDS))

    def restarts(self):
        """Yields after each of many short lives, which end in different states."""
        while True:
            for way in ENDS:
                self.begin()
                self.leave_state()
                self.end(way)
                yield

    def begin(self):
        is_listening = self.random.random() < 0.9
        port = (self.peer.listener if is_listening else self.nobody).getsockname()[1]
        self.life = Life(self.session, self.levels, self.tally, port,
                         self.peer if is_listening else None, self.random.choice(SETTINGS))

    def end(self, way):
        if way == "fatal error" and self.life.link != "up":
            way = "SIGTERM"
        self.tally["ends by " + way] += 1
        if way == "fatal error":
            self.life.perform("send", self.fatal_data())
        else:
            self.life.end(getattr(signal, way))

    def fatal_data(self):
        while True:
            for event in self.made_events():
                if event[0] == "send" and self.life.would_end_it(event[1]):
                    return event[1]

    def made_events(self):
        return filter(None, map(playable, Maker(self.random).session()))

    # One thing that happens

    def step(self):
        chance = self.random.random()
        if chance < 0.1:
            self.life.perform("badges", [self.url() for _ in range(self.random.randrange(30))])
        elif chance < 0.13:
            self.life.perform("menu", 0, [self.url()])
        elif chance < 0.19:
            self.life.perform("set", *self.property())
        elif chance < 0.22 and self.life.link == "up":
            self.life.perform("burst", self.blocks())
        elif chance < 0.221:
            self.lose_companion()
        else:
            self.perform_made()

    def perform_made(self):
        """The next event of the sessions that the oracle makes."""
        event = next(self.events, None)
        while event is None or not self.is_possible(event):
            if event is None:
                self.events = self.made_events()
            event = next(self.events, None)
        self.life.perform(*event)

    def is_possible(self, event):
        if event[0] == "send":
            return self.life.link == "up" and not self.life.would_end_it(event[1])
        # What a report does to a companion that has closed and ended is a question of time.
        is_deaf = self.life.link == "closed" and self.life.is_peer_gone
        return event[0] != "close" and not (event[0] == "click" and is_deaf)

    def url(self):
        path = self.random.choice(self.life.extension.paths or ["/Sync"])
        path += self.random.choice(("", "", "/x", "Old", "/a/b.txt"))
        return sent_over_bus(("", "/" + path.replace("\0", "").strip("/")))

    def property(self):
        values = {"myFolderURL": self.url()[1], "serverPort": self.random.randrange(1 << 32),
                  "isSocketConnected": self.random.random() < 0.8,
                  "pathsOfRootFolders": [self.url()[1] for _ in range(5)]}
        return self.random.choice(list(values.items()))

    def blocks(self):
        """Padded messages for one go."""
        commands = ("add_folder", "add_folder", "del_folder")
        return [padded(type=self.random.choice(commands),
                       path=f"/Sync/{self.random.randrange(40)}")
                for _ in range(self.random.randrange(1, BLOCKS + 1))]

    def lose_companion(self):
        if self.life.link == "up":
            way = self.random.choice(("close", "reset"))
            self.tally["links lost by " + way] += 1
            self.life.perform(way)
        elif self.life.link == "closed" and not self.life.is_peer_gone:
            self.life.perform("leave")

    def leave_state(self):
        """Gives every property another value than that of a fresh process, and some more."""
        mark = str(self.random.randrange(1 << 32))
        if self.life.link == "up":
            self.life.perform("send", b"".join((
                line(type="add_folder", path="/announced/" + mark),
                line(type="set_locale", **dict.fromkeys(model.TITLES, "announced " + mark)),
                line(type="set_menu_usage", displayBackup="1"))))
        self.life.perform("set", "displayUrlLink", int(mark))
        self.life.perform("set", "serverPort", int(mark))
        self.life.perform("set", "myFolderURL", "/written/" + mark)
        self.life.perform("set", "pathsOfRootFolders",
                          self.life.extension.paths + ["/Sync/written/" + mark])
        self.life.perform("observe", "begin", self.url())
        for _ in range(3):
            self.step()
        self.life.perform("set", "isSocketConnected", False)


class ManyRoots:
    """Many root folders and badge requests, each of which examines all folders. Without the model,
    which is too slow for them."""

    def __init__(self, session, levels, tally, seed, roots):
        self.session, self.tally = session, tally
        self.random = random.Random(seed)
        self.roots = [f"/home/u/{NAMES[number % len(NAMES)]} {number}" for number in range(roots)]
        self.places = {decomposed(root): place for place, root in enumerate(self.roots)}
        self.lines = [JOURNAL_PREFIX + b"curpath: %b\n" % log_line(root) for root in self.roots]
        peer = session.listen()
        self.life = Life(session, levels, tally, peer.port, peer)

    def announce(self, command):
        """All of them, as many in one go as may be under way."""
        for first in range(0, len(self.roots), BLOCKS):
            self.life.perform("burst", [padded(type=command, path=root)
                                        for root in self.roots[first:first + BLOCKS]])

    def requests(self):
        """Yields after each batch."""
        self.life.warm_up()
        self.life.come_to_rest()
        self.announce("add_folder")
        self.announce("add_folder")  # which traces the place of each
        self.life.require_state()
        while True:
            self.request(BATCH)
            for _ in range(BATCH):
                self.request(1)
            # The break iterator keeps its last text.
            self.life.perform("menu", 0, [sent_over_bus(("", self.roots[0] + "/x"))])
            self.life.require_nothing_written()
            self.life.require_level(f"{len(self.roots)} roots")
            yield

    def item(self):
        """A root folder in one of its forms, or something else near it."""
        path = unicodedata.normalize(self.random.choice(("NFC", "NFD")),
                                     self.random.choice(self.roots))
        if self.random.random() < 0.5:
            path += self.random.choice(ELSEWHERE)
        return sent_over_bus(("", path))

    def request(self, count):
        items = [self.item() for _ in range(count)]
        urls = [url for url, _, _ in items]
        if count == 1:
            badges = self.session.method("RequestBadgeIdentifierForURL", "s", *urls)
        else:
            badges, = self.session.method("RequestBadgeIdentifiersForURLs", "as", urls)
        for (url, path, _), badge in zip(items, badges, strict=True):
            place = self.places.get(decomposed(path))
            require("" if place is None else "FolderIco", badge, path)
            looked_at = self.lines if place is None else self.lines[:place + 1]
            path_line = JOURNAL_PREFIX + b"path: %b\n" % log_line(path)
            self.session.log.expect(
                JOURNAL_PREFIX + b"requestBadgeIdentifierForURL: %b\n" % url.encode() +
                path_line.join(looked_at) + path_line)
            self.tally["badges shown"] += place is not None
        self.tally["badge requests"] += count
