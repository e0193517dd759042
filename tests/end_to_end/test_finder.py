"""Badges, menus and actions as a file manager asks for them, with a real companion's link."""

import json
import signal

import pytest
from conftest import BusError, line, wait_for

ITEMS, CONTAINER, SIDEBAR, TOOLBAR = range(4)
LINK = ("Link", "createLinkClicked:", "icon_URLlink")
BACKUP = ("Back up", "backupClicked:", "icon_Backup")
TITLES = {"ShareContactTitle": "Contacts", "ShareViaUrlTitle": "Link", "BackupTitle": "Back up"}
ACTIONS = {
    "createLinkClicked:": "clicked_create_url_link", "backupClicked:": "clicked_backup",
    "shareContactsClicked:": "clicked_share_contacts", "inProgressClicked:": "clicked_in_progress",
    "notSyncedClicked:": "clicked_not_synced", "syncedClicked:": "clicked_synced",
}
INVALID_ARGUMENTS = "org.freedesktop.DBus.Error.InvalidArgs"


def announce(session, peer, *paths):
    for path in paths:
        before = session.get("pathsOfRootFolders")
        peer.send(line(type="add_folder", path=path))
        session.wait_for_value("pathsOfRootFolders", [*before, path])


def badge(session, url):
    return session.method("RequestBadgeIdentifierForURL", "s", url)[0]


def menu(session, urls, kind=ITEMS):
    return session.method("MenuForMenuKind", "uas", kind, urls)


def receive_report(peer):
    """The next report, as exact text."""
    text = b""
    while True:
        text += peer.connection.recv(1)
        try:
            json.loads(text)
            return text.decode()
        except json.JSONDecodeError:
            continue


def test_root_folders_carry_the_badge_and_nothing_else(session):
    peer, _ = session.start_connected()
    assert badge(session, "file:///home/u/Sync") == ""
    announce(session, peer, "/home/u/Sync", "/srv/caf\u00e9")
    assert badge(session, "file:///home/u/Sync") == "FolderIco"
    assert badge(session, "file:///home/u/Sync/") == "FolderIco"
    assert badge(session, "file:///srv/cafe%CC%81/") == "FolderIco"
    assert badge(session, "file:///home/u/Sync/doc.txt") == ""
    assert badge(session, "file:///home/u") == ""
    assert badge(session, "file:///home/u/sync") == ""


def test_many_items_are_answered_in_order(session):
    peer, extension = session.start_connected()
    announce(session, peer, "/a", "/b")
    urls = ["file:///x", "file:///b", "file:///a/y", "file:///a/", "file:///b"]
    assert session.method("RequestBadgeIdentifiersForURLs", "as", urls)[0] == [
        "", "FolderIco", "", "FolderIco", "FolderIco"]
    assert session.method("RequestBadgeIdentifiersForURLs", "as", [])[0] == []
    assert extension.error().count("requestBadgeIdentifierForURL: ") == 5


def test_one_bad_url_refuses_the_batch_before_anything_is_asked(session):
    peer, extension = session.start_connected()
    announce(session, peer, "/a")
    with pytest.raises(BusError) as error:
        session.method("RequestBadgeIdentifiersForURLs", "as", ["file:///a", "http://b/"])
    assert error.value.name == INVALID_ARGUMENTS
    assert "requestBadge" not in extension.error()


def test_a_request_logs_one_line_and_two_for_each_root_examined(session):
    peer, extension = session.start_connected()
    announce(session, peer, "/r0", "/r1", "/r2", "/r3")
    before = len(extension.error().splitlines())
    assert badge(session, "file:///r1/") == "FolderIco"
    logged = [text.split("] ", 1)[1] for text in extension.error().splitlines()[before:]]
    assert logged == ["requestBadgeIdentifierForURL: file:///r1/", "curpath: /r0", "path: /r1",
                      "curpath: /r1", "path: /r1"]


def test_the_menu_on_an_item_inside_a_root_folder(session):
    peer, extension = session.start_connected(TITLES)
    announce(session, peer, "/a/Sync")
    assert menu(session, ["file:///a/Sync/x"]) == (True, [LINK])
    assert extension.output().endswith('path: Optional("/a/Sync/x")\n')
    peer.send(line(type="set_menu_usage", displayBackup="1"))
    session.wait_for_value("displayBackup", 1)
    assert menu(session, ["file:///a/Sync/x"]) == (True, [LINK, BACKUP])
    peer.send(line(type="set_locale", shareContactTitle="", shareViaUrlTitle="L\u00e4nk",
                   backupTitle=""))
    session.wait_for_value("shareViaUrlTitle", "L\u00e4nk")
    assert menu(session, ["file:///a/Sync/x"]) == (True, [("L\u00e4nk", *LINK[1:]),
                                                          ("", *BACKUP[1:])])


