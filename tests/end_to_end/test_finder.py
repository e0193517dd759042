"""Badges, menus and actions as a file manager asks for them, with a real companion's link."""

import json
import signal

import pytest
from conftest import wait_for

LINK = ("Link", "createLinkClicked:", "icon_URLlink")
BACKUP = ("Back up", "backupClicked:", "icon_Backup")
SETTINGS = {"ShareContactTitle": "Contacts", "ShareViaUrlTitle": "Link", "BackupTitle": "Back up",
            "DisplayBackup": 1}


def badge(session, url):
    return session.method("RequestBadgeIdentifierForURL", "s", url)[0]


def menu(session, urls, kind=0):
    return session.method("MenuForMenuKind", "uas", kind, urls)


def report(kind, *items):
    """The exact bytes that tell a companion of a click."""
    return json.dumps({"items": items, "type": f"clicked_{kind}"}, separators=(",", ":"),
                      ensure_ascii=False).encode()


def test_the_whole_road(session):
    """Folder announced, badge, menu, pick, report, companion gone, no menu, badge still there."""
    peer, extension = session.start_connected(SETTINGS)
    assert badge(session, "file:///home/u/Sync/") == ""
    session.announce(peer, "/home/u/Sync")
    assert badge(session, "file:///home/u/Sync/") == "FolderIco"
    assert menu(session, ["file:///home/u/Sync/a.txt"]) == (True, [LINK, BACKUP])
    assert menu(session, ["file:///home/u/Sync"]) == (False, [])
    for kind in (1, 2, 3, 4, 2 ** 32 - 1):
        assert menu(session, ["file:///home/u/Sync/a.txt"], kind) == (False, [])
    session.method("PerformAction", "sas", LINK[1], ["file:///home/u/Sync/a.txt"])
    expected = report("create_url_link", "/home/u/Sync/a.txt")
    assert peer.receive(len(expected)) == expected
    peer.connection.close()
    extension.wait_output("ignore\n")
    assert menu(session, ["file:///home/u/Sync/a.txt"]) == (False, [])
    assert badge(session, "file:///home/u/Sync/") == "FolderIco"
    assert extension.end(signal.SIGTERM) == 0


def test_what_lies_outside_the_watched_directory_does_not_reach_the_extension(session):
    peer, extension = session.start_connected(SETTINGS | {"RootFolder": "/watched"})
    session.announce(peer, "/watched", "/watched/a", "/watched2", "/")
    log, trace = extension.error(), extension.output()
    for url in ("file:///", "file:///watched2", "file:///watche", "file:///elsewhere/watched"):
        assert badge(session, url) == ""
        assert menu(session, [url]) == (False, [])
        for method in ("BeginObservingDirectoryAtURL", "EndObservingDirectoryAtURL"):
            assert session.method(method, "s", url) == ()
    assert menu(session, ["file:///watched/a/x", "file:///elsewhere"]) == (False, [])
    assert (extension.error(), extension.output()) == (log, trace)
    assert badge(session, "file:///watched") == "FolderIco"
    assert badge(session, "file:///watched/a/") == "FolderIco"
    assert menu(session, ["file:///watched/a/x"])[0] is True
    assert extension.error() != log


def test_the_exact_bytes_of_reports(session):
    peer, extension = session.start_connected()
    escaped = b'{"items":["/\\"\\\\\\n\\t\\u0001\x7f"],"type":"clicked_backup"}'
    for urls, expected in [
            (["file:///c", "file:///a%20y", "file:///b"], report("backup", "/c", "/a y", "/b")),
            ([], report("backup")),
            (["file:///caf%C3%A9/e%CC%81/%F0%9F%94%97"],
             report("backup", "/caf\u00e9/e\u0301/\U0001f517")),
            (["file:///%22%5C%0A%09%01%7F"], escaped)]:
        told = extension.output().count("Sending\n")
        session.method("PerformAction", "sas", "backupClicked:", urls)
        assert peer.receive(len(expected)) == expected
        # The next one only then: two writes before there is room again are told of once.
        wait_for(lambda: extension.output().count("Sending\n") == told + 1, "room for the next")


def test_an_action_after_the_link_has_ended_is_tried_and_lost_quietly(session):
    peer, extension = session.start_connected()
    peer.connection.close()
    extension.wait_output("ignore\n")
    for _ in range(3):
        assert session.method("PerformAction", "sas", "syncedClicked:", ["file:///a"]) == ()
    extension.wait_output("Stream open error\n")
    assert extension.output().count("Stream open error\n") == 1
    assert session.get("isSocketConnected") is False


def test_a_companion_that_does_not_read_makes_nobody_wait(session):
    peer, extension = session.start_connected()
    urls = [f"file:///{'a' * 200}/{number}" for number in range(1000)]
    for _ in range(60):  # 13 MB: more than the connection holds
        session.method("PerformAction", "sas", "syncedClicked:", urls)
    assert session.get("serverAddress") == "127.0.0.1"
    assert extension.popen.poll() is None
    sending = extension.output().count("Sending\n")
    assert peer.connection.recv(10) == b'{"items":['
    peer.connection.settimeout(0.3)
    with pytest.raises(TimeoutError):
        while peer.connection.recv(1 << 20):
            pass
    wait_for(lambda: extension.output().count("Sending\n") == sending + 1)
