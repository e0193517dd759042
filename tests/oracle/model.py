"""An independent model of the extension's object, written from its documented behaviour and not
from its code. Where the two differ, either may be wrong.

A model runs one session (see sessions.py) and gives the records that the driver must give for it.
"""

import collections
import json
import pathlib
import re

from oracle.text import contains, decomposed, equal, parse_json

READ_LENGTH = 1024
INT64 = (-(1 << 63), (1 << 63) - 1)

CLICK_TYPES = {
    "createLinkClicked:": "clicked_create_url_link",
    "backupClicked:": "clicked_backup",
    "shareContactsClicked:": "clicked_share_contacts",
    "inProgressClicked:": "clicked_in_progress",
    "notSyncedClicked:": "clicked_not_synced",
    "syncedClicked:": "clicked_synced",
}

TITLES = ("shareContactTitle", "shareViaUrlTitle", "backupTitle")
NUMBERS = ("DisplayUrlLink", "DisplayBackup")

EVENT_LINES = {1: "Opened connection", 2: "receiving", 4: "Sending", 8: "Stream open error",
               16: "ignore"}

# The cases that this file tells apart, each by a subject and what can happen to it, and how often
# each has come about.
BRANCHES = {*re.findall(r'"([a-z_]+: [\w -]+)"', pathlib.Path(__file__).read_text()),
            *(f"event: {event}" for event in EVENT_LINES), *(f"init: {key}" for key in NUMBERS),
            "observe: begin", "observe: end"}
reached = collections.Counter()


def reach(branch):
    assert branch in BRANCHES, branch
    reached[branch] += 1


class Death(Exception):
    """The process ends here; the argument is its last line on standard error."""


def die(branch, reason):
    reach(branch)
    raise Death("fatal error: " + reason)


class Stream:
    """One direction of the link, as the recording platform simulates it."""

    def __init__(self, name, link):
        self.name = name
        self.link = link
        self.status = "new"
        self.is_scheduled = False
        self.is_released = False


class Link:
    def __init__(self, is_reachable):
        self.is_reachable = is_reachable
        self.inbound = collections.deque()


class World:
    """The recording platform: its scripted answers, and the calls that it has recorded."""

    def __init__(self):
        self.records = []
        self.has_base = self.has_suite = True
        self.has_read_stream = self.has_write_stream = True
        self.encodes = self.is_valid_json = self.writes_json = True
        self.written_json = None
        self.settings = {}
        self.missing_images = set()
        self.ports = set()
        self.selection = None
        self.answers = collections.deque()
        self.reads = collections.deque()
        self.writes = collections.deque()
        self.events = collections.deque()
        self.input = self.output = None  # of the newest pair
        self.watched = []
        self.badges = []
        self.assignments = []
        self.received = b""
        self.buffers = 0

    def record(self, text):
        self.records.append(text)

    def print(self, text):
        self.records.append("print: " + text)

    def log(self, form, argument):
        self.records.append(f"NSLog: {form} <- {argument}")

    def image(self, name):
        self.record("imageNamed: " + name)
        return "" if name in self.missing_images else name

    def make_pair(self, host, port):
        self.record(f"CFStreamCreatePairWithSocketToHost: {host} {port}")
        link = Link(port in self.ports)
        self.input = Stream("inputStream", link) if self.has_read_stream else None
        self.output = Stream("outputStream", link) if self.has_write_stream else None
        return self.input, self.output

    def schedule(self, stream):
        self.record(stream.name + " scheduleInRunLoop:forMode: kCFRunLoopDefaultMode")
        stream.is_scheduled = True

    def open(self, stream):
        self.record(stream.name + " open")
        stream.status = "opening"
        if not stream.link.is_reachable:
            self.events.append((stream, 8))
            return
        self.events.append((stream, 1))
        if stream is self.output:
            self.events.append((stream, 4))

    def has_bytes(self, stream):
        if self.answers:
            answer = self.answers.popleft()
        else:
            answer = stream.status == "open" and bool(self.reads or stream.link.inbound)
        self.record(f"{stream.name} hasBytesAvailable -> {'true' if answer else 'false'}")
        return answer

    def read(self, stream):
        count, data = self.next_read(stream)
        self.record(f"{stream.name} read:maxLength: {READ_LENGTH} -> {count}")
        return count, data

    def next_read(self, stream):
        if self.reads:
            return self.reads.popleft()
        if stream.status == "ended":
            return 0, b""
        inbound = stream.link.inbound
        if stream.status != "open" or not inbound:
            return -1, b""
        data = inbound[0][:READ_LENGTH]
        inbound[0] = inbound[0][READ_LENGTH:]
        if not inbound[0]:
            inbound.popleft()
        return len(data), data

    def write(self, stream, data):
        if self.writes:
            taken = self.writes.popleft()
        else:
            taken = len(data) if stream.status == "open" else -1
        self.record(f"{stream.name} write:maxLength: {data.decode()} -> {taken}")
        if taken >= 0:
            self.received += data[:taken]
            self.events.append((stream, 4))
        return taken

    def post(self, stream, event):
        if stream is not None:
            self.events.append((stream, event))

    def next_event(self):
        """Takes the first event from the queue; none if its stream no longer delivers it."""
        stream, event = self.events.popleft()
        if stream.is_released or stream.status not in ("opening", "open"):
            return None
        if event == 2 and not stream.link.inbound:
            return None
        if event in (1, 8, 16):
            stream.status = {1: "open", 8: "failed", 16: "ended"}[event]
        return stream, event


