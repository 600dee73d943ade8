"""Reads the agent's tables over ONC RPC (RFC 5531) the way its client does: {key: counters}."""
import itertools
import socket
import struct

_xids = itertools.count(1)


class Reader:
    """Takes XDR values (RFC 4506) off a reply: i = int, Q = unsigned hyper, a = byte list,
    A = 20 bytes, each byte in a unit of its own."""

    def __init__(self, data):
        self._data, self._at = data, 0

    def _take(self, code):
        values = struct.unpack_from(f">{code}", self._data, self._at)
        self._at += struct.calcsize(f">{code}")
        return values

    def read(self, kinds):
        out = []
        for kind in kinds:
            if kind in "iQ":
                out += self._take(kind.replace("i", "I"))
            else:
                units = self._take("I")[0] if kind == "a" else 20
                out.append(bytes(self._take(f"{units}I")))
        return out


def _pack(values):
    out = b""
    for value in values:
        if isinstance(value, bytes):
            count = b"" if len(value) == 20 else struct.pack(">I", len(value))
            out += count + struct.pack(f">{len(value)}I", *value)
        else:
            out += struct.pack(">I", value & 0xFFFFFFFF)
    return out


def call(sock, procedure, values):
    head = struct.pack(">10I", next(_xids), 0, 2, 99999, 1, procedure, 0, 0, 0, 0)
    message = head + _pack(values)
    sock.sendall(struct.pack(">I", 0x80000000 | len(message)) + message)
    stream = sock.makefile("rb", buffering=0)

    def exactly(size):
        data = b""
        while len(data) < size:
            more = stream.read(size - len(data))
            assert more, "the agent closed the connection"
            data += more
        return data

    data = b""
    last = False
    while not last:
        mark, = struct.unpack(">I", exactly(4))
        last = bool(mark & 0x80000000)
        data += exactly(mark & 0x7FFFFFFF)
    assert struct.unpack_from(">5I", data, 4) == (1, 0, 0, 0, 0), "an accepted call"
    return Reader(data[24:])


ADDRESS20 = bytes(20)
# name: (procedure, start key, request of a key, kinds of a row, key of a row, counters of a row)
BULK = {
    "host": (11, (b"",), lambda k: (1, *k, 100, 3), "iaiiQQQQQQQ", lambda r: (r[1],), lambda r: r[4:]),
    "matrix": (18, (b"", b""), lambda k: (1, *k, 100, 3, 0), "iaaiQQQ", lambda r: tuple(r[1:3]), lambda r: r[4:]),
    "pdist": (26, (0,), lambda k: (1, *k, 3, 100), "iiiQQi", lambda r: (r[2],), lambda r: r[3:5]),
    "nlhost": (34, (0, b""), lambda k: (1, 0, k[0], 0, k[1], 3, 0, 100), "iiaQQQQQiiii",
               lambda r: (r[10], r[2]), lambda r: r[3:8]),
    "nlmatrix": (37, (0, b"", b""), lambda k: (1, 0, k[0], 0, k[1], k[2], 3, 0, 0, 100), "iiaaQQiiii",
                 lambda r: (r[8], r[2], r[3]), lambda r: r[4:6]),
}
SINGLE = {
    "vlan": (78, (0,), lambda k, request: (1, *k, request), "iQQQQii", lambda r: (r[0],), lambda r: r[1:5]),
    "prio": (81, (-1,), lambda k, request: (1, *k, request), "iQQi", lambda r: (r[0],), lambda r: r[1:3]),
    "dsstats": (74, (0,), lambda k, request: (1, *k, request), "iiQQQQ", lambda r: (r[0],), lambda r: r[2:]),
    "dspdist": (137, (0, 0), lambda k, request: (1, 0, *k, request), "iiiiQQ", lambda r: tuple(r[2:4]),
                lambda r: r[4:]),
    "dshost": (138, (0, 0, ADDRESS20, 0), lambda k, request: (1, 0, *k, request), "iiiiAiQQQQ",
               lambda r: tuple(r[2:6]), lambda r: r[6:]),
    "dsmatrix": (141, (0, 0, ADDRESS20, ADDRESS20, 0, 0, 0), lambda k, request: (1, 0, *k, request),
                 "iiiiAAiiiQQ", lambda r: tuple(r[2:9]), lambda r: r[9:]),
}


def walk(port, name):
    """All rows of control index 1, in the agent's order."""
    rows = []
    with socket.create_connection(("127.0.0.1", port), timeout=20) as sock:
        if name in BULK:
            procedure, key, request, kinds, key_of, counters_of = BULK[name]
            while True:
                reply = call(sock, procedure, request(key))
                batch = [reply.read(kinds) for _ in range(reply.read("i")[0])]
                rows += [(key_of(row), counters_of(row)) for row in batch]
                if not batch:
                    return rows
                key = rows[-1][0]
        procedure, key, request, kinds, key_of, counters_of = SINGLE[name]
        wanted = 1 if name == "dsstats" else 2  # group 0 is asked for exactly
        while True:
            reply = call(sock, procedure, request(key, wanted))
            if reply.read("i")[0] == 0:
                row = reply.read(kinds)
                rows.append((key_of(row), counters_of(row)))
                key = rows[-1][0]
                again = call(sock, procedure, request(key, 1))
                assert again.read("i")[0] == 0 and again.read(kinds) == row, "request 1 finds the same row"
            elif wanted == 2:
                return rows
            wanted = 2


def totals(port):
    """Packets and octets of control index 1."""
    with socket.create_connection(("127.0.0.1", port), timeout=20) as sock:
        return call(sock, 184, (1,)).read("iQQ")[1:]
