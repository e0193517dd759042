"""A session of their own for the tests of the real programs: a private bus, private settings, a
companion application made of a plain socket, and the extension's process."""

import json
import os
import pathlib
import random
import re
import select
import shutil
import signal
import socket
import subprocess
import time

import pytest
from jeepney import DBusAddress, MatchRule, Properties, message_bus, new_method_call
from jeepney.io.blocking import open_dbus_connection

GROUP = os.environ.get("FINDER_SYNC_GROUP", "com.example.companion")
BUS_NAME = GROUP + ".FinderSync"
EXTENSION = DBusAddress("/FinderSync", bus_name=BUS_NAME, interface="findersync.Extension1")
PROCESS = EXTENSION.with_interface("findersync.Process1")
TIMEOUT = 20  # seconds; far more than anything here takes, sanitizers and valgrind included
# Before a program that refuses to run as root: it is nobody, since Xwayland lets in whoever has a name.
NOT_AS_ROOT = [] if os.geteuid() else ["unshare", "--user", "--map-user=65534", "--map-group=65534"]

# All that programs see of the environment in which the tests run.
KEPT_VARIABLES = ("PATH", "ASAN_OPTIONS", "LSAN_OPTIONS", "TSAN_OPTIONS", "UBSAN_OPTIONS",
                  "GCOV_PREFIX", "GCOV_PREFIX_STRIP")
SYSTEM_BUS_CONFIGURATION = pathlib.Path("/usr/share/dbus-1/session.conf")
# Unlike the system's, it names no folder in which the machine's services are.
BUS_CONFIGURATION = """<busconfig><type>session</type><listen>unix:tmpdir=/tmp</listen>
<policy context="default"><allow send_destination="*" eavesdrop="true"/><allow eavesdrop="true"/>
<allow own="*"/></policy>
{}
</busconfig>
"""


def wait_for(condition, what="the condition"):
    """Waits until the condition gives something true, and gives that."""
    deadline = time.monotonic() + TIMEOUT
    while time.monotonic() < deadline:
        result = condition()
        if result:
            return result
        time.sleep(0.01)
    raise AssertionError(f"{what} did not come about within {TIMEOUT} s")


def stop_at_random(process, trace, count, seed):
    """Stops an extension, by its process number, and continues it, again and again until it has
    traced so many folders."""
    chance = random.Random(seed)
    deadline = time.monotonic() + 10 * TIMEOUT
    while trace.read_bytes().count(b"type - add_folder\n") < count:
        assert os.path.exists(f"/proc/{process}/exe") and time.monotonic() < deadline
        os.kill(process, signal.SIGSTOP)
        time.sleep(chance.choice([0, 0.001, 0.01, chance.random() / 4]))
        os.kill(process, signal.SIGCONT)
        time.sleep(chance.choice([0, 0.0002, 0.002, 0.05, count / 30000]))


def line(**message):
    """A message of the companion application, with its line feed."""
    return (json.dumps(message) + "\n").encode()


class Peer:
    """The companion application's end of the link."""

    def __init__(self, port=0, address="127.0.0.1"):
        family = socket.AF_INET6 if ":" in address else socket.AF_INET
        self.listener = socket.create_server((address, port), family=family,
                                             dualstack_ipv6=family == socket.AF_INET6)
        self.listener.settimeout(TIMEOUT)
        self.port = self.listener.getsockname()[1]
        self.connection = None

    def accept(self):
        self.connection, _ = self.listener.accept()
        self.connection.settimeout(TIMEOUT)
        self.connection.setsockopt(socket.IPPROTO_TCP, socket.TCP_NODELAY, 1)

    def nobody_connects(self, within=0):
        """Whether no connection is there to be accepted, nor comes within so many seconds."""
        return select.select([self.listener], [], [], within)[0] == []

    def send(self, data):
        self.connection.sendall(data)

    def receive(self, length):
        """So many bytes, however many reads that takes."""
        received = b""
        while len(received) < length:
            part = self.connection.recv(length - len(received))
            assert part, f"the link has ended after {received}"
            received += part
        return received

    def reset(self):
        linger_not_at_all = b"\x01\x00\x00\x00\x00\x00\x00\x00"
        self.connection.setsockopt(socket.SOL_SOCKET, socket.SO_LINGER, linger_not_at_all)
        self.connection.close()

    def close(self):
        if self.connection:
            self.connection.close()
        self.listener.close()


