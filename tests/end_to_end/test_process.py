"""The process: its bus name, its end, its standard output and error."""

import os
import pathlib
import select
import shutil
import signal
import subprocess
import time

import pytest
from conftest import BUS_NAME, BusError, line, wait_for
from jeepney import DBusAddress, Properties

LOG_CONTROL = Properties(DBusAddress("/org/freedesktop/LogControl1", bus_name=BUS_NAME,
                                     interface="org.freedesktop.LogControl1"))


def test_without_a_session_bus_it_says_what_to_do_and_connects_nowhere(session):
    peer = session.listen()
    extension = session.start_extension(
        {"ServerPort": peer.port},
        environment={"DBUS_SESSION_BUS_ADDRESS": "unix:path=" + str(session.home / "nothing")})
    assert extension.wait() == 1
    assert extension.output() == ""
    assert extension.error().count("\n") == 1
    assert "no session bus" in extension.error()
    assert "dbus-run-session" in extension.error()
    assert peer.nobody_connects()


def test_a_second_instance_says_who_is_first_and_connects_nowhere(session):
    peer, first = session.start_connected()
    second = session.start_extension()
    assert second.wait() == 1
    assert second.output() == ""
    assert second.error().count("\n") == 1
    assert BUS_NAME in second.error()
    if not session.wrapper:
        assert f"process {first.popen.pid}" in second.error()
    assert peer.nobody_connects()
    assert first.popen.poll() is None


def test_it_ends_with_the_session_bus(session):
    _, extension = session.start_connected()
    session.daemon.terminate()
    assert extension.wait() == 0
    assert "the session bus has gone" in extension.error()


@pytest.mark.parametrize("stream", ["stdout", "stderr"])
def test_nobody_reads_its_output_any_more(session, stream):
    reading, writing = os.pipe()
    peer, extension = session.start_connected(**{stream: writing})
    os.close(writing)
    os.close(reading)
    session.announce(peer, "/a")
    session.method("BeginObservingDirectoryAtURL", "s", "file:///a")
    session.method("EndObservingDirectoryAtURL", "s", "file:///a")
    assert extension.end() == 0


def test_without_its_images_it_says_which_one_is_missing(session):
    original = session.programs / "finder-sync-extension"
    session.programs = session.folder / "elsewhere/bin"
    session.programs.mkdir(parents=True)
    shutil.copy(original, session.programs)
    peer = session.listen()
    extension = session.start_extension({"ServerPort": peer.port})
    assert extension.wait() == -signal.SIGABRT
    assert extension.error().endswith(
        'fatal error: the image "icon_Folder" is missing from the resources\n')
    assert peer.nobody_connects()


def fill_standard_output(session, non_blocking=False):
    """Has 100 kB of trace written, more than the pipe holds, and waits until it is full."""
    reading, writing = os.pipe()
    if non_blocking:
        os.set_blocking(writing, False)  # shared with the process: it has to wait by itself
    peer, extension = session.start_connected(stdout=writing)
    for number in range(100):
        peer.send(line(type="hello", number=number)[:-1].ljust(1023) + b"\n")
    wait_for(lambda: not select.select([], [writing], [], 0)[1] and extension.state() == "S",
             "a full pipe")
    os.close(writing)
    return peer, extension, reading


def test_a_full_standard_output_does_not_keep_it_from_ending(session):
    _, extension, reading = fill_standard_output(session)
    assert extension.end() == 0
    os.close(reading)


def test_a_slow_reader_of_standard_output_gets_everything(session):
    peer, extension, reading = fill_standard_output(session, non_blocking=True)
    peer.connection.close()
    with os.fdopen(reading, "rb") as pipe:
        output = b""
        while not output.endswith(b"ignore\n"):
            output += pipe.read1()
    assert output.count(b"type - hello\n") == 100
    assert extension.end() == 0


