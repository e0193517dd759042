"""The link to the companion application, over real TCP."""

import os
import signal
import socket
import subprocess

import pytest
from conftest import EXTENSION, BusError, Peer, line, wait_for
from jeepney import message_bus, new_method_call


@pytest.mark.parametrize("port", [0, 65536, 70000, 2 ** 32 - 1, "closed", "cut to sixteen bits"])
def test_ports_that_cannot_be_connected_to(session, port):
    peer = session.listen()
    if port == "closed":
        peer.close()
        port = peer.port
    elif port == "cut to sixteen bits":
        port = peer.port + 65536
    extension = session.start_extension({"ServerPort": port})
    extension.wait_output("Stream open error\nStream open error\n")
    assert extension.output() == "connecting...\nStream open error\nStream open error\n"
    session.wait_for_name()
    assert session.get("serverPort") == port
    assert session.get("isSocketConnected") is True
    assert session.method("PerformAction", "sas", "syncedClicked:", ["file:///a"]) == ()
    assert extension.popen.poll() is None


@pytest.mark.parametrize("address", ["127.0.0.1", "0.0.0.0", "::", "::ffff:127.0.0.1"])
@pytest.mark.parametrize("user", [0, 65534])
@pytest.mark.skipif(os.geteuid() != 0, reason="only root can listen as another user")
def test_only_a_listener_of_our_own_user_is_a_companion(session, address, user):
    os.seteuid(user)
    peer = session.listen(address=address)
    os.seteuid(0)
    session.store_settings({"ServerPort": peer.port})
    extension = session.start("finder-sync-extension", "--log-level", "emerg")
    peer.accept()
    if user == 0:
        extension.wait_output("Sending\n")
        return
    extension.wait_output("Stream open error\nStream open error\n")
    assert peer.connection.recv(1) == b""
    session.method("PerformAction", "sas", "syncedClicked:", ["file:///a"])
    assert extension.output() == "connecting...\nStream open error\nStream open error\n"
    assert session.get("isSocketConnected") is True
    assert extension.error().endswith(
        f"] no link: port {peer.port} belongs to user 65534, not to user 0\n")
    assert extension.error().count("\n") == 1


@pytest.mark.parametrize("end, told, connected", [
    (lambda peer: peer.connection.close(), "ignore\n", False),
    (lambda peer: peer.connection.shutdown(socket.SHUT_WR), "ignore\n", False),
    (Peer.reset, "Stream open error\nStream open error\n", True),
], ids=["closed", "closed by half", "reset"])
def test_the_peer_ends_the_link(session, end, told, connected):
    peer, extension = session.start_connected()
    trace = extension.output()
    end(peer)
    extension.wait_output(told)
    session.wait_for_value("isSocketConnected", connected)
    assert peer.nobody_connects(within=0.3)  # it stays lost
    assert extension.output() == trace + told
    assert extension.popen.poll() is None


def test_a_reset_that_a_click_finds_is_no_end(session):
    peer, extension = session.start_connected()
    session.wait_for_name()
    caller = session.connect_to_bus()
    extension.popen.send_signal(signal.SIGSTOP)
    wait_for(lambda: extension.state() == "T")
    # The bus is served first, when it has been waiting for longer.
    caller.send(new_method_call(EXTENSION, "PerformAction", "sas",
                                ("createLinkClicked:", ["file:///a"])))
    session.call(message_bus.GetId())
    peer.reset()
    extension.popen.send_signal(signal.SIGCONT)
    extension.wait_output("Stream open error\nStream open error\n")
    assert "ignore" not in extension.output()
    assert session.get("isSocketConnected") is True


def test_the_peer_resets_after_it_has_closed_its_direction(session):
    peer, extension = session.start_connected()
    peer.send(line(type="hello"))
    peer.connection.shutdown(socket.SHUT_WR)
    extension.wait_output("type - hello\nignore\n")
    peer.reset()
    extension.wait_output("Stream open error\n")
    assert extension.output().endswith("type - hello\nignore\nStream open error\n")
    assert session.get("isSocketConnected") is False


def test_an_urgent_byte_does_not_stop_the_link(session):
    peer, extension = session.start_connected()
    peer.connection.send(b"!", socket.MSG_OOB)
    peer.send(line(type="add_folder", path="/a"))
    session.wait_for_value("pathsOfRootFolders", ["/a"])
    peer.connection.send(b"!", socket.MSG_OOB)
    peer.send(line(type="add_folder", path="/b"))
    session.wait_for_value("pathsOfRootFolders", ["/a", "/b"])
    peer.connection.close()
    extension.wait_output("ignore\n")


def test_texts_are_shown_without_what_the_bus_does_not_carry(session):
    peer, _ = session.start_connected()
    peer.send(line(type="add_folder", path="/a\0b"))
    session.wait_for_value("pathsOfRootFolders", ["/a"])
    peer.send('{"type":"add_folder","path":"/\u00e9\ufdd0\ufffe\U0001ffff\U0001f517"}\n'.encode())
    session.wait_for_value("pathsOfRootFolders", ["/a", "/\u00e9\ufffd\ufffd\ufffd\U0001f517"])
    peer.send(rb'{"type":"set_locale","shareContactTitle":"\u0000a","shareViaUrlTitle":"b\u0000c",'
              rb'"backupTitle":"\ufdd0"}')
    session.wait_for_value("backupTitle", "\ufffd")
    assert [session.get(name) for name in ("shareContactTitle", "shareViaUrlTitle")] == ["", "b"]
    for noncharacter in "\ufdd0\ufffe":
        with pytest.raises(BusError, match="InconsistentMessage"):
            session.set("backupTitle", "s", noncharacter)
    assert session.get("backupTitle") == "\ufffd"  # as it was


CUT = " (the read was full, so a message was probably cut: see docs/protocol.md#the-1024-byte-rule)"


@pytest.mark.parametrize("sent, reason", [
    (b"\0\n", "line 1 of a read of 2 bytes: not JSON: syntax error at byte 0: \\x00"),
    (b'{"type":"hello"}\xff', "line 1 of a read of 17 bytes: not valid UTF-8 at byte 16: "
     '{"type":"hello"}'),
    # Longer than a read:
    (line(type="add_folder", path="/" + "a" * 1100), "line 1 of a read of 1024 bytes: not JSON: "
     f'incomplete JSON at byte 1024{CUT}: {{"type": "add_folder", "path": "/{"a" * 47}…'),
])
def test_fatal_messages(session, sent, reason):
    peer, extension = session.start_connected()
    log = extension.error()
    session.announce(peer, "/applied")
    peer.send(sent)
    assert extension.wait() == -signal.SIGABRT
    assert extension.error() == log + f"finder-sync-extension: fatal error: {reason}\n"


@pytest.mark.parametrize("place", ["file", "pipe"])
def test_nothing_traced_is_lost_when_an_error_is_fatal(session, place):
    peer, extension = session.start_connected(
        **({"stdout": subprocess.PIPE} if place == "pipe" else {}))
    messages = line(type="add_folder", path="/a") + b"nonsense\n"
    peer.send(messages)
    output = extension.popen.communicate()[0].decode() if place == "pipe" else None
    assert extension.wait() == -signal.SIGABRT
    assert (output or extension.output()).endswith(
        f"receiving\nserver said: {messages.decode()}\ntype - add_folder\n")
