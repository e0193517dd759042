"""Hostile clients of the session bus. The extension goes on, and the file managers do not wait."""

import contextlib
import os
import signal
import socket
import struct

import pytest
from conftest import BUS_NAME, EXTENSION, TIMEOUT, BusError, wait_for
from jeepney import (DBusAddress, HeaderFields, MessageFlag, MessageType, Properties, message_bus,
                     new_method_call, new_signal)
from jeepney.io.blocking import open_dbus_connection
from jeepney.low_level import Message
from jeepney.wrappers import new_header

from hostile.conftest import meanwhile
from hostile.impostor import send_raw, texts

LIMIT = 4 << 20  # of a text or a list that is given to the extension
INTERFACE = "findersync.Extension1"
LIMITS_EXCEEDED = "org.freedesktop.DBus.Error.LimitsExceeded"


def without_reply(message):
    message.header.flags |= MessageFlag.no_reply_expected
    return message


def answer_to(connection):
    """The next answer, which is not a signal."""
    while True:
        message = connection.receive(timeout=TIMEOUT)
        if message.header.message_type != MessageType.signal:
            return message.header.fields.get(HeaderFields.error_name, "no error")


def flood(session, *messages):
    """Gives what sends these messages at full speed, and reads nothing."""
    connection = session.connect_to_bus()
    connection.sock.settimeout(1)
    burst, places = bytearray(), []
    for message in messages * 50:
        places.append(len(burst) + 8)
        burst += message.serialise(serial=1)

    def send():
        for place in places:  # the bus allows no two calls with the same serial
            struct.pack_into("<I", burst, place, next(connection.outgoing_serial))
        connection.sock.sendall(burst)

    return send


def test_nothing(scene):
    """What a menu takes without an attack."""
    scene.begin()
    scene.keep_asking()
    scene.is_as_before()


def test_a_stopped_extension(scene):
    """What the longest wait takes without an attack."""
    scene.begin()
    scene.extension.popen.send_signal(signal.SIGSTOP)
    scene.menus()
    scene.extension.popen.send_signal(signal.SIGCONT)
    scene.is_as_before()


def test_a_stopped_bus(scene):
    scene.begin()
    scene.session.daemon.send_signal(signal.SIGSTOP)
    try:
        scene.menus()
    finally:  # or it could not be ended
        scene.session.daemon.send_signal(signal.SIGCONT)
    scene.is_as_before()


def unwanted(message_type, **fields):
    header = new_header(message_type)
    header.fields[HeaderFields.destination] = BUS_NAME
    header.fields[HeaderFields.reply_serial] = 7
    header.fields |= {HeaderFields[name]: value for name, value in fields.items()}
    return Message(header, ())


def signal_of_others(path, interface, name, signature, *arguments):
    return new_signal(DBusAddress(path, interface=interface), name, signature, arguments)


TOLD = new_signal(EXTENSION, "PropertiesChanged")
TOLD.header.fields[HeaderFields.destination] = BUS_NAME


@pytest.mark.parametrize("messages", [
    pytest.param([Properties(EXTENSION).get_all()], id="calls_whose_answers_nobody_reads"),
    pytest.param([unwanted(MessageType.method_return),
                  unwanted(MessageType.error, error_name="no.such.Error"), TOLD],
                 id="answers_and_signals_that_nobody_wants"),
    pytest.param([signal_of_others("/FinderSync", "org.freedesktop.DBus.Properties",
                                   "PropertiesChanged", "sa{sv}as", INTERFACE,
                                   {"pathsOfRootFolders": ("as", []), "directoryURLs": ("as", [])},
                                   []),
                  signal_of_others("/org/freedesktop/DBus", "org.freedesktop.DBus",
                                   "NameOwnerChanged", "sss", BUS_NAME, ":1.1", "")],
                 id="signals_in_the_names_of_others"),
    pytest.param([without_reply(Properties(EXTENSION).set("pathsOfRootFolders", "as", paths))
                  for paths in (["/sync", "/other"], ["/sync"])], id="changes"),
])
def test_a_flood_of(scene, messages):
    scene.begin()
    with meanwhile(flood(scene.session, *messages)):
        scene.keep_asking(0.5)
        assert scene.are_badged()
    scene.session.connections.pop().close()
    scene.is_as_before()


