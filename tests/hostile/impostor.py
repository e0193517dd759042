"""A program that owns the extension's name and answers what it likes."""

import collections
import contextlib
import socket
import struct
import threading
import time

from conftest import BUS_NAME, EXTENSION, TIMEOUT
from jeepney import HeaderFields, MessageType, message_bus, new_error, new_method_return, new_signal
from jeepney.low_level import Endianness, parse_signature

ERROR = "org.freedesktop.DBus.Error.Failed"
MENU = "ba(sss)"
BADGES = "as"


def marshalled(signature, *values):
    return parse_signature(list(f"({signature})")).serialise(values, 0, Endianness.little)


def array_of(element, count, alignment):
    """An array of equal elements, made without a thought for each."""
    padded = element + bytes(-len(element) % alignment)
    size = len(padded) * (count - 1) + len(element) if count else 0
    return struct.pack("<I", size) + (padded * count)[:size]


def menu(title="Copy link", selector="createLinkClicked:", image="icon_URLlink", count=1):
    """A menu of equal entries, marshalled."""
    return struct.pack("<I", 1) + array_of(marshalled("sss", title, selector, image), count, 8)


def texts(text, count):
    """An array of equal texts, marshalled."""
    return array_of(marshalled("s", text), count, 4)


def send_raw(connection, message, body):
    """Sends a message with a body that is marshalled already."""
    message.header.body_length = len(body)
    head = message.header.serialise(next(connection.outgoing_serial))
    connection.sock.settimeout(None)
    connection.sock.sendall(head + bytes(-len(head) % 8) + body)


def value(signature, value):
    """The answer to a request for a property."""
    return "v", marshalled("v", (signature, value))


USUAL = {"directoryURLs": value("as", ["file:///"]), "pathsOfRootFolders": ERROR,
         "MenuForMenuKind": (MENU, menu())}


class Impostor:
    """`answers` says for each member and property what is answered instead of the usual: a
    signature and a marshalled body, the name of an error, or None for nothing at all; and `delay`
    how long a menu takes, in seconds. `changes`, a signature and a marshalled body, are signalled
    as changed root folders before each answer about badges."""

    def __init__(self, session, answers, delay=0, changes=None):
        self.connection = session.connect_to_bus()
        self.answers = answers
        self.delay = delay
        self.changes = changes
        self.asked = collections.Counter()
        self.connection.send_and_get_reply(message_bus.RequestName(BUS_NAME))
        self.thread = threading.Thread(target=self.serve, daemon=True)
        self.thread.start()

    def serve(self):
        with contextlib.suppress(OSError):
            while True:
                self.answer(self.connection.receive())

    def end(self):
        self.connection.sock.shutdown(socket.SHUT_RDWR)
        self.thread.join(TIMEOUT)

    def answer(self, call):
        if call.header.message_type != MessageType.method_call:
            return
        member = call.header.fields[HeaderFields.member]
        if member == "Get":
            member = call.body[1]
        self.asked[member] += 1
        if self.changes and member == "RequestBadgeIdentifiersForURLs":
            signature, body = self.changes
            send_raw(self.connection, new_signal(EXTENSION, "RootFoldersChanged", signature), body)
        if member == "RequestBadgeIdentifiersForURLs" and member not in self.answers:
            count = len(call.body[0])
            answer = (BADGES, texts("FolderIco", count))
        else:
            answer = (USUAL | self.answers).get(member)
        if answer is None:
            return
        if self.delay and member == "MenuForMenuKind":
            time.sleep(self.delay)
        if isinstance(answer, str):
            self.connection.send(new_error(call, answer))
        else:
            signature, body = answer
            send_raw(self.connection, new_method_return(call, signature), body)