def test_selections_without_a_menu(session):
    peer, extension = session.start_connected(TITLES)
    announce(session, peer, "/a/Sync")
    before = extension.output()
    for urls in ([], ["file:///a/Sync/x", "file:///a/Sync/y"]):
        assert menu(session, urls) == (False, [])
    for kind in (CONTAINER, SIDEBAR, TOOLBAR):
        assert menu(session, ["file:///a/Sync/x"], kind) == (False, [])
        assert menu(session, [], kind) == (False, [])
    assert extension.output() == before
    assert menu(session, ["file:///a/Sync"]) == (False, [])
    assert menu(session, ["file:///elsewhere"]) == (False, [])
    assert extension.output() == before + (
        'path: Optional("/a/Sync")\npath: Optional("/elsewhere")\n')


def test_containment_is_of_texts(session):
    peer, _ = session.start_connected(TITLES)
    announce(session, peer, "/a/caf\u00e9")
    assert menu(session, ["file:///a/cafe%CC%81/x"])[0] is True
    assert menu(session, ["file:///a/caf%C3%A9s"])[0] is True
    assert menu(session, ["file:///a/cafe%CC%81"])[0] is False
    assert menu(session, ["file:///A/caf%C3%A9/x"])[0] is False


def test_a_root_that_ends_inside_a_combined_character(session):
    peer, _ = session.start_connected(TITLES)
    announce(session, peer, "/a/cafe")
    assert menu(session, ["file:///a/cafe%CC%81/x"])[0] is False
    assert menu(session, ["file:///a/cafes/x"])[0] is True


def test_an_empty_root_never_yields_a_menu(session):
    peer, extension = session.start_connected(TITLES)
    announce(session, peer, "")
    assert menu(session, ["file:///a/x"]) == (False, [])
    assert badge(session, "file:///") == ""
    assert extension.popen.poll() is None


def test_a_root_with_a_nul(session):
    peer, _ = session.start_connected(TITLES)
    peer.send(line(type="add_folder", path="/a\0b"))
    session.wait_for_value("pathsOfRootFolders", ["/a"])
    assert badge(session, "file:///a") == ""
    assert menu(session, ["file:///a/x"]) == (False, [])


def test_no_menu_once_the_companion_is_gone_but_badges_stay(session):
    peer, extension = session.start_connected(TITLES)
    announce(session, peer, "/a")
    assert menu(session, ["file:///a/x"])[0] is True
    peer.connection.close()
    session.wait_for_value("isSocketConnected", False)
    before = extension.output()
    assert menu(session, ["file:///a/x"]) == (False, [])
    assert extension.output() == before
    assert badge(session, "file:///a") == "FolderIco"


def test_the_menu_is_offered_although_the_connection_was_refused(session):
    session.start_extension(TITLES | {"ServerPort": 0})
    session.wait_for_name()
    session.set("pathsOfRootFolders", "as", ["/a"])
    assert menu(session, ["file:///a/x"]) == (True, [LINK])


def test_what_lies_outside_the_watched_directory_does_not_reach_the_extension(session):
    peer, extension = session.start_connected(TITLES | {"RootFolder": "/watched"})
    announce(session, peer, "/watched", "/watched/a", "/watched2", "/")
    log, trace = extension.error(), extension.output()
    for url in ("file:///", "file:///watched2", "file:///watche", "file:///elsewhere/watched"):
        assert badge(session, url) == ""
        assert menu(session, [url]) == (False, [])
    assert menu(session, ["file:///watched/a/x", "file:///elsewhere"]) == (False, [])
    assert (extension.error(), extension.output()) == (log, trace)
    assert badge(session, "file:///watched") == "FolderIco"
    assert badge(session, "file:///watched/a/") == "FolderIco"
    assert menu(session, ["file:///watched/a/x"])[0] is True
    assert extension.error() != log


@pytest.mark.parametrize("kind", [4, 99, 2 ** 32 - 1])
def test_unknown_menu_kinds_get_no_menu(session, kind):
    peer, _ = session.start_connected(TITLES)
    announce(session, peer, "/a")
    assert menu(session, ["file:///a/x"], kind) == (False, [])


@pytest.mark.parametrize("root, url", [
    ("/tmp/x/../y", "file:///tmp/y"), ("//tmp/y", "file:///tmp/y"), ("/tmp/./y/", "file:///tmp/y"),
    ("/caf\u00e9", "file:///cafe%CC%81"),
])
def test_the_watched_directory_may_be_spelled_in_other_ways(session, root, url):
    peer, _ = session.start_connected(TITLES | {"RootFolder": root})
    announce(session, peer, "/tmp/y", "/caf\u00e9")
    assert badge(session, url) == "FolderIco"
    assert menu(session, [url + "/x"])[0] is True


@pytest.mark.parametrize("selector", ACTIONS)
def test_each_action_sends_its_report(session, selector):
    peer, _ = session.start_connected()
    assert session.method("PerformAction", "sas", selector, ["file:///a/x%20y"]) == ()
    assert receive_report(peer) == json.dumps(
        {"items": ["/a/x y"], "type": ACTIONS[selector]}, separators=(",", ":"))


