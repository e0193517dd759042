"""Plays the files of companion/conversations, whose README.md describes them."""

import base64
import json
import pathlib

from finder_sync_companion import (BLOCK_SIZE, Companion, Connection, Reason, Refusal, Report,
                                   ReportType, Titles)

FOLDER = pathlib.Path(__file__).parents[2] / "companion/conversations"
NAMES = sorted(file.stem for file in FOLDER.glob("*.json"))


def as_text(text):
    """Lone surrogates stand for bytes that are no UTF-8."""
    if isinstance(text, dict):
        return base64.b64decode(text["base64"]).decode(errors="surrogateescape")
    return text


class Conversation:
    """Plays to the core alone; each step is a method of the same name."""

    def __init__(self, name):
        self.steps = json.loads((FOLDER / f"{name}.json").read_text(encoding="utf-8"))["steps"]
        self.companion = Companion()
        self.received = []
        self.connection = Connection(self.companion)
        self.has_to_fail = False

    def play(self):
        for step in self.steps:
            name = next(iter(step))
            getattr(self, "play_" + name)(*step.values())
        self.end_connection()

    def play_folders(self, folders, refused=()):
        self.compare_refusals(self.companion.set_folders(map(as_text, folders)), refused)

    def play_titles(self, titles, refused=()):
        self.compare_refusals(self.companion.set_titles(Titles(*map(as_text, titles))), refused)

    def play_backup(self, backup):
        self.companion.set_backup(backup)

    @staticmethod
    def compare_refusals(refusals, expected):
        assert refusals == [Refusal(as_text(refusal["path"]), Reason[refusal["reason"]])
                            for refusal in expected]

    def play_block(self, block):
        given = self.connection.next_block()
        assert given == block[:-1].encode().ljust(BLOCK_SIZE - 1) + b"\n"
        self.tell(given)

    def play_blocks(self, blocks):
        for block in blocks:
            self.play_block(block)
        assert self.connection.next_block() is None

    def play_receive(self, receive, times=1):
        self.received += self.connection.receive((as_text(receive) * times).encode(errors="surrogateescape"))

    def play_reports(self, reports, dropped):
        assert self.received == [Report(ReportType(report["type"]), tuple(report["paths"]))
                                 for report in reports]
        assert self.connection.dropped_paths == dropped
        self.received.clear()

    def play_failed(self, failed):
        assert failed in self.connection.failed
        self.has_to_fail = True

    def play_newConnection(self, _=True):  # pylint: disable=invalid-name
        self.end_connection()
        self.connection = Connection(self.companion)
        self.has_to_fail = False

    def end_connection(self):
        assert bool(self.connection.failed) == self.has_to_fail

    def tell(self, block):
        """What else is done with a block."""
