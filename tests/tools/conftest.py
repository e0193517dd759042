"""The two programs for the terminal as real processes, in a session of their own."""

import re
import select
import socket
import subprocess

import pytest
from conftest import TIMEOUT, Process, Session, wait_for


class Output:
    """What a program has written so far, which goes to a file."""

    def __init__(self, file):
        self.file = file

    @property
    def text(self):
        return self.file.read_bytes().decode(errors="replace")

    def lines(self):
        return self.text.splitlines()

    def wait_for(self, pattern):
        """Waits until the regular expression is found; gives the match."""
        return wait_for(lambda: re.search(pattern, self.text), f"{pattern!r} in {self.file}")


class Program(Process):
    def __init__(self, command, environment, folder, **options):
        super().__init__(command, environment, folder, **{"stdin": subprocess.PIPE} | options)
        self.out = Output(self.output_file)
        self.err = Output(self.error_file)

    def write(self, text):
        self.popen.stdin.write(text if isinstance(text, bytes) else text.encode())
        self.popen.stdin.flush()

    def end_input(self):
        self.popen.stdin.close()

    def bytes_read(self):
        """How much the process has read so far, from wherever."""
        with open(f"/proc/{self.popen.pid}/io", encoding="ascii") as counters:
            return int(counters.readline().split()[1])

    def signal(self, number):
        self.popen.send_signal(number)

    def wait(self, timeout=TIMEOUT):
        """Waits for the end; gives the exit code."""
        return self.popen.wait(timeout)


class Peer:
    """Stands in for the extension on the link."""

    def __init__(self, port, receive_buffer=None):
        self.socket = socket.socket()
        self.socket.setsockopt(socket.IPPROTO_TCP, socket.TCP_NODELAY, 1)
        if receive_buffer:
            self.socket.setsockopt(socket.SOL_SOCKET, socket.SO_RCVBUF, receive_buffer)
        self.socket.settimeout(TIMEOUT)
        self.socket.connect(("127.0.0.1", port))

    def read(self, count):
        """Reads exactly that many bytes, or fewer when the link ends."""
        received = b""
        while len(received) < count:
            chunk = self.socket.recv(min(count - len(received), 1 << 20))
            if not chunk:
                break
            received += chunk
        return received

    def read_line(self):
        received = b""
        while not received.endswith(b"\n"):
            chunk = self.socket.recv(1)
            assert chunk, f"the link ended after {received!r}"
            received += chunk
        return received

    def read_to_end(self):
        return self.read(1 << 40)

    def is_silent(self, seconds=0.2):
        return not select.select([self.socket], [], [], seconds)[0]

    def send(self, data):
        self.socket.sendall(data)

    def close(self):
        self.socket.close()

    def reset(self):
        self.socket.setsockopt(socket.SOL_SOCKET, socket.SO_LINGER, b"\1\0\0\0\0\0\0\0")
        self.close()


class ToolSession(Session):
    process_class = Program

    def start_companion(self, *options, port=0, **process_options):
        """The companion, on a free port unless told which, once it listens."""
        program = self.start("companion", "--port", str(port), *options, **process_options)
        program.port = int(program.err.wait_for(r"listening on 127\.0\.0\.1:(\d+)[\n\x1b]")[1])
        return program

    def connect(self, program, **options):
        peer = Peer(program.port, **options)
        self.peers.append(peer)
        return peer

    def start_real_extension(self, port, **settings):
        """The extension itself, once it has tried to connect."""
        extension = self.start_extension({"ServerPort": port, **settings})
        extension.out.wait_for("Opened connection|Stream open error")
        return extension

    def finderctl(self, *arguments, **options):
        """Runs finderctl to its end; gives exit code, output and messages."""
        program = self.start("finderctl", *arguments, **options)
        return program.wait(), program.out.text, program.err.text


@pytest.fixture
def session(tmp_path):
    session = ToolSession(tmp_path)
    session.environment["TERM"] = "xterm"
    try:
        yield session
    finally:
        session.end()
    assert session.findings() == ""


@pytest.fixture
def companion(session):
    return session.start_companion()


@pytest.fixture
def peer(session, companion):
    return session.connect(companion)