class Process:
    """A running program whose standard output and error go to files."""

    def __init__(self, command, environment, folder, **options):
        self.output_file = folder / "stdout"
        self.error_file = folder / "stderr"
        with open(self.output_file, "wb") as output, open(self.error_file, "wb") as error:
            options = {"stdout": output, "stderr": error, "stdin": subprocess.DEVNULL} | options
            self.popen = subprocess.Popen(command, env=environment, **options)

    def output(self):
        return self.output_file.read_bytes().decode()

    def error(self):
        return self.error_file.read_bytes().decode()

    def wait_output(self, text):
        wait_for(lambda: text in self.output(), f"{text!r} on standard output")

    def state(self):
        """The letter that the system has for what it does: "S" sleeps, "T" is stopped."""
        with open(f"/proc/{self.popen.pid}/stat", encoding="ascii") as file:
            return file.read().rsplit(")", 1)[1].split()[0]

    def wait(self):
        return self.popen.wait(TIMEOUT)

    def end(self, with_signal=signal.SIGTERM):
        self.popen.send_signal(with_signal)
        return self.wait()

    def finish(self):
        """Ends the process if it still runs, so that checkers can say what they found."""
        if self.popen.poll() is None:
            self.popen.send_signal(signal.SIGCONT)
            self.popen.terminate()
            try:
                self.wait()
            except subprocess.TimeoutExpired:
                self.popen.kill()
                raise

    def findings(self):
        """What sanitizers have written, empty if nothing."""
        text = self.error_file.read_bytes().decode(errors="replace")
        return text if "Sanitizer" in text or "runtime error: " in text else ""


