"""scripts/run on a terminal: at its prompt, and on a desktop."""

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


@pytest.fixture(autouse=True)
def only_the_release_build():
    if os.environ["FINDER_SYNC_BIN"] != str(SOURCES / "build/release/bin"):
        pytest.skip("scripts/run builds and starts the release build, and this is another")


def test_at_a_prompt_one_is_the_companion(session, terminal):
    run = subprocess.Popen([SOURCES / "scripts/run", "--prompt"],
                           env=session.environment | {"TERM": "xterm"}, **terminal.streams())
    try:
        terminal.wait_for("type - add_folder", timeout=60)
        commands, folder = (terminal.wait_for(pattern)[1].replace("\r", "") for pattern in (
            "(?s)in another terminal:(.*)Type ", r"announced to the extension:\s*(\S.*)\r"))
        shown = subprocess.run(["bash", "-ec", commands], capture_output=True, text=True, check=True)
        assert folder in shown.stdout and "createLinkClicked:" in shown.stdout
        terminal.wait_for(f'{{"items":."{folder}/Letter to é.txt".,"type":"clicked_create_url_link"}}')
        terminal.type(f"del_folder {folder}\n")
        terminal.wait_for("type - del_folder")
        terminal.type("quit\n")
        assert run.wait(20) == 0
    finally:
        run.terminate()
        run.wait()
    assert not os.path.exists(folder)


@pytest.mark.skipif(not shutil.which("caja"), reason="caja is not installed")
def test_caja_shows_the_demonstration(desktop, terminal):
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
        window.open_menu("Letter to é.txt", "Copy link")
        window.pick("Copy link")
        wait_for(lambda: clipboard(desktop) == "https://example.com/demo/Letter to é.txt", "the link")
        desktop.type("ctrl+w")
        assert run.wait(20) == 0
    finally:
        run.terminate()
        run.wait()
    wait_for(lambda: desktop.screenshot().getbbox() is None, "the empty screen")
