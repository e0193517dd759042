"""The object on the session bus."""

import pathlib
import xml.etree.ElementTree as ElementTree

import pytest
from conftest import EXTENSION, BusError, line, wait_for
from jeepney import DBusAddress, new_method_call

INTERFACE = "findersync.Extension1"
CONTRACT = pathlib.Path(__file__).parents[2] / "hosts/linux/findersync.Extension1.xml"
INVALID_ARGUMENTS = "org.freedesktop.DBus.Error.InvalidArgs"


def members(xml):
    """The interface's members as comparable tuples. Hints for a generator of proxies are not the
    object's to tell."""
    interface = ElementTree.fromstring(xml).find(f"interface[@name='{INTERFACE}']")
    found = set()
    for member in interface:
        arguments = tuple((argument.get("name"), argument.get("type"),
                           argument.get("direction", "in")) for argument in member.findall("arg"))
        notes = tuple(sorted((note.get("name"), note.get("value"))
                             for note in member.findall("annotation")
                             if not note.get("name").startswith("org.qtproject.QtDBus.")))
        found.add((member.tag, member.get("name"), member.get("type"), member.get("access"),
                   arguments, notes))
    return found


def test_the_object_is_what_the_interface_file_says(session):
    session.start_extension()
    session.wait_for_name()
    introspectable = DBusAddress("/FinderSync", bus_name=EXTENSION.bus_name,
                                 interface="org.freedesktop.DBus.Introspectable")
    xml = session.call(new_method_call(introspectable, "Introspect"))[0]
    assert members(xml) == members(CONTRACT.read_text(encoding="utf-8"))


@pytest.mark.parametrize("method, logged", [
    ("BeginObservingDirectoryAtURL", "beginObservingDirectoryAtURL: "),
    ("EndObservingDirectoryAtURL", "endObservingDirectoryAtURL: "),
])
@pytest.mark.parametrize("url", ["file:///", "file:///home/u/Sync%20Folder/",
                                 "file://localhost/caf%C3%A9", "file:/a", "FILE:///a"])
def test_observation_is_logged_with_the_url_as_it_came(session, method, logged, url):
    extension = session.start_extension()
    session.wait_for_name()
    assert session.method(method, "s", url) == ()
    assert extension.error().endswith("] " + logged + url + "\n")
    assert extension.error().count(logged) == 1


BAD_URLS = ["", "http://example.com/", "file://elsewhere/a", "file:", "file:a", "file://", "/a",
            "file:///%FF", "file:///%ED%A0%80", "file:///%00", "file:///a%", "file:///a%2",
            "file:///a%GG", "file:///a?b", "file:///a#b", "file:///a b", "file:///caf\u00e9",
            "file:///a\nb", "ftp:///a", "file\n:///a", "filet:///a"]


@pytest.mark.parametrize("url", BAD_URLS)
def test_what_is_no_url_of_a_local_file_never_reaches_the_extension(session, url):
    extension = session.start_extension()
    session.wait_for_name()
    before = extension.error()
    for method in ("BeginObservingDirectoryAtURL", "EndObservingDirectoryAtURL"):
        with pytest.raises(BusError) as error:
            session.method(method, "s", url)
        assert error.value.name == INVALID_ARGUMENTS
        assert "is not the URL of a local file: " in str(error.value)
    with pytest.raises(BusError) as error:
        session.set("myFolderURL", "s", url)
    assert error.value.name == INVALID_ARGUMENTS
    assert session.get("myFolderURL") == "file:///"
    assert extension.error() == before


VALUES = {
    "myFolderURL": ("s", "file:///elsewhere"), "pathsOfRootFolders": ("as", ["/b", "/a", "/b"]),
    "serverPort": ("u", 4294967295), "isSocketConnected": ("b", False),
    "displayUrlLink": ("x", -(2 ** 63)), "displayBackup": ("x", 2 ** 63 - 1),
    "shareContactTitle": ("s", "C\u00f6ntacts"), "shareViaUrlTitle": ("s", "\U0001f517"),
    "backupTitle": ("s", ""),
}


@pytest.mark.parametrize("name", VALUES)
def test_properties_are_written_and_read(session, name):
    session.start_extension({"BackupTitle": "before"})
    session.wait_for_name()
    before = session.get_all()
    signature, value = VALUES[name]
    session.set(name, signature, value)
    assert session.get_all() == before | {name: value}


