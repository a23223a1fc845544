"""Runs a program on a terminal of its own and keeps what the terminal shows."""

import fcntl
import os
import pty
import re
import select
import struct
import subprocess
import termios
import time

TERMINAL_LIMIT_S = 60
READ_SIZE = 4096

SEQUENCE = re.compile(r"\x1b\[([?0-9;]*)([A-Za-z])")
COLOUR = re.compile(r"\x1b\[[0-9;]*[34590][0-9]m")  # a colour of text or background; a reset has no number


class Terminal:
    """What one program wrote to its terminal, and how it ended."""

    def __init__(self, command, environment, columns=120, rows=100, when=None, answer=b""):
        """Once the text when has been shown, answer is typed."""
        self._columns = columns
        end, other_end = pty.openpty()
        fcntl.ioctl(other_end, termios.TIOCSWINSZ, struct.pack("HHHH", rows, columns, 0, 0))
        program = subprocess.Popen(command, env={**environment, "TERM": "xterm"}, stdin=other_end, stdout=other_end,
                                   stderr=other_end, start_new_session=True)
        os.close(other_end)
        try:
            self.text = self._read(end, when, answer).decode("utf-8")
            self.code = program.wait(timeout=TERMINAL_LIMIT_S)
        finally:
            if program.poll() is None:
                program.kill()
                program.wait()
            os.close(end)

    @staticmethod
    def _read(end, when, answer):
        shown = b""
        deadline = time.monotonic() + TERMINAL_LIMIT_S
        while time.monotonic() < deadline:
            if not select.select([end], [], [], 1)[0]:
                continue
            try:
                chunk = os.read(end, READ_SIZE)
            except OSError:  # how Linux reports that the other end is closed
                return shown
            shown += chunk
            if when is not None and when in shown:
                os.write(end, answer)
                when = None
        raise AssertionError(f"the program does not end; it showed {shown!r}")

    @property
    def is_coloured(self):
        return COLOUR.search(self.text) is not None

    def lines(self):
        """The screen, line by line, without colours and trailing blanks."""
        rows = [[]]
        x = 0
        position = 0
        while position < len(self.text):
            sequence = SEQUENCE.match(self.text, position)
            if sequence:
                position = sequence.end()
                argument, kind = sequence.groups()
                if kind == "C":
                    x += int(argument or 1)
                elif kind == "K":
                    del rows[-1][x:]
                elif kind not in "mlh":
                    raise AssertionError(f"the terminal was sent {sequence.group()!r}")
                continue
            character = self.text[position]
            position += 1
            if character == "\r":
                x = 0
            elif character == "\n":
                rows.append([])
            else:
                row = rows[-1]
                row.extend(" " * (x + 1 - len(row)))
                row[x] = character
                x += 1
        return ["".join(row).rstrip() for row in rows]
