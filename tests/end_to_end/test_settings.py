"""Start-up from the shared settings, with good and bad files."""

import os
import pathlib
import re
import signal
import urllib.parse

import pytest
from conftest import GROUP


def expect_refused(extension, reason):
    assert extension.wait() == -signal.SIGABRT
    assert extension.output() == ""
    lines = extension.error().splitlines()
    assert len(lines) == 1
    assert lines[0].startswith("finder-sync-extension: fatal error: ")
    assert reason in lines[0]


@pytest.mark.parametrize("settings", [None, dict.fromkeys(
    ["RootFolder", "ServerPort", "DisplayUrlLink", "DisplayBackup", "ShareContactTitle"])],
    ids=["no file", "nulls"])
def test_what_is_absent_has_its_default(session, settings):
    session.start_extension(settings)
    session.wait_for_name()
    assert session.get_all() == {
        "myFolderURL": "file:///", "pathsOfRootFolders": [], "serverAddress": "127.0.0.1",
        "serverPort": 61842, "isSocketConnected": True, "displayUrlLink": 1, "displayBackup": 0,
        "shareContactTitle": "", "shareViaUrlTitle": "", "backupTitle": "",
        "directoryURLs": ["file:///"],
        "badges": {"FolderIco": (str(session.share / "finder-sync/icon_Folder.svg"),
                                 "Folder Icon")},
    }


def test_every_setting_arrives_and_later_changes_do_not(session):
    settings = {"RootFolder": "/home/u/Sync Folder", "ServerPort": 1, "DisplayUrlLink": 0,
                "DisplayBackup": 2, "ShareContactTitle": "Contacts",
                "ShareViaUrlTitle": "L\u00e4nk", "BackupTitle": "", "Unknown": [1, {}]}
    session.start_extension(settings)
    session.wait_for_name()
    expected = session.get_all() | {
        "myFolderURL": "file:///home/u/Sync%20Folder",
        "directoryURLs": ["file:///home/u/Sync%20Folder"], "serverPort": 1, "displayUrlLink": 0,
        "displayBackup": 2, "shareContactTitle": "Contacts", "shareViaUrlTitle": "L\u00e4nk",
        "backupTitle": "", "pathsOfRootFolders": []}
    session.store_settings({"DisplayBackup": 3, "BackupTitle": "later"})
    assert session.get_all() == expected


def test_the_launch_is_logged_once_with_time_name_and_process(session):
    extension = session.start_extension()
    session.wait_for_name()
    extension.wait_output("Stream open error\n")
    name = ".*" if session.wrapper else "finder-sync-extension"
    assert re.fullmatch(
        rf"\d{{4}}-\d\d-\d\d \d\d:\d\d:\d\d\.\d{{3}} {name}\[{extension.popen.pid}\] "
        rf"FinderSync\(\) launched from {re.escape(str(session.share))}/finder-sync\n",
        extension.error())


@pytest.mark.parametrize("root, url", [("", ""), ("relative", "/relative")])
def test_a_relative_root_folder_resolves_against_the_working_directory(session, root, url):
    session.start_extension({"RootFolder": root}, cwd=session.home)
    session.wait_for_name()
    assert session.get("myFolderURL") == f"file://{session.home}{url}"


@pytest.mark.parametrize("root, path", [
    ("/home/u//", "/home/u"), ("/srv/./", "/srv"), ("/srv/x/..", "/srv"), ("//srv", "/srv"),
    ("/..", "/"), ("/home/u/cafe\u0301/", "/home/u/cafe%CC%81")])
def test_every_spelling_of_the_root_folder_watches_the_same_directory(session, root, path):
    extension = session.start_extension({"RootFolder": root})
    session.wait_for_name()
    # Names are shown as they came, but compared by canonical equivalence.
    inside = f"file://{path.rstrip('/')}/x".replace("e%CC%81", "%C3%A9")
    assert session.get("directoryURLs") == [f"file://{path}"]
    session.set("pathsOfRootFolders", "as", [urllib.parse.unquote(inside[7:])])
    assert session.method("RequestBadgeIdentifierForURL", "s", inside) == ("FolderIco",)
    session.method("BeginObservingDirectoryAtURL", "s", inside)
    assert f"beginObservingDirectoryAtURL: {inside}\n" in extension.error()


def test_server_ports_out_of_range(session):
    largest, smallest = 2 ** 63 - 1, -2 ** 63
    for value, shown in [
            (-1, -1), (2 ** 32, 2 ** 32), ("-1", -1), (1e30, largest), (-1e30, smallest),
            (10 ** 25, largest), (str(10 ** 25), largest), (str(-10 ** 25), smallest)]:
        extension = session.start_extension({"ServerPort": value})
        expect_refused(extension, f'"ServerPort" is out of range: {shown}')


def test_malformed_settings(session):
    for text in ("", "{", "[]", "5", '{"a":1} x', '{"a":"\\ud800"}', b'{"BackupTitle":"\xff"}'):
        expect_refused(session.start_extension(text),
                       f"the shared settings cannot be opened: {session.settings_file}: ")
    session.store_settings({"BackupTitle": 5})
    # The reason of an end is logged at any level.
    expect_refused(session.start("finder-sync-extension", "--log-level", "emerg"),
                   'the setting "BackupTitle" is not a string')


def put_a_gibibyte(file):
    file.touch()
    os.truncate(file, 1 << 30)


@pytest.mark.parametrize("put, reason", [
    (pathlib.Path.mkdir, "it is a directory"),
    (os.mkfifo, "it is not a regular file"),
    (put_a_gibibyte, "it is larger than 1 MiB"),
    (lambda file: file.symlink_to(file.name), "Too many levels of symbolic links"),
    (lambda file: (file.parent.rmdir(), file.parent.touch()), "Not a directory"),
])
def test_settings_that_are_no_file_to_read(session, put, reason):
    session.settings_file.parent.mkdir(parents=True)
    put(session.settings_file)
    expect_refused(session.start_extension(), reason)


def test_settings_that_may_not_be_read(session):
    session.store_settings("{}")
    if os.geteuid() == 0:
        # Root reads everything: the file is somebody else's, and root's privileges are taken away.
        os.chown(session.settings_file, 65534, 65534)
        session.wrapper = ["setpriv", "--bounding-set=-dac_override,-dac_read_search",
                           *session.wrapper]
    session.settings_file.chmod(0o600 if os.geteuid() == 0 else 0)
    expect_refused(session.start_extension(), "Permission denied")


def test_settings_lie_in_the_home_by_default(session):
    file = session.home / ".config" / GROUP / "settings.json"
    file.parent.mkdir(parents=True)
    file.write_text('{"DisplayBackup":7}')
    # A relative path does not count as a folder for configuration.
    session.start_extension(environment={"XDG_CONFIG_HOME": "config"})
    session.wait_for_name()
    assert session.get("displayBackup") == 7


def test_without_a_home_the_settings_cannot_be_opened(session):
    extension = session.start_extension(environment={"XDG_CONFIG_HOME": "", "HOME": ""})
    expect_refused(extension, "neither XDG_CONFIG_HOME nor HOME names a directory")


def test_the_settings_are_never_written(session):
    session.start_extension({"RootFolder": "/a"})
    session.wait_for_name()
    session.set("myFolderURL", "s", "file:///b")
    assert session.settings_file.read_text() == '{"RootFolder": "/a"}'