class Session:
    """One user's session: a bus, a home, and what runs in it."""

    bus_options = ()
    process_class = Process

    def __init__(self, folder):
        self.folder = folder
        self.home = folder / "home"
        self.home.mkdir()
        self.programs = pathlib.Path(os.environ["FINDER_SYNC_BIN"])
        self.wrapper = valgrind(folder) if "FINDER_SYNC_VALGRIND" in os.environ else []
        self.processes = []
        self.peers = []
        self.connections = []
        self.environment = {
            key: os.environ[key] for key in KEPT_VARIABLES if key in os.environ
        } | {
            "HOME": str(self.home),
            "XDG_CACHE_HOME": str(self.home / "cache"),
            "XDG_CONFIG_HOME": str(self.home / "config"),
            "XDG_DATA_DIRS": str(self.share),
            "XDG_DATA_HOME": str(self.home / "share"),
            "XDG_STATE_HOME": str(self.home / "state"),
            "LC_ALL": "C.UTF-8",
            "TZ": "UTC",
        }
        self.daemon = None
        self.start_bus()

    @property
    def share(self):
        """Where the build, or the installation, has its data files."""
        return self.programs.parent / "share"

    def start_bus(self, *services, folders=(), limits=None):
        """A bus of our own, in place of the one before. It can start these services, by their
        names, later those in these folders, and no other that the machine has. Its limits are
        those of every session's bus, but for those given here."""
        self.end_bus()
        self.configure_bus(services, folders, limits or {})
        reader, writer = os.pipe()
        with open(self.bus_log, "wb") as log:
            self.daemon = subprocess.Popen(
                ["setpriv", "--pdeathsig", "KILL",  # even if the tests are killed
                 "dbus-daemon", f"--config-file={self.bus_configuration}",
                 f"--print-address={writer}", "--nofork", "--nopidfile"],
                pass_fds=[writer], stdout=log, stderr=log, env=self.environment,
                start_new_session=True)  # or Ctrl-C would end it before us
        os.close(writer)
        with os.fdopen(reader) as address:
            self.address = address.readline().strip()
        self.environment["DBUS_SESSION_BUS_ADDRESS"] = self.address
        assert startable_services(self.address) == {*services}

    def configure_bus(self, services, folders, limits):
        links = self.folder / "services"
        shutil.rmtree(links, ignore_errors=True)
        links.mkdir()
        for name in services:
            file = f"dbus-1/services/{name}.service"
            places = (place / file for place in (self.share, pathlib.Path("/usr/share")))
            (links / f"{name}.service").symlink_to(next(filter(pathlib.Path.exists, places)))
        lines = [f"<servicedir>{folder}</servicedir>" for folder in (links, *folders)]
        lines += re.findall("<limit .*</limit>", SYSTEM_BUS_CONFIGURATION.read_text())
        lines += [f'<limit name="{name}">{value}</limit>' for name, value in limits.items()]
        self.bus_configuration.write_text(BUS_CONFIGURATION.format("\n".join(lines)))

    def end_bus(self):
        if self.daemon:
            self.daemon.terminate()  # and not killed: it removes its socket
            self.daemon.wait()

    @property
    def bus_configuration(self):
        return self.folder / "bus.conf"

    @property
    def bus_log(self):
        """What the bus, and what it has started, have to say."""
        return self.folder / "bus.log"

    @property
    def settings_file(self):
        return self.home / "config" / GROUP / "settings.json"

    def store_settings(self, settings):
        """Stores a dictionary, or a text or bytes as they stand."""
        self.settings_file.parent.mkdir(parents=True, exist_ok=True)
        if isinstance(settings, dict):
            settings = json.dumps(settings)
        if isinstance(settings, str):
            settings = settings.encode()
        self.settings_file.write_bytes(settings)

    def start(self, program, *arguments, environment=None, **options):
        folder = self.folder / f"process{len(self.processes)}"
        folder.mkdir()
        command = [*self.wrapper, str(self.programs / program), *arguments]
        process = self.process_class(command, self.environment | (environment or {}), folder,
                                     **options)
        self.processes.append(process)
        return process

    def listen(self, port=0, **options):
        peer = Peer(port, **options)
        self.peers.append(peer)
        return peer

    def start_extension(self, settings=None, **options):
        """The extension without a companion, or with the given settings."""
        if settings is not None:
            self.store_settings(settings)
        return self.start("finder-sync-extension", **options)

    def start_connected(self, settings=None, **options):
        """A peer and an extension that is connected to it and is at rest."""
        peer = self.listen()
        extension = self.start_extension({"ServerPort": peer.port} | (settings or {}), **options)
        peer.accept()
        if "stdout" not in options:
            extension.wait_output("Sending\n")
        return peer, extension

    def announce(self, peer, *paths):
        """Has the companion announce folders, one after the other."""
        for path in map(str, paths):
            before = self.get("pathsOfRootFolders")
            peer.send(line(type="add_folder", path=path))
            self.wait_for_value("pathsOfRootFolders", [*before, path])

    def connect_to_bus(self):
        connection = open_dbus_connection(self.address)
        self.connections.append(connection)
        return connection

    def call(self, message):
        """Sends a method call on a connection of its own and gives the reply's body; an error
        reply raises with its name and text."""
        with open_dbus_connection(self.address) as connection:
            reply = connection.send_and_get_reply(message, timeout=TIMEOUT)
        if reply.header.message_type.name == "error":
            raise BusError(reply)
        return reply.body

    def wait_for_name(self):
        """Waits until the extension is on the bus and at its run loop."""
        wait_for(lambda: self.call(message_bus.NameHasOwner(BUS_NAME))[0], BUS_NAME)
        self.get("serverAddress")

    def process_of_extension(self):
        return self.call(message_bus.GetConnectionUnixProcessID(BUS_NAME))[0]

    def get(self, name):
        return self.call(Properties(EXTENSION).get(name))[0][1]

    def get_all(self):
        """Every property; GetAll leaves one out."""
        values, = self.call(Properties(EXTENSION).get_all())
        return {name: value for name, (_, value) in values.items()} | {
            "pathsOfRootFolders": self.get("pathsOfRootFolders")}

    def set(self, name, signature, value):
        self.call(Properties(EXTENSION).set(name, signature, value))

    def method(self, name, signature, *arguments):
        return self.call(new_method_call(EXTENSION, name, signature, arguments))

    def wait_for_value(self, name, value):
        wait_for(lambda: self.get(name) == value, f"{name} = {value!r}")

    def link_state(self):
        return self.call(Properties(PROCESS).get("linkState"))[0][1]

    def subscribe(self, interface=EXTENSION.interface):
        """A connection that receives the extension's change signals."""
        connection = self.connect_to_bus()
        rule = MatchRule(type="signal", interface="org.freedesktop.DBus.Properties",
                         member="PropertiesChanged", path="/FinderSync")
        rule.add_arg_condition(0, interface)
        connection.send_and_get_reply(message_bus.AddMatch(rule))
        return connection, rule

    def findings(self):
        """What valgrind and the sanitizers have written, empty if nothing."""
        logs = [file.read_text() for file in self.folder.glob("valgrind.*")]
        return "".join(process.findings() for process in self.processes) + "".join(
            log for log in logs if log.strip())

    def end(self):
        for process in self.processes:
            process.finish()
        for peer in self.peers:
            peer.close()
        for connection in self.connections:
            connection.close()
        self.end_bus()


class BusError(Exception):
    def __init__(self, reply):
        self.name = reply.header.fields.get(4)
        super().__init__(f"{self.name}: {reply.body[0] if reply.body else ''}")


def startable_services(address):
    """Names of the services that a bus can start."""
    with open_dbus_connection(address) as connection:
        names, = connection.send_and_get_reply(message_bus.ListActivatableNames()).body
    return {*names} - {"org.freedesktop.DBus"}


def valgrind(folder):
    """The words before a command that let it run under valgrind, which writes its findings into
    the folder and nothing else."""
    suppressions = pathlib.Path(__file__).parent / "deliberate-leaks.valgrind"
    return ["valgrind", "--quiet", "--leak-check=full", "--errors-for-leak-kinds=definite",
            "--show-leak-kinds=definite", f"--suppressions={suppressions}",
            f"--log-file={folder}/valgrind.%p"]


@pytest.fixture
def session(tmp_path):
    session = Session(tmp_path)
    try:
        yield session
    finally:
        session.end()
    assert session.findings() == ""
