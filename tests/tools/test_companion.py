"""The companion application for development."""

import json
import os
import re
import signal
import socket
import stat
import subprocess
import threading
import time

import pytest

from .pseudo_terminal import Terminal
from .running_programs import GROUP, wait_until

LIMIT = 1024


def message(line):
    return json.loads(line)


# Listening


def test_listens_on_the_loopback_only(start_companion):
    companion = start_companion()
    with socket.socket() as other, pytest.raises(ConnectionRefusedError):
        other.connect(("127.0.0.2", companion.port))


def test_takes_the_port_it_is_given(start_companion):
    with socket.socket() as free:
        free.setsockopt(socket.SOL_SOCKET, socket.SO_REUSEADDR, 1)
        free.bind(("127.0.0.1", 0))
        port = free.getsockname()[1]
    assert start_companion(port=port).port == port


def test_port_in_use(start, start_companion, binaries):
    port = start_companion().port
    second = start(binaries / "companion", "--port", port)
    assert second.wait() == 1
    assert f"port {port}" in second.err.text
    assert "in use" in second.err.text and "--port" in second.err.text
    assert second.out.text == ""


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
def test_wrong_usage(start, binaries, arguments, settings_file):
    companion = start(binaries / "companion", *arguments)
    assert companion.wait() == 2
    assert companion.err.text
    assert companion.out.text == ""
    assert not settings_file.exists()


def test_help_and_version(start, binaries):
    for option in ("--help", "--version"):
        companion = start(binaries / "companion", option)
        assert companion.wait() == 0
        assert "companion" in companion.out.text


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
def test_commands(start_companion, connect, line, expected):
    companion = start_companion("--no-pad")
    peer = connect(companion.port)
    companion.write(line + "\n")
    assert message(peer.read_line()) == expected
    companion.end_input()
    assert companion.wait() == 0


@pytest.mark.parametrize("text", ["{}", "not json", "  two  blanks ", "", "x" * 3000, "é"])
def test_raw_goes_out_as_it_stands(start_companion, connect, text):
    companion = start_companion()
    peer = connect(companion.port)
    companion.write(f"raw {text}\n")
    assert peer.read_line() == f"{text}\n".encode()


def test_raw_sends_what_is_not_utf8_and_says_so(start_companion, connect):
    companion = start_companion()
    peer = connect(companion.port)
    companion.write(b"raw \xff\xfe\n")
    assert peer.read_line() == b"\xff\xfe\n"
    companion.err.wait_for("line 1: .*UTF-8")


BAD_LINES = [
    "nonsense", "add_folders /x", "del_folder", "set_locale a b", "set_locale a b c d",
    'set_locale "a b c', "set_locale a b c\\", "set_menu_usage", "set_menu_usage 2",
    "set_menu_usage 01", b"add_folder /\xff", b"add_folder /\xed\xa0\x80",
    "add_folder /" + "x" * 1100,
]


@pytest.mark.parametrize("line", BAD_LINES)
def test_bad_lines_are_named_and_not_sent(start_companion, connect, line):
    companion = start_companion("--no-pad")
    peer = connect(companion.port)
    companion.write("# remark\n\n")
    companion.write(line)
    companion.write("\nadd_folder /next\n")
    assert message(peer.read_line())["path"] == "/next"
    companion.err.wait_for("line 3: ")
    companion.end_input()
    assert companion.wait() == 1
    assert companion.out.text == ""


def test_unknown_command_points_at_help(start_companion):
    companion = start_companion()
    companion.write("nonsense\x1b[31m\n")
    companion.err.wait_for(r'unknown command "nonsense\\x1B\[31m".*"help"')


def test_help_lists_the_commands(start_companion):
    companion = start_companion()
    companion.write("help\n")
    for name in ("add_folder", "del_folder", "set_locale", "set_menu_usage", "raw", "quit"):
        companion.err.wait_for(f"(?m)^{name}")
    companion.end_input()
    assert companion.wait() == 0
    assert companion.out.text == ""


