"""The agent's binary, running for a test, and its interface over ONC RPC (RFC 5531, RFC 4506) written down once more,
so that tests say what is on the wire, whatever tapd.x makes of it."""
import os
import socket
import struct
import subprocess

BINARY = os.environ["MINITAPD"]  # which ctest names
XID = 100

# Table: procedure, members of its request, members of its rows. A member is an int, or NAME:KIND: a = byte list,
# A = 20 bytes, each byte in a unit of its own; s = string; NUMBERQ and NUMBERI = so many unsigned hypers and ints.
BULK = {
    "host": (11, "index address:a count mode", "status address:a creation_order index counters:7Q"),
    "matrix": (18, "index source:a dest:a count mode direction", "status source:a dest:a index counters:3Q"),
    "pdist": (26, "index local_index mode count", "status index local_index counters:2Q tag"),
    "nlhost": (34, "index time_mark local_index reserved_1 address:a mode reserved_2 count",
               "status time_mark address:a counters:5Q create_time index local_index reserved"),
    "nlmatrix": (37, "index time_mark local_index reserved_1 source:a dest:a mode reserved_2 reserved_3 count",
                 "status time_mark source:a dest:a counters:2Q create_time index local_index reserved"),
}
SINGLE = {
    "vlan": (78, "index id request", "id counters:4Q create_time index"),
    "prio": (81, "index id request", "id counters:2Q index"),
    "dsstats": (74, "index group request", "group index counters:4Q"),
    "dspdist": (137, "index time_mark group local_index request", "index time_mark group local_index counters:2Q"),
    "dshost": (138, "index time_mark group local_index address:A address_word request",
               "index time_mark group local_index address:A address_word counters:4Q"),
    "dsmatrix": (141, "index time_mark group local_index source:A dest:A key_word_1 key_word_2 key_word_3 request",
                 "index time_mark group local_index source:A dest:A key_word_1 key_word_2 key_word_3 counters:2Q"),
}
TABLES = BULK | SINGLE


def words(*values):
    return struct.pack(f">{len(values)}I", *(value & 0xFFFFFFFF for value in values))


def members(layout):
    return [member.partition(":")[::2] for member in layout.split()]


def key_names(table):
    _, request, row = TABLES[table]
    return [name for name, _ in members(request) if name in dict(members(row)).keys() - {"index", "time_mark"}]


def pack(layout, values):
    out = b""
    for name, kind in members(layout):
        value = values[name]
        if kind in ("a", "A"):
            out += (words(len(value)) if kind == "a" else b"") + words(*value)
        elif kind == "s":
            out += words(len(value)) + value.encode() + bytes(-len(value) % 4)
        else:
            out += struct.pack(f">{kind}", *value) if kind else words(value)
    return out


def unpack(layout, reply):
    """Takes the members off the reply, a bytearray."""
    values = {}
    for name, kind in members(layout):
        size = int.from_bytes(reply[:4], "big") if kind == "a" else 20
        code = {"": ">I", "a": f">4x{size}I", "A": ">20I"}.get(kind, f">{kind}")
        taken = struct.unpack_from(code, reply)
        del reply[:struct.calcsize(code)]
        values[name] = bytes(taken) if kind in ("a", "A") else taken if kind else taken[0]
    return values


def record(procedure, argument=b"", program=99999, version=1):
    return words(0x80000000 | 40 + len(argument), XID, 0, 2, program, version, procedure, 0, 0, 0, 0) + argument


class Connection:
    def __init__(self, port):
        self._socket = socket.create_connection(("127.0.0.1", port), timeout=20)
        self.send = self._socket.sendall
        self.receive = self._socket.makefile("rb").read

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self._socket.close()

    def at_end(self):
        try:
            return self.receive(1) == b""
        except ConnectionResetError:
            return True

    def call(self, procedure, argument=b""):
        """The results of a call that must be accepted."""
        self.send(record(procedure, argument))
        data, mark = b"", 0
        while not mark & 0x80000000:
            mark, = struct.unpack(">I", self.receive(4))
            data += self.receive(mark & 0x7FFFFFFF)
        assert data[:24] == words(XID, 1, 0, 0, 0, 0), "an accepted call"
        return bytearray(data[24:])

    def rows(self, table, **asked):
        """The rows of one reply; what is not asked for explicitly is 0 and empty."""
        procedure, request, told = TABLES[table]
        values = {name: {"a": b"", "A": bytes(20)}.get(kind, 0) for name, kind in members(request)}
        reply = self.call(procedure, pack(request, values | {"mode": 3, "count": 100, "request": 2} | asked))
        count, = unpack("count", reply).values()
        return [unpack(told, reply) for _ in range(count if table in BULK else 1 - count)]

    def walk(self, table):
        """{key: counters} of control index 1, in the agent's order."""
        key = {"id": -1} if table == "prio" else {}  # stands before 0
        request = 1 if table == "dsstats" else 2  # group 0 is asked for exactly
        found = {}
        while (rows := self.rows(table, index=1, request=request, **key)) or request == 1:
            for row in rows:
                key = {name: row[name] for name in key_names(table)}
                assert tuple(key.values()) not in found
                found[tuple(key.values())] = list(row["counters"])
                if table in SINGLE:
                    assert self.rows(table, index=1, request=1, **key) == [row], "the same row"
            request = 2
        return found


class Agent:
    """Runs the binary on a free port until the end of a with statement; then its messages are in `errors`."""

    def __init__(self, *arguments):
        self._process = subprocess.Popen([BINARY, "--port", "0", *map(str, arguments)], stdout=subprocess.PIPE,
                                         stderr=subprocess.PIPE, text=True)
        self.port = int(self._process.stdout.readline().split()[-1])
        self.errors = None

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self._process.kill()
        self.errors = self._process.communicate()[1]

    def connect(self):
        return Connection(self.port)

    def writes(self):
        """How often it has tried to write anything."""
        with open(f"/proc/{self._process.pid}/io", encoding="ascii") as file:
            return next(int(line.split()[1]) for line in file if line.startswith("syscw"))