class Extension:
    """The extension's object."""

    def __init__(self, world):
        self.world = world
        self.properties = {
            "myFolderURL": "/", "pathsOfRootFolders": [], "serverAddress": "127.0.0.1",
            "serverPort": 61842, "isSocketConnected": True, "displayUrlLink": 1,
            "displayBackup": 0, **dict.fromkeys(TITLES, "")}
        self.input = self.output = None

    @property
    def paths(self):
        return self.properties["pathsOfRootFolders"]

    # Start-up

    def init(self):
        world = self.world
        world.record("FIFinderSync init")
        if not world.has_base:
            reach("init: no base object")
            return False
        if not world.has_suite:
            die("init: no suite", "the shared settings cannot be opened")
        self.read_settings()
        world.log("FinderSync() launched from %@", "/Extensions/FinderSync.appex")
        world.watched = [self.properties["myFolderURL"]]
        world.record("setDirectoryURLs:")
        if not world.image("icon_Folder"):
            die("init: no image", 'the image "icon_Folder" is missing from the resources')
        world.badges = [("FolderIco", "Folder Icon")]
        world.record("setBadgeImage:label:forBadgeIdentifier: Folder Icon, FolderIco")
        self.connect()
        reach("init: done")
        return True

    def read_settings(self):
        settings, properties = self.world.settings, self.properties
        root, port = "/", 61842
        if "RootFolder" in settings:
            root = self.string_setting("RootFolder", "init: RootFolder no string")
            reach("init: RootFolder")
        if "ServerPort" in settings:
            port = integer(settings["ServerPort"])
            reach("init: ServerPort")
        for key in NUMBERS:
            if key in settings:
                properties[key[0].lower() + key[1:]] = integer(settings[key])
                reach("init: " + key)
        for title in TITLES:
            key = title[0].upper() + title[1:]
            if key in settings:
                properties[title] = self.string_setting(key, "init: title no string")
                reach("init: title")
        properties["myFolderURL"] = folder_path(root)
        if not 0 <= port <= 0xffffffff:
            die("init: ServerPort out of range",
                f'the setting "ServerPort" is out of range: {port}')
        properties["serverPort"] = port

    def string_setting(self, key, otherwise):
        kind, value = self.world.settings[key]
        if kind != "string":
            die(otherwise, f'the setting "{key}" is not a string')
        return value

    def connect(self):
        world = self.world
        if self.input:
            reach("connect: again")
        world.print("connecting...")
        read_stream, write_stream = world.make_pair("127.0.0.1", self.properties["serverPort"])
        if not read_stream:
            die("connect: no read stream",
                "no read stream to the companion application can be created")
        if self.input:
            self.input.is_released = True
        self.input = read_stream
        if not write_stream:
            die("connect: no write stream",
                "no write stream to the companion application can be created")
        if self.output:
            self.output.is_released = True
        self.output = write_stream
        for stream in (self.input, self.output):
            world.record(stream.name + " setDelegate:")
        for stream in (self.input, self.output):
            world.schedule(stream)
        for stream in (self.input, self.output):
            world.open(stream)
        is_reachable = read_stream.link.is_reachable
        reach("connect: reachable" if is_reachable else "connect: unreachable")

    # Events

    def stream(self, stream, event):
        line = EVENT_LINES.get(event)
        reach(f"event: {event}" if line else "event: other")
        self.world.print(line or "default")
        if event == 2:
            if not self.input:
                die("event: 2 without input stream",
                    "bytes are available, but there is no input stream")
            if stream is not self.input:
                reach("event: 2 on another stream")
                return
            reach("event: 2 on input stream")
            self.read_inbound_messages()
        elif event == 16:
            self.set("isSocketConnected", False)

    def set(self, name, value):
        """Calls the property's setter."""
        self.properties[name] = folder_path(value) if name == "myFolderURL" else value

    def shown(self, name):
        """A property's value in the form that records show."""
        value = self.properties[name]
        if isinstance(value, list):
            return ", ".join([str(len(value)), *value])
        return value if isinstance(value, str) else str(int(value))

    def read_inbound_messages(self):
        world = self.world
        world.record(f"malloc: {READ_LENGTH}")
        world.buffers += 1
        was_available = False
        while world.has_bytes(self.input):
            was_available = True
            count, data = world.read(self.input)
            if count <= 0:
                reach("read: negative" if count else "read: zero")
                continue
            if count == READ_LENGTH:
                reach("read: full")
            try:
                text = data[:count].decode()
            except UnicodeDecodeError as error:
                self.lines, self.bytes_read = data[:error.start].decode().split("\n"), count
                self.line = len(self.lines)
                place = len(self.lines[-1].encode())
                self.die_on_line("read: not UTF-8",
                                 f"not valid UTF-8 at byte {place}{self.probable_cause()}")
            world.print("server said: " + text)
            self.lines, self.bytes_read = text.split("\n"), count
            self.handle_lines()
        if not was_available:
            reach("read: nothing available")

    def die_on_line(self, branch, reason):
        line = self.lines[self.line - 1]
        shown = "".join(f"\\x{ord(each):02X}" if each < " " or each == "\x7f" else each
                        for each in line[:80]) + "…" * (len(line) > 80)
        die(branch, f"line {self.line} of a read of {self.bytes_read} bytes: {reason}: {shown}")

    def probable_cause(self):
        return (" (the read was full, so a message was probably cut: see "
                "docs/protocol.md#the-1024-byte-rule)" if self.bytes_read == READ_LENGTH else "")

    def handle_lines(self):
        for self.line, line in enumerate(self.lines, 1):
            if line == "":
                is_last = self.line == len(self.lines)
                reach("line: empty at the end" if is_last else "line: empty before others")
                return
            message = self.parse_dictionary(line)
            if "type" not in message:
                self.die_on_line("line: no type" if message else "line: no dictionary",
                                 self.reason_for_no_type(line))
            kind = message["type"]
            if not isinstance(kind, str):
                self.die_on_line("line: type no string", '"type" is not a string')
            self.world.print("type - " + kind)
            command = COMMANDS.get(kind)
            if command:
                command(self, message)
            else:
                reach("type: other")

    def reason_for_no_type(self, text):
        if not self.world.encodes:
            return "not encodable as UTF-8" + self.probable_cause()
        value = parse_json(text)
        if value is None:
            return "not JSON" + self.probable_cause()
        return 'no "type"' if isinstance(value, dict) else "the top level is not an object"

    def parse_dictionary(self, text):
        if not self.world.encodes:
            return {}
        value = parse_json(text)
        if isinstance(value, list):
            reach("line: array")
        return value if isinstance(value, dict) else {}

    def needed(self, message, key, if_missing, if_no_string):
        if key not in message:
            self.die_on_line(if_missing, f'no "{key}"')
        value = message[key]
        if not isinstance(value, str):
            self.die_on_line(if_no_string, f'"{key}" is not a string')
        return value

    def find(self, path):
        wanted = decomposed(path)
        for index, entry in enumerate(self.paths):
            if decomposed(entry) == wanted:
                return index
        return None

    def add_folder(self, message):
        path = self.needed(message, "path", "add_folder: no path", "add_folder: path no string")
        index = self.find(path)
        if index is None:
            reach("add_folder: appended")
            self.set("pathsOfRootFolders", self.paths + [path])
        else:
            same = self.paths[index] == path
            reach("add_folder: present" if same else "add_folder: present in another form")
            self.world.print(f"new path is at index {index}")

    def del_folder(self, message):
        path = self.needed(message, "path", "del_folder: no path", "del_folder: path no string")
        index = self.find(path)
        if index is None:
            reach("del_folder: absent")
        else:
            same = self.paths[index] == path
            reach("del_folder: removed" if same else "del_folder: removed in another form")
            self.set("pathsOfRootFolders", self.paths[:index] + self.paths[index + 1:])

    def set_locale(self, message):
        values = [self.needed(message, key, "set_locale: title missing", "set_locale: title no string")
                  for key in TITLES]
        reach("set_locale: done")
        for key, value in zip(TITLES, values):
            self.set(key, value)

    def set_menu_usage(self, message):
        value = self.needed(message, "displayBackup", "set_menu_usage: missing",
                       "set_menu_usage: no string")
        reach("set_menu_usage: 1" if value == "1" else "set_menu_usage: other")
        self.set("displayBackup", 1 if value == "1" else 0)

    # What the Finder asks

    def observe(self, which, url):
        description, _, has_file_path = url
        if not has_file_path:
            die("observe: no file path", "a URL has no file path: " + description)
        reach("observe: " + which)
        self.world.log(which + "ObservingDirectoryAtURL: %@", description)

    def request_badge(self, url):
        description, path, has_file_path = url
        if not has_file_path:
            die("badge: no file path", "a URL has no file path: " + description)
        self.world.log("requestBadgeIdentifierForURL: %@", description)
        if not self.paths:
            reach("badge: no roots")
            return
        for root in self.paths:
            self.world.log("curpath: %@", root)
            if path is None:
                die("badge: no path", "a URL has no path: " + description)
            self.world.log("path: %@", path)
            if equal(root, path):
                reach("badge: equal" if root == path else "badge: equal in another form")
                self.world.record("setBadgeIdentifier:forURL: FolderIco " + description)
                self.world.assignments.append("FolderIco")
                return
        reach("badge: none")

    def menu(self, kind):
        """The entries of the menu, or none."""
        world = self.world
        if not self.properties["isSocketConnected"]:
            reach("menu: not connected")
            return None
        world.record("selectedItemURLs")
        if kind != 0:
            reach("menu: another kind")
            return None
        if world.selection is None:
            die("menu: no selection", "there is no selection to show a menu for")
        if len(world.selection) != 1:
            reach("menu: not one item")
            return None
        path = world.selection[0][1]
        world.print("path: " + ("nil" if path is None else f'Optional("{escaped(path)}")'))
        if self.is_offered_for(path):
            return self.build_menu()
        reach("menu: none")
        return None

    def is_offered_for(self, path):
        if not self.paths:
            reach("menu: no roots" if path is not None else "menu: no path and no roots")
        for root in self.paths:
            if path is None:
                die("menu: no path", "the selected URL has no path")
            if not contains(path, root):
                inside = root and decomposed(root) in decomposed(path)
                reach("menu: ends inside a character" if inside
                      else "menu: root not contained" if root else "menu: empty root")
                continue
            if not equal(path, root):
                if root not in path:
                    reach("menu: contained in another form")
                return True
            reach("menu: root itself")
        return False

    def build_menu(self):
        world = self.world
        world.record("NSMenu initWithTitle: ")
        entries = []
        for name, action, image, is_shown in (
                ("shareContactTitle", "shareContactsClicked:", "icon_share", False),
                ("shareViaUrlTitle", "createLinkClicked:", "icon_URLlink", True),
                ("backupTitle", "backupClicked:", "icon_Backup",
                 self.properties["displayBackup"] == 1)):
            title = self.properties[name]
            world.record(f"initWithTitle:action:keyEquivalent: {title}, {action}, ")
            found = world.image(image)
            world.record(f"setImage: {action} {found}")
            if is_shown:
                world.record("addItem: " + action)
                entries.append((title, action, "", found))
        reach("menu: link and backup" if len(entries) == 2 else "menu: link only")
        return entries

    # Reports

    def stringify(self, value, is_pretty):
        world = self.world
        is_container = isinstance(value, (dict, list)) and not holds_data(value)
        if not (world.is_valid_json and is_container and world.writes_json):
            return ""
        if world.written_json is not None:
            try:
                return world.written_json.decode()
            except UnicodeDecodeError:
                return ""
        return json.dumps(value, ensure_ascii=False, sort_keys=True,
                          indent=2 if is_pretty else None,
                          separators=(",", " : " if is_pretty else ":"))

    def send_clicked_data(self, click_type):
        world = self.world
        world.record("selectedItemURLs")
        if world.selection is None:
            die("report: no selection", "there is no selection to report")
        paths = []
        for description, path, _ in world.selection:
            if path is None:
                die("report: no path", "a URL has no path: " + description)
            paths.append(path)
        text = self.stringify({"type": click_type, "items": paths}, False)
        if not text:
            reach("report: not serialisable")
        if not world.encodes:
            die("report: not encodable", "a click report cannot be encoded")
        if self.output is None:
            die("report: no output stream", "there is no output stream to report to")
        data = text.encode()
        taken = world.write(self.output, data)
        reach("report: whole" if taken == len(data) else
              "report: failed" if taken < 0 else "report: cut")
        if len(paths) != 1:
            reach("report: several items" if paths else "report: empty selection")


