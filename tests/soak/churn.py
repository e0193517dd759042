"""Lives of the extension's process in which everything happens at random."""

import random
import signal
import socket

from oracle.over_bus import playable, sent_over_bus
from oracle.sessions import Maker
from soak.life import Life

SETTINGS = [{}, {}, {"RootFolder": "/Sync"}, {"DisplayBackup": 1, "BackupTitle": "Back up"},
            {"ShareContactTitle": "Share", "ShareViaUrlTitle": "Copy link", "DisplayUrlLink": "0"}]
ENDS = ("SIGTERM", "SIGINT", "SIGKILL", "fatal error")
LENGTHS = [0, 300, 300, 300, 3000]  # events of a life
BETWEEN_RESTS = 100  # events


class Churn:
    def __init__(self, session, seed, lengths=LENGTHS):
        self.session, self.lengths = session, lengths
        self.random = random.Random(seed)
        self.peer = session.listen()
        self.nobody = socket.socket()  # has a port to itself, and does not listen there
        self.nobody.bind(("127.0.0.1", 0))
        self.events = iter(())

    def lives(self):
        """Yields at each moment of rest, without an end. What a life leaves behind, the next one
        must know nothing of."""
        while True:
            self.begin()
            self.life.warm_up()
            for number in range(self.random.choice(self.lengths) + 1):
                if number % BETWEEN_RESTS == 0:
                    self.life.come_to_rest()
                    yield
                self.step()
            self.end(self.random.choice(ENDS))

    def begin(self):
        is_listening = self.random.random() < 0.9
        port = (self.peer.listener if is_listening else self.nobody).getsockname()[1]
        self.life = Life(self.session, port, self.peer if is_listening else None,
                         self.random.choice(SETTINGS))

    def end(self, way):
        if way == "fatal error" and self.life.link != "up":
            way = "SIGTERM"
        self.session.tally["ends by " + way] += 1
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
        elif chance < 0.191:
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

    def lose_companion(self):
        if self.life.link == "up":
            way = self.random.choice(("close", "reset"))
            self.session.tally["links lost by " + way] += 1
            self.life.perform(way)
        elif self.life.link == "closed" and not self.life.is_peer_gone:
            self.life.perform("leave")
