"""The link to the companion application, over real TCP."""

import signal
import socket
import subprocess

import pytest
from conftest import EXTENSION, line, wait_for
from jeepney import message_bus, new_method_call


def test_a_normal_start_traces_its_steps(session):
    _, extension = session.start_connected()
    assert extension.output() == "connecting...\nOpened connection\nOpened connection\nSending\n"


def test_nobody_listens(session):
    peer = session.listen()
    peer.close()
    extension = session.start_extension({"ServerPort": peer.port})
    extension.wait_output("Stream open error\nStream open error\n")
    assert extension.output() == "connecting...\nStream open error\nStream open error\n"
    session.wait_for_name()
    assert session.get("isSocketConnected") is True


@pytest.mark.parametrize("port", [0, 65536, 70000, 4294967295])
def test_ports_that_cannot_be_connected_to(session, port):
    extension = session.start_extension({"ServerPort": port})
    extension.wait_output("Stream open error\nStream open error\n")
    session.wait_for_name()
    assert session.get("serverPort") == port
    assert session.get("isSocketConnected") is True


def test_a_port_is_never_cut_to_sixteen_bits(session):
    peer = session.listen()
    peer.listener.settimeout(0.3)
    extension = session.start_extension({"ServerPort": peer.port + 65536})
    extension.wait_output("Stream open error\nStream open error\n")
    with pytest.raises(TimeoutError):
        peer.accept()


def test_the_peer_closes(session):
    peer, extension = session.start_connected()
    peer.connection.close()
    extension.wait_output("ignore\n")
    session.wait_for_value("isSocketConnected", False)
    assert extension.output().endswith("Sending\nignore\n")
    assert extension.output().count("Opened connection") == 2


def test_the_peer_closes_its_direction_only(session):
    peer, extension = session.start_connected()
    peer.send(line(type="add_folder", path="/a"))
    peer.connection.shutdown(1)
    extension.wait_output("ignore\n")
    assert session.get("pathsOfRootFolders") == ["/a"]
    assert session.get("isSocketConnected") is False


def test_the_peer_resets(session):
    peer, extension = session.start_connected()
    peer.reset()
    extension.wait_output("Stream open error\nStream open error\n")
    assert "ignore" not in extension.output()
    assert session.get("isSocketConnected") is True
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
    peer.connection.shutdown(1)
    extension.wait_output("ignore\n")
    peer.reset()
    extension.wait_output("Stream open error\n")
    assert extension.output().endswith("Sending\nignore\nStream open error\n")
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


def test_a_lost_link_stays_lost(session):
    peer, extension = session.start_connected()
    peer.connection.close()
    extension.wait_output("ignore\n")
    peer.listener.settimeout(0.3)
    with pytest.raises(TimeoutError):
        peer.accept()


def test_commands_change_the_state(session):
    peer, extension = session.start_connected()
    peer.send(line(type="add_folder", path="/home/u/Sync"))
    session.wait_for_value("pathsOfRootFolders", ["/home/u/Sync"])
    peer.send(line(type="set_locale", shareContactTitle="Contacts", shareViaUrlTitle="Link",
                   backupTitle="Back up"))
    session.wait_for_value("backupTitle", "Back up")
    assert session.get("shareContactTitle") == "Contacts"
    assert session.get("shareViaUrlTitle") == "Link"
    peer.send(line(type="set_menu_usage", displayBackup="1"))
    session.wait_for_value("displayBackup", 1)
    peer.send(line(type="del_folder", path="/home/u/Sync"))
    session.wait_for_value("pathsOfRootFolders", [])
    assert extension.popen.poll() is None


def test_the_trace_of_a_session_byte_for_byte(session):
    peer, extension = session.start_connected()
    first = line(type="add_folder", path="/a")
    peer.send(first)
    extension.wait_output("type - add_folder\n")
    peer.send(first)
    extension.wait_output("new path is at index 0\n")
    peer.send(b'{"type":"hello"}')
    extension.wait_output("type - hello\n")
    peer.connection.close()
    extension.wait_output("ignore\n")
    text = first.decode()
    assert extension.output() == (
        "connecting...\nOpened connection\nOpened connection\nSending\n"
        f"receiving\nserver said: {text}\ntype - add_folder\n"
        f"receiving\nserver said: {text}\ntype - add_folder\nnew path is at index 0\n"
        'receiving\nserver said: {"type":"hello"}\ntype - hello\n'
        "ignore\n")


def test_two_messages_in_one_read(session):
    peer, _ = session.start_connected()
    peer.send(line(type="add_folder", path="/a") + line(type="add_folder", path="/b"))
    session.wait_for_value("pathsOfRootFolders", ["/a", "/b"])


def test_an_empty_line_drops_the_rest_of_a_read(session):
    peer, extension = session.start_connected()
    peer.send(line(type="add_folder", path="/a") + b"\n" + line(type="add_folder", path="/b"))
    extension.wait_output("type - add_folder\n")
    peer.send(line(type="hello"))
    extension.wait_output("type - hello\n")
    assert session.get("pathsOfRootFolders") == ["/a"]


