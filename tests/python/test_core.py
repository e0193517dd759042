"""The core of the Python library, without input and output."""

import pathlib
import shutil
import subprocess
import time

import pytest
from finder_sync_companion import Companion, Connection, Reason, Refusal, ReportType

from .conversations import NAMES, Conversation

LIBRARY = pathlib.Path(__file__).parents[2] / "python/finder_sync_companion"


@pytest.mark.parametrize("name", NAMES)
def test_conversation(name):
    Conversation(name).play()


def test_a_refusal_is_a_sentence_that_names_the_path():
    assert str(Refusal("/caf\udce9", Reason.NOT_UTF8)) == r"/caf\udce9 is not UTF-8"


def test_links_are_resolved_on_both_sides():
    companion = Companion()
    companion.set_folders(["/sync", "/disk"])
    targets = {"/sync": "/data/sync", "/sync/a": "/data/sync/a", "/disk/out": "/etc"}
    connection = Connection(companion, lambda path: targets.get(path, path))
    report, = connection.receive(
        b'{"items":["/sync/a","/disk/out","/data/sync/a"],"type":"clicked_backup"}')
    assert (report.type, report.paths) == (ReportType.BACKUP, ("/sync/a",))
    assert connection.dropped_paths == 2


def test_a_change_is_compared_once():
    companion = Companion()
    folders = [f"/home/u/Sync/{number}" for number in range(30000)]
    companion.set_folders(folders)
    connection = Connection(companion)
    start = time.process_time()
    count = sum(1 for _ in iter(connection.next_block, None))
    assert count > 1000
    assert time.process_time() - start < 3  # a comparison for each block takes minutes


def test_types():
    if not shutil.which("mypy"):
        pytest.skip("mypy is not installed")
    subprocess.run(["mypy", "--strict", "--cache-dir=/dev/null", LIBRARY], check=True)