def frame(path_size):
    return len('{"type":"add_folder","path":""}\n') + path_size


def test_size_limit(start_companion, connect):
    companion = start_companion("--no-pad")
    peer = connect(companion.port)
    fitting = LIMIT - frame(0)
    companion.write(f"add_folder {'x' * (fitting + 1)}\nadd_folder {'y' * fitting}\n")
    assert message(peer.read(LIMIT))["path"] == "y" * fitting
    companion.err.wait_for("line 1: .*1025 bytes.*1024.*raw")
    assert "line 2" not in companion.err.text


def test_refusal_of_1100_bytes_and_raw(start_companion, connect):
    companion = start_companion()
    peer = connect(companion.port)
    text = json.dumps({"type": "add_folder", "path": "x" * (1100 - frame(0))},
                      separators=(",", ":"))
    companion.write(f"add_folder {'x' * (1100 - frame(0))}\nraw {text}\n")
    assert peer.read_line() == text.encode() + b"\n"
    companion.err.wait_for("line 1: .*1100 bytes.*raw")


# Padding


def test_padding_is_on_for_a_pipe(start_companion, connect):
    companion = start_companion()
    peer = connect(companion.port)
    companion.write("add_folder /é\nraw {}\nset_menu_usage 1\n")
    line = peer.read(LIMIT)
    assert line.endswith(b" \n") and line.count(b"\n") == 1
    assert message(line)["path"] == "/é"
    assert peer.read(3) == b"{}\n"
    assert message(peer.read(LIMIT))["displayBackup"] == "1"


def test_longest_message_needs_no_padding(start_companion, connect):
    companion = start_companion()
    peer = connect(companion.port)
    companion.write(f"add_folder {'x' * (LIMIT - frame(0))}\n")
    assert peer.read(LIMIT).endswith(b'"}\n')


def test_no_padding_when_asked(start_companion, connect):
    companion = start_companion("--no-pad")
    peer = connect(companion.port)
    companion.write("add_folder /a\n")
    companion.end_input()
    assert peer.read_to_end() == b'{"type":"add_folder","path":"/a"}\n'


@pytest.mark.parametrize("receive_buffer", [None, 2304, 30000, 100000])
def test_padded_lines_are_never_cut_by_reads_of_their_size(start_companion, connect,
                                                           receive_buffer):
    """Also when the reader is slow and its buffer fills up again and again. TCP itself sends part of
    a segment when a full buffer has not been read for a fifth of a second, so a machine that holds
    this reader up for that long shows nothing about the companion."""
    companion = start_companion()
    peer = connect(companion.port, receive_buffer=receive_buffer)
    count = 4000

    def feed():
        companion.write("".join(f"add_folder /{number}\n" for number in range(count)))
        companion.end_input()

    feeder = threading.Thread(target=feed)
    feeder.start()
    longest = 0.0
    last = time.monotonic()
    for number in range(count):
        if number % 200 == 0:
            time.sleep(0.03)  # lets the buffers fill up
        data = peer.socket.recv(LIMIT)
        now = time.monotonic()
        longest, last = max(longest, now - last), now
        if len(data) != LIMIT and longest > 0.15:
            peer.close()
            feeder.join()
            pytest.skip(f"the machine held the reader up for {longest:.2f} s")
        assert message(data)["path"] == f"/{number}"
    assert peer.socket.recv(LIMIT) == b""
    feeder.join()
    assert companion.wait() == 0


# Waiting lines and the end


def test_lines_wait_for_the_extension(start_companion, connect):
    companion = start_companion("--no-pad")
    companion.write("add_folder /1\nadd_folder /2\nraw 3")
    companion.end_input()
    companion.err.wait_for("waiting for an extension to connect, to send it 3 lines")
    peer = connect(companion.port)
    lines = peer.read_to_end().splitlines()
    assert [message(line)["path"] for line in lines[:2]] == ["/1", "/2"]
    assert lines[2] == b"3"
    assert companion.wait() == 0


