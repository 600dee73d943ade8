"""A scripted supervisor: answers SNMP requests out of a table, remembers what it was asked, and
misbehaves on demand.

Every request is compared, byte by byte, with what the query that it is recognised as must look like; `asked` then holds that query's name and the instance numbers in it.
"""
import bisect
import collections
import socket
import threading
import time

from .ber import (COUNTER32, COUNTER64, END_OF_MIB, GAUGE32, GET, GET_NEXT, INTEGER, NO_INSTANCE, OCTETS, OID,
                  RESPONSE, TICKS, Binding, Pdu, message, parse_request)

ADDRESS, PORT = "127.0.0.11", 161
MIB_2 = (1, 3, 6, 1, 2, 1)
UP_TIME = (*MIB_2, 1, 3, 0)
IF, IFX = (*MIB_2, 2, 2, 1), (*MIB_2, 31, 1, 1, 1)
ETHER, OVERFLOW = (*MIB_2, 16, 1, 1, 1), (*MIB_2, 16, 1, 7, 1)
CONTROL, VLAN = (*MIB_2, 16, 22, 1, 2, 1, 1), (*MIB_2, 16, 22, 1, 2, 2, 1)
DUPLEX = (*MIB_2, 10, 7, 2, 1, 19)
PORT_DUPLEX = (1, 3, 6, 1, 4, 1, 32473, 1, 4, 1, 1, 1, 10)

# Of each counter of an Ethernet row: its column, and that of its upper 32 bits.
ETHER_COUNTERS = [(3, None), (4, 3), (5, 1), *[(column, None) for column in range(6, 14)],
                  (14, 5), (15, 7), (16, 9), (17, 11), (18, 13), (19, 15)]
WIDE = range(6, 14)  # the 64-bit columns of IFX
NARROW = (10, 11, 12, 13, 14, 16, 17, 18, 19, 20)

# Name: (type of PDU, names of the bindings from the instance numbers).
QUERIES = {
    "ether walk": (GET_NEXT, lambda index: [(*ETHER, column, index) for column in (1, 20, 21, 2)]),
    "ether counters": (GET, lambda index, port: [UP_TIME, *[
        name for low, high in ETHER_COUNTERS
        for name in [(*ETHER, low, index), (*OVERFLOW, high or 0, index)][:2 if high else 1]],
        (*IF, 5, port), (*IF, 9, port)]),
    "state": (GET, lambda port: [(*IF, 8, port), (*IF, 9, port)]),
    "name": (GET, lambda port: [(*IFX, 1, port), (*IF, 8, port), (*IF, 9, port)]),
    "port duplex": (GET, lambda module, port: [(*PORT_DUPLEX, module, port)]),
    "duplex": (GET, lambda port: [(*DUPLEX, port)]),
    "vlan walk": (GET_NEXT, lambda index: [(*CONTROL, column, index) for column in (4, 5, 2)]),
    "vlan counters": (GET, lambda index, vlan: [UP_TIME, *[(*VLAN, column, index, vlan) for column in (4, 7, 10, 13)]]),
    "port walk": (GET_NEXT, lambda port: [(*IFX, 1, port), (*IF, 8, port)]),
    "wide counters": (GET, lambda port: [(*IF, 5, port), *[(*IFX, column, port) for column in WIDE],
                                         *[(*IF, column, port) for column in (13, 14, 19, 20)]]),
    "narrow counters": (GET, lambda port: [(*IF, column, port) for column in (5, *NARROW)]),
}


def recognised(pdu):
    """(query, instance numbers) of a request, by its type, its length and the numbers at its end."""
    names = [each.name for each in pdu.bindings]
    for query, (kind, expected) in QUERIES.items():
        parameters = expected.__code__.co_argcount
        instance = names[-1][-parameters:]
        if query == "ether counters" and len(names) > 1:
            instance = names[1][-1], names[-1][-1]
        if kind == pdu.kind and len(instance) == parameters and expected(*instance) == names:
            return query, *instance
    return ("unknown", *names)


def ether_row(index, port, counters, owner=b"monitor", status=1):
    """The objects of one row of the Ethernet statistics; the counters have up to 64 bits."""
    row = {(*ETHER, 1, index): (INTEGER, index), (*ETHER, 2, index): (OID, (*IF, 1, port)),
           (*ETHER, 20, index): (OCTETS, owner), (*ETHER, 21, index): (INTEGER, status)}
    for (low, high), value in zip(ETHER_COUNTERS, counters):
        row[(*ETHER, low, index)] = COUNTER32, value & 0xFFFFFFFF
        if high:
            row[(*OVERFLOW, high, index)] = GAUGE32, value >> 32
    return row


def vlan_row(index, vlan, counters, owner=b"monitor", status=1):
    row = {(*CONTROL, 2, index): (OID, (*MIB_2, 16, 22, 1, 4, 1, vlan)),
           (*CONTROL, 4, index): (OCTETS, owner), (*CONTROL, 5, index): (INTEGER, status)}
    row.update({(*VLAN, column, index, vlan): (COUNTER64, value) for column, value in zip((4, 7, 10, 13), counters)})
    return row