COMMANDS = {
    "add_folder": Extension.add_folder,
    "del_folder": Extension.del_folder,
    "set_locale": Extension.set_locale,
    "set_menu_usage": Extension.set_menu_usage,
}


def holds_data(value):
    if isinstance(value, dict):
        value = list(value.values())
    return any(map(holds_data, value)) if isinstance(value, list) else isinstance(value, bytes)


def integer(setting):
    """A setting read as a 64-bit integer."""
    kind, value = setting
    if kind in ("bool", "integer", "number"):
        return min(max(int(value), INT64[0]), INT64[1])
    if kind == "string":
        digits = value.removeprefix("-")
        if digits.isascii() and digits.isdigit():
            return min(max(int(value), INT64[0]), INT64[1])
    return 0


def folder_path(path):
    """The path of a file URL made from a path."""
    return ("/" + path if not path.startswith("/") else path).rstrip("/") or "/"


ESCAPES = {"\\": "\\\\", '"': '\\"', "'": "\\'", "\0": "\\0", "\n": "\\n", "\r": "\\r", "\t": "\\t"}


def escaped(text):
    """A text with the escapes of a string literal."""
    if text.isalnum():
        return text
    return "".join(
        ESCAPES.get(character)
        or (f"\\u{{{ord(character):X}}}" if character < " " or character == "\x7f" else character)
        for character in text)