def test_quit_ends_and_the_rest_is_not_read(start_companion, connect):
    companion = start_companion()
    peer = connect(companion.port)
    companion.write("raw 1\nquit\nraw 2\nnonsense\n")
    assert peer.read_to_end() == b"1\n"
    assert companion.wait() == 0


def test_empty_input_ends_at_once(start_companion):
    companion = start_companion(stdin=subprocess.DEVNULL)
    assert companion.wait() == 0


def test_end_of_input_while_connected(start_companion, connect):
    companion = start_companion()
    peer = connect(companion.port)
    companion.err.wait_for("an extension has connected")
    companion.end_input()
    assert peer.read_to_end() == b""
    assert companion.wait() == 0


def test_input_from_a_file(start_companion, connect, tmp_path):
    commands = tmp_path / "commands"
    commands.write_text("raw 1\nraw 2\n")
    with commands.open() as file:
        companion = start_companion(stdin=file)
    peer = connect(companion.port)
    assert peer.read_to_end() == b"1\n2\n"
    assert companion.wait() == 0


def test_without_standard_input(start_companion):
    companion = start_companion(stdin=None, preexec_fn=lambda: os.close(0))
    assert companion.wait() == 0


@pytest.mark.parametrize("number", [signal.SIGINT, signal.SIGTERM, signal.SIGHUP])
def test_signals(start_companion, number):
    companion = start_companion()
    companion.write("add_folder /never-sent\n")
    companion.signal(number)
    assert companion.wait(5) == 0


def test_signal_while_nobody_reads_the_reports(start_companion, connect):
    read_end, write_end = os.pipe()
    companion = start_companion(stdout=write_end)
    os.close(write_end)
    peer = connect(companion.port)
    peer.socket.settimeout(0.5)
    with pytest.raises(TimeoutError):
        while True:
            peer.socket.sendall(b'{"type":"clicked","items":["/x"]}' * 1000)
    companion.signal(signal.SIGTERM)
    assert companion.wait(5) == 0
    os.close(read_end)


def test_reader_of_the_reports_goes(start_companion, connect):
    read_end, write_end = os.pipe()
    companion = start_companion(stdout=write_end)
    os.close(write_end)
    os.close(read_end)
    connect(companion.port).send(b"{}{}{}")
    assert companion.wait() == 1
    assert companion.err.text.count("nobody takes the click reports") == 1


# Connections


def test_second_connection_is_closed(start_companion, connect):
    companion = start_companion()
    first = connect(companion.port)
    companion.err.wait_for("an extension has connected\n")
    second = connect(companion.port)
    assert second.read_to_end() == b""
    companion.err.wait_for("second extension.*closed")
    companion.write("raw still here\n")
    assert first.read_line() == b"still here\n"


def test_next_extension_is_told_nothing_again(start_companion, connect):
    companion = start_companion()
    first = connect(companion.port)
    companion.write("raw 1\n")
    assert first.read_line() == b"1\n"
    first.close()
    companion.err.wait_for("the extension is gone")
    second = connect(companion.port)
    companion.err.wait_for("knows nothing yet")
    assert second.is_silent()
    companion.write("raw 2\n")
    assert second.read_line() == b"2\n"


def test_peer_that_resets(start_companion, connect):
    companion = start_companion()
    first = connect(companion.port)
    companion.err.wait_for("an extension has connected")
    first.reset()
    companion.err.wait_for("the extension is gone: Connection reset by peer")
    companion.write("raw 2\n")
    assert connect(companion.port).read_line() == b"2\n"
    companion.end_input()
    assert companion.wait() == 0


