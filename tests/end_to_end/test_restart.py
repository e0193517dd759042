"""finderctl restart: how a companion that has started later is found."""

import re
import shutil
import signal
import socket
import threading

import pytest
from conftest import BUS_NAME, line, wait_for


@pytest.fixture
def activating(session):
    """A session whose bus starts the extension that was built."""
    session.start_bus(BUS_NAME)
    return session


def restart(session, **options):
    process = session.start("finderctl", "restart", **options)
    return process.wait(), process.error()


@pytest.fixture
def sandbox(activating):
    """The environment of a program that reaches the bus through a proxy, as in a sandbox: the bus
    takes the proxy's process, here the test's own, for that of the program."""
    path = str(activating.folder / "proxy")
    listener = socket.socket(socket.AF_UNIX)
    listener.bind(path)
    listener.listen()
    activating.connections.append(listener)

    def pass_on(source, target):
        while data := source.recv(65536):
            target.sendall(data)
        target.shutdown(socket.SHUT_WR)

    def serve():
        program, _ = listener.accept()
        bus = socket.socket(socket.AF_UNIX)
        bus.connect(re.search("path=([^,]*)", activating.address)[1])
        for ends in ((program, bus), (bus, program)):
            threading.Thread(target=pass_on, args=ends, daemon=True).start()

    threading.Thread(target=serve, daemon=True).start()
    return {"DBUS_SESSION_BUS_ADDRESS": f"unix:path={path}"}


def test_a_companion_that_starts_later_is_found_after_a_restart(activating):
    peer = activating.listen()
    peer.close()  # nobody listens there now
    activating.store_settings({"ServerPort": peer.port})
    assert activating.get("pathsOfRootFolders") == []  # the question starts it
    before = activating.process_of_extension()

    companion = activating.listen(peer.port)
    assert companion.nobody_connects(within=0.3)  # a process tries once
    assert restart(activating) == (0, "")
    companion.accept()
    companion.send(line(type="add_folder", path="/sync"))
    wait_for(lambda: activating.method("RequestBadgeIdentifierForURL", "s", "file:///sync")
             == ("FolderIco",))
    assert activating.process_of_extension() != before


def test_without_an_extension_it_is_started(activating):
    peer = activating.listen()
    activating.store_settings({"ServerPort": peer.port})
    assert restart(activating) == (0, "")
    peer.accept()


def test_one_that_hangs_is_ended_all_the_same(activating):
    peer, extension = activating.start_connected()
    extension.popen.send_signal(signal.SIGSTOP)
    assert restart(activating) == (0, "")
    assert extension.wait() == -signal.SIGKILL
    peer.accept()


def test_from_a_sandbox(activating, sandbox):
    peer, extension = activating.start_connected()
    assert restart(activating, environment=sandbox) == (0, "")
    assert extension.wait() == 0
    peer.accept()


def test_from_a_sandbox_no_process_is_killed(activating, sandbox):
    """The number that the bus tells may be that of any process in there."""
    _, extension = activating.start_connected()
    extension.popen.send_signal(signal.SIGSTOP)
    code, error = restart(activating, environment=sandbox)
    assert code == 1 and "nobody can kill it from this sandbox" in error
    assert extension.popen.poll() is None


@pytest.mark.skipif(not shutil.which("xdg-dbus-proxy") or not shutil.which("gdbus"),
                    reason="xdg-dbus-proxy or gdbus is not installed")
def test_a_program_in_a_flatpak_does_it_with_two_calls(activating):
    """With no other right than to talk to the extension. Flatpak's proxy does not understand how
    finderctl's library begins a connection, before its version 0.1.6."""
    peer, extension = activating.start_connected()
    path = activating.folder / "proxy"
    activating.start(shutil.which("xdg-dbus-proxy"), activating.address, path, "--filter",
                     f"--talk={BUS_NAME}")
    wait_for(path.exists, "the proxy")
    for call in ([BUS_NAME, "/FinderSync", "findersync.Process1.Quit"],
                 ["org.freedesktop.DBus", "/", "org.freedesktop.DBus.StartServiceByName", BUS_NAME, "0"]):
        caller = activating.start(shutil.which("gdbus"), "call", "--session", "--dest", call[0],
                                  "--object-path", call[1], "--method", *call[2:],
                                  environment={"DBUS_SESSION_BUS_ADDRESS": f"unix:path={path}"})
        assert caller.wait() == 0, caller.error()
        assert extension.wait() == 0
    peer.accept()


def test_it_tells_when_nobody_listens(activating):
    peer = activating.listen()
    peer.close()
    activating.store_settings({"ServerPort": peer.port})
    code, error = restart(activating)
    assert code == 1
    assert error == (f"finderctl: the extension has started anew, but its link to port {peer.port} is "
                     "not open (refused): start the companion application first, then restart again\n")


def test_without_a_service_it_says_what_is_missing(session):
    code, error = restart(session)
    assert code == 1
    assert "the bus cannot start the extension: " in error and "finderctl doctor" in error
