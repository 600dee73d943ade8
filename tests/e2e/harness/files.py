"""Collection files, read as the web pages read them, and their rows as plain values.

A row is (key bytes, counters as a tuple of floats). This knows nothing of the daemon's code: the
layouts are written down again from the formats that the appliance's programs agree on.
"""
import collections
import fcntl
import struct

from . import processes
from .paths import DATA

Header = collections.namedtuple("Header", "interval up_time time type")
Sample = collections.namedtuple("Sample", "header rows")


class Layout:
    """One type's records: `key` bytes, then `counters` doubles."""

    def __init__(self, code, stem, key, counters, order=bytes):
        self.code, self.stem, self.key, self.counters = code, stem, key, counters
        self.order = order  # what the records are sorted by, made from the key bytes
        self._tail = struct.Struct(f"<{counters}d")
        self.size = key + self._tail.size

    def path(self, index, kind):
        return DATA / f"{self.stem}_{index}_{kind}.bin"

    def paths(self, index):
        return [self.path(index, kind) for kind in ("prev", "last", "delta")]

    def pack(self, header, rows):
        return struct.pack("<iIiI", *header) + b"".join(
            key + self._tail.pack(*counters) for key, counters in rows)

    def unpack(self, data):
        header, body = data[:16], data[16:]
        assert len(header) == 16 and len(body) % self.size == 0, f"{len(data)} bytes"
        return Sample(Header(*struct.unpack("<iIiI", header)), [
            (body[at:at + self.key], self._tail.unpack_from(body, at + self.key))
            for at in range(0, len(body), self.size)])

    def read(self, index, kind):
        """The file's sample, read under a shared lock."""
        with open(self.path(index, kind), "rb") as file:
            fcntl.flock(file, fcntl.LOCK_SH)
            return self.unpack(file.read())


def words(key):
    """The order of keys that are 32-bit numbers."""
    return struct.unpack(f"<{len(key) // 4}I", key)


def _local_index(key):
    """Protocols are ordered by the local index alone; the tag before it takes no part."""
    return words(key)[1]


HOST = Layout(0, "host", 6, 7)
MATRIX = Layout(1, "matrix", 12, 3)
PDIST = Layout(2, "pdist", 8, 2, order=_local_index)
NLHOST = Layout(3, "nlhost", 24, 5)  # numbers and all, byte by byte, as they lie in the file
NLMATRIX = Layout(4, "nlmatrix", 44, 2)
VLAN = Layout(5, "vlan", 4, 4, order=words)
PRIO = Layout(6, "prio", 4, 2, order=words)
DSSTATS = Layout(7, "dsstats", 4, 4, order=words)
DSPDIST = Layout(8, "dspdist", 8, 2, order=words)
DSHOST = Layout(9, "dshost", 28, 4)

BATCHED = (HOST, MATRIX, PDIST, NLHOST, NLMATRIX)
SINGLE = (VLAN, PRIO, DSSTATS, DSPDIST, DSHOST)  # one row a call
LAYOUTS = BATCHED + SINGLE  # by their codes; nobody can create the eleventh, dsmatrix


def listing():
    return sorted(path.name for path in DATA.iterdir())


def wait_for_listing(names):
    """Wait until these are all the files there are."""
    try:
        processes.wait_until(lambda: listing() == sorted(names))
    except AssertionError:
        assert listing() == sorted(names)