def test_peer_that_reads_nothing_does_not_block(start_companion, connect):
    """Its lines wait here, and those that it did not get go to the next extension, whole."""
    companion = start_companion()
    deaf = connect(companion.port, receive_buffer=2304)
    companion.err.wait_for("an extension has connected")
    lines = [f"raw {number} {'x' * 500_000}\n" for number in range(30)]
    feeder = threading.Thread(target=lambda: companion.write("".join(lines)))
    feeder.start()
    deaf.send(b'{"alive":1}')
    companion.out.wait_for('{"alive":1}\n')
    wait_until(lambda: companion.bytes_read() > 1_200_000, "two lines to be taken in")
    feeder.join(0.5)
    assert feeder.is_alive()  # more than a few lines are not taken in meanwhile
    deaf.reset()
    gone = companion.err.wait_for(r"gone: .*; (\d+) lines? not sent yet will go to the next")
    assert int(gone.group(1)) >= 1
    second = connect(companion.port)
    received = b""
    while not received.endswith(lines[-1][4:].encode()):
        received += second.socket.recv(1 << 20)
    feeder.join()
    numbers = [int(line.split()[0]) for line in received.splitlines()]
    assert numbers == list(range(numbers[0], 30))
    assert all(len(line) > 500_000 for line in received.splitlines())


# Click reports

REPORTS = [
    {"type": "clicked_share", "items": ["/a b", "/ü/日本/\U0001f600"]},
    {"type": "clicked_backup", "items": []},
    {"items": ['quote " brace } backslash \\', "new\nline"], "type": "x"},
]


def compact(report):
    return json.dumps(report, separators=(",", ":"), ensure_ascii=False)


def test_reports_back_to_back(start_companion, connect):
    companion = start_companion()
    connect(companion.port).send("".join(map(compact, REPORTS)).encode())
    companion.out.wait_for('"x"}\n')
    assert companion.out.lines() == [compact(report) for report in REPORTS]


def test_reports_cut_at_every_byte(start_companion, connect):
    companion = start_companion()
    peer = connect(companion.port)
    peer.socket.setsockopt(socket.IPPROTO_TCP, socket.TCP_NODELAY, 1)
    data = "".join(map(compact, REPORTS)).encode()
    for cut in range(1, len(data)):
        peer.send(data[:cut])
        # The first part has been taken in once all that is whole in it has been printed.
        whole = sum(data[:cut].startswith("".join(map(compact, REPORTS[:count])).encode())
                    for count in range(1, len(REPORTS) + 1))
        wait_until(lambda: companion.out.text.count("\n") == (cut - 1) * 3 + whole, "reports")
        peer.send(data[cut:])
        wait_until(lambda: companion.out.text.count("\n") == cut * 3, "reports")
    assert companion.out.lines() == [compact(report) for report in REPORTS] * (len(data) - 1)


def test_reports_byte_by_byte(start_companion, connect):
    companion = start_companion()
    peer = connect(companion.port)
    peer.socket.setsockopt(socket.IPPROTO_TCP, socket.TCP_NODELAY, 1)
    for byte in " \n".join(map(compact, REPORTS)).encode():
        peer.send(bytes([byte]))
    companion.out.wait_for('"x"}\n')
    assert companion.out.lines() == [compact(report) for report in REPORTS]


@pytest.mark.parametrize("garbage", [
    b"hello", b"[]", b"1", b'"text"', b"}", b'{"a":}', b'{"a":"\xff"}', b"{'a':1}", b"\0",
    b'{"a":"line\nend"}',
])
def test_garbage_closes_the_link(start_companion, connect, garbage):
    companion = start_companion()
    peer = connect(companion.port)
    peer.send(b'{"good":1}' + garbage)
    companion.err.wait_for("no click report: .*the link is closed")
    companion.err.wait_for("the extension is gone")
    try:
        assert peer.read_to_end() == b""
    except ConnectionResetError:
        pass
    connect(companion.port).send(b'{"next":1}')
    companion.out.wait_for('{"next":1}\n')
    assert companion.out.lines() == ['{"good":1}', '{"next":1}']


def test_huge_report(start_companion, connect):
    companion = start_companion()
    peer = connect(companion.port)
    text = "x" * (64 * 1024 * 1024 - len('{"a":""}'))
    peer.send(f'{{"a":"{text}"}}'.encode())
    wait_until(lambda: companion.out.ends_with(b'"}\n'), "the report")
    assert len(companion.out.text) == 64 * 1024 * 1024 + 1


