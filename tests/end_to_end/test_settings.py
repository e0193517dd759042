"""Start-up from the shared settings, with good and bad files."""

import os
import signal
import stat

import pytest
from conftest import GROUP


def expect_refused(session, extension, reason):
    assert extension.wait() == -signal.SIGABRT
    assert extension.output() == ""
    lines = extension.error().splitlines()
    assert len(lines) == 1
    assert lines[0].startswith("finder-sync-extension: fatal error: ")
    assert reason in lines[0]


def test_without_a_settings_file_the_defaults_hold(session):
    session.start_extension()
    session.wait_for_name()
    assert session.get_all() == {
        "myFolderURL": "file:///", "pathsOfRootFolders": [], "serverAddress": "127.0.0.1",
        "serverPort": 61842, "isSocketConnected": True, "displayUrlLink": 1, "displayBackup": 0,
        "shareContactTitle": "", "shareViaUrlTitle": "", "backupTitle": "",
        "directoryURLs": ["file:///"],
        "badges": {"FolderIco": (str(session.programs.parent / "share/finder-sync/icon_Folder.svg"),
                                 "Folder Icon")},
    }


def test_every_setting_arrives(session):
    session.start_extension({
        "RootFolder": "/home/u/Sync Folder", "ServerPort": 1, "DisplayUrlLink": 0,
        "DisplayBackup": 2, "ShareContactTitle": "Contacts", "ShareViaUrlTitle": "L\u00e4nk",
        "BackupTitle": "", "Unknown": [1, {}],
    })
    session.wait_for_name()
    state = session.get_all()
    assert state["myFolderURL"] == "file:///home/u/Sync%20Folder"
    assert state["directoryURLs"] == ["file:///home/u/Sync%20Folder"]
    assert state["serverPort"] == 1
    assert state["displayUrlLink"] == 0
    assert state["displayBackup"] == 2
    assert state["shareContactTitle"] == "Contacts"
    assert state["shareViaUrlTitle"] == "L\u00e4nk"
    assert state["backupTitle"] == ""
    assert state["pathsOfRootFolders"] == []


def test_the_launch_is_logged_once_with_time_name_and_process(session):
    extension = session.start_extension()
    session.wait_for_name()
    extension.wait_output("Stream open error\n")
    bundle = session.programs.parent / "share/finder-sync"
    logged = extension.error()
    assert logged.count("\n") == 1
    assert logged.endswith(f" finder-sync-extension[{extension.popen.pid}] "
                           f"FinderSync() launched from {bundle}\n") or session.wrapper


@pytest.mark.parametrize("root, url", [
    ("", None), ("relative", "relative"),
])
def test_a_relative_root_folder_resolves_against_the_working_directory(session, root, url):
    session.start_extension({"RootFolder": root}, cwd=session.home)
    session.wait_for_name()
    expected = f"file://{session.home}" + (f"/{url}" if url else "")
    assert session.get("myFolderURL") == expected


@pytest.mark.parametrize("value, port", [
    (0, 0), (5000, 5000), (3.9, 3), (-0.5, 0), (4294967295, 4294967295), ("5000", 5000),
    ("-0", 0), ("letters", 0), ("", 0), (" 5", 0), ("5 ", 0), ("+5", 0), ("5.0", 0), ("0x10", 0),
    (True, 1), (False, 0), (None, 61842), ([], 0), ({}, 0), ([5000], 0),
])
def test_server_port_of_every_type(session, value, port):
    session.start_extension({"ServerPort": value})
    session.wait_for_name()
    assert session.get("serverPort") == port


@pytest.mark.parametrize("value, shown", [
    (-1, "-1"), (4294967296, "4294967296"), ("-1", "-1"), (1e30, "9223372036854775807"),
    (-1e30, "-9223372036854775808"), (10 ** 25, "9223372036854775807"),
    ("1" + "0" * 25, "9223372036854775807"), ("-1" + "0" * 25, "-9223372036854775808"),
])
def test_server_ports_out_of_range(session, value, shown):
    extension = session.start_extension({"ServerPort": value})
    expect_refused(session, extension, f'"ServerPort" is out of range: {shown}')


