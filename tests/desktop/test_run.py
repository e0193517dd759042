"""scripts/run on a desktop: a file manager beside the companion's prompt."""

import os
import shutil
import subprocess
import sys

import pytest
from conftest import startable_services, wait_for
from desktops import BLUE, SOURCES, desktop  # noqa: F401

sys.path.append(str(SOURCES / "tests/tools"))
from pseudo_terminal import Terminal  # noqa: E402


@pytest.fixture
def terminal():
    terminal = Terminal(columns=300)
    yield terminal
    terminal.close()


def name_services(desktop):
    """Has scripts/run start a bus that can start the same services as the desktop's own."""
    program = desktop.folder / "bin/dbus-run-session"
    program.parent.mkdir()
    program.write_text(f"#!/bin/sh\nexec {shutil.which(program.name)} "
                       f"--config-file='{desktop.bus_configuration}' \"$@\"\n")
    program.chmod(0o755)
    desktop.environment["PATH"] = f"{program.parent}:{os.environ['PATH']}"


@pytest.mark.skipif(not shutil.which("caja"), reason="caja is not installed")
def test_caja_shows_the_demonstration(desktop, terminal):
    if desktop.programs.parent.name != "release":
        pytest.skip("scripts/run builds and starts the release build, and this is another")
    name_services(desktop)
    run = subprocess.Popen([SOURCES / "scripts/run", "--with", "caja"], env=desktop.environment,
                           **terminal.streams())
    try:
        terminal.wait_for("requestBadgeIdentifier")
        address = terminal.wait_for("DBUS_SESSION_BUS_ADDRESS='(.*)'")[1]
        assert startable_services(address) == startable_services(desktop.address)
        desktop.environment["DBUS_SESSION_BUS_ADDRESS"] = address
        folder = desktop.accessible("find", "caja", "icon", "My synchronised folder")
        wait_for(lambda: desktop.shows(BLUE, folder, 20, 20), "the badge")
        terminal.type("quit\n")
        assert run.wait(20) == 0
    finally:
        run.terminate()
        run.wait()
    wait_for(lambda: desktop.screenshot().getbbox() is None, "the empty screen")
