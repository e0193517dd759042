"""Generates random sessions and encodes them for the driver.

A session is a list of events: tuples of a name and its arguments, as `EVENTS` in model.py takes
them. Characters are limited to those that Unicode 14 knows.
"""

import json
import unicodedata

from oracle.model import CLICK_TYPES, TITLES

NAMES = ["a", "b", "A", "Sync", "sync", "SyncOld", "Team", "x.txt", "u", "Home", "~", "..", "it's",
         'q"', "back\\slash", "caf\u00e9", "cafe\u0301", "\u00e9", "e\u0301", "e", "a\u0323\u0301",
         "a\u0301\u0323", "\u1ea1\u0301", "\u00e1\u0323", "\uac01", "\u1100\u1161\u11a8", "\uac00",
         "\u1100\u1161", "\uac00\u11a8", "\u1100", "\u212b", "\u00c5", "A\u030a", "\u212a", "K",
         "\u2126", "\u03a9", "\u037e", ";", "nul\0nul", "nul", "tab\t", "cr\r", "\u00e9\r", "\x7f", "\u0085",
         "\U0001f468", "\u0915\u0903", "\u0915", "\u4e2d", "\uf900",
         "\u8c48", "\ufb01", "fi", "\u1e9b\u0323", "\u017f\u0323\u0307", "\u0344", "\u0308\u0301",
         "\U0001d15e", "\U0001d157\U0001d165", "\ufeff", " ", "\u2028", "o\u0338", "\u226e", "<",
         "\u0301"]
PLAIN_NAMES = NAMES[:13]
FOLLOWING = ["/x", "/a", "/a/b.txt", "Old", "/", "\u0301", "\u0323", "\u11a8", "\u0903", "e",
              "\n", "\n/x", "/caf\u00e9", "/cafe\u0301", "\0", "\u030a"]
TYPES = ["hello", "", "Add_folder", "add_folder ", "del_folder\0", "add_folder\u0301", "typ\u00e9",
         "set_locale2", "1"]
WRONG_VALUES = ["1", "0", "null", "true", "[]", "{}", "1.5", '["1"]', '{"a":"1"}', "-0", "1e5"]
EXTRA = ['"x":1', '"path2":"/a"', '"Type":"add_folder"', '"n":null', '"deep":{"a":[1,{"b":[]}]}',
         '"type2":[]', '"big":123456789012345678901234567890', '"e":1e308', '"s":"\\ud83d\\ude00"',
         '"t":"\\u0000"', '"f":-0.0e-5', '"\\u0074ypo":""', '"u":"\u00e9\U0001f600"']
BROKEN = ["hello", "1", '"text"', "null", "true", "[]", "[1,2]", '[{"type":"add_folder"}]', "{}",
          "{", "}", " ", "\t", "\r", "{\"type\":\"x\"}}", '{"type":"x"} x', '{"type":"x",}',
          '{"type":\'x\'}', '{type:"x"}', '{"type":"x"/**/}', '{"type":"x"}//', '{"type":NaN}',
          '{"type":"x","a":NaN}', '{"type":"x","a":Infinity}', '{"type":"x","a":-Infinity}',
          '\ufeff{"type":"x"}', '{"type":"\\ud800"}', '{"type":"x","a":"\\udc00"}',
          '{"type":"x","\\ud800":1}', '{"type":"\\ud800","type":"x"}', '{"type":"a\tb"}',
          '{"type":"a\0b"}', '{"type":"x","a":1e999}', '{"type":"x","a":-1e400}',
          '{"type":"x","a":01}', '{"type":"x","a":+1}', '{"type":"x","a":.5}', '{"type":"x","a":1.}',
          '{"type":"x","a":-}', '{"type":"x","a":1e}', '{"type":"x","a":0x10}', '{"type":"\\x"}',
          '{"type":"\\u12"}', '{"type":"x","a":tru}', '{"type":"x" "a":1}', '{"type" "x"}',
          '{"type":"x"}\0', '{"type":"x"}\x0b', '{"type":"x"}\u00a0', '{"type":["x"]}',
          '{"type":1}', '{"type":null}', '{"type":true}', '{"type":{"type":"x"}}',
          '{"typ\u00e9":"x"}', '{"TYPE":"add_folder"}', '{"a":"type"}',
          '{"type":"x","a":"\\ud83d\\ud83d\\ude00"}', '{"type":"x","a":"\\uD83D\\u0041"}']
NOT_UTF8 = [b"\xff", b"\xc3", b"\xc0\xaf", b"\xed\xa0\x80", b"\xf4\x90\x80\x80", b"\x80",
            b"\xe2\x82", b"\xf8\x88\x80\x80\x80", b"\xe0\x80\xaf"]
