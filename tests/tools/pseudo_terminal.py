"""A terminal for programs under test: a pseudo-terminal and what a user would see on it."""

import fcntl
import os
import pty
import re
import select
import struct
import sys
import termios
import time
import unicodedata

CONTROL = re.compile(r"\x1b\[([\x30-\x3f]*)[\x20-\x2f]*([\x40-\x7e])|"
                     r"\x1b[()][A-Z0-9]|\x1b[=>78cDEHM]")


class Screen:
    """Draws the output of a program, as far as programs with a line editor go."""

    def __init__(self, columns):
        self.columns = columns
        self.rows = [[]]
        self.row = self.column = 0

    def lines(self):
        """What can be read, down to the last line with anything on it."""
        lines = ["".join(cell for cell in row if cell is not None).rstrip() for row in self.rows]
        while lines and not lines[-1]:
            lines.pop()
        return lines

    def draw(self, text):
        position = 0
        while position < len(text):
            match = CONTROL.match(text, position)
            if match:
                self._control(match.group(1), match.group(2))
                position = match.end()
            else:
                self._character(text[position])
                position += 1

    def _character(self, character):
        if character == "\r":
            self.column = 0
        elif character == "\n":
            self._go_down()
        elif character == "\b":
            self.column = max(min(self.column, self.columns - 1) - 1, 0)
        elif character == "\t":
            self.column = min(self.column // 8 * 8 + 8, self.columns - 1)
        elif character >= " ":
            self._put(character)

    def _put(self, character):
        width = 2 if unicodedata.east_asian_width(character) in "WF" else 1
        if self.column + width > self.columns:
            self.column = 0
            self._go_down()
        row = self.rows[self.row]
        row.extend([" "] * (self.column + width - len(row)))
        row[self.column:self.column + width] = [character] + [None] * (width - 1)
        self.column += width

    def _go_down(self):
        self.row += 1
        if self.row == len(self.rows):
            self.rows.append([])

    def _control(self, parameters, final):
        if final is None:
            return
        number = int(parameters) if parameters.isdigit() else 0
        count = max(number, 1)
        if final == "A":
            self.row = max(self.row - count, 0)
        elif final == "B":
            self.row = min(self.row + count, len(self.rows) - 1)
        elif final == "C":
            self.column = min(self.column + count, self.columns - 1)
        elif final == "D":
            self.column = max(self.column - count, 0)
        elif final == "G":
            self.column = count - 1
        elif final == "K" and number == 0:
            del self.rows[self.row][self.column:]
        elif final == "J" and number == 0:
            del self.rows[self.row][self.column:]
            del self.rows[self.row + 1:]
        elif final == "P":
            del self.rows[self.row][self.column:self.column + count]
        elif final == "@":
            self.rows[self.row][self.column:self.column] = [" "] * count
        elif final not in "mhlnr":
            raise AssertionError(f"the screen does not know CSI {parameters}{final}")


class Terminal:
    def __init__(self, columns=80):
        self.master, self.slave = pty.openpty()
        self.screen = Screen(columns)
        self.output = ""
        self._undecoded = b""
        self.resize(columns)

    def resize(self, columns):
        self.screen.columns = columns
        fcntl.ioctl(self.master, termios.TIOCSWINSZ, struct.pack("HHHH", 24, columns, 0, 0))

    def take_control(self):
        """Runs in the child: makes this its controlling terminal."""
        os.setsid()
        fcntl.ioctl(self.slave, termios.TIOCSCTTY, 0)

    def settings(self):
        return termios.tcgetattr(self.slave)

    def set_cooked(self):
        """Sets the terminal as a shell does for a program that is not a line editor."""
        settings = self.settings()
        settings[3] |= termios.ICANON | termios.ECHO | termios.ISIG
        termios.tcsetattr(self.slave, termios.TCSANOW, settings)

    def type(self, text):
        os.write(self.master, text if isinstance(text, bytes) else text.encode())

    def is_read(self):
        """Whether the program has read all that was typed."""
        count = fcntl.ioctl(self.slave, termios.FIONREAD, b"\0\0\0\0")
        return int.from_bytes(count, sys.byteorder) == 0

    def wait_for(self, condition, patience=20.0):
        """Draws what comes until the condition holds for the list of lines on the screen."""
        deadline = time.monotonic() + patience
        while not condition(self.screen.lines()):
            left = deadline - time.monotonic()
            assert left > 0, "not on the screen: " + "\n".join(self.screen.lines())
            if select.select([self.master], [], [], left)[0]:
                self._draw()

    def wait_for_last_line(self, text):
        self.wait_for(lambda lines: lines[-1:] == [text])

    def _draw(self):
        self._undecoded += os.read(self.master, 65536)
        # A character, or a control sequence, may come in parts.
        text = self._undecoded.decode(errors="ignore")
        cut = text.rfind("\x1b")
        if cut >= 0 and not CONTROL.match(text, cut):
            text = text[:cut]
        self._undecoded = self._undecoded[len(text.encode()):]
        self.output += text
        self.screen.draw(text)

    def hang_up(self):
        os.close(self.slave)
        os.close(self.master)
        self.master = self.slave = -1

    def close(self):
        for descriptor in (self.master, self.slave):
            if descriptor >= 0:
                os.close(descriptor)
