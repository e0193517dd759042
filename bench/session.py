"""What the benches run in: a private D-Bus session, and the programs that they start."""

import json
import os
import pathlib
import re
import socket
import subprocess
import time

READ_SIZE = 1024  # of the extension; a message that a read cuts in two ends it
TIMEOUT = 10  # seconds
BUS = """<busconfig><type>session</type><listen>unix:path={}/bus</listen>
<policy context="default"><allow send_destination="*"/><allow eavesdrop="true"/><allow own="*"/>
</policy>
</busconfig>
"""


class CannotMeasure(Exception):
    pass


class Program(subprocess.Popen):
    """A child process. It is killed at the end of the `with` block unless it has ended by then."""

    def __init__(self, command, output, error, environment):
        self.started = time.monotonic_ns()
        super().__init__([str(argument) for argument in command], stdout=output, stderr=error,
                         env=environment, close_fds=False)  # which lets it use posix_spawn

    def __exit__(self, *_):
        self.kill()
        self.wait()

    def end(self):
        """Asks the program to end, which it must do with exit code 0."""
        self.terminate()
        if self.wait() != 0:
            raise CannotMeasure("a program did not end well when it was told to")

    def processor_time(self):
        """Seconds of user and system time of all threads so far."""
        return time.clock_gettime(~self.pid << 3 | 2)  # as clock_getcpuclockid(3) composes it

    def read(self, name):
        return pathlib.Path(f"/proc/{self.pid}/{name}").read_text()


class LogSink:
    """Takes log lines as a service manager's journal does: a Unix stream socket that another
    process drains, which counts the bytes."""

    def __init__(self):
        self.socket, read_end = socket.socketpair()
        self.reader = subprocess.Popen(["wc", "-c"], stdin=read_end, stdout=subprocess.PIPE)
        read_end.close()
        status = os.fstat(self.socket.fileno())
        self.environment = {"JOURNAL_STREAM": f"{status.st_dev}:{status.st_ino}"}

    def fileno(self):
        return self.socket.fileno()

    def close(self):
        """Gives how many bytes were written. Whoever wrote them must have ended."""
        self.socket.close()
        return int(self.reader.communicate(timeout=TIMEOUT)[0])


class Link:
    """A program that has connected to us as to its companion application."""

    def __init__(self, session, command, **options):
        self.trace, write_end = os.pipe()  # large enough for what is printed, unless it is drained
        self.program = session.program(command, output=write_end, **options)
        os.close(write_end)
        self.connection = None

    def __enter__(self):
        return self

    def __exit__(self, *reason):
        self.program.__exit__(*reason)
        os.close(self.trace)
        if self.connection:
            self.connection.close()

    def send(self, **message):
        """Returns once the extension has handled the message."""
        self.connection.sendall(json.dumps(message).ljust(READ_SIZE - 1).encode() + b"\n")
        trace = b""
        while b"\ntype - " not in trace:
            piece = os.read(self.trace, 64 * 1024)
            if not piece:
                raise CannotMeasure("the extension has ended")
            trace += piece

    def drain(self):
        """Has another process read the trace from now on, until the program ends."""
        return subprocess.Popen(["wc", "-c"], stdin=self.trace, stdout=subprocess.DEVNULL)


class Session:
    """Keeps all files in a directory. `programs` is the bin directory of a build."""

    def __init__(self, directory, programs, is_quick):
        self.directory, self.programs, self.is_quick = directory, programs, is_quick
        self.benches = programs.parent / "bench"
        self.extension = [programs / "finder-sync-extension"]
        cache = (programs.parent / "CMakeCache.txt").read_text()
        self.group = re.search("^FINDER_SYNC_GROUP:[A-Z]+=(.+)$", cache, re.MULTILINE)[1]
        self.log = open(directory / "log", "ab")
        self.environment = os.environ | {
            "DBUS_SESSION_BUS_ADDRESS": f"unix:path={directory}/bus", "HOME": str(directory),
            "XDG_CONFIG_HOME": str(directory)}
        self.environment.pop("JOURNAL_STREAM", None)
        (directory / "bus.conf").write_text(BUS.format(directory))
        # The rest ends on its own when the bus does; this one has to die with the bench.
        read_end, write_end = os.pipe()
        self.bus = self.program(["setpriv", "--pdeathsig", "KILL", "dbus-daemon", "--nofork",
                                 f"--config-file={directory}/bus.conf", "--print-address"],
                                output=write_end)
        os.close(write_end)
        if not os.read(read_end, 256):
            raise CannotMeasure("no private session bus could be started")
        os.close(read_end)
        self.listener = socket.create_server(("127.0.0.1", 0))
        self.listener.settimeout(TIMEOUT)
        self.port = self.listener.getsockname()[1]
        (directory / self.group).mkdir()
        (directory / self.group / "settings.json").write_text(json.dumps({"ServerPort": self.port}))

    def __enter__(self):
        return self

    def __exit__(self, *reason):
        self.bus.__exit__(*reason)
        self.log.close()

    def bench(self, name, *arguments):
        """The command of a program that is given our port first."""
        return [self.benches / name, self.port, *arguments]

    def program(self, command, output=None, error=None, environment=()):
        return Program(command, self.log.fileno() if output is None else output,
                       self.log.fileno() if error is None else error,
                       self.environment | dict(environment))

    def link(self, command, **options):
        """Starts a program that connects to us, and waits until it has."""
        link = Link(self, command, **options)
        link.connection, _ = self.listener.accept()
        link.connected = time.monotonic_ns()
        link.connection.setsockopt(socket.IPPROTO_TCP, socket.TCP_NODELAY, 1)
        return link

    def round_trips(self, calls, call, text):
        """Microseconds of each, of the empty program and of ours, and the words of the answer."""
        *pairs, answer = self.run("bus-bench", calls, call, text=text)
        return [tuple(map(float, pair)) for pair in pairs], answer

    def run(self, name, *arguments, descriptors=(), output=subprocess.PIPE, error=None,
            environment=(), text=None):
        """Runs one of the C++ programs to its end; gives the lines that it printed, in words."""
        ran = subprocess.run([self.benches / name, *map(str, arguments)], pass_fds=descriptors,
                             stdout=output, stderr=error or self.log, input=text, text=True,
                             env=self.environment | dict(environment))
        if ran.returncode != 0:
            raise CannotMeasure(f"{name} has ended with {ran.returncode}")
        return [line.split(" ") for line in (ran.stdout or "").splitlines()]