INTEGERS = [("integer", 0), ("integer", 1), ("integer", 2), ("integer", -1), ("integer", 5000),
            ("integer", 61842), ("integer", 70000), ("integer", 0xffffffff),
            ("integer", 0x100000000), ("integer", (1 << 63) - 1), ("integer", -(1 << 63)),
            ("number", 5000.75), ("number", -0.5), ("number", 1e300), ("number", -1e300),
            ("number", 1.0), ("bool", True), ("bool", False), ("string", "5000"), ("string", "-1"),
            ("string", "1"), ("string", "letters"), ("string", ""), ("string", "12x"),
            ("string", " 1"), ("string", "1 "), ("string", "+1"), ("string", "0x10"),
            ("string", "-"), ("string", "--1"), ("string", "007"), ("string", "1.5"),
            ("string", "\u0661"), ("string", "4294967295"), ("string", "4294967296"),
            ("string", "9223372036854775808"), ("string", "-9223372036854775809"),
            ("string", "\0"), ("string", "1\0"), ("string", "-0"),
            ("null", None), ("array", []), ("dictionary", {}), ("data", b"1")]
OTHER_KINDS = [("integer", 5), ("bool", True), ("null", None), ("array", []), ("dictionary", {}),
               ("data", b"/"), ("number", 0.5)]
TEXTS = ["", "Share", "Copy link", "Teilen \u00fcber\u2026", "cafe\u0301", "1", "\0", '"', "\n",
         "\uac01", "Back\\up", "/a"]
PROPERTIES = ["pathsOfRootFolders", "isSocketConnected", "displayBackup", "displayUrlLink",
              "serverPort", "myFolderURL", *TITLES]
USAGES = ["1", "1", "1", "0", "", "true", "01", " 1", "1 ", "2", "1\u0301", "\uff11", "1\0"]
VALUES = [{}, [], {"a": "b"}, ["a", 1, None, True], {"k": {"n": [1, 2, {"m": "/x"}]}}, "text", 1,
          None, True, [[]], {"\u00e9": "\0\x1f\x7f\u2028\"\\/"}, [-1, 0, 1 << 62], [b"data"],
          {"x": [b""]}, ["\U0001f600"]]
EVENT_CODES = [0, 1, 2, 2, 2, 3, 4, 5, 7, 8, 9, 15, 16, 17, 24, 31, 32, 1 << 32, (1 << 32) + 2,
               (1 << 64) - 1]
FAILURES = [("encodes", False), ("is_valid_json", False), ("writes_json", False),
            ("written_json", b"[\xff]"), ("written_json", b"")]