def test_report_that_is_too_large(start_companion, connect):
    companion = start_companion()
    peer = connect(companion.port)
    try:
        peer.send(b'{"a":"' + b"x" * (64 * 1024 * 1024) + b'"}')
    except (ConnectionResetError, BrokenPipeError):
        pass
    companion.err.wait_for("larger than 64 MiB; the link is closed")
    assert companion.out.text == ""


def test_report_that_breaks_off(start_companion, connect):
    companion = start_companion()
    peer = connect(companion.port)
    peer.send(b'{"a":')
    peer.close()
    companion.err.wait_for("gone: .*; the click report that it had begun is lost")
    connect(companion.port).send(b'{"b":1}')
    companion.out.wait_for('{"b":1}\n')
    assert companion.out.lines() == ['{"b":1}']


def test_last_reports_are_printed(start_companion, connect):
    """Reports that have come by the end of the input are not lost."""
    companion = start_companion()
    peer = connect(companion.port)
    companion.err.wait_for("an extension has connected")
    companion.signal(signal.SIGSTOP)
    peer.send(b'{"last":1}' * 10_000)
    companion.end_input()
    companion.signal(signal.SIGCONT)
    assert companion.wait() == 0
    assert companion.out.lines() == ['{"last":1}'] * 10_000


def test_colors(start_companion, connect, environment):
    for options, values, expected in [
            ((), {}, '{"a":1}\n'),
            (("--color", "always"), {"NO_COLOR": "1"}, '\x1b[32m{"a":1}\x1b[0m\n'),
            (("--color", "never"), {}, '{"a":1}\n')]:
        companion = start_companion(*options, environment={**environment, **values})
        connect(companion.port).send(b'{"a":1}')
        companion.out.wait_for("a.*\n")
        assert companion.out.text == expected


# Settings


def test_settings_are_written(start_companion, settings_file):
    companion = start_companion(
        "--write-settings", "--set", "RootFolder=/a b", "--set", "DisplayBackup=1", "--set",
        "DisplayUrlLink=-3", "--set", "ShareContactTitle=Mit „Leuten“ = gut", "--set",
        "BackupTitle=")
    assert json.loads(settings_file.read_text()) == {
        "ServerPort": companion.port, "RootFolder": "/a b", "DisplayBackup": 1,
        "DisplayUrlLink": -3, "ShareContactTitle": "Mit „Leuten“ = gut", "BackupTitle": ""}
    assert stat.S_IMODE(settings_file.stat().st_mode) == 0o600
    assert os.listdir(settings_file.parent) == ["settings.json"]


def test_settings_are_merged(start_companion, settings_file):
    settings_file.parent.mkdir(parents=True)
    settings_file.write_text('{"Other": [1, {"a": null}], "ServerPort": 1, "BackupTitle": "x"}')
    settings_file.chmod(0o644)
    companion = start_companion("--write-settings", "--set", "BackupTitle=y")
    assert json.loads(settings_file.read_text()) == {
        "Other": [1, {"a": None}], "ServerPort": companion.port, "BackupTitle": "y"}
    assert stat.S_IMODE(settings_file.stat().st_mode) == 0o600


def test_settings_with_another_port(start_companion, settings_file):
    start_companion("--write-settings", "--set", "ServerPort=7")
    assert json.loads(settings_file.read_text()) == {"ServerPort": 7}


def test_settings_below_home(start_companion, environment, home):
    del environment["XDG_CONFIG_HOME"]
    start_companion("--write-settings")
    assert (home / ".config" / GROUP / "settings.json").exists()


def test_settings_are_only_written_when_asked(start_companion, settings_file):
    start_companion()
    assert not settings_file.exists()


@pytest.mark.parametrize("text", ["{", "[]", "", "{} x", '{"a":1,}', "\0"])
def test_malformed_settings_are_left_alone(start, binaries, settings_file, text):
    settings_file.parent.mkdir(parents=True)
    settings_file.write_text(text)
    companion = start(binaries / "companion", "--port", 0, "--write-settings")
    assert companion.wait() == 1
    assert str(settings_file) in companion.err.text and "malformed" in companion.err.text
    assert "listening" not in companion.err.text
    assert settings_file.read_text() == text
    assert os.listdir(settings_file.parent) == ["settings.json"]


