"""Real processes, real sockets and a real bus for the tests of the two programs."""

import json
import os
import pathlib
import subprocess

import pytest

from .running_programs import GROUP, Peer, Program


@pytest.fixture(scope="session")
def binaries():
    directory = os.environ.get("FINDER_SYNC_BIN")
    assert directory, "FINDER_SYNC_BIN must name the directory of the programs"
    return pathlib.Path(directory).resolve()


@pytest.fixture
def home(tmp_path):
    directory = tmp_path / "home"
    directory.mkdir()
    return directory


@pytest.fixture
def environment(home):
    """Nothing of the caller's own session gets in."""
    kept = ("PATH", "ASAN_OPTIONS", "LSAN_OPTIONS", "UBSAN_OPTIONS", "GCOV_PREFIX",
            "GCOV_PREFIX_STRIP")
    values = {key: os.environ[key] for key in kept if key in os.environ}
    values.update(HOME=str(home), XDG_CONFIG_HOME=str(home / "config"),
                  XDG_STATE_HOME=str(home / "state"), LC_ALL="C.UTF-8", TERM="xterm")
    return values


@pytest.fixture
def settings_file(home):
    return home / "config" / GROUP / "settings.json"


@pytest.fixture
def start(environment):
    """Starts programs, and ends those that are left."""
    programs = []

    def starter(*command, **options):
        options.setdefault("environment", environment)
        program = Program(command, **options)
        programs.append(program)
        return program

    yield starter
    for program in reversed(programs):
        program.end()


@pytest.fixture
def start_companion(start, binaries):
    """Starts the companion on a free port, and knows which."""

    def starter(*options, port=0, **process_options):
        program = start(binaries / "companion", "--port", port, *options, **process_options)
        listening = program.err.wait_for(r"listening on 127\.0\.0\.1:(\d+)[\n\x1b]")
        program.port = int(listening.group(1))
        return program

    return starter


@pytest.fixture
def connect():
    peers = []

    def connector(port, **options):
        peer = Peer(port, **options)
        peers.append(peer)
        return peer

    yield connector
    for peer in peers:
        peer.close()


@pytest.fixture
def bus(start, environment):
    """A session bus of its own, without activation."""
    daemon = start("dbus-daemon", "--session", "--print-address", "--nofork", "--nopidfile",
                   stdin=subprocess.DEVNULL)
    environment["DBUS_SESSION_BUS_ADDRESS"] = daemon.out.wait_for(r"(unix:\S+)\n").group(1)
    return daemon


@pytest.fixture
def start_extension(start, binaries, settings_file):
    """Starts the real extension with the given settings and waits until it is connected."""

    def starter(port, **settings):
        settings_file.parent.mkdir(parents=True, exist_ok=True)
        settings_file.write_text(json.dumps({"ServerPort": port, **settings}))
        program = start(binaries / "finder-sync-extension", stdin=subprocess.DEVNULL)
        program.out.wait_for("Opened connection|Stream open error")
        return program

    return starter