class Maker:
    """Generates one session from a random generator."""

    def __init__(self, random):
        self.random = random
        self.chance = random.random
        names = PLAIN_NAMES if self.chance() < 0.35 else NAMES
        self.roots = [self.folder(names) for _ in range(1 + self.below(3))]
        self.events = []

    def below(self, limit):
        return int(self.chance() * limit)

    def pick(self, choices):
        return choices[int(self.chance() * len(choices))]

    def call_one(self, *alternatives):
        """Calls the first whose number exceeds a random one between 0 and 1."""
        chance = self.chance()
        return next(call for limit, call in alternatives if chance < limit)()

    # Paths

    def folder(self, names):
        return "".join("/" + self.pick(names) for _ in range(1 + self.below(2)))

    def path(self):
        """A root folder, or a path that resembles one."""
        root = self.pick(self.roots)
        return self.call_one(
            (0.35, lambda: root),
            (0.5, lambda: self.other_form(root)),
            (0.75, lambda: root + self.pick(FOLLOWING)),
            (0.85, lambda: self.other_form(root) + self.pick(FOLLOWING)),
            (0.9, lambda: "/Volumes" + root + self.pick(FOLLOWING)),
            (0.97, lambda: self.pick((root.swapcase(), root[:-1], root[1:]))),
            (1, lambda: self.pick(("", "/", self.folder(NAMES)))))

    def other_form(self, text):
        return unicodedata.normalize(self.pick(("NFC", "NFD")), text)

    def url(self, may_lack=True):
        """(description, path or none, whether it has a file-path form)"""
        if may_lack and self.chance() < 0.04:
            if self.chance() < 0.5:
                return "file:///.file/id=1", None, True
            return "https://example.com/a", "/a", False
        path = self.path()
        return "u:" + path, path, True

    def selection(self):
        chance = self.chance()
        if chance < 0.02:
            return None
        if chance < 0.85:
            return [self.url()]
        return [self.url() for _ in range(self.below(4))]

    # Messages

    def text(self, value):
        """A text as a JSON string, escaped in one of several ways."""
        return self.call_one(
            (0.7, lambda: json.dumps(value, ensure_ascii=False)),
            (0.85, lambda: json.dumps(value)),
            (0.95, lambda: json.dumps(value, ensure_ascii=False).replace("/", "\\/")),
            (1, lambda: '"' + "".join(f"\\u{unit:04X}" for unit in utf16(value)) + '"'))

    def member(self, key, value):
        """A member of a JSON object, in rare cases a wrong one."""
        return self.call_one(
            (0.98, lambda: f'{self.text(key)}:{self.text(value)}'),
            (0.985, lambda: f'"{key}":{self.pick(WRONG_VALUES)}'),
            (0.9875, lambda: '"other":1'),
            (0.99, lambda: f'"{key.upper()}":{self.text(value)}'),
            (1, lambda: f'"{key}":{self.pick(WRONG_VALUES)},"{key}":{self.text(value)}'))

    def message(self):
        values = self.call_one(
            (0.5, lambda: {"type": "add_folder", "path": self.path()}),
            (0.68, lambda: {"type": "del_folder", "path": self.path()}),
            (0.78, lambda: {"type": "set_locale"} | {key: self.pick(TEXTS) for key in TITLES}),
            (0.92, lambda: {"type": "set_menu_usage", "displayBackup": self.pick(USAGES)}),
            (1, lambda: {"type": self.pick(TYPES)}))
        members = [self.member(key, value) for key, value in values.items()]
        if self.chance() < 0.2:
            members.append(self.pick(EXTRA))
        if self.chance() < 0.2:
            self.random.shuffle(members)
        line = "{" + ",".join(members) + "}"
        if self.chance() < 0.1:
            line = self.pick((" ", "\r", "\t", "")) + line + self.pick((" ", "\r", "\t", "  "))
        return line

    def line(self):
        return self.call_one(
            (0.97, self.message),
            (0.98, lambda: ""),
            (0.989, lambda: self.pick(BROKEN)),
            (0.998, lambda: self.damaged(self.message())),
            (1, lambda: self.nested(300 + self.below(200))))

    def nested(self, depth):
        return '{"type":"deep","k":' + "[" * depth + "]" * depth + "}"

    def damaged(self, line):
        at = self.below(len(line))
        other = self.pick(('"', "\\", "{", "}", ",", ":", "\x01", "", "a", "[", "]", "\u0301"))
        return line[:at] + other + line[at + self.below(2):]

    def inbound(self):
        """A few lines, as the companion would send them."""
        lines = [self.line() for _ in range(1 + self.below(4))]
        text = "\n".join(lines) + ("\n" if self.chance() < 0.9 else "")
        data = text.encode()
        if self.chance() < 0.01:
            at = self.below(len(data) + 1)
            data = data[:at] + self.pick(NOT_UTF8) + data[at:]
        return data

    def padded(self):
        """Lines that come to the border of a read, which then lies anywhere in the next ones."""
        border = 1024 * (1 + self.below(2))
        data = b""
        while border - len(data) > 300:
            pad = min(900, border - len(data) - 60 - self.below(60))
            data += b'{"type":"pad","pad":"' + b"p" * pad + b'"}\n'
        return data + self.inbound() + self.inbound()

    def send(self):
        self.events += self.call_one(
            (0.04, lambda: [("send", self.padded())]),
            (0.07, self.pieces),
            (0.1, lambda: [("read", *self.outcome()), ("send", self.inbound())]),
            (0.11, lambda: [("send", b"")]),
            (1, lambda: [("send", self.inbound())]))
        self.events.append(("turn",) if self.chance() < 0.05 else ("turns",))

    def pieces(self):
        """Cut anywhere, or where it does no harm: at the end of a line, before its line feed."""
        data = self.inbound() + self.inbound()
        at = self.below(len(data))
        if self.chance() < 0.8:
            at = data.find(b"\n", at) % len(data) + self.below(2)
        return [("send", data[:at]), ("send", data[at:])]

    def outcome(self):
        chance = self.chance()
        if chance < 0.3:
            return 0, b""
        if chance < 0.6:
            return -1, self.pick((b"", b'{"type":"x"}\n'))
        data = self.inbound()[:1024]
        return (len(data), data) if chance < 0.9 else (self.below(len(data)), data)

    # Events

    def prepare(self):
        """The settings and the platform before the object starts."""
        chance = self.chance
        if chance() < 0.97:
            self.events.append(("port", 61842))
        if chance() < 0.25:
            self.store_settings()
        if chance() < 0.02:
            self.events.append(self.pick((
                ("script", "has_base", False), ("script", "has_suite", False),
                ("script", "has_read_stream", False), ("script", "has_write_stream", False),
                ("no image", "icon_Folder"))))
        if chance() < 0.03:
            self.events.append(("no image", self.pick(("icon_share", "icon_URLlink",
                                                       "icon_Backup"))))
        if chance() > 0.02:
            self.events.append(("start",))
            if chance() > 0.05:
                self.events.append(("turns",))

    def store_settings(self):
        for key in ("RootFolder", *(title[0].upper() + title[1:] for title in TITLES)):
            if self.chance() < 0.4:
                texts = (self.path(), "/", "", "relative", "/a/") if key == "RootFolder" else TEXTS
                value = ("string", self.pick(texts))
                if self.chance() < 0.04:
                    value = self.pick(OTHER_KINDS)
                self.events.append(("setting", key, *value))
        for key in ("DisplayUrlLink", "DisplayBackup"):
            if self.chance() < 0.4:
                self.events.append(("setting", key, *self.pick(INTEGERS)))
        if self.chance() < 0.2:
            self.events.append(("setting", "ServerPort", *self.pick(INTEGERS)))
        if self.chance() < 0.1:
            self.events.append(("port", self.pick((0, 1, 5000, 70000, 0xffffffff, 61842))))

    def menu(self):
        kind = 0 if self.chance() < 0.9 else self.pick((1, 2, 3, 4, 1 << 32, (1 << 64) - 1))
        self.events.append(("menu", kind, self.selection()))

    def badge(self):
        self.events.append(("badge", self.url()))

    def click(self):
        if self.chance() < 0.1:
            self.events.append(("write", self.pick((-1, 0, 1, 10, 20))))
        self.events.append(("click", self.pick(tuple(CLICK_TYPES)), self.selection()))

    def rare(self):
        self.events += self.call_one(
            (0.35, lambda: [("event", self.pick(("input", "output", "foreign")),
                             self.pick(EVENT_CODES))]),
            (0.5, lambda: [(self.pick(("close", "reset")),), ("turns",)]),
            (0.6, lambda: [("observe", self.pick(("begin", "end")), self.url())]),
            (0.75, self.set_property),
            (0.8, lambda: [("connect",), ("turns",)]),
            # A read is too short for a text that exceeds the nesting limit.
            (0.805, lambda: [("parse", self.nested(506 + self.below(10)))]),
            (0.85, lambda: [("parse", self.line())]),
            (0.9, lambda: [("stringify", self.pick(VALUES), self.chance() < 0.5)]),
            (0.93, lambda: [("report", self.pick(TEXTS), self.selection())]),
            (0.96, lambda: [("answer", self.chance() < 0.7) for _ in range(1 + self.below(3))]),
            (1, lambda: [("script", *self.pick(FAILURES))]))

    def set_property(self):
        name = self.pick(PROPERTIES)
        if name == "pathsOfRootFolders":
            value = [self.path() for _ in range(self.below(6))]
            if self.chance() < 0.05:
                value = [f"/long/{index}" for index in range(300)] + value
        elif name == "isSocketConnected":
            value = self.chance() < 0.7
        elif name == "serverPort":
            value = self.pick((61842, 0, 70000, 0xffffffff))
        elif name in ("displayBackup", "displayUrlLink"):
            value = self.pick((1, 0, 2, -1, -(1 << 63), (1 << 63) - 1, 0x100000001))
        else:
            value = self.path() if name == "myFolderURL" else self.pick(TEXTS)
        return [("set", name, value)]

    def announce(self):
        """Sends the root folders, as a companion does once it is connected."""
        lines = [json.dumps({"type": "add_folder", "path": root}) for root in self.roots]
        if self.chance() < 0.5:
            lines.append('{"type":"set_menu_usage","displayBackup":"1"}')
        self.events += [("send", "\n".join(lines).encode()), ("turns",)]

    def session(self):
        self.prepare()
        if self.chance() < 0.5:
            self.announce()
        for _ in range(2 + self.below(6)):
            self.call_one((0.42, self.send), (0.6, self.menu), (0.78, self.badge),
                          (0.85, self.click), (1, self.rare))
        return self.events


def utf16(text):
    data = text.encode("utf-16-be")
    return [data[at] << 8 | data[at + 1] for at in range(0, len(data), 2)]


def make_session(random):
    return Maker(random).session()


def encoded(session):
    """A session as a line of JSON for the driver; bytes become {"bytes": digits}."""
    return json.dumps(session, default=lambda data: {"bytes": data.hex()}).encode() + b"\n"
