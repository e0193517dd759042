"""The C++ core behind the names of the Python core."""

import json
import os
import subprocess

from finder_sync_companion import Reason, Refusal, Report, ReportType

REASONS = list(Reason)
REPORT_TYPES = list(ReportType)


class Companion:
    def __init__(self):
        self.driver = subprocess.Popen([os.environ["FINDER_SYNC_CORE_DRIVER"]],
                                       stdin=subprocess.PIPE, stdout=subprocess.PIPE)

    def end(self):
        self.driver.stdin.close()
        assert self.driver.wait() == 0

    def ask(self, **command):
        self.driver.stdin.write(json.dumps(command).encode() + b"\n")
        self.driver.stdin.flush()
        return json.loads(self.driver.stdout.readline())

    def set_folders(self, paths):
        return self.refusals(folders=[as_characters(path) for path in paths])

    def set_titles(self, titles):
        return self.refusals(titles=[as_characters(title) for title in (
            titles.share_contact, titles.share_via_url, titles.backup)])

    def set_backup(self, is_shown):
        self.ask(backup=is_shown)

    def refusals(self, **command):
        return [Refusal(as_text(path), REASONS[reason]) for path, reason in self.ask(**command)]


class Connection:
    def __init__(self, companion):
        self.companion = companion
        self.failed = None
        self.dropped_paths = 0
        companion.ask(connect=True)

    def next_block(self):
        block = self.companion.ask(block=True)
        return None if block is None else block.encode("latin-1")

    def receive(self, data):
        answer = self.companion.ask(receive=data.decode("latin-1"))
        self.failed = answer["failed"]
        self.dropped_paths = answer["dropped"]
        return [Report(REPORT_TYPES[number], tuple(map(as_text, paths)))
                for number, paths in answer["reports"]]


def as_characters(text):
    return os.fsencode(text).decode("latin-1")


def as_text(characters):
    return os.fsdecode(characters.encode("latin-1"))
