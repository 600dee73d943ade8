"""The appliance's syslog: a datagram socket at /dev/log that keeps every message of the daemon.

A scenario takes the messages that it expects; what is left at its end was not expected.
"""
import re
import socket
import threading
import time

from .paths import LOG_SOCKET
from .processes import PATIENCE

DEBUG, WARNING = 151, 148  # facility local2

# What glibc's syslog() sends: priority, time stamp, the program's name.
_FRAME = re.compile(rb"<(\d+)>\w{3} [ \d]\d \d\d:\d\d:\d\d ([^:]*): (.*)", re.DOTALL)


class Syslog:
    def __init__(self):
        LOG_SOCKET.unlink(missing_ok=True)
        self._socket = socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM)
        self._socket.bind(str(LOG_SOCKET))
        LOG_SOCKET.chmod(0o666)
        self._entries = []  # (priority, text), oldest first, not yet taken
        self.history = []  # all that ever came, for the report of a failure
        self._arrived = threading.Condition()
        threading.Thread(target=self._receive, daemon=True).start()

    def _receive(self):
        while True:
            datagram = self._socket.recv(65536)
            match = _FRAME.fullmatch(datagram)
            entry = (-1, datagram) if match is None else (int(match[1]), match[3].decode("latin-1"))
            with self._arrived:
                self._entries.append(entry)
                self.history.append((round(time.time(), 3), *entry))
                self._arrived.notify_all()

    def wait(self, text, level=None, count=1, timeout=PATIENCE):
        """Take `count` messages with this very text; fail when they do not come in time."""
        taken = self._take(lambda entry: entry[1] == text, count, timeout)
        assert len(taken) == count, (f"{len(taken)} of {count} times in the log: {text!r}; "
                                     f"not taken yet: {self.peek()}")
        if level is not None:
            assert {priority for priority, _ in taken} == {level}, taken
        return taken

    def expect(self, *entries, timeout=PATIENCE):
        """Take these (priority, text) messages, which must be all there are, in this order."""
        found = self._take(lambda entry: True, len(entries), timeout)
        assert found == list(entries)

    def take_all(self, text=None):
        """Take what has come (of one text, or all) without waiting."""
        return self._take(lambda entry: text is None or entry[1] == text, 0, 0)

    def peek(self):
        with self._arrived:
            return list(self._entries)

    def _take(self, wanted, count, timeout):
        """Take the first `count` (0: all) messages that are wanted, or those that came in time."""
        deadline = time.monotonic() + timeout
        with self._arrived:
            while True:
                found = [entry for entry in self._entries if wanted(entry)]
                left = deadline - time.monotonic()
                if len(found) >= count or left <= 0:
                    break
                self._arrived.wait(left)
            found = found[:count] if count else found
            for entry in found:
                self._entries.remove(entry)
            return found
