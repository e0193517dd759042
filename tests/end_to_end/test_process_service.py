"""What the process tells about itself on the bus, and how it is asked to end."""

import socket

import pytest
from conftest import PROCESS, wait_for
from jeepney import new_method_call


def refused(session, peer):
    peer.close()


def connecting(session, peer):
    """The queue of connections that nobody has accepted is full."""
    peer.listener.listen(0)
    filler = socket.create_connection(("127.0.0.1", peer.port))
    session.connections.append(filler)


def nothing(session, peer):
    pass


@pytest.mark.parametrize("prepare, at_first, when_it_breaks, at_last", [
    (refused, "refused", nothing, "refused"), (connecting, "connecting", nothing, "connecting"),
    (nothing, "open", lambda _, peer: peer.close(), "ended"),
    (nothing, "open", lambda _, peer: peer.reset(), "ended"),
], ids=["refused", "connecting", "closed", "reset"])
def test_the_state_of_the_link(session, prepare, at_first, when_it_breaks, at_last):
    peer = session.listen()
    prepare(session, peer)
    session.start_extension({"ServerPort": peer.port})
    session.wait_for_name()
    wait_for(lambda: session.link_state() == at_first, at_first)
    if at_first == "open":
        peer.accept()
    listener, rule = session.subscribe(PROCESS.interface)
    with listener.filter(rule) as signals:
        when_it_breaks(session, peer)
        if at_last != at_first:
            signal = listener.recv_until_filtered(signals, timeout=10)
            assert signal.body == (PROCESS.interface, {"linkState": ("s", at_last)}, [])
    assert session.link_state() == at_last


def test_quit_answers_and_ends_the_process_as_a_signal_does(session):
    peer, extension = session.start_connected()
    assert session.call(new_method_call(PROCESS, "Quit")) == ()
    assert extension.wait() == 0
    assert peer.connection.recv(1) == b""
