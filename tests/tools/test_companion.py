"""The companion application for development."""

import json
import os
import pathlib
import shutil
import signal
import socket
import stat
import threading
import time

import pytest
from conftest import GROUP, wait_for

from .pseudo_terminal import Terminal

LIMIT = 1024


# Listening


def test_listens_on_the_loopback_only(companion):
    with socket.socket() as other, pytest.raises(ConnectionRefusedError):
        other.connect(("127.0.0.2", companion.port))


def test_port_in_use(session):
    port = session.start_companion().port
    second = session.start("companion", "--port", str(port), "--write-settings")
    assert second.wait() == 1
    assert f"port {port}" in second.err.text
    assert "in use" in second.err.text and "--port" in second.err.text
    assert second.out.text == ""
    assert not session.settings_file.exists()


@pytest.mark.parametrize("arguments", [
    ["--port", "abc"], ["--port", "65536"], ["--port", "-1"], ["--port", ""], ["--port", "1x"],
    ["--nonsense"], ["surplus"], ["--pad", "--no-pad"], ["--color", "pink"],
    ["--set", "ServerPort=1"],
    ["--write-settings", "--set", "Nonsense=1"],
    ["--write-settings", "--set", "ServerPort"],
    ["--write-settings", "--set", "ServerPort=abc"],
    ["--write-settings", "--set", "DisplayBackup=1.5"],
    ["--write-settings", "--set", "DisplayUrlLink="],
    ["--write-settings", "--set", b"BackupTitle=\xff"],
    ["--write-settings", "--set", "ServerPort=99999999999999999999"],
])
def test_wrong_usage(session, arguments):
    companion = session.start("companion", *arguments)
    assert companion.wait() == 2
    assert companion.err.text
    assert companion.out.text == ""
    assert not session.settings_file.exists()


# Commands


@pytest.mark.parametrize("line, expected", [
    ("add_folder /a b  c ", {"type": "add_folder", "path": "/a b  c "}),
    ("add_folder", {"type": "add_folder", "path": ""}),
    ("add_folder ", {"type": "add_folder", "path": ""}),
    ("add_folder  /x", {"type": "add_folder", "path": " /x"}),
    ("  add_folder /x", {"type": "add_folder", "path": "/x"}),
    ('add_folder /"quoted"\\', {"type": "add_folder", "path": '/"quoted"\\'}),
    ("add_folder /ünïcödé/日本", {"type": "add_folder", "path": "/ünïcödé/日本"}),
    ("del_folder /a b", {"type": "del_folder", "path": "/a b"}),
    ('set_locale "Share with…" Link \'Back up\'',
     {"type": "set_locale", "shareContactTitle": "Share with…", "shareViaUrlTitle": "Link",
      "backupTitle": "Back up"}),
    (r'set_locale "a\"b" c\ d ""',
     {"type": "set_locale", "shareContactTitle": 'a"b', "shareViaUrlTitle": "c d",
      "backupTitle": ""}),
    ("set_menu_usage 1", {"type": "set_menu_usage", "displayBackup": "1"}),
    ("set_menu_usage 0 ", {"type": "set_menu_usage", "displayBackup": "0"}),
])
def test_commands(session, line, expected):
    companion = session.start_companion("--no-pad")
    peer = session.connect(companion)
    companion.write(line + "\n")
    sent = peer.read_line()
    assert json.loads(sent) == expected and sent.endswith(b'"}\n')
    companion.end_input()
    assert companion.wait() == 0


def test_raw_goes_out_as_it_stands(companion, peer):
    for text in (b"{}", b"not json", b"  two  blanks ", b"", b"x" * 3000, "é".encode(), b"\xff\xfe"):
        companion.write(b"raw " + text + b"\n")
        assert peer.read_line() == text + b"\n"
    companion.err.wait_for("line 7: .*UTF-8")
    assert companion.err.text.count("UTF-8") == 1


def test_a_path_that_is_not_absolute_is_sent_with_a_warning(companion, peer):
    companion.write("add_folder ~/Sync\ndel_folder Sync\nadd_folder /Sync\n")
    assert [json.loads(peer.read(LIMIT))["path"] for _ in range(3)] == ["~/Sync", "Sync", "/Sync"]
    companion.err.wait_for('line 1: "~" is not replaced')
    companion.err.wait_for("line 2: the path is not absolute")
    assert "line 3: " not in companion.err.text