@pytest.mark.parametrize("selector", ["", "createLinkClicked", "connect", "init",
                                      "sendClickedData:", "stream:handleEvent:",
                                      "requestBadgeIdentifierForURL:", "nonsense"])
def test_other_selectors_are_no_actions(session, selector):
    peer, extension = session.start_connected()
    before = extension.output()
    with pytest.raises(BusError) as error:
        session.method("PerformAction", "sas", selector, ["file:///a"])
    assert error.value.name == INVALID_ARGUMENTS
    assert extension.output() == before
    peer.connection.settimeout(0.2)
    with pytest.raises(TimeoutError):
        peer.connection.recv(1)


def test_the_exact_bytes_of_reports(session):
    peer, extension = session.start_connected()

    def act(*urls):
        told = extension.output().count("Sending\n")
        session.method("PerformAction", "sas", "backupClicked:", list(urls))
        # The next one only then: two writes before there is room again are told of once.
        wait_for(lambda: extension.output().count("Sending\n") == told + 1, "room for the next")

    act("file:///c", "file:///a", "file:///b")
    act()
    act("file:///caf%C3%A9/e%CC%81/%F0%9F%94%97")
    act("file:///%22%5C%0A%09%01%7F")
    expected = (
        '{"items":["/c","/a","/b"],"type":"clicked_backup"}'
        '{"items":[],"type":"clicked_backup"}'
        '{"items":["/caf\u00e9/e\u0301/\U0001f517"],"type":"clicked_backup"}'
        '{"items":["/\\"\\\\\\n\\t\\u0001\u007f"],"type":"clicked_backup"}').encode()
    received = b""
    while len(received) < len(expected):
        received += peer.connection.recv(4096)
    assert received == expected
    assert extension.output().count("Sending\n") == 5  # after opening, and each write


def test_the_selection_is_there_during_the_call_only(session):
    peer, _ = session.start_connected(TITLES)
    announce(session, peer, "/a")
    menu(session, ["file:///a/x"])
    session.method("PerformAction", "sas", "syncedClicked:", [])
    assert receive_report(peer) == '{"items":[],"type":"clicked_synced"}'


def test_an_action_after_the_link_has_ended_is_tried_and_lost_quietly(session):
    peer, extension = session.start_connected()
    peer.connection.close()
    extension.wait_output("ignore\n")
    for _ in range(3):
        assert session.method("PerformAction", "sas", "syncedClicked:", ["file:///a"]) == ()
    extension.wait_output("Stream open error\n")
    assert extension.output().count("Stream open error\n") == 1
    assert session.get("isSocketConnected") is False


def test_a_report_reaches_a_companion_that_has_closed_only_its_direction(session):
    peer, extension = session.start_connected()
    peer.connection.shutdown(1)
    extension.wait_output("ignore\n")
    session.method("PerformAction", "sas", "syncedClicked:", ["file:///a"])
    assert receive_report(peer) == '{"items":["/a"],"type":"clicked_synced"}'


def test_an_action_without_a_companion_is_lost_quietly(session):
    extension = session.start_extension({"ServerPort": 0})
    session.wait_for_name()
    extension.wait_output("Stream open error\nStream open error\n")
    assert session.method("PerformAction", "sas", "syncedClicked:", ["file:///a"]) == ()
    assert extension.popen.poll() is None


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


@pytest.mark.parametrize("bad", ["http://example.com/", "file:///%FF", "file:///%00", ""])
def test_bad_urls_reach_neither_menu_nor_action(session, bad):
    peer, extension = session.start_connected()
    announce(session, peer, "/a")
    before = extension.output()
    for call in (lambda: menu(session, [bad]),
                 lambda: menu(session, ["file:///a/x", bad]),
                 lambda: badge(session, bad),
                 lambda: session.method("PerformAction", "sas", "syncedClicked:",
                                        ["file:///a", bad])):
        with pytest.raises(BusError) as error:
            call()
        assert error.value.name == INVALID_ARGUMENTS
    assert extension.output() == before


def test_the_whole_road(session):
    """Folder announced, badge, menu, pick, report, companion gone, no menu, badge still there."""
    peer, extension = session.start_connected(TITLES)
    announce(session, peer, "/home/u/Sync")
    assert badge(session, "file:///home/u/Sync/") == "FolderIco"
    offered, entries = menu(session, ["file:///home/u/Sync/a.txt"])
    assert offered
    title, selector, image = entries[0]
    session.method("PerformAction", "sas", selector, ["file:///home/u/Sync/a.txt"])
    assert json.loads(receive_report(peer)) == {"type": "clicked_create_url_link",
                                                "items": ["/home/u/Sync/a.txt"]}
    peer.connection.close()
    extension.wait_output("ignore\n")
    assert menu(session, ["file:///home/u/Sync/a.txt"]) == (False, [])
    assert badge(session, "file:///home/u/Sync/") == "FolderIco"
    assert extension.end(signal.SIGTERM) == 0