def test_settings_that_cannot_be_read(start, binaries, settings_file):
    settings_file.mkdir(parents=True)
    companion = start(binaries / "companion", "--port", 0, "--write-settings")
    assert companion.wait() == 1
    assert "cannot be read: Is a directory" in companion.err.text


def test_settings_that_cannot_be_written(start, binaries, settings_file):
    settings_file.parent.parent.mkdir(parents=True)
    settings_file.parent.touch()
    companion = start(binaries / "companion", "--port", 0, "--write-settings")
    assert companion.wait() == 1
    assert str(settings_file) in companion.err.text


def test_settings_stay_when_the_port_is_in_use(start, start_companion, binaries, settings_file):
    port = start_companion().port
    assert start(binaries / "companion", "--port", port, "--write-settings").wait() == 1
    assert not settings_file.exists()


# With the real extension


def test_drives_the_extension(bus, start_companion, start_extension):
    companion = start_companion("--write-settings")
    extension = start_extension(companion.port)
    companion.write("".join(f"add_folder /folder {number}\n" for number in range(200)))
    companion.write('set_locale "Share it" Link Backup\nset_menu_usage 1\ndel_folder /folder 7\n')
    extension.out.wait_for("type - del_folder")
    assert extension.out.text.count("type - add_folder") == 200
    companion.end_input()
    assert companion.wait() == 0
    extension.out.wait_for("ignore\n")
    extension.signal(signal.SIGTERM)
    assert extension.wait() == 0


# On a terminal

PROMPT = "companion>"


@pytest.fixture
def on_terminal(start, binaries):
    terminals = []

    def starter(columns=80, hears_hangup=True):
        terminal = Terminal(columns)
        terminals.append(terminal)

        def prepare():
            terminal.take_control()
            signal.signal(signal.SIGHUP, signal.SIG_DFL if hears_hangup else signal.SIG_IGN)

        terminal.program = start(binaries / "companion", "--port", 0, stdin=terminal.slave,
                                 stdout=terminal.slave, stderr=terminal.slave,
                                 preexec_fn=prepare)
        terminal.wait_for_last_line(PROMPT)
        terminal.port = int(re.search(r":(\d+)", terminal.output).group(1))
        return terminal

    yield starter
    for terminal in terminals:
        terminal.close()


def test_prompt_and_history(on_terminal, connect, home):
    terminal = on_terminal()
    peer = connect(terminal.port)
    terminal.type("add_folder /a\r")
    assert peer.read_line() == b'{"type":"add_folder","path":"/a"}\n'  # not padded
    terminal.wait_for_last_line(PROMPT)
    terminal.type("\x1b[A")
    terminal.wait_for_last_line(f"{PROMPT} add_folder /a")
    terminal.type("b\r")
    assert message(peer.read_line())["path"] == "/ab"
    terminal.type("quit\r")
    assert terminal.program.wait() == 0
    history = home / "state" / GROUP / "companion_history"
    assert "/ab" in history.read_text().replace("\\040", " ")
    assert stat.S_IMODE(history.stat().st_mode) == 0o600

    later = on_terminal()
    later.type("\x1b[A\x1b[A")
    later.wait_for_last_line(f"{PROMPT} add_folder /ab")


def test_completion_of_names(on_terminal):
    terminal = on_terminal()
    terminal.type("add\t/x")
    terminal.wait_for_last_line(f"{PROMPT} add_folder /x")
    terminal.type("\x15set\t")
    terminal.wait_for_last_line(f"{PROMPT} set_")
    terminal.type("\t")
    terminal.wait_for(lambda lines: lines[-2].split() == ["set_locale", "set_menu_usage"])
    terminal.wait_for_last_line(f"{PROMPT} set_")