def test_bad_lines_are_named_and_not_sent(companion, peer):
    lines = [b"nonsense", b"add_folders /x", b"del_folder", b"set_locale a b", b"set_locale a b c d",
             b'set_locale "a b c', b"set_locale a b c\\", b"set_menu_usage", b"set_menu_usage 2",
             b"set_menu_usage 01", b"add_folder /\xff", b"add_folder /\xed\xa0\x80"]
    companion.write(b"\n".join([b"# remark", b"", *lines, b"add_folder /next\n"]))
    assert json.loads(peer.read(LIMIT))["path"] == "/next"
    companion.end_input()
    assert companion.wait() == 1
    for number in range(3, 3 + len(lines)):
        assert f"line {number}: " in companion.err.text
    assert companion.out.text == ""


def test_help_lists_the_commands(companion):
    companion.write("nonsense\x1b[31m\nhelp\n")
    companion.err.wait_for(r'unknown command "nonsense\\x1B\[31m".*"help"')
    for name in ("add_folder", "del_folder", "set_locale", "set_menu_usage", "raw", "quit"):
        companion.err.wait_for(f"(?m)^{name}")
    companion.end_input()
    assert companion.wait() == 1
    assert companion.out.text == ""


def test_size_limit(companion, peer):
    fitting = LIMIT - len('{"type":"add_folder","path":""}\n')
    companion.write(f"add_folder /{'x' * fitting}\nadd_folder /{'y' * (fitting - 1)}\n")
    sent = peer.read(LIMIT)
    assert json.loads(sent)["path"] == "/" + "y" * (fitting - 1) and sent.endswith(b'"}\n')
    companion.err.wait_for("line 1: .*1025 bytes.*1024.*raw")
    assert "line 2" not in companion.err.text


# Padding


def test_padding_is_on_for_a_pipe(companion, peer):
    companion.write("add_folder /é\nraw {}\nset_menu_usage 1\n")
    line = peer.read(LIMIT)
    assert line.endswith(b" \n") and line.count(b"\n") == 1
    assert json.loads(line)["path"] == "/é"
    assert peer.read(3) == b"{}\n"
    assert json.loads(peer.read(LIMIT))["displayBackup"] == "1"


@pytest.mark.parametrize("receive_buffer", [None, 2304, 30000, 100000])
def test_padded_lines_are_never_cut_by_reads_of_their_size(session, companion, receive_buffer):
    """Also when the reader is slow and its buffer fills up again and again, first for longer than it
    takes TCP to send a part of what would not fit."""
    peer = session.connect(companion, receive_buffer=receive_buffer)
    count = 2000

    def feed():
        companion.write("".join(f"add_folder /{number}\n" for number in range(count)))
        companion.end_input()

    feeder = threading.Thread(target=feed)
    feeder.start()
    for number in range(count):
        if number % 200 == 0:
            time.sleep(0.03 if number else 0.5)  # lets the buffers fill up
        assert json.loads(peer.socket.recv(LIMIT))["path"] == f"/{number}"
    assert peer.socket.recv(LIMIT) == b""
    feeder.join()
    assert companion.wait() == 0


# Waiting lines and the end


def test_lines_wait_for_the_extension(session):
    companion = session.start_companion("--no-pad")
    companion.write("add_folder /1\nadd_folder /2\nraw 3")
    companion.end_input()
    companion.err.wait_for("waiting for an extension to connect, to send it 3 lines")
    peer = session.connect(companion)
    lines = peer.read_to_end().splitlines()
    assert [json.loads(line)["path"] for line in lines[:2]] == ["/1", "/2"]
    assert lines[2] == b"3"
    assert companion.wait() == 0


def test_quit_ends_and_the_rest_is_not_read(companion, peer):
    companion.write("raw 1\nquit\nraw 2\nnonsense\n")
    assert peer.read_to_end() == b"1\n"
    assert companion.wait() == 0


def test_input_from_a_file(session, tmp_path):
    """Whose end is that of the companion, once all has been sent."""
    commands = tmp_path / "commands"
    commands.write_text("raw 1\nraw 2\n")
    with commands.open() as file:
        companion = session.start_companion(stdin=file)
    assert session.connect(companion).read_to_end() == b"1\n2\n"
    assert companion.wait() == 0


def test_without_input_it_ends_at_once(session):
    assert session.start_companion(stdin=None, preexec_fn=lambda: os.close(0)).wait() == 0


