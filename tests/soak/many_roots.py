"""Many root folders, and many more requests for badges, each of which looks at all of them."""

import random
import unicodedata

from churn import BLOCKS
from life import Life, padded
from oracle.over_bus import sent_over_bus
from oracle.text import decomposed
from watched import Different, log_line, method

BATCH = 500
NAMES = ("Caf\u00e9", "Projekt", "\u00dcbersicht", "\u4f5c\u54c1", "Team")
ELSEWHERE = ("/x.txt", "Old", "/a/b", "\u0301")


class ManyRoots:
    def __init__(self, session, levels, tally, seed, roots):
        self.session, self.levels, self.tally = session, levels, tally
        self.random = random.Random(seed)
        self.roots = [f"/home/u/{NAMES[number % len(NAMES)]} {number}" for number in range(roots)]
        self.places = {decomposed(root): place for place, root in enumerate(self.roots)}
        self.lines = [b"<6>curpath: %b\n" % log_line(root) for root in self.roots]
        peer = session.listen()
        self.life = Life(session, levels, tally, peer.port, peer)

    def announce(self, command):
        """All of them, as many in one go as may be under way."""
        for first in range(0, len(self.roots), BLOCKS):
            self.life.perform("burst", [padded(type=command, path=root)
                                        for root in self.roots[first:first + BLOCKS]])

    def play(self, requests):
        """Gives how many requests have been answered."""
        self.life.warm_up()
        self.life.come_to_rest()
        self.announce("add_folder")
        self.announce("add_folder")  # which traces the place of each
        self.life.require_state()
        self.request_many(BATCH)  # what a long answer needs is kept
        self.request()
        self.require_level()
        answered = 0
        while answered < requests:
            count = 1 if answered < requests // 2 else min(BATCH, requests - answered)
            if count == 1:
                self.request()
            else:
                self.request_many(count)
            answered += count
            if answered % BATCH == 0:
                self.life.perform("menu", 0, [self.item()])
                yield answered
        self.require_level()
        self.life.require_state()
        self.announce("del_folder")
        self.life.come_to_rest()
        yield answered

    def item(self):
        """A root folder in one of its forms, or something else near it."""
        path = unicodedata.normalize(self.random.choice(("NFC", "NFD")),
                                     self.random.choice(self.roots))
        if self.random.random() < 0.5:
            path += self.random.choice(ELSEWHERE)
        return sent_over_bus(("", path))

    def request(self):
        url, path, _ = self.item()
        badge, = self.session.call(method("RequestBadgeIdentifierForURL", "s", url))
        self.require(url, path, badge)

    def request_many(self, count):
        items = [self.item() for _ in range(count)]
        badges, = self.session.call(
            method("RequestBadgeIdentifiersForURLs", "as", [url for url, _, _ in items]))
        for (url, path, _), badge in zip(items, badges, strict=True):
            self.require(url, path, badge)

    def require(self, url, path, badge):
        place = self.places.get(decomposed(path))
        if badge != ("" if place is None else "FolderIco"):
            raise Different(f"the badge of {path} is {badge!r}, and its place is {place}")
        looked_at = self.lines if place is None else self.lines[:place + 1]
        path_line = b"<6>path: %b\n" % log_line(path)
        expected = (b"<6>requestBadgeIdentifierForURL: %b\n" % url.encode() +
                    path_line.join(looked_at) + path_line)
        self.session.outputs.expect("log", expected)
        self.tally["badge requests"] += 1
        self.tally["badges shown"] += place is not None
        self.tally["lines of the log"] += 1 + 2 * len(looked_at)

    def require_level(self):
        # The iterator over characters keeps its last text.
        self.life.perform("menu", 0, [sent_over_bus(("", self.roots[0] + "/x"))])
        self.session.outputs.require_nothing()
        self.life.require_level(f"{len(self.roots)} roots")