def port(index, name=None, status=1, change=0, speed=10**9, wide=(0,) * 8, narrow=(0,) * 10):
    """The objects of an interface: `wide` are the IFX columns 6 to 13, `narrow` the counters of IF."""
    name = b"port%d" % index if name is None else name
    return {(*IFX, 1, index): (OCTETS, name), (*IF, 5, index): (GAUGE32, speed),
            (*IF, 8, index): (INTEGER, status), (*IF, 9, index): (TICKS, change),
            **{(*IFX, column, index): (COUNTER64, value) for column, value in zip(WIDE, wide)},
            **{(*IF, column, index): (COUNTER32, value) for column, value in zip(NARROW, narrow)}}


def rows(*numbers):
    """A row of each table for each number, all with the same small counters."""
    return [row for number in numbers for row in (
        ether_row(number, number, range(17)), vlan_row(number, number, range(1, 5)), port(number, wide=range(8)))]


def changed(**fields):
    """A step that answers with other fields of the PDU."""
    return lambda answer: [answer._replace(**fields)]


def cut(length):
    """A step that answers with the first bindings only."""
    return lambda answer: [answer._replace(bindings=answer.bindings[:length])]


def bound(at, *others):
    """A step that answers with other bindings from this one on, each (name, type, value) or None for
    the name of the true one."""
    def step(answer):
        bindings = list(answer.bindings)
        for offset, (name, kind, value) in enumerate(others):
            name = bindings[at + offset].name if name is None else name
            bindings[at + offset:at + offset + 1] = [Binding(name, kind, value)]
        return [answer._replace(bindings=bindings)]
    return step


def silence(_):
    return []


Elsewhere = collections.namedtuple("Elsewhere", "pdu")  # sent by another host


class Supervisor:
    """Steps of misbehaviour turn the true answer into what is sent, in this order: PDUs, of ours or
    from elsewhere, bytes, and numbers, which are seconds to wait."""

    def __init__(self, address=ADDRESS):
        self.address = address
        self.table = {}
        self._socket = None
        self.restart()

    def restart(self, community=b"kivrel"):
        """Serve an empty table, and forget everything."""
        self.community = community
        self.serve()
        self.asked, self.wrong = [], []
        self._steps = collections.defaultdict(list)

    def serve(self, *rows):
        self.table = {UP_TIME: (TICKS, 12345), **{name: value for row in rows for name, value in row.items()}}
        self._order = sorted(self.table)

    def misbehave(self, query, *steps, always=None):
        """The next requests of a query are answered by these steps, one each; all later ones by
        `always`, if there is one."""
        self._steps[query] = [list(steps), always]

    def behave(self):
        self._steps.clear()

    def take_asked(self):
        asked, self.asked = self.asked, []
        return asked

    def start(self):
        self._socket = socket.socket(socket.AF_INET, socket.SOCK_DGRAM)
        self._socket.bind((self.address, PORT))
        self._thread = threading.Thread(target=self._run, args=(self._socket,), daemon=True)
        self._thread.start()
        return self

    def stop(self):
        """Leave the port; nobody answers there any more."""
        self._socket = None
        with socket.socket(socket.AF_INET, socket.SOCK_DGRAM) as end_of_wait:
            end_of_wait.sendto(b"", (self.address, PORT))
        self._thread.join()

    def _run(self, sock):
        with sock:
            while True:
                data, sender = sock.recvfrom(65536)
                if self._socket is not sock:
                    return
                try:
                    self._answer(sock, data, sender)
                except Exception as error:  # in a script; it must not look like silence
                    self.wrong.append(error)

    def _answer(self, sock, data, sender):
        community, pdu = parse_request(data)
        query, *instance = recognised(pdu)
        self._check(data, community, pdu, query)
        self.asked.append((query, *instance))
        answer = Pdu(RESPONSE, pdu.id, 0, 0, [self._look_up(pdu.kind, each.name) for each in pdu.bindings])
        steps, always = self._steps.get(query) or ([], None)
        step = steps.pop(0) if steps else always
        for item in step(answer) if step else [answer]:
            if isinstance(item, (int, float)):
                time.sleep(item)
            elif isinstance(item, Elsewhere):
                with socket.socket(socket.AF_INET, socket.SOCK_DGRAM) as other:
                    other.sendto(message(item.pdu, community), sender)
            else:
                sock.sendto(item if isinstance(item, bytes) else message(item, community), sender)

    def _check(self, data, community, pdu, query):
        expected = message(pdu._replace(error=0, index=0), self.community)
        age = (int(time.time()) - pdu.id) & 0x7FFF
        if query == "unknown" or community != self.community or data != expected or age > 5:
            self.wrong.append((query, data.hex(), age))

    def _look_up(self, kind, name):
        if kind == GET_NEXT:
            at = bisect.bisect_right(self._order, name)
            if at == len(self._order):
                return Binding(name, END_OF_MIB)
            name = self._order[at]
        return Binding(name, *self.table.get(name, (NO_INSTANCE, None)))