def test_a_line_feed_that_arrives_late_drops_the_next_read(session):
    peer, extension = session.start_connected()
    peer.send(line(type="add_folder", path="/a")[:-1])
    extension.wait_output("type - add_folder\n")
    peer.send(b"\n" + line(type="add_folder", path="/b"))
    extension.wait_output('"/b"}\n\n')
    peer.send(line(type="hello"))
    extension.wait_output("type - hello\n")
    assert session.get("pathsOfRootFolders") == ["/a"]


def test_a_message_of_exactly_one_read(session):
    peer, extension = session.start_connected()
    message = line(type="add_folder", path="/a")
    peer.send(message[:-1].ljust(1023) + b"\n")
    session.wait_for_value("pathsOfRootFolders", ["/a"])
    assert extension.popen.poll() is None


def test_canonically_equivalent_paths(session):
    peer, extension = session.start_connected()
    peer.send(line(type="add_folder", path="/caf\u00e9"))
    session.wait_for_value("pathsOfRootFolders", ["/caf\u00e9"])
    peer.send(line(type="add_folder", path="/cafe\u0301"))
    extension.wait_output("new path is at index 0\n")


def test_a_path_with_a_nul_is_shown_up_to_it(session):
    peer, _ = session.start_connected()
    peer.send(line(type="add_folder", path="/a\0b"))
    session.wait_for_value("pathsOfRootFolders", ["/a"])


def test_a_path_with_noncharacters_does_not_make_the_list_unreadable(session):
    peer, _ = session.start_connected()
    peer.send('{"type":"add_folder","path":"/\u00e9\ufdd0\ufffe\U0001ffff\U0001f517"}\n'.encode())
    session.wait_for_value("pathsOfRootFolders", ["/\u00e9\ufffd\ufffd\ufffd\U0001f517"])


FATAL = {
    b"hello": 'an inbound message has no "type"',
    b"[]\n": 'an inbound message has no "type"',
    b"{}\n": 'an inbound message has no "type"',
    b'{"type":5}': '"type" of an inbound message is not a string',
    b'{"type":"add_folder"}': 'an inbound message has no "path"',
    b'{"type":"del_folder","path":1}': '"path" of an inbound message is not a string',
    b'{"type":"set_locale","shareContactTitle":"a","shareViaUrlTitle":"b"}':
        'an inbound message has no "backupTitle"',
    b'{"type":"set_menu_usage","displayBackup":1}':
        '"displayBackup" of an inbound message is not a string',
    b'{"type":"hello"}\xff': "inbound bytes are not valid UTF-8",
    line(type="add_folder", path="/" + "a" * 1100): 'an inbound message has no "type"',
    b" " * 1023 + "\u00e9".encode(): "inbound bytes are not valid UTF-8",
}


@pytest.mark.parametrize("sent", FATAL, ids=range(len(FATAL)))
def test_fatal_messages(session, sent):
    peer, extension = session.start_connected()
    log = extension.error()
    peer.send(line(type="add_folder", path="/applied"))
    extension.wait_output("type - add_folder\n")
    peer.send(sent)
    assert extension.wait() == -signal.SIGABRT
    assert extension.error() == log + "finder-sync-extension: fatal error: " + FATAL[sent] + "\n"


def test_nothing_traced_is_lost_when_an_error_is_fatal(session):
    peer, extension = session.start_connected()
    messages = line(type="add_folder", path="/a") + b"nonsense\n"
    peer.send(messages)
    assert extension.wait() == -signal.SIGABRT
    assert extension.output().endswith(
        f"receiving\nserver said: {messages.decode()}\ntype - add_folder\n")


def test_nothing_traced_is_lost_in_a_pipe_when_an_error_is_fatal(session):
    peer, extension = session.start_connected(stdout=subprocess.PIPE)
    messages = line(type="add_folder", path="/a") + b"nonsense\n"
    peer.send(messages)
    with extension.popen.stdout as pipe:
        output = pipe.read().decode()
    assert extension.wait() == -signal.SIGABRT
    assert output.endswith(f"receiving\nserver said: {messages.decode()}\ntype - add_folder\n")


def test_many_reads_arrive_whole_and_in_order(session):
    peer, extension = session.start_connected()
    for number in range(200):
        message = line(type="add_folder", path=f"/root {number}")
        peer.send(message[:-1].ljust(1023) + b"\n")
        if number % 32 == 31:  # more on the way could fill the connection and be cut by it
            wait_for(lambda: extension.output().count("type - add_folder\n") == number + 1)
    session.wait_for_value("pathsOfRootFolders", [f"/root {number}" for number in range(200)])
    wait_for(lambda: extension.output().count("type - add_folder\n") == 200)
