"""Collection files, read as the web pages read them, and their records: each type's layout stands here,
once for all tests, taken from the formats that the appliance's programs agree on and not from the
daemon's code. What travels between daemon and agent is described apart.
"""
import collections
import fcntl
import struct

from . import processes
from .paths import DATA

Header = collections.namedtuple("Header", "interval up_time time type")
HEADER = struct.Struct("<iIiI")
Sample = collections.namedtuple("Sample", "header rows")

NUMBER, MAC, TEXT, COUNTED = "I", "6s", "16s", "I16s"  # formats of struct; COUNTED has its length in front


def words(key):
    """The order of keys that are 32-bit numbers."""
    return struct.unpack(f"<{len(key) // 4}I", key)


class Layout:
    """One type's records: a key, then `counters` doubles. `parts` has the format of each part of the key,
    by its name in the agent's scripts; `order` makes from key bytes what records are sorted by.

    A row is (key bytes, counters as a tuple of floats)."""

    def __init__(self, code, stem, counters, order=bytes, **parts):
        self.code, self.stem, self.counters, self.order, self.parts = code, stem, counters, order, parts
        self.form = "".join(parts.values()) + f"{counters}d"
        self._tail = struct.Struct(f"<{counters}d")
        self.size = struct.calcsize("<" + self.form)
        self.key = self.size - self._tail.size

    def pack_key(self, *values):
        """Addresses and names are cut, or filled up with zeros, to the size of their field."""
        def packed(form, value):
            if form == COUNTED:
                return struct.pack("<I16s", min(len(value), 16), value)
            return struct.pack("<" + form, value & 0xFFFFFFFF if form == NUMBER else value)
        return b"".join(packed(*each) for each in zip(self.parts.values(), values, strict=True))

    def path(self, index, kind):
        number = f"{index}_" if self.code < 12 else ""  # there is one collection of a supervisor kind
        return DATA / f"{self.stem}_{number}{kind}.bin"

    def paths(self, index):
        return [self.path(index, kind) for kind in ("prev", "last", "delta")]

    def pack(self, header, rows):
        return HEADER.pack(*header) + b"".join(
            key + self._tail.pack(*counters) for key, counters in rows)

    def unpack(self, data):
        header, body = data[:16], data[16:]
        assert len(header) == 16 and len(body) % self.size == 0, f"{len(data)} bytes"
        return Sample(Header(*HEADER.unpack(header)), [
            (body[at:at + self.key], self._tail.unpack_from(body, at + self.key))
            for at in range(0, len(body), self.size)])

    def sampled(self, index, kind="last"):
        """The time of the finished sample; 0 while there is none, which is so whenever a poll replaces it."""
        try:
            with open(self.path(index, kind), "rb") as file:
                return Header(*HEADER.unpack(file.read(16))).time
        except (FileNotFoundError, struct.error):
            return 0

    def read(self, index, kind):
        """The file's sample, read under a shared lock."""
        with open(self.path(index, kind), "rb") as file:
            fcntl.flock(file, fcntl.LOCK_SH)
            return self.unpack(file.read())


HOST = Layout(0, "host", 7, address=MAC)
MATRIX = Layout(1, "matrix", 3, source=MAC, dest=MAC)
# Protocols are ordered by the local index alone; the tag before it takes no part.
PDIST = Layout(2, "pdist", 2, order=lambda key: words(key)[1], tag=NUMBER, local_index=NUMBER)
NLHOST = Layout(3, "nlhost", 5, local_index=NUMBER, address=COUNTED)  # numbers and all, byte by byte
NLMATRIX = Layout(4, "nlmatrix", 2, local_index=NUMBER, source=COUNTED, dest=COUNTED)
VLAN = Layout(5, "vlan", 4, order=words, id=NUMBER)
PRIO = Layout(6, "prio", 2, order=words, id=NUMBER)
DSSTATS = Layout(7, "dsstats", 4, order=words, group=NUMBER)
DSPDIST = Layout(8, "dspdist", 2, order=words, group=NUMBER, local_index=NUMBER)
DSHOST = Layout(9, "dshost", 4, group=NUMBER, local_index=NUMBER, address_word=NUMBER, address=TEXT)
DSMATRIX = Layout(10, "dsmatrix", 2, group=NUMBER, local_index=NUMBER, key_word_2=NUMBER, source=TEXT,
                  key_word_3=NUMBER, dest=TEXT, key_word_1=NUMBER)
ETHER = Layout(12, "etherstats", 18, port=NUMBER, index=NUMBER, name=COUNTED)  # utilisation and 17 rates
VLANS = Layout(13, "supvlan", 4, order=words, id=NUMBER)
PORTS = Layout(14, "ifstats", 12, order=lambda key: words(key[:4]), index=NUMBER, name=COUNTED)

BATCHED = (HOST, MATRIX, PDIST, NLHOST, NLMATRIX)
SINGLE = (VLAN, PRIO, DSSTATS, DSPDIST, DSHOST)  # one row a call
LAYOUTS = BATCHED + SINGLE  # by their codes; nobody can create the eleventh, dsmatrix
TYPES = {layout.stem: layout for layout in (*LAYOUTS, DSMATRIX, ETHER, VLANS, PORTS)}
FORMATS = {stem: (layout.code, layout.form) for stem, layout in TYPES.items()}


def listing():
    return sorted(path.name for path in DATA.iterdir())


def wait_for_listing(names):
    """Wait until these are all the files there are."""
    try:
        processes.wait_until(lambda: listing() == sorted(names))
    except AssertionError:
        assert listing() == sorted(names)