def test_floods_of_calls_whose_answers_are_read(scene):
    scene.begin()

    def client():
        connection = scene.session.connect_to_bus()
        call = new_method_call(EXTENSION, "RequestBadgeIdentifiersForURLs", "as",
                               (["file:///sync"] * 100,))
        return lambda: connection.send_and_get_reply(call, timeout=TIMEOUT) and None

    scene.withstands(client(), client(), client(), seconds=0.5)


def test_answers_that_nobody_reads_until_the_bus_takes_no_more(scene):
    scene.start_bus(max_incoming_bytes=8 << 20)  # of the extension; a session has a gigabyte
    scene.begin()
    scene.session.set("backupTitle", "s", "x" * (LIMIT - 100))
    with meanwhile(flood(scene.session, Properties(EXTENSION).get("backupTitle"))):
        wait_for(lambda: scene.menus() and scene.extension.popen.poll())
    assert scene.extension.error().endswith(
        "fatal error: the session bus takes no more answers, since somebody does not read theirs\n")
    scene.has_ended()  # while the other one still does not read


@pytest.fixture
def reader(scene):
    """Who reads no answers, so that the bus does not take any more."""
    scene.start_bus(max_incoming_bytes=1 << 20)
    scene.begin()
    scene.session.set("backupTitle", "s", "x" * 500000)
    connection = scene.session.connect_to_bus()
    for _ in range(100):
        connection.send(Properties(EXTENSION).get("backupTitle"))
    wait_for(lambda: scene.menus() and not is_answered(scene.session))
    return connection


def is_answered(session):
    """Whether a caller hears anything, after all who have called before."""
    with open_dbus_connection(session.address) as caller:
        with contextlib.suppress(TimeoutError):
            return caller.send_and_get_reply(Properties(EXTENSION).get("serverPort"), timeout=1)
    return None


def test_a_bus_that_takes_nothing_does_not_keep_it_from_ending(scene, reader):
    scene.keep_asking()
    assert scene.extension.end() == 0


def test_changes_while_the_bus_takes_nothing_go_into_one_signal(scene, reader):
    connection = scene.peer.connection
    for number in range(200):
        connection.send(b'{"type":"add_folder","path":"/%d"}\n' % number)
        scene.extension.wait_output(f'"/{number}"')
    watch, rule = scene.session.subscribe()
    with watch.filter(rule) as received:
        reader.close()
        watch.recv_until_filtered(received, timeout=TIMEOUT)
        more = 0
        with contextlib.suppress(TimeoutError):
            while watch.recv_until_filtered(received, timeout=0.5):
                more += 1
    assert more <= 1  # one may have been on its way to the bus before the last change
    assert len(scene.session.get("pathsOfRootFolders")) == 201
    scene.is_as_before()


def test_a_hundred_thousand_items(scene):
    scene.begin()
    urls = texts("file:///sync/" + "a" * 15, 100000)
    connection = scene.session.connect_to_bus()
    answers = []

    def send():
        for member, signature, before in [("RequestBadgeIdentifiersForURLs", "as", b""),
                                          ("MenuForMenuKind", "uas", struct.pack("<I", 0))]:
            send_raw(connection, new_method_call(EXTENSION, member, signature), before + urls)
            answers.append(answer_to(connection))
        return False

    with meanwhile(send):  # five file managers at once would keep each other waiting
        wait_for(lambda: scene.keep_asking(0.1, by_turns=True) or len(answers) == 2)
    assert answers == ["no error"] * 2
    scene.is_as_before(growth=32 << 10)  # the allocator keeps what so many small things have taken


