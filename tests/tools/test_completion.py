"""What bash offers at the Tab key."""

import os
import pathlib
import re
import subprocess

import pytest

SHARE = pathlib.Path(os.environ["FINDER_SYNC_BIN"]).parent / "share"
FRAMEWORK = pathlib.Path("/usr/share/bash-completion/bash_completion")

# The words are split as readline splits them: "=" is a word of its own.
SCRIPT = r"""
source "$1"; source "$2"; shift 2
COMP_WORDS=("$@"); COMP_CWORD=$(($# - 1)); COMP_LINE="$*"
COMP_LINE=${COMP_LINE// = /=}; COMP_LINE=${COMP_LINE/% =/=}; COMP_POINT=${#COMP_LINE}
compopt() { :; }
entry=$(complete -p -- "$1"); entry=${entry#*-F }; "${entry%% *}" "$1" "${@: -1}" "${@: -2:1}"
printf '%s\n' "${COMPREPLY[@]}"
"""


def complete(*words, directory=None):
    done = subprocess.run(
        ["bash", "--norc", "-c", SCRIPT, "bash", FRAMEWORK,
         SHARE / "bash-completion/completions" / words[0], *words],
        capture_output=True, text=True, check=True, cwd=directory)
    assert not done.stderr
    return sorted(done.stdout.split())


@pytest.fixture
def programs():
    return pathlib.Path(os.environ["FINDER_SYNC_BIN"]).resolve()


pytestmark = pytest.mark.skipif(not FRAMEWORK.exists(), reason="bash-completion is not installed")


def test_subcommands(programs):
    text = subprocess.run([programs / "finderctl", "--help"], capture_output=True, text=True,
                          check=True).stdout
    listed = re.findall(r"(?m)^  ([a-z]+) ", text.partition("Subcommands:")[2])
    assert "state" in listed
    assert complete("finderctl", "") == sorted(listed)
    assert complete("finderctl", "--json", "st") == ["state"]
    assert complete("finderctl", "state", "") == []


def test_directories(tmp_path):
    (tmp_path / "folder").mkdir()
    (tmp_path / "file").touch()
    assert complete("finderctl", "observe", "f", directory=tmp_path) == ["folder"]


@pytest.mark.parametrize("program", ["companion", "finderctl", "finder-sync-extension"])
def test_options_are_those_of_the_program(program, programs):
    text = subprocess.run([programs / program, "--help"], capture_output=True, text=True,
                          check=True).stdout
    offered = complete(program, "--")
    for option in offered:
        assert option in text
    assert set(re.findall(r"--[a-z][a-z-]*", text)) <= set(offered)


def test_settings():
    assert complete("companion", "--set", "Display") == ["DisplayBackup=", "DisplayUrlLink="]
    assert complete("companion", "--set", "DisplayBackup", "=", "") == ["0", "1"]
    assert complete("companion", "--color", "a") == ["always", "auto"]


def test_commands_of_the_companion(programs):
    """What rlwrap completes."""
    text = subprocess.run([programs / "companion", "--help"], capture_output=True, text=True,
                          check=True).stdout
    listed = re.findall(r"(?m)^([a-z_]+) ", text.partition("Commands:\n")[2])
    assert (SHARE / "rlwrap/completions/companion").read_text().split() == listed