@pytest.mark.parametrize("key", ["RootFolder", "ShareContactTitle", "ShareViaUrlTitle",
                                 "BackupTitle"])
@pytest.mark.parametrize("value", [5, True, 1.5, [], {}])
def test_text_settings_that_are_no_strings(session, key, value):
    extension = session.start_extension({key: value})
    expect_refused(session, extension, f'the setting "{key}" is not a string')


@pytest.mark.parametrize("key", ["RootFolder", "ShareContactTitle"])
def test_null_counts_as_absent(session, key):
    session.start_extension({key: None})
    session.wait_for_name()


@pytest.mark.parametrize("text", [
    "", "{", "[]", "5", "null", '{"a":1} x', '{"ServerPort":5000,}', "{'a':1}", "// no\n{}",
    '{"a":NaN}', '{"a":1e999}', '{"a":"\\ud800"}', "\ufeff{}",
    '{"a":' + "[" * 600 + "]" * 600 + "}",
])
def test_malformed_settings(session, text):
    extension = session.start_extension(text)
    expect_refused(session, extension,
                   f"the shared settings cannot be opened: {session.settings_file}: ")


def test_settings_that_are_not_utf8(session):
    extension = session.start_extension(b'{"BackupTitle":"\xff"}')
    expect_refused(session, extension, str(session.settings_file))


def test_settings_that_are_a_directory(session):
    session.settings_file.mkdir(parents=True)
    expect_refused(session, session.start_extension(), "it is a directory")


def test_settings_that_are_a_named_pipe(session):
    session.settings_file.parent.mkdir(parents=True)
    os.mkfifo(session.settings_file)
    expect_refused(session, session.start_extension(), "it is not a regular file")


def test_settings_of_a_gibibyte(session):
    session.store_settings("{}")
    os.truncate(session.settings_file, 1 << 30)
    expect_refused(session, session.start_extension(), "it is larger than 1 MiB")


def test_settings_that_may_not_be_read(session):
    session.store_settings("{}")
    if os.geteuid() == 0:
        # Root reads everything: the file is somebody else's, and root's privileges are taken away.
        os.chown(session.settings_file, 65534, 65534)
        session.wrapper = ["setpriv", "--bounding-set=-dac_override,-dac_read_search",
                           *session.wrapper]
    session.settings_file.chmod(0o600 if os.geteuid() == 0 else 0)
    expect_refused(session, session.start_extension(), "Permission denied")


def test_settings_behind_something_that_is_no_folder(session):
    session.settings_file.parent.parent.mkdir(parents=True)
    session.settings_file.parent.write_text("in the way")
    expect_refused(session, session.start_extension(), "Not a directory")


def test_settings_that_are_a_link_to_themselves(session):
    session.settings_file.parent.mkdir(parents=True)
    session.settings_file.symlink_to(session.settings_file.name)
    expect_refused(session, session.start_extension(), "Too many levels of symbolic links")


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
    expect_refused(session, extension, "neither XDG_CONFIG_HOME nor HOME names a directory")


def test_the_settings_are_never_written(session):
    session.start_extension({"RootFolder": "/a"})
    session.wait_for_name()
    session.set("myFolderURL", "s", "file:///b")
    assert session.settings_file.read_text() == '{"RootFolder": "/a"}'
    assert stat.S_ISREG(session.settings_file.stat().st_mode)


def test_later_changes_of_the_settings_do_not_reach_it(session):
    session.start_extension({"DisplayBackup": 1})
    session.wait_for_name()
    session.store_settings({"DisplayBackup": 2, "BackupTitle": "later"})
    assert session.get("displayBackup") == 1
    assert session.get("backupTitle") == ""