@pytest.mark.parametrize("closed", ["0>&-", "1>&-", "2>&-", "0>&- 1>&- 2>&-"])
def test_closed_standard_descriptors_do_not_turn_into_the_link(session, closed):
    session.wrapper = ["sh", "-c", f'exec "$@" {closed}', "sh", *session.wrapper]
    peer, extension = session.start_connected(stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
    session.announce(peer, "/a")
    session.method("BeginObservingDirectoryAtURL", "s", "file:///a")
    assert extension.end() == 0
    assert peer.connection.recv(100) == b""


def test_a_flooding_peer_does_not_keep_it_from_ending(session):
    peer, extension = session.start_connected(stdout=subprocess.DEVNULL)
    burst = b"\n" * 1024  # may be cut anywhere: a read that begins with a line feed is dropped
    peer.connection.settimeout(0.5)
    deadline = time.monotonic() + 1
    while time.monotonic() < deadline:
        peer.send(burst * 32)
    extension.popen.terminate()
    try:
        while extension.popen.poll() is None:
            peer.send(burst * 32)
    except OSError:
        pass  # it has closed the link, or takes nothing any more
    assert extension.wait() == 0


def test_it_takes_over_no_blocked_signal(session):
    signal.pthread_sigmask(signal.SIG_BLOCK, {signal.SIGTERM})
    try:
        extension = session.start_extension()
    finally:
        signal.pthread_sigmask(signal.SIG_UNBLOCK, {signal.SIGTERM})
    session.wait_for_name()
    assert extension.end(signal.SIGTERM) == 0


def test_it_outlives_a_file_that_may_not_grow(session):
    session.wrapper = ["prlimit", "--fsize=20", *session.wrapper]
    extension = session.start_extension()
    session.wait_for_name()
    session.method("BeginObservingDirectoryAtURL", "s", "file:///a")
    assert extension.end() == 0


@pytest.fixture
def journal(session):
    """A file that takes an output stream as the system's journal does."""
    with open(session.folder / "journal", "wb") as file:
        status = os.fstat(file.fileno())
        session.environment["JOURNAL_STREAM"] = f"{status.st_dev}:{status.st_ino}"
        yield file


def test_the_log_goes_to_a_journal(session, journal):
    session.start_extension(stderr=journal)
    session.wait_for_name()
    assert session.call(LOG_CONTROL.get("LogTarget"))[0][1] == "journal"


def test_each_line_of_the_trace_carries_its_level_in_a_journal(session, journal):
    peer, extension = session.start_connected(stdout=journal)
    peer.send(b'{"type":"hello"}\n\n<0>a forged line\n\0<0>another\n')
    wait_for(lambda: "another" in pathlib.Path(journal.name).read_text(), "the trace")
    assert extension.end() == 0
    breaks = pathlib.Path(journal.name).read_bytes().replace(b"\0", b"\n").splitlines()
    assert b"<6><0>another" in breaks
    assert all(each.startswith(b"<6>") for each in breaks)


def test_the_log_is_switched_while_it_runs(session):
    extension = session.start("finder-sync-extension", "--log-level", "warning")
    session.wait_for_name()

    def logs_a_request():
        log = extension.error()
        session.method("BeginObservingDirectoryAtURL", "s", "file:///a")
        return extension.error() != log

    def log_control(name):
        return session.call(LOG_CONTROL.get(name))[0][1]

    assert (log_control("LogLevel"), logs_a_request()) == ("warning", False)
    for level in ("emerg", "alert", "crit", "err", "debug", "warning", "notice", "info"):
        session.call(LOG_CONTROL.set("LogLevel", "s", level))
        assert log_control("LogLevel") == level
        assert logs_a_request() == (level == "debug")
    assert log_control("SyslogIdentifier") == "finder-sync-extension"
    assert log_control("LogTarget") == "console"
    session.call(LOG_CONTROL.set("LogTarget", "s", "console"))
    for name in ("LogLevel", "LogTarget"):
        with pytest.raises(BusError, match="InvalidArgs"):
            session.call(LOG_CONTROL.set(name, "s", "syslog"))


@pytest.mark.parametrize("arguments, code, expected", [
    (["--help"], 0, "Usage: "),
    (["--version"], 0, "finder-sync-extension 0.1.0"),
    (["--nonsense"], 2, "finder-sync-extension: unexpected argument: --nonsense"),
    (["nonsense"], 2, "finder-sync-extension: unexpected argument: nonsense"),
    (["--log-level", "loud"], 2, "finder-sync-extension: unexpected argument: loud"),
    (["--log-level"], 2, "finder-sync-extension: unexpected argument: --log-level"),
])
def test_the_command_line(session, arguments, code, expected):
    process = session.start("finder-sync-extension", *arguments)
    assert process.wait() == code
    assert expected in (process.output() if code == 0 else process.error())