@pytest.mark.parametrize("columns", [40, 80])
@pytest.mark.parametrize("keys_back", [0, 5, 60])
def test_reports_leave_the_edited_line_alone(on_terminal, connect, columns, keys_back):
    terminal = on_terminal(columns=columns)
    peer = connect(terminal.port)
    text = "add_folder /日本/é/a path that is long enough to wrap, twice even, in 40 columns"
    terminal.type(text + "\x02" * keys_back)

    def shown(lines):
        return "".join(lines[next((number for number, line in enumerate(lines)
                                   if line.startswith(PROMPT)), 0):]).replace(" ", "")

    terminal.wait_for(lambda lines: shown(lines) == (PROMPT + text).replace(" ", ""))
    peer.send(b'{"type":"clicked_a"}{"type":"clicked_b"}')
    terminal.wait_for(lambda lines: '{"type":"clicked_b"}' in lines and
                      shown(lines) == (PROMPT + text).replace(" ", ""))
    lines = terminal.screen.lines()
    assert lines[0].startswith("listening on")
    assert lines[1:4] == ["an extension has connected", '{"type":"clicked_a"}',
                          '{"type":"clicked_b"}']
    terminal.type("\r")
    assert message(peer.read_line())["path"] == text.removeprefix("add_folder ")


def test_bad_lines_do_not_matter_on_a_terminal(on_terminal):
    terminal = on_terminal()
    terminal.type("nonsense\r")
    terminal.wait_for(lambda lines: any("unknown command" in line for line in lines) and
                      lines[-1] == PROMPT)
    terminal.type("quit\r")
    assert terminal.program.wait() == 0


def test_long_line(on_terminal, connect):
    """Longer than the first buffer of any line editor."""
    terminal = on_terminal()
    peer = connect(terminal.port)
    text = "é" * 1500 + "x" * 1500
    for start in range(0, len(text), 100):
        terminal.type(text[start:start + 100] if start else "raw " + text[:100])
        terminal.wait_for(lambda lines: sum(line.count("é") + line.count("x") for line in lines)
                          >= start)
    terminal.type("\r")
    assert peer.read_line().decode() == text + "\n"


def test_typed_bytes_that_are_not_utf8(on_terminal, connect):
    terminal = on_terminal()
    peer = connect(terminal.port)
    terminal.type(b"raw a\xffb\r")
    assert peer.read_line().decode() == "a\ufffdb\n"


def test_lone_escape_does_not_stop_the_link(on_terminal, connect):
    terminal = on_terminal()
    peer = connect(terminal.port)
    terminal.type("raw a\x1b")
    terminal.wait_for_last_line(f"{PROMPT} raw a")
    peer.send(b'{"a":1}')
    terminal.wait_for(lambda lines: '{"a":1}' in lines)


@pytest.mark.parametrize("end", ["\x03", "\x04", "quit\r"])
def test_terminal_is_restored(on_terminal, end):
    terminal = on_terminal()
    raw = terminal.settings()
    terminal.type(end)
    assert terminal.program.wait(5) == 0
    fresh = Terminal()
    assert raw[3] != fresh.settings()[3]
    assert terminal.settings()[:4] == fresh.settings()[:4]
    fresh.close()


def test_terminal_is_restored_when_a_key_is_awaited(on_terminal):
    terminal = on_terminal()
    before = Terminal()
    terminal.type("\x16")  # quotes the key that follows
    terminal.type("")
    terminal.program.signal(signal.SIGTERM)
    assert terminal.program.wait(5) == 0
    assert terminal.settings()[:4] == before.settings()[:4]
    before.close()


def test_end_of_input_with_waiting_lines(on_terminal, connect):
    terminal = on_terminal()
    terminal.type("raw 1\r")
    terminal.wait_for_last_line(PROMPT)
    terminal.type("\x04")
    terminal.wait_for(lambda lines: any("waiting for an extension" in line for line in lines))
    assert connect(terminal.port).read_to_end() == b"1\n"
    assert terminal.program.wait() == 0