def test_arguments_up_to_what_a_bus_carries(scene, processor_of_their_own):
    scene.begin()
    connection = scene.session.connect_to_bus()
    answers = []

    def send():
        size = (1 << 27) - 4096  # a message is at most 128 MiB
        body = struct.pack("<I", size) + b"x" * size + b"\0"
        send_raw(connection, new_method_call(EXTENSION, "BeginObservingDirectoryAtURL", "s"), body)
        send_raw(connection, new_method_call(EXTENSION, "RequestBadgeIdentifiersForURLs", "as"),
                 texts("file:/", (1 << 26) // 12 - 1))  # an array, at most 64 MiB
        answers.extend(answer_to(connection) for _ in range(2))
        return False

    with meanwhile(send):  # five file managers at once would keep each other waiting
        wait_for(lambda: scene.keep_asking(0.1, by_turns=True) or len(answers) == 2)
    assert answers == [LIMITS_EXCEEDED] * 2
    scene.is_as_before()


def test_properties_that_together_are_more_than_a_message_holds(scene):
    scene.begin()
    names = ("shareContactTitle", "backupTitle", "myFolderURL")
    with pytest.raises(BusError) as error:
        scene.session.set("backupTitle", "s", "x" * (LIMIT + 1))
    assert error.value.name == LIMITS_EXCEEDED
    with pytest.raises(BusError) as error:
        scene.session.set("pathsOfRootFolders", "as", ["x" * 1000] * 5000)
    assert error.value.name == LIMITS_EXCEEDED
    for name in names:
        scene.session.set(name, "s", "file:///" + "x" * (LIMIT - 8))
    assert set(names) < set(scene.session.get_all())
    scene.keep_asking()
    for name in names:
        scene.session.set(name, "s", "file:///")
    scene.is_as_before(growth=3 * LIMIT >> 10)  # a short text may keep the room of the long one


SIGNATURES = {"": (), "s": ("x",), "u": (1,), "as": (["x"],), "uas": (0, ["x"]),
              "sas": ("x", []), "ssv": (INTERFACE, "serverPort", ("s", "x")), "g": ("a{sv}",),
              "as(uas)": (["x"], (0, ["x"]))}
MEMBERS = ["BeginObservingDirectoryAtURL", "EndObservingDirectoryAtURL", "MenuForMenuKind",
           "RequestBadgeIdentifierForURL", "RequestBadgeIdentifiersForURLs", "PerformAction",
           "Get", "GetAll", "Set", "Introspect", "Ping", "NoSuchMember", "x"]
INTERFACES = [INTERFACE, "org.freedesktop.DBus.Properties", "org.freedesktop.DBus.Introspectable",
              "org.freedesktop.DBus.Peer", "no.such.Interface", None]


def test_calls_of_every_wrong_kind(scene):
    scene.begin()
    before = scene.session.get_all()
    connection = scene.session.connect_to_bus()
    calls = [(path, interface, member, signature)
             for path in ("/FinderSync", "/x") for interface in INTERFACES
             for member in MEMBERS for signature in SIGNATURES]

    def send():
        for path, interface, member, signature in calls:
            call = new_method_call(DBusAddress(path, BUS_NAME, interface), member, signature,
                                   SIGNATURES[signature])
            connection.send_and_get_reply(call, timeout=TIMEOUT)
        return False

    with meanwhile(send):
        scene.keep_asking(0.1)
    # A call that is right, or that the bus library answers by itself, changes nothing either.
    assert scene.session.get_all() == before
    scene.is_as_before()


def test_callers_that_vanish(scene):
    scene.begin()
    call = new_method_call(EXTENSION, "RequestBadgeIdentifiersForURLs", "as",
                           (["file:///sync"] * 1000,))

    def vanish():
        connection = open_dbus_connection(scene.session.address)
        connection.send(call)
        connection.close()

    scene.withstands(vanish, seconds=0.5)


def test_callers_that_stall_in_the_middle_of_a_message(scene):
    scene.begin()
    message = Properties(EXTENSION).get_all().serialise(serial=1000)
    for length in (1, 16, len(message) - 1):
        scene.session.connect_to_bus().sock.sendall(message[:length])
    path = scene.session.address.split("path=")[1].split(",")[0]
    with socket.socket(socket.AF_UNIX) as silent, socket.socket(socket.AF_UNIX) as stalled:
        for each in (silent, stalled):
            each.connect(path)
        stalled.sendall(b"\0AUTH EXTER")
        scene.keep_asking()
        scene.is_as_before()


def test_calls_that_carry_descriptors(scene):
    scene.begin()
    with open_dbus_connection(scene.session.address, enable_fds=True) as connection, \
            open(os.devnull, "rb") as nothing:
        calls = [new_method_call(EXTENSION, member, "ah", ([nothing] * 16,))
                 for member in MEMBERS[:6]]
        with meanwhile(lambda: [connection.send_and_get_reply(call) for call in calls] and None):
            scene.keep_asking()
    scene.is_as_before()


def test_a_name_that_somebody_wants_to_take_over(scene):
    scene.begin()
    allow, replace = 1, 2
    taker = scene.session.connect_to_bus()
    reply = taker.send_and_get_reply(message_bus.RequestName(BUS_NAME, allow | replace))
    assert reply.body == (2,)  # it waits for the name
    scene.keep_asking(0.1)
    scene.is_as_before()
    taker.close()
