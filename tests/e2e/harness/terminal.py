"""tallyctl on a terminal of some size, and what stands there."""
import contextlib
import fcntl
import os
import pty
import re
import signal
import struct
import subprocess
import termios

from . import processes
from .paths import TALLYCTL

UP, DOWN, RIGHT, LEFT = ("\x1b[A", "\x1bOB", "\x1b[C", "\x1b[D")


def on_screen(line, kind="xterm", no_color=""):
    """What a command writes to a screen of 10 lines of 40 characters."""
    screen, terminal = pty.openpty()
    with open(screen, "rb", buffering=0) as shown, open(terminal, "wb") as written:
        fcntl.ioctl(written, termios.TIOCSWINSZ, struct.pack("4H", 10, 40, 0, 0))
        subprocess.run([TALLYCTL, *line.split()], stdout=written, stdin=subprocess.DEVNULL, timeout=60, check=True,
                       env={**os.environ, "TERM": kind, "NO_COLOR": no_color})
        return shown.read(65536).decode()


class Watch:
    """tallyctl watch on a terminal, and what stands there."""
    def __init__(self, line, size, locale):
        screen, self.terminal = pty.openpty()
        self.screen = open(screen, "r+b", buffering=0)
        os.set_blocking(screen, False)
        self.written, self.process = "", None
        self.resize(*size)
        self.process = subprocess.Popen([TALLYCTL, "watch", *line.split()], stdin=self.terminal, stdout=self.terminal,
                                        env={**os.environ, "TERM": "xterm", "NO_COLOR": "", "LC_ALL": locale})

    def resize(self, lines, columns):
        self.size = lines, columns
        fcntl.ioctl(self.terminal, termios.TIOCSWINSZ, struct.pack("4H", lines, columns, 0, 0))
        if self.process:
            self.process.send_signal(signal.SIGWINCH)

    def frame(self):
        """The last whole one; before it only whole ones went by."""
        self.written += (self.screen.read(1 << 20) or b"").decode()
        frame = self.written.rpartition("\x1b[0m")[0].rpartition("\x1b[H")[2]
        return re.sub(r"\x1b\[[0-9;]*[mK]", "", frame).replace("\r", "")

    def shows(self, *texts, without=()):
        """These soon, in as many lines as there are, of which none is too long."""
        def wrong():
            frame = self.frame()
            return [text for text in texts if text not in frame] + [text for text in without if text in frame] + \
                [line for line in frame.split("\n") if len(line) > self.size[1] or frame.count("\n") + 1 != self.size[0]]
        with contextlib.suppress(AssertionError):
            processes.wait_until(lambda: not wrong())
        assert not wrong(), self.frame()

    def gave_back(self):
        self.frame()
        return self.written.endswith("\x1b[?7h\x1b[?25h\x1b[?1049l") and termios.tcgetattr(self.terminal)[3] & termios.ECHO

    def press(self, keys, *texts, without=()):
        self.screen.write(keys.encode())
        self.shows(*texts, without=without)
