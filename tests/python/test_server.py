"""The server of the Python library, with the real process."""

import asyncio
import json
import os
import resource
import socket
import subprocess
import threading
import time

import pytest
from conftest import BUS_NAME, GROUP, TIMEOUT, stop_at_random, wait_for
from finder_sync_companion import (BLOCK_SIZE, Companion, Report, ReportType, Server, Titles,
                                   restart_extension, settings)

RUNS = int(os.environ.get("FINDER_SYNC_RUNS", "1"))


class Served:
    """A server on an event loop of its own thread, and what it has called back."""

    def __init__(self):
        self.loop = asyncio.new_event_loop()
        self.thread = threading.Thread(target=self.loop.run_forever)
        self.thread.start()
        self.companion = Companion()
        self.events = []
        self.server = Server(self.companion, self.events.append,
                             lambda: self.events.append("connected"), self.events.append)
        self.run(self.server.start())
        self.extension_settings = {"ServerPort": self.server.port}

    def run(self, coroutine):
        return asyncio.run_coroutine_threadsafe(coroutine, self.loop).result(TIMEOUT)

    def set(self, function, *arguments):
        async def call():
            function(*arguments)

        self.run(call())

    def end(self):
        self.run(self.server.close())
        self.loop.call_soon_threadsafe(self.loop.stop)
        self.thread.join()
        self.loop.close()


@pytest.fixture
def served():
    served = Served()
    yield served
    served.end()


def test_it_tells_the_state_and_its_changes(session, served):
    served.set(served.companion.set_folders, ["/a", "/b"])
    served.set(served.companion.set_titles, Titles("", "Copy link", "Back up"))
    session.start_extension(served.extension_settings)
    session.wait_for_name()
    session.wait_for_value("pathsOfRootFolders", ["/a", "/b"])
    assert session.get("shareViaUrlTitle") == "Copy link"
    served.set(served.companion.set_folders, ["/b", "/c"])
    session.wait_for_value("pathsOfRootFolders", ["/b", "/c"])


def test_it_hands_on_reports_of_paths_that_are_inside_without_links(session, served, tmp_path):
    (tmp_path / "sync").mkdir()
    (tmp_path / "sync/out").symlink_to("/etc")
    served.set(served.companion.set_folders, [str(tmp_path / "sync")])
    extension = session.start_extension(served.extension_settings)
    session.wait_for_name()
    session.wait_for_value("pathsOfRootFolders", [str(tmp_path / "sync")])
    inside = tmp_path / "sync/a b"
    session.method("PerformAction", "sas", "backupClicked:",
                   [(tmp_path / "sync/out/passwd").as_uri(), inside.as_uri()])
    wait_for(lambda: served.events == ["connected", Report(ReportType.BACKUP, (str(inside),))])
    assert extension.end() == 0
    wait_for(lambda: served.events[2:] == ["the extension has closed the connection"])


def test_a_full_window_is_not_filled_with_a_part_of_a_block(served):
    with socket.socket() as link:
        link.setsockopt(socket.SOL_SOCKET, socket.SO_RCVBUF, 2304)
        link.settimeout(TIMEOUT)
        link.connect(("127.0.0.1", served.server.port))
        served.set(served.companion.set_folders, [f"/{number}" + "x" * 600 for number in range(10)])
        time.sleep(0.5)  # after 0.2 s, TCP fills what is left of the window
        assert [len(link.recv(BLOCK_SIZE)) for _ in range(10)] == [BLOCK_SIZE] * 10


@pytest.mark.parametrize("count", [300, 3000])
@pytest.mark.parametrize("run", range(RUNS))
def test_an_extension_that_is_stopped_at_random_loses_nothing(session, served, count, run):
    paths = [f"/home/u/Sync/Projects/Ünit {number}" for number in range(count)]
    extension = session.start_extension(served.extension_settings)
    session.wait_for_name()
    served.set(served.companion.set_folders, paths)
    stop_at_random(extension.popen.pid, extension.output_file, count, seed=run)
    assert session.get("pathsOfRootFolders") == paths
    assert extension.end() == 0


def test_a_link_that_sends_something_else_is_closed(served):
    with socket.create_connection(("127.0.0.1", served.server.port), TIMEOUT) as link:
        link.sendall(b"GET / HTTP/1.1\r\n")
        assert link.recv(1) == b""
    wait_for(lambda: len(served.events) == 2)
    assert "JSON" in served.events[1]


def test_an_extension_waits_for_a_descriptor(served):
    served.set(served.companion.set_folders, ["/a"])
    address = "127.0.0.1", served.server.port
    limits = resource.getrlimit(resource.RLIMIT_NOFILE)
    with socket.socket() as first, socket.socket() as second:
        last = os.dup(first.fileno())
        os.close(last)
        resource.setrlimit(resource.RLIMIT_NOFILE, (last + 1, limits[1]))
        try:
            first.connect(address)
            second.connect(address)
            first.settimeout(TIMEOUT)
            assert first.recv(1)
        finally:
            resource.setrlimit(resource.RLIMIT_NOFILE, limits)
        second.settimeout(TIMEOUT)
        assert second.recv(1)


@pytest.mark.skipif(os.geteuid() != 0, reason="only root can be another user")
def test_another_user_is_told_nothing(served):
    served.set(served.companion.set_folders, ["/a"])
    received = subprocess.run(
        ["setpriv", "--reuid=65534", "--regid=65534", "--clear-groups", "/usr/bin/python3", "-c",
         f"import socket; print(socket.create_connection(('127.0.0.1', {served.server.port})).recv(9))"],
        capture_output=True, text=True, check=True).stdout
    assert received == "b''\n" and not served.events


def test_it_writes_the_settings_and_has_the_extension_connect(session, served, monkeypatch):
    for name, value in session.environment.items():
        monkeypatch.setenv(name, value)
    session.start_bus(BUS_NAME)
    monkeypatch.setenv("DBUS_SESSION_BUS_ADDRESS", session.address)
    session.store_settings({"ShareContactTitle": "stays", "of": "others"})
    session.get("serverAddress")  # the question starts one, which does not find the server
    served.set(served.companion.set_folders, ["/a"])
    served.set(served.companion.set_backup, True)
    served.server.write_settings(GROUP, "/home")
    assert json.loads(session.settings_file.read_text()) == {
        "ShareContactTitle": "stays", "of": "others", "ServerPort": served.server.port,
        "RootFolder": "/home", "DisplayBackup": 1}
    assert session.settings_file.stat().st_mode & 0o777 == 0o600
    program = str(session.programs / "finderctl")
    assert served.run(restart_extension(GROUP, program)) is None
    session.wait_for_value("pathsOfRootFolders", ["/a"])

    session.end_bus()
    assert "bus" in served.run(restart_extension(GROUP, program))
    assert "cannot be started" in served.run(restart_extension(GROUP, "/nowhere"))


@pytest.mark.parametrize("text", ["{", "[]", "\xff", "[" * 100000], ids=lambda text: text[:9])
def test_malformed_settings_are_left_alone(session, monkeypatch, text):
    monkeypatch.setenv("XDG_CONFIG_HOME", session.environment["XDG_CONFIG_HOME"])
    session.store_settings(text.encode("latin-1"))
    with pytest.raises(ValueError, match="settings.json is malformed"):
        settings.write(GROUP, {})
    assert [*session.settings_file.parent.iterdir()] == [session.settings_file]
    assert session.settings_file.read_bytes() == text.encode("latin-1")
