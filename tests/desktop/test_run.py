"""scripts/run on a desktop: a file manager on a folder of the companion for everybody."""

import os
import shutil
import subprocess
import sys

import pytest
from conftest import startable_services, wait_for
from desktops import BLUE, SOURCES, caja, desktop  # noqa: F401

sys.path.append(str(SOURCES / "tests/tools"))
from pseudo_terminal import Terminal  # noqa: E402


@pytest.fixture
def terminal():
    terminal = Terminal(columns=300)
    yield terminal
    terminal.close()


def name_services(desktop):
    """Has scripts/run start a bus that can start the same services as the desktop's own. Gives the file
    that its address is written into."""
    address = desktop.folder / "address"
    program = desktop.folder / "bin/dbus-run-session"
    program.parent.mkdir()
    program.write_text(f"""#!/bin/sh
        exec {shutil.which(program.name)} --config-file='{desktop.bus_configuration}' \\
            -- sh -c 'echo "$DBUS_SESSION_BUS_ADDRESS" >{address}; shift; exec "$@"' sh "$@"
        """)
    program.chmod(0o755)
    desktop.environment["PATH"] = f"{program.parent}:{os.environ['PATH']}"
    return address


def clipboard(desktop):
    return subprocess.run(["xclip", "-o", "-selection", "clipboard"], env=desktop.environment,
                          capture_output=True, text=True).stdout


@pytest.mark.skipif(not shutil.which("caja"), reason="caja is not installed")
def test_caja_shows_the_demonstration(desktop, terminal):
    if desktop.programs.parent.name != "release":
        pytest.skip("scripts/run builds and starts the release build, and this is another")
    address_file = name_services(desktop)
    run = subprocess.Popen([SOURCES / "scripts/run", "--with", "caja"], env=desktop.environment,
                           **terminal.streams())
    try:
        terminal.wait_for("the extension has connected")
        address = address_file.read_text().strip()
        assert startable_services(address) == startable_services(desktop.address)
        desktop.environment["DBUS_SESSION_BUS_ADDRESS"] = address
        window = caja(desktop)
        folder = window.icon("My synchronised folder")
        wait_for(lambda: desktop.shows(BLUE, folder, 20, 20), "the badge")
        window.icon("My synchronised folder", "click")
        desktop.type("Return")
        window.icon("Letter to é.txt", "menu")
        window.pick("Copy link")
        wait_for(lambda: clipboard(desktop) == "https://example.com/demo/Letter to é.txt", "the link")
        desktop.type("ctrl+w")
        assert run.wait(20) == 0
    finally:
        run.terminate()
        run.wait()
    wait_for(lambda: desktop.screenshot().getbbox() is None, "the empty screen")
