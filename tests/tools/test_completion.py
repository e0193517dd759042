"""What shells offer at the Tab key."""

import os
import pathlib
import re
import shutil
import subprocess

import pytest

from .pseudo_terminal import Terminal

PROGRAMS = pathlib.Path(os.environ["FINDER_SYNC_BIN"])
SHARE = PROGRAMS.parent / "share"
FILES = {"bash": "bash-completion/completions/{}", "zsh": "zsh/*/_{}",
         "fish": "fish/vendor_completions.d/{}.fish"}
FRAMEWORK = pathlib.Path("/usr/share/bash-completion/bash_completion")

# The words are split as readline splits them: "=" is a word of its own.
BASH = r"""
source "$1"; source "$2"; shift 2
COMP_WORDS=("$@"); COMP_CWORD=$(($# - 1)); COMP_LINE="$*"
COMP_LINE=${COMP_LINE// = /=}; COMP_LINE=${COMP_LINE/% =/=}; COMP_POINT=${#COMP_LINE}
compopt() { :; }
entry=$(complete -p -- "$1"); entry=${entry#*-F }; "${entry%% *}" "$1" "${@: -1}" "${@: -2:1}"
printf '%s\n' "${COMPREPLY[@]}"
"""
def file_of(shell, program):
    found, = SHARE.glob(FILES[shell].format(program))
    return found


def in_bash(*words):
    return ["bash", "--norc", "-c", BASH, "bash", FRAMEWORK, file_of("bash", words[0]), *words]


def in_fish(*words):
    return ["fish", "--no-config", "-c", "source $argv[1]; complete -C $argv[2]",
            file_of("fish", words[0]), " ".join(words)]


def complete(shell, *words, directory=None):
    """The words that the shell offers for the last one."""
    if shell == "bash" and not FRAMEWORK.exists() or not shutil.which(shell):
        pytest.skip(f"completion for {shell} is not installed")
    done = subprocess.run({"bash": in_bash, "fish": in_fish}[shell](*words), capture_output=True,
                          text=True, check=True, cwd=directory)
    assert not done.stderr
    return sorted(line.split("\t")[0] for line in done.stdout.splitlines() if line)


def help_of(program):
    return subprocess.run([PROGRAMS / program, "--help"], capture_output=True, text=True,
                          check=True).stdout


def subcommands():
    return re.findall(r"(?m)^  ([a-z]+) ", help_of("finderctl").partition("Subcommands:")[2])


@pytest.mark.parametrize("shell", FILES)
@pytest.mark.parametrize("program", ["companion", "finderctl", "finder-sync-extension",
                                     "finder-sync-companion"])
def test_options_are_those_of_the_program(program, shell):
    known = re.findall(r"(?:--|complete .* -l )([a-z][a-z-]+)", file_of(shell, program).read_text())
    assert {*known} == {*re.findall(r"--([a-z][a-z-]+)", help_of(program))}


@pytest.mark.parametrize("shell", ["bash", "fish"])
def test_subcommands(shell):
    assert complete(shell, "finderctl", "") == sorted(subcommands())
    assert complete(shell, "finderctl", "--json", "st") == ["state"]
    assert complete(shell, "finderctl", "--kind", "c") == ["container"]
    assert complete(shell, "finderctl", "state", "") == []
    assert "createLinkClicked:" in complete(shell, "finderctl", "click", "")


def test_subcommands_in_zsh():
    """Which completes only what is typed into a terminal."""
    file = file_of("zsh", "finderctl")
    assert re.findall(r"(?m)^    '([a-z]+):", file.read_text()) == subcommands()
    if not shutil.which("zsh"):
        pytest.skip("zsh is not installed")
    terminal = Terminal(columns=200)
    zsh = subprocess.Popen(["zsh", "-f", "-i"], **terminal.streams())
    try:
        terminal.type(f"fpath=({file.parent} $fpath); autoload -U compinit; compinit -D -u\n")
        for typed, completed in [("doc", "doctor"), ("menu --kind si", "sidebar"),
                                 ("click back", "backupClicked:"), ("--gr", "--group")]:
            terminal.type(f"\x15finderctl {typed}\t")
            terminal.wait_for(completed)
    finally:
        zsh.kill()
        zsh.wait()
        terminal.close()


@pytest.mark.parametrize("shell", ["bash", "fish"])
def test_directories(shell, tmp_path):
    (tmp_path / "folder").mkdir()
    (tmp_path / "file").touch()
    offered = complete(shell, "finderctl", "observe", "f", directory=tmp_path)
    assert [folder.rstrip("/") for folder in offered] == ["folder"]


def test_settings():
    assert complete("bash", "companion", "--set", "Display") == ["DisplayBackup=", "DisplayUrlLink="]
    assert complete("bash", "companion", "--set", "DisplayBackup", "=", "") == ["0", "1"]
    assert complete("bash", "companion", "--color", "a") == ["always", "auto"]
    assert complete("fish", "companion", "--set", "Display") == ["DisplayBackup=", "DisplayUrlLink="]


def test_commands_of_the_companion():
    """What rlwrap completes."""
    listed = re.findall(r"(?m)^([a-z_]+) ", help_of("companion").partition("Commands:\n")[2])
    assert (SHARE / "rlwrap/completions/companion").read_text().split() == listed
