"""The settings files that come with finder-sync-companion, with the programs that they are for."""

import functools
import http.server
import json
import shutil
import subprocess
import threading
import urllib.request

import pytest
from conftest import wait_for

from .syncthing import Syncthing
from .test_program import SOURCES, companion, display, run  # noqa: F401

LINK, BACKUP = "createLinkClicked:", "backupClicked:"


@pytest.fixture
def program():
    """What writes to the clipboard of the display."""
    return "xclip"


def needs(program):
    return pytest.mark.skipif(not shutil.which(program), reason=f"{program} is not installed")


def example(name, **replaced):
    """A settings file as it is installed, but for what everybody has to replace."""
    text = (SOURCES / f"examples/{name}.toml").read_text(encoding="utf-8")
    for former, new in replaced.items():
        assert former in text
        text = text.replace(former, str(new))
    return text


def execute(session, *command):
    return subprocess.run(command, env=session.environment, check=True, capture_output=True,
                          text=True).stdout


@needs("rclone")
def test_rclone_copies_a_link_to_what_is_in_a_bucket(companion, display):
    session = companion.session
    letter = session.home / "remote/my-bucket/a b/Ü.txt"
    letter.parent.mkdir(parents=True)
    letter.write_text("Dear you")
    (session.home / "Cloud").mkdir()
    handler = functools.partial(http.server.SimpleHTTPRequestHandler,
                                directory=str(session.home / "remote"))
    with http.server.ThreadingHTTPServer(("127.0.0.1", 0), handler) as store:
        threading.Thread(target=store.serve_forever, daemon=True).start()
        address = f"http://127.0.0.1:{store.server_port}"
        execute(session, "rclone", "config", "create", "s3", "s3", "provider=Other",
                f"endpoint={address}", "access_key_id=key", "secret_access_key=secret")
        companion.start(example("rclone"), **display.environment)
        companion.pick(LINK, session.home / "Cloud/a b/Ü.txt")
        link = wait_for(display.clipboard, "the link")
        assert link.startswith(f"{address}/my-bucket/a%20b/%C3%9C.txt?") and "X-Amz-Signature=" in link
        with urllib.request.urlopen(link) as answer:
            assert answer.read() == b"Dear you"
        companion.pick(LINK, session.home / "Cloud/nothing")
        wait_for(lambda: "Failed: nothing" in dict(companion.notifications.shown))
        store.shutdown()


@needs("restic")
def test_restic_backs_up(companion):
    session = companion.session
    letter = session.home / "Documents/Letter.txt"
    letter.parent.mkdir()
    letter.write_text("Dear you")
    password = session.home / "password"
    password.write_text("secret")
    repository = session.home / "backup"
    restic = functools.partial(execute, session, "restic", "--repo", str(repository),
                               "--password-file", str(password))
    restic("init")
    companion.start(example("restic", **{"/srv/backup-password": password, "/srv/backup": repository}))
    companion.pick(BACKUP, letter)
    companion.notifications.wait_for("Done", "Letter.txt")
    snapshot, = json.loads(restic("snapshots", "--json"))
    assert snapshot["paths"] == [str(letter)]
    assert restic("dump", "latest", str(letter)) == "Dear you"


@needs("syncthing")
def test_the_folders_of_syncthing(companion):
    session = companion.session
    programs = session.home / "bin"
    programs.mkdir()
    (programs / "xdg-open").write_text(f'#!/bin/sh\necho "$1" >{programs}/opened\n')
    (programs / "xdg-open").chmod(0o755)
    session.environment["PATH"] = f"{programs}:{session.environment['PATH']}"
    syncthing = Syncthing(session, "state/syncthing", uses_tls=True)  # as newer ones have it
    syncthing.start()
    companion.start(example("syncthing", **{"http://127.0.0.1:8384": syncthing.url}),
                    https_proxy="http://127.0.0.1:1")
    folders = [str(companion.folder), str(session.home / "Other")]
    syncthing.add("first", companion.folder)
    session.wait_for_value("pathsOfRootFolders", folders[:1])
    syncthing.add("second", session.home / "Other")
    session.wait_for_value("pathsOfRootFolders", folders)
    syncthing.ask("DELETE", "config/folders/second")
    session.wait_for_value("pathsOfRootFolders", folders[:1])

    letter = companion.folder / "a b/Ü.txt"
    letter.parent.mkdir()
    for file in (letter, companion.folder / "Note.txt"):
        file.write_text("Dear you")
    for number, item in enumerate([letter, companion.folder], start=1):
        companion.pick(BACKUP, item)
        wait_for(lambda: syncthing.status("first")["localFiles"] == number, "what has been found")
    companion.pick(LINK, letter)
    wait_for((programs / "opened").exists, "the page")
    assert (programs / "opened").read_text() == f"{syncthing.url}/\n"


@needs("syncthing")
def test_what_is_wrong_with_syncthing_is_said_once(companion):
    session = companion.session
    syncthing = Syncthing(session, "moved")
    session.environment["STHOMEDIR"] = str(syncthing.settings.parent)
    companion.start(example("syncthing"))
    program = "finder-sync-companion syncthing-folders"
    reason = f"Syncthing does not answer at {syncthing.url}: Connection refused"
    companion.notifications.wait_for(f"Failed: {program}", reason)
    assert companion.process.error().count(reason) == 1
    syncthing.start()
    syncthing.add("first", companion.folder)
    session.wait_for_value("pathsOfRootFolders", [str(companion.folder)])
    syncthing.edit("<apikey>", "<apikey>wrong")
    assert run(session, "syncthing-folders") == (
        1, "", f"Syncthing at {syncthing.url} does not take the API key that is in {syncthing.settings}\n")
    shutil.rmtree(syncthing.settings.parent)
    files = [syncthing.settings, *(session.home / f"{place}/syncthing/config.xml"
                                   for place in ("config", "state"))]
    assert run(session, "syncthing-folders") == (
        1, "", f"there is no {' and no '.join(map(str, files))}: has Syncthing been started?\n")


@needs("git-annex")
def test_the_repositories_of_git_annex(companion, display):
    session = companion.session
    session.environment |= {f"GIT_{who}_{what}": "test" for who in ("AUTHOR", "COMMITTER")
                            for what in ("NAME", "EMAIL")}
    letter = companion.folder / "Letter.txt"
    letter.write_text("Dear you")
    git = functools.partial(execute, session, "git", "-C", str(companion.folder))
    for folder in (companion.folder, session.home / "origin"):
        execute(session, "git", "init", "--quiet", str(folder))
        execute(session, "git", "-C", str(folder), "annex", "init", "--quiet", folder.name)
    git("remote", "add", "origin", str(session.home / "origin"))
    git("annex", "add", "--quiet", "Letter.txt")
    companion.start(example("git-annex"), **display.environment)
    session.wait_for_value("pathsOfRootFolders", [])
    autostart = session.home / "config/git-annex/autostart"
    autostart.parent.mkdir()
    autostart.write_text(f"{companion.folder}\n")
    session.wait_for_value("pathsOfRootFolders", [str(companion.folder)])
    companion.pick(BACKUP, letter)
    companion.notifications.wait_for("Done", "Letter.txt")
    companion.pick(LINK, letter)
    assert wait_for(display.clipboard, "where it is") == "Sync [here],origin"
