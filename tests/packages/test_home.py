"""scripts/install and scripts/uninstall in a home of their own."""

import os
import pathlib
import subprocess

import pytest
from conftest import BUS_NAME, GROUP, line, wait_for
from jeepney import message_bus

from .installation import BUILD, run

SCRIPTS = pathlib.Path(__file__).parents[2] / "scripts"
MODULES = "lib/python3/dist-packages/finder_sync_companion/server.py"
ENVIRONMENT = "/usr/lib/systemd/user-environment-generators/30-systemd-environment-d-generator"


@pytest.fixture
def home(tmp_path):
    home = tmp_path / "my home"
    (home / ".config" / GROUP).mkdir(parents=True)
    (home / ".config" / GROUP / "settings.json").write_text("{}")
    return home


def script(name, home, *arguments, **more):
    environment = {key: value for key, value in os.environ.items() if not key.startswith(("XDG_", "DBUS_"))}
    environment |= {"HOME": str(home), "FINDER_SYNC_BUILD": str(BUILD)} | more
    return subprocess.run([SCRIPTS / name, *arguments], env=environment, capture_output=True, text=True)


def tree(home):
    return {str(file): file.is_dir() or file.read_bytes() for file in home.rglob("*")}


def test_the_bus_starts_what_is_installed_and_nothing_is_left(session):
    # Where every session's bus looks in a home.
    session.start_bus(folders=[session.home / ".local/share/dbus-1/services"])
    peer = session.listen()
    session.store_settings({"ServerPort": peer.port})
    before = tree(session.home)

    bus = {"DBUS_SESSION_BUS_ADDRESS": session.address}
    installed = script("install", session.home, **bus)
    assert installed.returncode == 0, installed.stderr
    programs = session.home / ".local/bin"
    session.get("serverAddress")  # the question starts it
    peer.accept()
    assert os.readlink(f"/proc/{session.process_of_extension()}/exe") == str(programs / "finder-sync-extension")
    peer.send(line(type="add_folder", path="/sync"))
    wait_for(lambda: "FolderIco" in run(str(programs / "finderctl"), "badge", "/sync",
                                        env=session.environment), "the badge")
    assert str(session.home / ".local/share/finder-sync/icon_Folder.svg") in str(
        session.get("badges"))

    removed = script("uninstall", session.home, **bus)
    assert removed.returncode == 0, removed.stderr
    assert tree(session.home) == before
    wait_for(lambda: not session.call(message_bus.NameHasOwner(BUS_NAME))[0], "its end")


def test_installed_twice_it_is_as_installed_once(home):
    before = tree(home)
    assert script("install", home).returncode == 0
    once = tree(home)
    assert script("install", home).returncode == 0
    assert tree(home) == once
    assert script("uninstall", home).returncode == 0
    assert tree(home) == before
    again = script("uninstall", home)
    assert (again.returncode, again.stdout) == (0, "Nothing of finder-sync is installed in your home.\n")


@pytest.mark.parametrize("part, there, missing", [("extension", "bin/finder-sync-extension", "lib"),
                                                  ("caja", "lib", "bin"),
                                                  ("companion", MODULES, "bin/finderctl")])
def test_a_product_is_installed_without_plugins_and_they_without_it(home, part, there, missing):
    before = tree(home)
    assert script("install", home).returncode == 0
    assert script("install", home, part).returncode == 0
    assert (home / ".local" / there).exists() and not (home / ".local" / missing).exists()
    assert script("uninstall", home).returncode == 0
    assert tree(home) == before


def test_a_strangers_file_is_left_alone(home):
    (home / ".local/bin").mkdir(parents=True)
    (home / ".local/bin/companion").write_text("somebody else's")
    before = tree(home)
    outcome = script("install", home)
    assert outcome.returncode == 1
    assert "/.local/bin/companion is there already" in outcome.stderr
    assert tree(home) == before


def test_files_that_came_later_stay(home):
    assert script("install", home).returncode == 0
    mine = home / ".local/bin/mine"
    mine.touch()
    assert script("uninstall", home).returncode == 0
    assert mine.exists() and sorted(file.name for file in (home / ".local").iterdir()) == ["bin"]


def test_another_data_folder_is_refused(home):
    outcome = script("install", home, XDG_DATA_HOME="/elsewhere")
    assert outcome.returncode == 1 and "XDG_DATA_HOME is /elsewhere" in outcome.stderr


def test_file_managers_are_told_at_log_in_where_the_plugins_are(home):
    assert script("install", home).returncode == 0
    told = run(ENVIRONMENT, env={"HOME": str(home), "CAJA_EXTENSION_DIRS": "/before"})
    variables = dict(one.split("=", 1) for one in told.splitlines())
    before, folder = variables["CAJA_EXTENSION_DIRS"].strip('"$\'').replace("\\", "").split(":")
    assert before == "/before"
    assert (pathlib.Path(folder) / "libfinder-sync-caja.so").exists()
    assert not list((home / ".local").rglob("libfinder-sync-nemo.so"))
