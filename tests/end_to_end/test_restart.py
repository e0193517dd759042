"""finderctl restart: how a companion that has started later is found."""

import signal

import pytest
from conftest import BUS_NAME, line, wait_for


@pytest.fixture
def activating(session):
    """A session whose bus starts the extension that was built."""
    session.start_bus(BUS_NAME)
    return session


def restart(session):
    process = session.start("finderctl", "restart")
    return process.wait(), process.error()


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
    peer = activating.listen()
    activating.store_settings({"ServerPort": peer.port})
    extension = activating.start("finder-sync-extension")
    peer.accept()
    activating.wait_for_name()
    extension.popen.send_signal(signal.SIGSTOP)
    assert restart(activating) == (0, "")
    assert extension.wait() == -signal.SIGKILL
    peer.accept()


def test_without_a_service_it_says_what_is_missing(session):
    code, error = restart(session)
    assert code == 1
    assert "is it installed where the bus looks for services?" in error