@pytest.mark.parametrize("number", [signal.SIGINT, signal.SIGTERM, signal.SIGHUP])
def test_signals(companion, number):
    companion.write("add_folder /never-sent\n")
    companion.signal(number)
    assert companion.wait(5) == 0


def test_signal_while_nobody_reads_the_reports(session):
    read_end, write_end = os.pipe()
    companion = session.start_companion(stdout=write_end)
    os.close(write_end)
    peer = session.connect(companion)
    peer.socket.settimeout(0.5)
    with pytest.raises(TimeoutError):
        while True:
            peer.socket.sendall(b'{"type":"clicked","items":["/x"]}' * 1000)
    companion.signal(signal.SIGTERM)
    assert companion.wait(5) == 0
    os.close(read_end)


def test_reader_of_the_reports_goes(session):
    read_end, write_end = os.pipe()
    companion = session.start_companion(stdout=write_end)
    os.close(write_end)
    os.close(read_end)
    session.connect(companion).send(b"{}{}{}")
    assert companion.wait() == 1
    assert companion.err.text.count("nobody takes the click reports") == 1


# Connections


def test_second_connection_is_closed(session, companion):
    first = session.connect(companion)
    companion.err.wait_for("an extension has connected\n")
    second = session.connect(companion)
    assert second.read_to_end() == b""
    companion.err.wait_for("second extension.*closed")
    companion.write("raw still here\n")
    assert first.read_line() == b"still here\n"


@pytest.mark.parametrize("end, reason", [("close", ""), ("reset", ": Connection reset by peer")])
def test_next_extension_is_told_nothing_again(session, companion, end, reason):
    first = session.connect(companion)
    companion.write("raw 1\n")
    assert first.read_line() == b"1\n"
    getattr(first, end)()
    companion.err.wait_for("the extension is gone" + reason)
    second = session.connect(companion)
    companion.err.wait_for("knows nothing yet")
    assert second.is_silent()
    companion.write("raw 2\n")
    assert second.read_line() == b"2\n"


def test_peer_that_reads_nothing_does_not_block(session, companion):
    """Its lines wait here, and those that it did not get go to the next extension, whole."""
    deaf = session.connect(companion, receive_buffer=2304)
    companion.err.wait_for("an extension has connected")
    lines = [f"raw {number} {'x' * 500_000}\n" for number in range(30)]
    feeder = threading.Thread(target=lambda: companion.write("".join(lines)))
    feeder.start()
    deaf.send(b'{"alive":1}')
    companion.out.wait_for('{"alive":1}\n')
    wait_for(lambda: companion.bytes_read() > 1_200_000, "two lines to be taken in")
    feeder.join(0.5)
    assert feeder.is_alive()  # more than a few lines are not taken in meanwhile
    deaf.reset()
    gone = companion.err.wait_for(r"gone: .*; (\d+) lines? not sent yet will go to the next")
    assert int(gone.group(1)) >= 1
    second = session.connect(companion)
    received = bytearray()
    while not received.endswith(lines[-1][4:].encode()):
        received += second.socket.recv(1 << 20)
    feeder.join()
    numbers = [int(line.split()[0]) for line in received.splitlines()]
    assert numbers == list(range(numbers[0], 30))
    assert all(len(line) > 500_000 for line in received.splitlines())


# Click reports

def test_reports_cut_at_every_byte(companion, peer):
    reports = [
        r'{"type":"clicked_share","items":["/a b","/ü/日本/😀"]}',
        r'{"type":"clicked_backup","items":[]}',
        r'{"items":["quote \" brace } backslash \\","new\nline"],"type":"x"}',
    ]
    first, second, third = map(str.encode, reports)
    data = first + second + b" \n" + third
    ends = len(first), len(first + second), len(data)
    for cut in range(1, len(data)):
        peer.send(data[:cut])
        # The first part has been taken in once all that is whole in it has been printed.
        whole = sum(end <= cut for end in ends)
        wait_for(lambda: companion.out.text.count("\n") == (cut - 1) * 3 + whole, "reports")
        peer.send(data[cut:])
        wait_for(lambda: companion.out.text.count("\n") == cut * 3, "reports")
    assert companion.out.lines() == reports * (len(data) - 1)


