"""A pseudo-terminal for programs under test."""

import fcntl
import os
import pty
import re
import select
import struct
import termios
import time


class Terminal:
    def __init__(self, columns=80):
        self.master, self.slave = pty.openpty()
        self.output = ""
        fcntl.ioctl(self.master, termios.TIOCSWINSZ, struct.pack("HHHH", 24, columns, 0, 0))

    def streams(self):
        """For subprocess.Popen: has the program run on this terminal, which controls it."""
        return {"stdin": self.slave, "stdout": self.slave, "stderr": self.slave,
                "preexec_fn": self._take_control}

    def _take_control(self):
        os.setsid()
        fcntl.ioctl(self.slave, termios.TIOCSCTTY, 0)

    def type(self, text):
        os.write(self.master, text.encode())

    def wait_for(self, pattern, timeout=20.0):
        """Waits until the regular expression is found in what was printed; gives the match."""
        deadline = time.monotonic() + timeout
        while not (match := re.search(pattern, self.output)):
            left = deadline - time.monotonic()
            assert left > 0, f"no {pattern!r} in {self.output!r}"
            if select.select([self.master], [], [], left)[0]:
                self.output += os.read(self.master, 65536).decode(errors="replace")
        return match

    def close(self):
        """Hangs up."""
        for descriptor in (self.slave, self.master):
            if descriptor >= 0:
                os.close(descriptor)
        self.master = self.slave = -1
