"""The core of the C++ library: in the recorded conversations, and against the core in Python."""

import json
import os
import random

import finder_sync_companion
import pytest
from finder_sync_companion import Titles
from python import conversations

from . import core

RUNS = int(os.environ.get("FINDER_SYNC_RUNS", "30"))


@pytest.fixture
def companion():
    companion = core.Companion()
    yield companion
    companion.end()


@pytest.mark.parametrize("name", conversations.NAMES)
def test_conversation(name, companion, monkeypatch):
    monkeypatch.setattr(conversations, "Companion", lambda: companion)
    monkeypatch.setattr(conversations, "Connection", core.Connection)
    conversations.Conversation(name).play()


class Session:
    """What both cores are asked, at random; every answer is compared."""

    TEXTS = ["a", "b", "ordner", "é", "e\u0301", "日本", "\U0001f5c0", " ", "\"", "\\", "\n", "\x01",
             "\x7f", "}", "{", ".", "..", "", "x" * 90, "é" * 120]
    BAD_TEXTS = ["\udcff", "\udcc3", "\0"]
    TYPES = [report_type.value for report_type in finder_sync_companion.ReportType]
    BAD_REPORTS = [b"x", b"{}", b"{]}", b'{"type":"clicked"}', b'{"type":"\xff","items":[]}',
                   rb'{"type":"clicked_backup","items":["\ud800"]}',
                   b'{"type":"clicked_backup","items":[],"items":[1]}',
                   b'{"type":"clicked_backup","items":["/\t"]}', b'{"type":"clicked","items":[]}']

    def __init__(self, seed, companion):
        self.random = random.Random(seed)
        self.companions = [finder_sync_companion.Companion(), companion]
        self.connections = self.connect()
        self.blocks = self.reports = 0

    def run(self):
        steps = [self.set_folders, self.set_titles, self.set_backup, *[self.take_block] * 5,
                 *[self.receive] * 3]
        for _ in range(100):
            self.random.choice(steps)()
        while self.take_block():
            pass

    def connect(self):
        return [finder_sync_companion.Connection(self.companions[0]),
                core.Connection(self.companions[1])]

    @staticmethod
    def agreed(answers):
        first, second = answers
        assert first == second
        return first

    def set_folders(self):
        paths = [self.path() for _ in range(self.random.choice([0, 1, 5, 40]))]
        self.agreed(companion.set_folders(paths) for companion in self.companions)

    def set_titles(self):
        titles = Titles(*(self.text() * self.random.choice([1, 1, 9]) for _ in range(3)))
        self.agreed(companion.set_titles(titles) for companion in self.companions)

    def set_backup(self):
        is_shown = self.random.random() < 0.5
        for companion in self.companions:
            companion.set_backup(is_shown)

    def take_block(self):
        block = self.agreed(connection.next_block() for connection in self.connections)
        self.blocks += block is not None
        return block

    def receive(self):
        data = b"".join(self.report() for _ in range(self.random.randrange(4)))
        cut = self.random.randrange(len(data) + 1)
        for part in data[:cut], data[cut:]:
            self.reports += len(self.agreed(
                connection.receive(part) for connection in self.connections))
            self.agreed(connection.dropped_paths for connection in self.connections)
            failed = self.agreed(bool(connection.failed) for connection in self.connections)
        if failed:
            self.connections = self.connect()

    def report(self):
        if self.random.random() < 0.03:
            return self.random.choice(self.BAD_REPORTS)
        items = [self.path().encode(errors="ignore").decode()
                 for _ in range(self.random.choice([0, 1, 1, 3]))]
        members = [("type", self.random.choice(self.TYPES)), ("items", items)]
        self.random.shuffle(members)
        return json.dumps(dict(members), ensure_ascii=self.random.random() < 0.5).encode()

    def path(self):
        folders = self.companions[0].folders
        if folders and self.random.random() < 0.5:
            return self.random.choice(folders) + self.random.choice(["", "", "/", "x", "/x", "/../a"])
        parts = [self.text() for _ in range(self.random.choice([1, 1, 2, 12]))]
        return ("/" if self.random.random() < 0.95 else "") + "/".join(parts)

    def text(self):
        return self.random.choice(self.TEXTS if self.random.random() < 0.98 else self.BAD_TEXTS)


@pytest.mark.parametrize("seed", range(RUNS))
def test_both_cores_agree(seed, companion):
    session = Session(seed, companion)
    session.run()
    assert session.blocks > 0 and session.reports > 0