@pytest.mark.parametrize("garbage", [
    b"hello", b"[]", b"1", b'"text"', b"}", b'{"a":}', b'{"a":"\xff"}', b"{'a':1}", b"\0",
    b'{"a":"line\nend"}',
])
def test_garbage_closes_the_link(session, companion, peer, garbage):
    peer.send(b'{"good":1}' + garbage)
    companion.err.wait_for("no click report: .*the link is closed")
    companion.err.wait_for("the extension is gone")
    try:
        assert peer.read_to_end() == b""
    except ConnectionResetError:
        pass
    session.connect(companion).send(b'{"next":1}')
    companion.out.wait_for('{"next":1}\n')
    assert companion.out.lines() == ['{"good":1}', '{"next":1}']


def test_huge_report(companion, peer):
    text = "x" * (64 * 1024 * 1024 - len('{"a":""}'))
    peer.send(f'{{"a":"{text}"}}'.encode())
    wait_for(lambda: companion.output_file.stat().st_size == 64 * 1024 * 1024 + 1, "the report")
    assert companion.out.text.endswith('x"}\n')


def test_report_that_is_too_large(companion, peer):
    try:
        peer.send(b'{"a":"' + b"x" * (64 * 1024 * 1024) + b'"}')
    except (ConnectionResetError, BrokenPipeError):
        pass
    companion.err.wait_for("longer than 64 MiB; the link is closed")
    assert companion.out.text == ""


def test_report_that_breaks_off(session, companion, peer):
    companion.err.wait_for("an extension has connected")
    peer.send(b'{"a":')
    peer.close()
    companion.err.wait_for("gone: .*; the click report that it had begun is lost")
    session.connect(companion).send(b'{"b":1}')
    companion.out.wait_for('{"b":1}\n')
    assert companion.out.lines() == ['{"b":1}']


def test_last_reports_are_printed(companion, peer):
    """Reports that have come by the end of the input are not lost."""
    companion.err.wait_for("an extension has connected")
    companion.signal(signal.SIGSTOP)
    peer.send(b'{"last":1}' * 10_000)
    companion.end_input()
    companion.signal(signal.SIGCONT)
    assert companion.wait() == 0
    assert companion.out.lines() == ['{"last":1}'] * 10_000


def test_colors(session):
    for options, values, expected in [
            ((), {}, '{"a":1}\n'),
            (("--color", "always"), {"NO_COLOR": "1"}, '\x1b[32m{"a":1}\x1b[0m\n'),
            (("--color", "never"), {}, '{"a":1}\n')]:
        companion = session.start_companion(*options, environment={**session.environment, **values})
        session.connect(companion).send(b'{"a":1}')
        companion.out.wait_for("a.*\n")
        assert companion.out.text == expected


# Settings


def test_settings_are_written(session):
    del session.environment["XDG_CONFIG_HOME"]
    companion = session.start_companion(
        "--write-settings", "--set", "RootFolder=/a b", "--set", "DisplayBackup=1", "--set",
        "DisplayUrlLink=-3", "--set", "ShareContactTitle=Mit „Leuten“ = gut", "--set",
        "BackupTitle=")
    file = session.home / ".config" / GROUP / "settings.json"
    assert json.loads(file.read_text()) == {
        "ServerPort": companion.port, "RootFolder": "/a b", "DisplayBackup": 1,
        "DisplayUrlLink": -3, "ShareContactTitle": "Mit „Leuten“ = gut", "BackupTitle": ""}
    assert stat.S_IMODE(file.stat().st_mode) == 0o600
    assert os.listdir(file.parent) == ["settings.json"]


def test_settings_are_merged(session):
    session.store_settings('{"Other": [1, {"a": null}], "ServerPort": 1, "BackupTitle": "x"}')
    session.settings_file.chmod(0o644)
    session.start_companion("--write-settings", "--set", "BackupTitle=y", "--set", "ServerPort=7")
    assert json.loads(session.settings_file.read_text()) == {
        "Other": [1, {"a": None}], "ServerPort": 7, "BackupTitle": "y"}
    assert stat.S_IMODE(session.settings_file.stat().st_mode) == 0o600


def test_settings_that_cannot_be_replaced_are_left_alone(session):
    def refuses(reason):
        companion = session.start("companion", "--port", "0", "--write-settings")
        assert companion.wait() == 1
        assert str(session.settings_file) in companion.err.text and reason in companion.err.text
        assert "listening" not in companion.err.text

    for text in ("{", "[]", "", "{} x", '{"a":1,}', "\0"):
        session.store_settings(text)
        refuses("malformed")
        assert session.settings_file.read_text() == text
        assert os.listdir(session.settings_file.parent) == ["settings.json"]
    session.settings_file.unlink()
    session.settings_file.mkdir()
    refuses("cannot be read: Is a directory")
    session.settings_file.rmdir()
    session.settings_file.parent.rmdir()
    session.settings_file.parent.touch()
    refuses("Not a directory")


