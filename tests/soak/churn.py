"""Everything that can happen to the extension, at random."""

import random
import signal
import socket

from conftest import line
from life import Life, padded
from oracle import model
from oracle.over_bus import METHODS, playable, sent_over_bus
from oracle.sessions import Maker

SETTINGS = [{}, {}, {"RootFolder": "/Sync"}, {"DisplayBackup": 1, "BackupTitle": "Back up"},
            {"ShareContactTitle": "Share", "ShareViaUrlTitle": "Copy link", "DisplayUrlLink": "0"}]
LENGTHS = [30, 300, 300, 300, 3000]  # events of a life
BETWEEN_RESTS = 100  # events
BLOCKS = 32  # padded messages that may be under way at a time


class Churn:
    """Lives of the extension, one after the other."""

    def __init__(self, session, levels, tally, seed):
        self.session, self.levels, self.tally = session, levels, tally
        self.random = random.Random(seed)
        self.peer = session.listen()
        self.nobody = socket.socket()  # has a port to itself, and does not listen there
        self.nobody.bind(("127.0.0.1", 0))
        self.events = iter(())
        self.life = None

    def rests(self, is_over):
        """Lives until it is over. Gives each at the moments at which it has come to rest."""
        while not is_over():
            self.begin()
            self.life.warm_up()
            self.life.come_to_rest()
            yield self.life
            for number in range(1, 1 + self.random.choice(LENGTHS)):
                if is_over():
                    break
                self.step()
                if number % BETWEEN_RESTS == 0:
                    self.life.come_to_rest()
                    yield self.life
            self.life.come_to_rest()
            yield self.life
            self.end(self.random.choice(("SIGTERM", "SIGINT", "SIGKILL", "fatal error")))

    def begin(self, is_listening=None):
        chance = self.random.random
        if is_listening is None:
            is_listening = chance() < 0.9
        port = (self.peer.listener if is_listening else self.nobody).getsockname()[1]
        self.life = Life(self.session, self.levels, self.tally, port,
                         peer=self.peer if is_listening else None,
                         settings=self.random.choice(SETTINGS), is_journal=chance() < 0.7,
                         by_question=chance() < 0.5)

    def end(self, way):
        if way == "fatal error":
            if self.life.link == "up":
                self.tally["ends by fatal error"] += 1
                self.life.perform("send", self.fatal_data())
                return
            way = "SIGTERM"
        self.tally["ends by " + way] += 1
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
        if chance < 0.75:
            self.perform_made()
        elif chance < 0.85:
            self.life.perform("badges", [self.url() for _ in range(self.random.randrange(30))])
        elif chance < 0.91:
            self.life.perform("set", *self.property())
        elif chance < 0.94 and self.life.link == "up":
            self.life.perform("burst", self.blocks())
        elif chance < 0.999:
            self.life.perform(*self.random.choice((self.menu, self.click, self.observation))())
        else:
            self.lose_companion()

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
        return event[0] != "close" and not (event[0] == "click" and self.is_deaf())

    def is_deaf(self):
        """Whether what a report does to the link is a question of time: the companion's process
        has closed and ended."""
        return self.life.link == "closed" and self.life.is_peer_gone

    def url(self):
        path = self.random.choice(self.life.extension.paths or ["/Sync"])
        path += self.random.choice(("", "", "/x", "Old", "/a/b.txt"))
        return sent_over_bus(("", "/" + path.replace("\0", "").strip("/")))

    def menu(self):
        return "menu", 0, [self.url()]

    def click(self):
        if self.is_deaf():
            return self.menu()
        selector = self.random.choice(list(model.CLICK_TYPES))
        return "click", selector, [self.url() for _ in range(self.random.randrange(3))]

    def observation(self):
        return "observe", self.random.choice(list(METHODS)), self.url()

    def property(self):
        name = self.random.choice(("myFolderURL", "serverPort", "isSocketConnected",
                                   "pathsOfRootFolders"))
        return name, {"myFolderURL": self.url()[1],
                      "serverPort": self.random.randrange(1 << 32),
                      "isSocketConnected": self.random.random() < 0.8,
                      "pathsOfRootFolders": [self.url()[1] for _ in range(5)]}[name]

    def blocks(self):
        """Padded messages for one go."""
        commands = ("add_folder", "add_folder", "del_folder")
        return [padded(type=self.random.choice(commands),
                       path=f"/Sync/{self.random.randrange(40)}")
                for _ in range(self.random.randrange(1, BLOCKS + 1))]

    def lose_companion(self):
        life = self.life
        if life.link == "up":
            way = self.random.choice(("close", "reset"))
            self.tally["links lost by " + way] += 1
            life.perform(way)
        elif life.link == "closed" and not life.is_peer_gone:
            life.perform("leave")

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
        self.life.perform(*self.observation())
        for _ in range(3):
            self.step()
        self.life.perform("set", "isSocketConnected", False)
