"""The examples of docs/protocol.md, in the order of the page, and its code, against the real
process."""

import json
import os
import pathlib
import re
import signal
import socket
import threading
import time

import conftest
import pytest
from conftest import TIMEOUT, stop_at_random

PAGE = pathlib.Path(__file__).parents[2] / "docs/protocol.md"
BLOCK = re.compile(r"^```(send|trace|state|click|receive|python)\n(.*?)^```$",
                   re.MULTILINE | re.DOTALL)
RUNS = int(os.environ.get("FINDER_SYNC_RUNS", "1"))


def blocks():
    return BLOCK.findall(PAGE.read_text(encoding="utf-8"))


def test_the_examples_of_the_protocol_page(session):
    peer, extension = session.start_connected()
    kinds = [kind for kind, _ in blocks()]
    assert kinds.count("send") >= 5 and kinds.count("receive") >= 2
    seen = len(extension.output())
    for kind, text in blocks():
        if kind == "send":
            peer.send(text.encode())
        elif kind == "trace":
            extension.wait_output(text)
            assert extension.output()[seen:] == text
            seen += len(text)
        elif kind == "click":
            for click in text.splitlines():
                selector, *urls = click.split(" ")
                session.method("PerformAction", "sas", selector, urls)
        elif kind == "receive":
            expected = text.removesuffix("\n").encode()
            assert peer.receive(len(expected)) == expected
        elif kind == "state":
            for expectation in text.splitlines():
                name, value = expectation.split(" ", 1)
                assert session.get(name) == json.loads(value)


@pytest.fixture
def send():
    """The code of the page."""
    names = {}
    for kind, text in blocks():
        if kind == "python":
            exec(text, names)  # pylint: disable=exec-used
    return names["send"]


@pytest.mark.parametrize("count", [10, 300, 3000])
def test_every_folder_arrives_by_the_code_of_the_page(session, send, count, monkeypatch):
    # With sanitizers, 3,000 folders take ten seconds, more beside a build, and the bus waits.
    monkeypatch.setattr(conftest, "TIMEOUT", 9 * TIMEOUT)
    paths = [f"/home/u/Sync/Projects/Ünit {number}" for number in range(count)]
    messages = [{"type": "add_folder", "path": path} for path in paths]
    for run in range(RUNS):
        peer, extension = session.start_connected()
        peer.connection.setsockopt(socket.IPPROTO_TCP, socket.TCP_NODELAY, 0)
        extension.popen.send_signal(signal.SIGSTOP)  # lets what is sent too early pile up
        sender = threading.Thread(target=send, args=(peer.connection, messages))
        sender.start()
        time.sleep(0.2)
        stop_at_random(extension.popen.pid, extension.output_file, count, seed=run)
        sender.join()
        assert session.get("pathsOfRootFolders") == paths
        assert extension.end() == 0


def test_the_code_of_the_page_fills_no_window_with_a_part_of_a_block(send):
    messages = [{"type": "x" * 600}] * 10
    with socket.create_server(("127.0.0.1", 0)) as listener, socket.socket() as reader:
        reader.setsockopt(socket.SOL_SOCKET, socket.SO_RCVBUF, 2304)
        reader.settimeout(TIMEOUT)
        reader.connect(listener.getsockname())
        with listener.accept()[0] as link:
            sender = threading.Thread(target=send, args=(link, messages))
            sender.start()
            time.sleep(0.5)  # after 0.2 s, TCP fills what is left of the window
            assert [len(reader.recv(1024)) for _ in messages] == [1024] * len(messages)
            sender.join()