@pytest.mark.parametrize("hears_hangup", [True, False])
def test_terminal_that_closes(on_terminal, hears_hangup):
    """With the signal, and without: for a program that is told to ignore it."""
    terminal = on_terminal(hears_hangup=hears_hangup)
    terminal.type("raw waits for ever\r")
    terminal.wait_for_last_line(PROMPT)
    terminal.hang_up()
    assert terminal.program.process.wait(5) == 0


def test_plain_terminal(start, binaries, connect, environment):
    """Without line editing there is no prompt, and a closing terminal ends it just the same."""
    terminal = Terminal()
    environment["TERM"] = "dumb"
    program = start(binaries / "companion", "--port", 0, stdin=terminal.slave,
                    stdout=terminal.slave, stderr=terminal.slave,
                    preexec_fn=lambda: signal.signal(signal.SIGHUP, signal.SIG_IGN))
    terminal.wait_for(lambda lines: lines and lines[0].startswith("listening on"))
    peer = connect(int(re.search(r":(\d+)", terminal.output).group(1)))
    terminal.type("raw 1\n")
    assert peer.read_line() == b"1\n"
    assert "\x1b" not in terminal.output
    peer.close()
    terminal.wait_for(lambda lines: any("gone" in line for line in lines))
    terminal.type("raw waits for ever\n")
    wait_until(terminal.is_read, "the line to be taken")
    terminal.hang_up()
    assert program.process.wait(5) == 0


def test_resize(on_terminal, connect):
    terminal = on_terminal(columns=80)
    peer = connect(terminal.port)
    terminal.type("raw some text")
    terminal.wait_for_last_line(f"{PROMPT} raw some text")
    terminal.resize(60)
    peer.send(b'{"a":1}')
    terminal.wait_for(lambda lines: '{"a":1}' in lines and
                      lines[-1] == f"{PROMPT} raw some text")


def test_stop_and_continue(on_terminal, connect):
    """The shell sets the terminal as it likes while the program is stopped."""
    terminal = on_terminal()
    peer = connect(terminal.port)
    raw = terminal.settings()
    terminal.type("raw te")
    terminal.wait_for_last_line(f"{PROMPT} raw te")
    terminal.program.signal(signal.SIGSTOP)
    terminal.set_cooked()
    terminal.program.signal(signal.SIGCONT)
    wait_until(lambda: terminal.settings()[:4] == raw[:4], "the settings of the line editor")
    terminal.type("xt\r")
    assert peer.read_line() == b"text\n"


# Commands to start with, and another program's lines


def test_commands_to_start_with_are_sent_in_order(start_companion, connect):
    companion = start_companion("-c", "add_folder /a", "--command", "raw {\"type\":\"x\"}",
                                "--no-pad")
    peer = connect(companion.port)
    expected = (b'{"type":"add_folder","path":"/a"}\n{"type":"x"}\n')
    assert peer.read(len(expected)) == expected


def test_a_bad_command_to_start_with_is_told(start_companion):
    companion = start_companion("-c", "nonsense")
    assert "nonsense" in companion.err.wait_for("line 1: [^\n]+\n").group(0)


def test_follows_a_named_pipe(start_companion, tmp_path):
    pipe = tmp_path / "pipe"
    os.mkfifo(pipe)
    companion = start_companion("--follow", pipe)
    for text in ("first\nse", "cond\n\x1b[2Jthird\n"):
        with open(pipe, "w", encoding="utf-8") as writer:
            writer.write(text)
    shown = companion.err.wait_for("first\nsecond\n[^\n]*third\n").group(0)
    assert "\x1b" not in shown
    assert companion.out.text == ""


@pytest.mark.parametrize("make", [None, "file"])
def test_what_is_no_named_pipe_is_not_followed(start, binaries, tmp_path, make):
    path = tmp_path / "path"
    if make:
        path.write_text("text")
    companion = start(binaries / "companion", "--port", 0, "--follow", path)
    assert companion.wait() == 1
    assert f'"{path}" cannot be followed' in companion.err.text
