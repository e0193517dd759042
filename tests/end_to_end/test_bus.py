"""The object on the session bus."""

import pathlib
import time
import xml.etree.ElementTree as ElementTree

import pytest
from conftest import EXTENSION, TIMEOUT, BusError, line
from jeepney import DBusAddress, MatchRule, Properties, message_bus, new_method_call

INTERFACE = "findersync.Extension1"
CONTRACTS = pathlib.Path(__file__).parents[2] / "hosts/linux"
SIGNAL_INTERVAL = 0.05  # seconds
INVALID_ARGUMENTS = "org.freedesktop.DBus.Error.InvalidArgs"


def members(xml, interface):
    """The interface's members as comparable tuples. Hints for a generator of proxies are not the
    object's to tell."""
    found = set()
    for member in ElementTree.fromstring(xml).find(f"interface[@name='{interface}']"):
        arguments = tuple((argument.get("name"), argument.get("type"),
                           argument.get("direction", "in")) for argument in member.findall("arg"))
        notes = tuple(sorted((note.get("name"), note.get("value"))
                             for note in member.findall("annotation")
                             if not note.get("name").startswith("org.qtproject.QtDBus.")))
        found.add((member.tag, member.get("name"), member.get("type"), member.get("access"),
                   arguments, notes))
    return found


@pytest.mark.parametrize("interface", [INTERFACE, "findersync.Process1"])
def test_the_object_is_what_the_interface_file_says(session, interface):
    session.start_extension()
    session.wait_for_name()
    introspectable = DBusAddress("/FinderSync", bus_name=EXTENSION.bus_name,
                                 interface="org.freedesktop.DBus.Introspectable")
    xml = session.call(new_method_call(introspectable, "Introspect"))[0]
    contract = (CONTRACTS / f"{interface}.xml").read_text(encoding="utf-8")
    assert members(xml, interface) == members(contract, interface)


def test_observation_is_logged_with_the_url_as_it_came(session):
    extension = session.start_extension()
    session.wait_for_name()
    for method in ("BeginObservingDirectoryAtURL", "EndObservingDirectoryAtURL"):
        for url in ("file:///home/u/Sync%20Folder/", "FILE://localhost/caf%C3%A9"):
            lines = extension.error().count("\n")
            assert session.method(method, "s", url) == ()
            assert extension.error().endswith(f"] {method[0].lower()}{method[1:]}: {url}\n")
            assert extension.error().count("\n") == lines + 1


@pytest.mark.parametrize("url", ["", "http://example.com/", "file:///%FF", "file:///caf\u00e9"])
def test_what_is_no_url_of_a_local_file_never_reaches_the_extension(session, url):
    peer, extension = session.start_connected()
    session.announce(peer, "/a")
    before = session.get_all(), extension.output(), extension.error()
    for method, signature, *arguments in [
            ("BeginObservingDirectoryAtURL", "s", url), ("EndObservingDirectoryAtURL", "s", url),
            ("RequestBadgeIdentifierForURL", "s", url),
            ("RequestBadgeIdentifiersForURLs", "as", ["file:///a", url]),
            ("MenuForMenuKind", "uas", 0, [url]), ("MenuForMenuKind", "uas", 0, ["file:///a/x", url]),
            ("PerformAction", "sas", "syncedClicked:", ["file:///a", url])]:
        with pytest.raises(BusError, match="is not the URL of a local file: ") as error:
            session.method(method, signature, *arguments)
        assert error.value.name == INVALID_ARGUMENTS
    with pytest.raises(BusError, match="is not the URL of a local file: ") as error:
        session.set("myFolderURL", "s", url)
    assert error.value.name == INVALID_ARGUMENTS
    assert (session.get_all(), extension.output(), extension.error()) == before


def test_properties_are_written_and_read(session):
    session.start_extension({"BackupTitle": "before"})
    session.wait_for_name()
    for name, signature, value in [
            ("myFolderURL", "s", "file:///elsewhere"), ("isSocketConnected", "b", False),
            ("pathsOfRootFolders", "as", ["/b", "/a", "/b", *map(str, range(5000))]),
            ("serverPort", "u", 2 ** 32 - 1), ("displayUrlLink", "x", -(2 ** 63)),
            ("displayBackup", "x", 2 ** 63 - 1), ("shareContactTitle", "s", "C\u00f6ntacts"),
            ("shareViaUrlTitle", "s", "\U0001f517"), ("backupTitle", "s", "")]:
        before = session.get_all()
        session.set(name, signature, value)
        # The watched directories do not follow the property.
        assert session.get_all() == before | {name: value}


