"""Running programs: their output as it comes, and the other end of the link."""

import os
import re
import select
import signal
import socket
import subprocess
import threading
import time

PATIENCE = 20.0
GROUP = "com.example.companion"  # the group that the programs are built with


def wait_until(condition, what, patience=PATIENCE):
    """Gives the first true value of `condition()`; fails when there is none in time."""
    deadline = time.monotonic() + patience
    while True:
        value = condition()
        if value:
            return value
        assert time.monotonic() < deadline, f"timed out: {what}"
        time.sleep(0.005)


class Output:
    """Gathers what a process writes into a pipe."""

    def __init__(self, pipe):
        self._pipe = pipe
        self._bytes = bytearray()
        self._changed = threading.Condition()
        self._ended = False
        threading.Thread(target=self._gather, daemon=True).start()

    def _gather(self):
        while True:
            chunk = os.read(self._pipe.fileno(), 65536)
            with self._changed:
                self._bytes += chunk
                self._ended = not chunk
                self._changed.notify_all()
            if not chunk:
                return

    def ends_with(self, data):
        with self._changed:
            return self._bytes.endswith(data)

    @property
    def text(self):
        with self._changed:
            return self._bytes.decode(errors="replace")

    def lines(self):
        return self.text.splitlines()

    def wait_for(self, pattern, patience=PATIENCE):
        """Waits until the regular expression is found; gives the match."""
        deadline = time.monotonic() + patience
        with self._changed:
            while True:
                match = re.search(pattern, self._bytes.decode(errors="replace"))
                if match:
                    return match
                left = deadline - time.monotonic()
                assert left > 0 and not self._ended, f"no {pattern!r} in {self._bytes!r}"
                self._changed.wait(left)

    def wait_for_end(self, patience=PATIENCE):
        with self._changed:
            assert self._changed.wait_for(lambda: self._ended, patience)
            return self._bytes.decode(errors="replace")


class Program:
    """A running process with gathered output."""

    def __init__(self, command, environment, stdin=subprocess.PIPE, stdout=subprocess.PIPE,
                 stderr=subprocess.PIPE, **options):
        self.process = subprocess.Popen(
            [str(word) if not isinstance(word, bytes) else word for word in command], stdin=stdin,
            stdout=stdout, stderr=stderr, env=environment, **options)
        self.out = Output(self.process.stdout) if stdout == subprocess.PIPE else None
        self.err = Output(self.process.stderr) if stderr == subprocess.PIPE else None

    def write(self, text):
        self.process.stdin.write(text if isinstance(text, bytes) else text.encode())
        self.process.stdin.flush()

    def end_input(self):
        self.process.stdin.close()

    def bytes_read(self):
        """How much the process has read so far, from wherever."""
        with open(f"/proc/{self.process.pid}/io", encoding="ascii") as counters:
            return int(counters.readline().split()[1])

    def signal(self, number):
        self.process.send_signal(number)

    def wait(self, patience=PATIENCE):
        """Waits for the end; gives the exit code."""
        code = self.process.wait(patience)
        for output in (self.out, self.err):
            if output:
                output.wait_for_end()
        return code

    def end(self):
        if self.process.poll() is None:
            self.process.send_signal(signal.SIGCONT)
            self.process.terminate()  # a bus daemon then removes its socket
            try:
                self.process.wait(PATIENCE)
            except subprocess.TimeoutExpired:
                self.process.kill()
                self.process.wait()
        if self.process.stdin and not self.process.stdin.closed:
            try:
                self.process.stdin.close()
            except BrokenPipeError:
                pass


class Peer:
    """Stands in for the extension on the link."""

    def __init__(self, port, receive_buffer=None):
        self.socket = socket.socket()
        if receive_buffer:
            self.socket.setsockopt(socket.SOL_SOCKET, socket.SO_RCVBUF, receive_buffer)
        self.socket.settimeout(PATIENCE)
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
        self.socket.close()
