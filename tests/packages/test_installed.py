"""What is installed, at work: /usr is as a user has it after the packages are installed."""

import os
import pathlib
import re
import subprocess

import pytest
from conftest import GROUP

UNIT = f"/usr/share/systemd/user/{GROUP}.FinderSync.service"
TESTS = pathlib.Path(__file__).parents[1]


def test_a_file_manager_shows_badge_and_menu(root, tmp_path):
    """By the tests of the windows, with the installed programs."""
    tests = [f"{TESTS}/desktop/test_file_managers.py::test_{name}[caja]" for name in (
        "a_root_folder_gets_its_badge_in_the_open_window", "an_entry_is_picked_and_reported")]
    outcome = subprocess.run(
        root.command("/usr/bin/python3", "-B", "-m", "pytest", "-q", "-c",
                     str(TESTS / "pytest.ini"), f"--basetemp={tmp_path}/suite", *tests),
        env=os.environ | {"FINDER_SYNC_BIN": "/usr/bin"}, capture_output=True, text=True)
    assert outcome.returncode == 0, outcome.stdout
    assert re.search(rf"^{len(tests)} passed", outcome.stdout, re.MULTILINE), outcome.stdout


@pytest.mark.parametrize("command", [["finder-sync-companion", "--version"],
                                     ["/usr/bin/python3", "-c", "import finder_sync_companion"]])
def test_the_python_library_is_found(root, command):
    subprocess.run(root.command(*command), check=True)


def analyse(root, folder, *arguments):
    return subprocess.run(root.command("systemd-analyze", "--no-pager", *arguments),
                          env=os.environ | {"XDG_RUNTIME_DIR": str(folder)},
                          capture_output=True, text=True)


def test_systemd_understands_the_unit(root, tmp_path):
    outcome = analyse(root, tmp_path, "verify", "--user", "--man=no", UNIT)
    assert (outcome.returncode, outcome.stderr) == (0, "")


def test_the_unit_exposes_little(root, tmp_path):
    # Counted as for a service of root's, which adds 0.4 to what it is for a user's.
    outcome = analyse(root, tmp_path, "security", "--user", "--offline=yes", "--threshold=17", UNIT)
    assert outcome.returncode == 0, outcome.stdout[-200:]