# On a terminal


@pytest.fixture
def on_terminal(session):
    """Starts the companion on a terminal, by way of the words before it."""
    terminals = []

    def starter(*words, environment=None, **options):
        terminal = Terminal()
        terminals.append(terminal)
        command = [*words, str(session.programs / "companion"), "--port", "0"]
        terminal.program = session.start(shutil.which(command[0]), *command[1:],
                                         environment=environment, **terminal.streams() | options)
        terminal.port = int(terminal.wait_for(r"listening on 127\.0\.0\.1:(\d+)")[1])
        return terminal

    yield starter
    for terminal in terminals:
        terminal.close()


@pytest.mark.parametrize("end", ["\x03", "\x04", "quit\n"])
def test_line_on_a_terminal(session, on_terminal, end):
    """It is not padded, and a bad one does not make the exit code 1."""
    terminal = on_terminal(environment={"TERM": "dumb"})
    peer = session.connect(terminal)
    terminal.type("nonsense\nadd_folder /a\n")
    assert peer.read_line() == b'{"type":"add_folder","path":"/a"}\n'
    terminal.wait_for("unknown command")
    assert "\x1b" not in terminal.output
    terminal.type(end)
    assert terminal.program.wait(5) == 0


def test_end_of_input_with_waiting_lines(session, on_terminal):
    terminal = on_terminal()
    terminal.type("raw 1\n\x04")
    terminal.wait_for("waiting for an extension")
    assert session.connect(terminal).read_to_end() == b"1\n"
    assert terminal.program.wait() == 0


@pytest.mark.parametrize("words", [(), ("sh", "-c", 'trap "" HUP; exec "$@"', "sh")])
def test_terminal_that_closes(on_terminal, words):
    """With SIGHUP, and without: for a program that is told to ignore it."""
    terminal = on_terminal(*words)
    terminal.type("raw waits for ever\nnonsense\n")
    terminal.wait_for("unknown command")
    terminal.close()
    assert terminal.program.wait(5) == 0


@pytest.mark.skipif(not shutil.which("rlwrap"), reason="rlwrap is not installed")
def test_reports_leave_the_line_that_rlwrap_edits_alone(session, on_terminal, tmp_path):
    words = pathlib.Path(__file__).parents[2] / "tools/completion/companion.rlwrap"
    terminal = on_terminal("rlwrap", "--file", words)
    peer = session.connect(terminal)
    terminal.wait_for("an extension has connected")
    terminal.type("add_f\t/a")
    terminal.wait_for("add_folder /a")
    peer.send(b'{"a":1}')
    terminal.wait_for(r'{"a":1}[^/]*\n[^/]*add_folder /a')
    terminal.type("b\r")
    assert json.loads(peer.read_line())["path"] == "/ab"
    terminal.type("\x1b[A")
    terminal.wait_for(r"(?s)add_folder /ab.*add_folder /ab")
    terminal.type("\x15quit\r")
    assert terminal.program.wait() == 0


# Commands to start with, and another program's lines


def test_commands_to_start_with_are_sent_in_order(session):
    companion = session.start_companion("-c", "add_folder /a", "-c", "nonsense", "--command",
                                        'raw {"type":"x"}', "--no-pad")
    companion.err.wait_for("line 2: [^\n]*nonsense")
    peer = session.connect(companion)
    expected = (b'{"type":"add_folder","path":"/a"}\n{"type":"x"}\n')
    assert peer.read(len(expected)) == expected


def test_follows_a_named_pipe(session, tmp_path):
    pipe = tmp_path / "pipe"
    os.mkfifo(pipe)
    companion = session.start_companion("--follow", pipe)
    for text in ("first\nse", "cond\n\x1b[2Jthird\n"):
        with open(pipe, "w", encoding="utf-8") as writer:
            writer.write(text)
    shown = companion.err.wait_for("first\nsecond\n[^\n]*third\n").group(0)
    assert "\x1b" not in shown
    assert companion.out.text == ""


@pytest.mark.parametrize("make", [None, "file"])
def test_what_is_no_named_pipe_is_not_followed(session, tmp_path, make):
    path = tmp_path / "path"
    if make:
        path.write_text("text")
    companion = session.start("companion", "--port", "0", "--follow", path)
    assert companion.wait() == 1
    assert f'"{path}" cannot be followed' in companion.err.text
