"""The server of the C++ library, in each event loop that it has an example for, against the real
extension."""

import json
import os
import pathlib
import resource
import socket
import subprocess
import sys
import time

import pytest
from conftest import BUS_NAME, GROUP, TIMEOUT, stop_at_random, wait_for
from jeepney import message_bus

EXAMPLES = pathlib.Path(os.environ["FINDER_SYNC_BIN"]).parent / "examples"
LOOPS = os.environ["FINDER_SYNC_EXAMPLES"].split(",")
RUNS = int(os.environ.get("FINDER_SYNC_RUNS", "1"))


@pytest.fixture
def start(session):
    """Starts an example, which has the bus start the extension."""
    session.start_bus(BUS_NAME)
    path = {"PATH": f"{session.programs}:{os.environ['PATH']}"}

    def start(name, *folders, before=(), **options):
        command = [*before, str(EXAMPLES / name), GROUP, *folders]
        companion = session.start(*command, environment=path, **options)
        # A question would have the bus start an extension that is then replaced.
        wait_for(lambda: session.call(message_bus.NameHasOwner(BUS_NAME))[0], BUS_NAME)
        return companion
    return start


@pytest.mark.parametrize("loop", LOOPS)
def test_example(session, start, loop):
    companion = start(loop, "/home/u/Sync", "Sync", "/home/u/é")
    session.wait_for_value("pathsOfRootFolders", ["/home/u/Sync", "/home/u/é"])
    assert companion.error() == "Sync is not an absolute path\n"
    assert (session.get("shareViaUrlTitle"), session.get("displayBackup")) == ("Copy link", 1)
    for name in "a", "%C3%A9", "../etc":
        session.method("PerformAction", "sas", "backupClicked:", [f"file:///home/u/Sync/{name}"])
    session.method("PerformAction", "sas", "createLinkClicked:", ["file:///home/u/Sync"])
    companion.wait_output("backup /home/u/Sync/a\nbackup /home/u/Sync/é\nlink /home/u/Sync\n")

    settings = json.loads(session.settings_file.read_text())
    assert settings.pop("ServerPort") == session.get("serverPort")
    assert settings == {"RootFolder": "/", "DisplayBackup": 1, "ShareContactTitle": "",
                        "ShareViaUrlTitle": "Copy link", "BackupTitle": "Back up"}
    assert session.settings_file.stat().st_mode & 0o777 == 0o600


def test_every_extension_is_told_and_heard(session, start):
    companion = start("example-poll", "/sync")
    session.wait_for_value("pathsOfRootFolders", ["/sync"])
    for item in "/sync/one", "/sync/../two", "/sync/three":
        with socket.create_connection(("127.0.0.1", session.get("serverPort"))) as extension:
            block = extension.recv(1024, socket.MSG_WAITALL)
            assert len(block) == 1024 and block.endswith(b" \n") and b'"/sync"' in block
            extension.sendall(json.dumps({"type": "clicked_backup", "items": [item]}).encode())
            extension.sendall(b"garbage")
            assert extension.recv(1) == b""
    companion.wait_output("backup /sync/one\nbackup /sync/three\n")
    assert session.link_state() == "open"


def test_symbolic_links_are_followed(session, start):
    sync = session.folder / "sync"
    sync.mkdir()
    (session.folder / "link").symlink_to(sync)
    (sync / "out").symlink_to("/etc")
    companion = start("example-poll", str(session.folder / "link"))
    wait_for(lambda: session.get("pathsOfRootFolders"))
    for name in "out/passwd", "gone/too":
        session.method("PerformAction", "sas", "backupClicked:",
                       [(session.folder / "link" / name).as_uri()])
    companion.wait_output(f"backup {session.folder}/link/gone/too\n")
    assert "passwd" not in companion.output()


def test_socket_of_systemd(session, start):
    with socket.create_server(("127.0.0.1", 0)) as listener:
        start("example-poll", "/sync", pass_fds=[listener.fileno()], before=[
            "/bin/bash", "-c", 'exec 3<&$0; LISTEN_PID=$$ LISTEN_FDS=1 exec "$@"', str(listener.fileno())])
        session.wait_for_value("pathsOfRootFolders", ["/sync"])
        assert session.get("serverPort") == listener.getsockname()[1]


def test_extension_waits_for_a_descriptor(session, start):
    """While there is none, the companion does not keep the processor busy."""
    companion = start("example-poll", "/sync", before=["/usr/bin/prlimit", "--nofile=12:"])
    session.wait_for_value("pathsOfRootFolders", ["/sync"])
    address = "127.0.0.1", session.get("serverPort")
    first, *others = [socket.create_connection(address) for _ in range(12)]
    assert first.recv(1024, socket.MSG_WAITALL)
    clock = ~companion.popen.pid << 3 | 2  # as clock_getcpuclockid(3) composes it
    before = time.clock_gettime(clock)
    others[-1].settimeout(1)
    with pytest.raises(TimeoutError):
        others[-1].recv(1)
    assert time.clock_gettime(clock) - before < 0.1
    others[-1].settimeout(TIMEOUT)
    limit = resource.RLIMIT_NOFILE
    resource.prlimit(companion.popen.pid, limit, (64, resource.getrlimit(limit)[1]))
    assert b'"/sync"' in others[-1].recv(1024)


@pytest.mark.skipif(os.getuid() != 0, reason="only root can be somebody else")
def test_another_user_is_told_nothing(session, start):
    start("example-poll", "/sync")
    session.wait_for_value("pathsOfRootFolders", ["/sync"])
    connect = "import socket; print(socket.create_connection(('127.0.0.1', {})).recv(1))"
    assert subprocess.check_output(["setpriv", "--reuid=65534", sys.executable, "-c", connect.format(
        session.get("serverPort"))]) == b"b''\n"


@pytest.mark.parametrize("count", [300, 3000, 30000])
@pytest.mark.parametrize("run", range(RUNS))
def test_an_extension_that_is_stopped_at_random_survives(session, start, count, run):
    length = min(900, 1200000 // count)  # of a path, as the system limits a program's arguments
    folders = [f"/home/u/Sync/{number}".ljust(length, "x") for number in range(count)]
    start("example-poll", *folders)
    extension = session.process_of_extension()
    stop_at_random(extension, session.bus_log, count, seed=run)
    assert session.get("pathsOfRootFolders") == folders
    assert session.process_of_extension() == extension
