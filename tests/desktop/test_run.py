"""scripts/run on a desktop: a file manager beside the companion's prompt."""

import subprocess
import sys

import pytest
from conftest import wait_for
from desktops import SOURCES, desktop  # noqa: F401

sys.path.append(str(SOURCES / "tests/tools"))
from pseudo_terminal import Terminal  # noqa: E402

OURS = (31, 111, 235)  # the blue of our images


@pytest.fixture
def terminal():
    terminal = Terminal(columns=300)
    yield terminal
    terminal.close()


def test_a_file_manager_shows_the_demonstration(desktop, terminal):
    if desktop.programs.parent.name != "release":
        pytest.skip("scripts/run builds and starts the release build, and this is another")
    run = subprocess.Popen([SOURCES / "scripts/run", "--with", "caja"], env=desktop.environment,
                           **terminal.streams())
    try:
        terminal.wait_for("requestBadgeIdentifier")
        address = terminal.wait_for("DBUS_SESSION_BUS_ADDRESS='(.*)'")[1]
        desktop.environment["DBUS_SESSION_BUS_ADDRESS"] = address
        folder = desktop.accessible("find", "caja", "icon", "My synchronised folder")
        wait_for(lambda: desktop.shows(OURS, folder, 20, 20), "the badge")
        terminal.type("quit\n")
        assert run.wait(20) == 0
    finally:
        run.terminate()
        run.wait()
    wait_for(lambda: desktop.screenshot().getbbox() is None, "the empty screen")