class Run:
    """One session."""

    def __init__(self):
        self.world = World()
        self.extension = Extension(self.world)
        self.is_over = False

    def records(self, session):
        """All records of the session, texts or bytes, and the fatal error that ended it, if any."""
        death = None
        try:
            for event in session:
                self.play(event)
                if self.is_over:
                    break
        except Death as end:
            death = end
        self.state()
        return self.world.records, death

    def play(self, event):
        self.world.record("event " + event[0])
        EVENTS[event[0]](self, *event[1:])

    def state(self):
        extension, world = self.extension, self.world
        for name in extension.properties:
            world.record(f"{name} {extension.shown(name)}")
        world.records += ["watched " + path for path in world.watched]
        world.records += [f"badge {identifier} {label}" for identifier, label in world.badges]
        world.records += ["assigned " + identifier for identifier in world.assignments]
        world.record(f"buffers {world.buffers}")
        world.record(world.received)

    def answer(self, text):
        self.world.record("answer: " + text)

    def script(self, name, value):
        setattr(self.world, name, value)

    def setting(self, key, kind, value):
        self.world.settings[key] = (kind, value)

    def start(self):
        is_started = self.extension.init()
        self.answer("started" if is_started else "not started")
        self.is_over = not is_started

    def turn(self):
        if self.world.events:
            delivered = self.world.next_event()
            if delivered:
                self.extension.stream(*delivered)

    def turns(self):
        while self.world.events:
            self.turn()

    def send(self, data):
        if self.world.input:
            self.world.input.link.inbound.append(data)
            self.world.post(self.world.input, 2)

    def close(self):
        self.world.post(self.world.input, 16)

    def reset(self):
        self.world.post(self.world.input, 8)
        self.world.post(self.world.output, 8)

    def event(self, which, code):
        stream = {"input": self.world.input, "output": self.world.output, "foreign": "foreign"}
        if stream[which]:
            self.extension.stream(stream[which], code)

    def menu(self, kind, selection):
        self.world.selection = selection
        entries = self.extension.menu(kind)
        self.world.selection = None
        if entries is None:
            self.answer("no menu")
            return
        self.answer(f"menu {len(entries)}")
        for entry in entries:
            for part in entry:
                self.answer(part)

    def click(self, selector, selection):
        self.report(CLICK_TYPES[selector], selection)

    def report(self, click_type, selection):
        self.world.selection = selection
        self.extension.send_clicked_data(click_type)
        self.world.selection = None

    def parse(self, text):
        value = parse_json(text) if self.world.encodes else None
        if not isinstance(value, dict):
            value = {}
        reach("parse: dictionary" if value else "parse: nothing")
        self.answer(f"dictionary {len(value)}")
        for key in sorted(value, key=str.encode):
            self.answer(key)
            member = value[key]
            self.answer("text " + member if isinstance(member, str) else KINDS[type(member)])

    def stringify(self, value, is_pretty):
        text = self.extension.stringify(value, is_pretty)
        reach("stringify: nothing" if not text else
              "stringify: pretty" if is_pretty else "stringify: text")
        self.answer("JSON " + text)


KINDS = {type(None): "null", bool: "bool", int: "number", float: "number", list: "array",
         dict: "dictionary"}
EVENTS = {
    "script": Run.script,
    "setting": Run.setting,
    "port": lambda run, port: run.world.ports.add(port),
    "no image": lambda run, name: run.world.missing_images.add(name),
    "start": Run.start,
    "turn": Run.turn,
    "turns": Run.turns,
    "send": Run.send,
    "close": Run.close,
    "reset": Run.reset,
    "event": Run.event,
    "answer": lambda run, answer: run.world.answers.append(answer),
    "read": lambda run, count, data: run.world.reads.append((count, data)),
    "write": lambda run, taken: run.world.writes.append(taken),
    "menu": Run.menu,
    "badge": lambda run, url: run.extension.request_badge(url),
    "observe": lambda run, which, url: run.extension.observe(which, url),
    "click": Run.click,
    "report": Run.report,
    "set": lambda run, name, value: run.extension.set(name, value),
    "connect": lambda run: run.extension.connect(),
    "parse": Run.parse,
    "stringify": Run.stringify,
}


def run(session):
    """All records of a session, and the fatal error that ended it, if any."""
    return Run().records(session)
