"""A hostile peer on the companion's port. The extension goes on, takes the link for closed, or ends
as it does at malformed messages; the file managers never wait for it."""

import contextlib
import socket
import subprocess
import time

import pytest
from conftest import TIMEOUT

from hostile.conftest import READ_LENGTH, block, deliver, meanwhile


def click(session, count):
    """Reports a click on so many items."""
    session.method("PerformAction", "sas", "createLinkClicked:",
                   [f"file:///sync/{number:060}" for number in range(count)])


def test_never_reads_the_reports(scene):
    connection = scene.begin(stdout=subprocess.DEVNULL)
    with meanwhile(lambda: click(scene.session, 2000)):  # 150 kB each
        scene.keep_asking(0.5)
    for _ in range(60):
        click(scene.session, 2000)  # returns, with nobody reading
    # What was on its way is there, the last of it cut off; what came after is lost.
    connection.settimeout(0.2)
    with contextlib.suppress(TimeoutError):
        while connection.recv(1 << 20):
            pass
    connection.settimeout(TIMEOUT)
    scene.is_as_before()


@pytest.mark.parametrize(("data", "flags", "pause", "outcome"), [
    pytest.param(b"{", 0, 0.01, "has_ended", id="single_bytes"),  # the first is no message
    pytest.param(b"\n" * READ_LENGTH * 64, 0, 0, "is_as_before", id="empty_lines"),
    pytest.param(block(type="hello") * 1000 + b" ", 0, 0, "has_ended", id="blocks_that_tcp_splits"),
    pytest.param(b" " * READ_LENGTH * 64, 0, 0, "has_ended", id="an_endless_line"),
    # One that is overtaken by the next is a byte like any other, which is no message.
    pytest.param(b"!" * READ_LENGTH, socket.MSG_OOB, 0, "has_ended", id="urgent_bytes"),
])
def test_a_flood_of(scene, data, flags, pause, outcome):
    connection = scene.begin(stdout=subprocess.DEVNULL)
    with meanwhile(lambda: connection.sendall(data, flags) or time.sleep(pause)):
        scene.keep_asking(0.5)
    getattr(scene, outcome)()


def test_a_flood_of_messages(scene):
    connection = scene.begin(stdout=subprocess.DEVNULL)
    flood = (block(type="add_folder", path="/other") + block(type="del_folder", path="/other")) * 16
    connection.setsockopt(socket.IPPROTO_TCP, socket.TCP_NODELAY, 0)
    connection.setsockopt(socket.IPPROTO_TCP, socket.TCP_CORK, 1)
    # No more under way than fits: what TCP has to split would end the process.
    connection.setsockopt(socket.SOL_SOCKET, socket.SO_SNDBUF, len(flood))
    scene.withstands(lambda: deliver(connection, flood), seconds=0.5)


def test_half_closes_and_goes_on_sending(scene):
    connection = scene.begin()
    connection.shutdown(socket.SHUT_RD)
    with meanwhile(lambda: connection.sendall(block(type="hello")) or time.sleep(0.01)):
        scene.keep_asking()
    scene.extension.wait_output("type - hello")
    scene.has_lost_link()


def test_resets_in_the_middle_of_a_line(scene):
    connection = scene.begin()
    connection.send(b'{"type":"add_fol')
    scene.peer.reset()
    scene.keep_asking()
    scene.has_ended()  # what had arrived is read


def test_resets_in_the_middle_of_a_report(scene):
    connection = scene.begin()
    connection.setsockopt(socket.SOL_SOCKET, socket.SO_RCVBUF, READ_LENGTH)
    with meanwhile(lambda: click(scene.session, 2000)):
        time.sleep(0.1)
        scene.peer.reset()
        scene.keep_asking()
    scene.extension.wait_output("Stream open error\nStream open error\n")
    scene.has_lost_link()


def test_resets_after_it_has_accepted(scene):
    peer = scene.session.listen()
    with meanwhile(lambda: peer.accept() or peer.reset()):
        scene.begin_without_link(peer)
        scene.keep_asking()
        peer.listener.shutdown(socket.SHUT_RD)
    scene.extension.wait_output("Stream open error\nStream open error\n")
    scene.has_lost_link()


def test_closes_after_it_has_accepted(scene):
    peer = scene.session.listen()
    with meanwhile(lambda: peer.accept() or peer.connection.close()):
        scene.begin_without_link(peer, menus=False)
        scene.keep_asking()
        peer.listener.shutdown(socket.SHUT_RD)
    assert scene.extension.output().endswith("ignore\n")
    scene.has_closed_link()


def test_never_accepts(scene):
    peer = scene.session.listen()
    peer.listener.listen(0)
    waiting = [socket.socket() for _ in range(4)]
    for each in waiting:
        each.setblocking(False)
        each.connect_ex(("127.0.0.1", peer.port))
    scene.begin_without_link(peer)
    scene.keep_asking()
    assert scene.extension.output().startswith("connecting...\npath: ")  # and is at it still
    scene.has_lost_link()
    for each in waiting:
        each.close()