@pytest.mark.parametrize("name", ["serverAddress", "directoryURLs", "badges"])
def test_read_only_properties_are_not_written(session, name):
    session.start_extension()
    session.wait_for_name()
    with pytest.raises(BusError) as error:
        session.set(name, "s", "x")
    assert error.value.name == "org.freedesktop.DBus.Error.PropertyReadOnly"


def test_the_watched_directories_do_not_follow_the_property(session):
    session.start_extension({"RootFolder": "/a"})
    session.wait_for_name()
    session.set("myFolderURL", "s", "file:///b")
    assert session.get("directoryURLs") == ["file:///a"]


@pytest.mark.parametrize("call", [
    lambda session: session.method("BeginObservingDirectoryAtURL", "u", 5),
    lambda session: session.method("BeginObservingDirectoryAtURL", ""),
    lambda session: session.method("BeginObservingDirectoryAtURL", "ss", "file:///", "x"),
    lambda session: session.method("NoSuchMethod", ""),
    lambda session: session.set("serverPort", "s", "5000"),
    lambda session: session.set("serverPort", "i", -1),
    lambda session: session.set("pathsOfRootFolders", "s", "/a"),
    lambda session: session.set("inputStream", "s", "x"),
    lambda session: session.get("outputStream"),
])
def test_wrong_calls_get_an_error_and_change_nothing(session, call):
    extension = session.start_extension()
    session.wait_for_name()
    before = session.get_all()
    with pytest.raises(BusError):
        call(session)
    assert session.get_all() == before
    assert extension.popen.poll() is None


def test_changes_are_signalled_once_per_turn_and_only_when_something_changed(session):
    peer, _ = session.start_connected()
    listener, rule = session.subscribe()
    with listener.filter(rule) as signals:
        peer.send(line(type="add_folder", path="/a") + line(type="add_folder", path="/b") +
                  line(type="set_menu_usage", displayBackup="1") +
                  line(type="set_menu_usage", displayBackup="0") +
                  line(type="del_folder", path="/unknown"))
        first = listener.recv_until_filtered(signals, timeout=10)
        peer.send(line(type="add_folder", path="/a"))  # nothing changes
        peer.send(line(type="set_locale", shareContactTitle="", shareViaUrlTitle="x",
                       backupTitle=""))
        second = listener.recv_until_filtered(signals, timeout=10)
        peer.connection.close()
        third = listener.recv_until_filtered(signals, timeout=10)
    assert first.body == (INTERFACE, {"pathsOfRootFolders": ("as", ["/a", "/b"]),
                                      "displayBackup": ("x", 0)}, [])
    assert second.body == (INTERFACE, {"shareViaUrlTitle": ("s", "x")}, [])
    assert third.body == (INTERFACE, {"isSocketConnected": ("b", False)}, [])


def test_a_written_property_is_signalled(session):
    session.start_extension()
    session.wait_for_name()
    listener, rule = session.subscribe()
    with listener.filter(rule) as signals:
        session.set("backupTitle", "s", "")  # what it is already
        session.set("backupTitle", "s", "Back up")
        signal = listener.recv_until_filtered(signals, timeout=10)
    assert signal.body == (INTERFACE, {"backupTitle": ("s", "Back up")}, [])


def test_many_root_folders_are_shown(session):
    session.start_extension()
    session.wait_for_name()
    paths = [f"/home/user/Synchronised folders/number {number}" for number in range(5000)]
    session.set("pathsOfRootFolders", "as", paths)
    assert session.get("pathsOfRootFolders") == paths


def test_calls_are_answered_while_the_link_delivers(session):
    peer, _ = session.start_connected()
    for number in range(50):
        peer.send(line(type="add_folder", path=f"/{number}")[:-1].ljust(1023) + b"\n")
        session.method("BeginObservingDirectoryAtURL", "s", f"file:///{number}")
    session.wait_for_value("pathsOfRootFolders", [f"/{number}" for number in range(50)])


def test_a_caller_that_goes_away_at_once_does_no_harm(session):
    extension = session.start_extension()
    session.wait_for_name()
    for _ in range(20):
        connection = session.connect_to_bus()
        connection.send(new_method_call(EXTENSION, "BeginObservingDirectoryAtURL", "s",
                                        ("file:///a",)))
        connection.close()
    wait_for(lambda: extension.error().count("beginObserving") == 20)
    assert session.get("serverAddress") == "127.0.0.1"
