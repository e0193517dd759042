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
         "\U0001f468\u200d\U0001f469", "\U0001f468", "\U0001f469", "\U0001f1e6\U0001f1e7",
         "\U0001f1e7\U0001f1e6", "\U0001f1e6", "\u0915\u0903", "\u0915", "\u4e2d", "\uf900",
         "\u8c48", "\ufb01", "fi", "\u1e9b\u0323", "\u017f\u0323\u0307", "\u0344", "\u0308\u0301",
         "\U0001d15e", "\U0001d157\U0001d165", "\ufeff", " ", "\u2028", "o\u0338", "\u226e", "<",
         "\u0301"]
PLAIN_NAMES = NAMES[:13]
FOLLOWING = ["/x", "/a", "/a/b.txt", "Old", "/", "\u0301", "\u0323", "\u11a8", "\u200d", "\u0903",
             "\U0001f1e7", "e", "\n", "\n/x", "/caf\u00e9", "/cafe\u0301", "\0", "\u200d\U0001f469", "\u030a"]
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

    # Paths

    def folder(self, names):
        return "".join("/" + self.pick(names) for _ in range(1 + self.below(2)))

    def path(self):
        """A root folder, or a path that resembles one."""
        root = self.pick(self.roots)
        chance = self.chance()
        if chance < 0.35:
            return root
        if chance < 0.5:
            return self.other_form(root)
        if chance < 0.75:
            return root + self.pick(FOLLOWING)
        if chance < 0.85:
            return self.other_form(root) + self.pick(FOLLOWING)
        if chance < 0.9:
            return "/Volumes" + root + self.pick(FOLLOWING)
        if chance < 0.93:
            return root.swapcase()
        if chance < 0.95:
            return root[:-1]
        if chance < 0.97:
            return root[1:]
        return self.pick(("", "/", self.folder(NAMES)))

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
        chance = self.chance()
        if chance < 0.7:
            return json.dumps(value, ensure_ascii=False)
        if chance < 0.85:
            return json.dumps(value)
        if chance < 0.95:
            return json.dumps(value, ensure_ascii=False).replace("/", "\\/")
        return '"' + "".join(f"\\u{unit:04X}" for unit in utf16(value)) + '"'

    def member(self, key, value):
        """A member of a JSON object, in rare cases a wrong one."""
        chance = self.chance()
        if chance < 0.98:
            return f'{self.text(key)}:{self.text(value)}'
        if chance < 0.985:
            return f'"{key}":{self.pick(WRONG_VALUES)}'
        if chance < 0.9875:
            return '"other":1'
        if chance < 0.99:
            return f'"{key.upper()}":{self.text(value)}'
        return f'"{key}":{self.pick(WRONG_VALUES)},"{key}":{self.text(value)}'

    def message(self):
        chance = self.chance()
        if chance < 0.5:
            members = [self.member("type", "add_folder"), self.member("path", self.path())]
        elif chance < 0.68:
            members = [self.member("type", "del_folder"), self.member("path", self.path())]
        elif chance < 0.78:
            members = [self.member("type", "set_locale")]
            members += [self.member(key, self.pick(TEXTS)) for key in TITLES]
        elif chance < 0.92:
            members = [self.member("type", "set_menu_usage"),
                       self.member("displayBackup", self.pick(USAGES))]
        else:
            members = [self.member("type", self.pick(TYPES))]
        if self.chance() < 0.2:
            members.append(self.pick(EXTRA))
        if self.chance() < 0.2:
            self.random.shuffle(members)
        line = "{" + ",".join(members) + "}"
        if self.chance() < 0.1:
            line = self.pick((" ", "\r", "\t", "")) + line + self.pick((" ", "\r", "\t", "  "))
        return line

    def line(self):
        chance = self.chance()
        if chance < 0.97:
            return self.message()
        if chance < 0.98:
            return ""
        if chance < 0.989:
            return self.pick(BROKEN)
        if chance < 0.998:
            return self.damaged(self.message())
        return self.nested(300 + self.below(200))

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
        chance = self.chance()
        if chance < 0.04:
            self.events.append(("send", self.padded()))
        elif chance < 0.07:
            self.send_in_pieces()
        elif chance < 0.1:
            self.events.append(("read", *self.outcome()))
            self.events.append(("send", self.inbound()))
        elif chance < 0.11:
            self.events.append(("send", b""))
        else:
            self.events.append(("send", self.inbound()))
        self.events.append(("turn",) if self.chance() < 0.05 else ("turns",))

    def send_in_pieces(self):
        """Cut anywhere, or where it does no harm: at the end of a line, before its line feed."""
        data = self.inbound() + self.inbound()
        at = self.below(len(data))
        if self.chance() < 0.8:
            at = data.find(b"\n", at) % len(data) + self.below(2)
        self.events += [("send", data[:at]), ("send", data[at:])]

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
        chance = self.chance()
        if chance < 0.35:
            code = self.pick((0, 1, 2, 2, 2, 3, 4, 5, 7, 8, 9, 15, 16, 17, 24, 31, 32,
                              1 << 32, (1 << 32) + 2, (1 << 64) - 1))
            self.events.append(("event", self.pick(("input", "output", "foreign")), code))
        elif chance < 0.5:
            self.events.append((self.pick(("close", "reset")),))
            self.events.append(("turns",))
        elif chance < 0.6:
            which = self.pick(("begin", "end"))
            self.events.append(("observe", which, self.url()))
        elif chance < 0.75:
            self.set_property()
        elif chance < 0.8:
            self.events += [("connect",), ("turns",)]
        elif chance < 0.85:
            # A read is too short for a text that exceeds the nesting limit.
            is_deep = self.chance() < 0.1
            self.events.append(("parse", self.nested(506 + self.below(10)) if is_deep
                                else self.line()))
        elif chance < 0.9:
            self.events.append(("stringify", self.pick(VALUES), self.chance() < 0.5))
        elif chance < 0.93:
            self.events.append(("report", self.pick(TEXTS), self.selection()))
        elif chance < 0.96:
            self.events += [("answer", self.chance() < 0.7) for _ in range(1 + self.below(3))]
        else:
            self.events.append(self.pick((
                ("script", "encodes", False), ("script", "is_valid_json", False),
                ("script", "writes_json", False), ("script", "written_json", b"[\xff]"),
                ("script", "written_json", b""))))

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
        self.events.append(("set", name, value))

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
            chance = self.chance()
            if chance < 0.42:
                self.send()
            elif chance < 0.6:
                self.menu()
            elif chance < 0.78:
                self.badge()
            elif chance < 0.85:
                self.click()
            else:
                self.rare()
        return self.events


def utf16(text):
    data = text.encode("utf-16-be")
    return [data[at] << 8 | data[at + 1] for at in range(0, len(data), 2)]


def make_session(random):
    return Maker(random).session()


def encoded(session):
    """A session as a line of JSON for the driver; bytes become {"bytes": text}."""
    line = json.dumps(session, default=lambda data: {"bytes": data.decode("latin-1")})
    return line.encode() + b"\n"