def test_wrong_calls_get_an_error_and_change_nothing(session):
    extension = session.start_extension()
    session.wait_for_name()
    before = session.get_all()
    for name, call, *arguments in [
            ("InvalidArgs", session.method, "BeginObservingDirectoryAtURL", "u", 5),
            ("InvalidArgs", session.method, "BeginObservingDirectoryAtURL", ""),
            ("InvalidArgs", session.method, "BeginObservingDirectoryAtURL", "ss", "file:///", "x"),
            ("InvalidArgs", session.method, "PerformAction", "sas", "createLinkClicked", []),
            ("UnknownMethod", session.method, "NoSuchMethod", ""),
            ("InvalidArgs", session.set, "serverPort", "s", "5000"),
            ("InvalidArgs", session.set, "serverPort", "i", -1),
            ("InvalidArgs", session.set, "pathsOfRootFolders", "s", "/a"),
            ("UnknownProperty", session.set, "inputStream", "s", "x"),
            ("UnknownProperty", session.get, "outputStream"),
            ("PropertyReadOnly", session.set, "serverAddress", "s", "x"),
            ("PropertyReadOnly", session.set, "directoryURLs", "s", "x"),
            ("PropertyReadOnly", session.set, "badges", "s", "x")]:
        with pytest.raises(BusError) as error:
            call(*arguments)
        assert error.value.name == "org.freedesktop.DBus.Error." + name, arguments
    assert session.get_all() == before
    assert extension.popen.poll() is None


def test_changes_are_signalled_together_and_only_when_something_changed(session):
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
    # A list of any length is not sent unless somebody asks for it.
    assert first.body == (INTERFACE, {"displayBackup": ("x", 0)}, ["pathsOfRootFolders"])
    assert second.body == (INTERFACE, {"shareViaUrlTitle": ("s", "x")}, [])
    assert third.body == (INTERFACE, {"isSocketConnected": ("b", False)}, [])


def test_changed_root_folders_are_named(session):
    peer, _ = session.start_connected()
    listener, _ = session.subscribe()
    listener.send_and_get_reply(message_bus.AddMatch(
        MatchRule(type="signal", interface=INTERFACE, member="RootFoldersChanged")))

    def tell(**commands):
        peer.send(b"".join(line(type=command, path=path)
                           for command, paths in commands.items() for path in paths))

    def set_paths(paths):
        session.set("pathsOfRootFolders", "as", paths)

    with listener.filter(MatchRule(type="signal", path="/FinderSync"), bufsize=None) as signals:
        for change, names in [
                (lambda: tell(add_folder=["/a/x", "/e\u0301", "/b/x", "z", "/"]),
                 ["", "e\u0301", "x", "z"]),
                (lambda: tell(del_folder=["/e\u0301"]), ["e\u0301"]),
                (lambda: tell(del_folder=["z"], add_folder=["z"]), ["z"]),
                # Somebody may have been told of it in between.
                (lambda: tell(add_folder=["/new"], del_folder=["/new"]), ["new"]),
                (lambda: set_paths(["/a", "/b", "/c"]), ["", "a", "b", "c", "x", "z"]),
                (lambda: set_paths(["/a", "/c/1", "/c/2", "/c"]), ["1", "2", "b"]),
                (lambda: set_paths([f"/{'d' * 100}{number}" for number in range(1000)]), []),
                (lambda: tell(del_folder=["/" + "d" * 100 + "7"]), ["d" * 100 + "7"])]:
            change()
            bodies = [listener.recv_until_filtered(signals, timeout=TIMEOUT).body for _ in range(2)]
            assert bodies == [(INTERFACE, {}, ["pathsOfRootFolders"]), (names,)]
        session.set("backupTitle", "s", "x")
        assert listener.recv_until_filtered(signals, timeout=TIMEOUT).body[0] == INTERFACE
        listener.send_and_get_reply(Properties(EXTENSION).get("backupTitle"))
        assert not signals


def test_the_first_change_is_signalled_at_once_and_those_that_follow_at_a_pace(session):
    session.start_extension()
    session.wait_for_name()
    listener, rule = session.subscribe()

    def set_title(title):
        listener.send_and_get_reply(Properties(EXTENSION).set("backupTitle", "s", title))

    with listener.filter(rule, bufsize=None) as signals:
        begin = time.monotonic()
        set_title("")  # what it is already
        set_title("first")
        for _ in range(10):  # turns of the run loop, together far shorter than the interval
            listener.send_and_get_reply(Properties(EXTENSION).get("backupTitle"))
        assert [signal.body[1] for signal in signals] == [{"backupTitle": ("s", "first")}]
        while time.monotonic() < begin + 0.5:
            set_title(f"{time.monotonic()}")
        set_title("last")
        while signals[-1].body[1]["backupTitle"] != ("s", "last"):
            listener.recv_messages(timeout=TIMEOUT)
        assert len(signals) <= 2 + (time.monotonic() - begin) / SIGNAL_INTERVAL


def test_calls_are_answered_while_the_link_delivers(session):
    peer, _ = session.start_connected()
    for number in range(50):
        peer.send(line(type="add_folder", path=f"/{number}")[:-1].ljust(1023) + b"\n")
        session.method("BeginObservingDirectoryAtURL", "s", f"file:///{number}")
    session.wait_for_value("pathsOfRootFolders", [f"/{number}" for number in range(50)])
