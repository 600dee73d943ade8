"""VLAN and interface statistics: samples and deltas to the last byte, and which rows they have."""
import time

import pytest

from harness.ber import COUNTER32, COUNTER64, GAUGE32, NO_INSTANCE, NO_OBJECT, NULL
from harness.collection import next_second
from harness.kinds import PORTS, VLANS, Kind, port_change, port_sample, vlan_change
from harness.model import merge
from harness.supervisor import CONTROL, bound, changed, cut, port, vlan_row
from harness.syslog import DEBUG

TOP = 2**64 - 1
WORD = 2**32 - 1
# Label: a 64-bit counter before and after. None: the row is not there then.
WIDE = {
    "ordinary": (1000, 4567),
    "unchanged": (77, 77),
    "reset": (1000, 10),
    "wrapped": (TOP - 5000, 300),
    "wrapped from just above it": (2**63 + 2048, 5),
    "beyond 53 bits": (2**53 + 1, 2**53 + 2**40 + 3),
    "gone": (5, None),
    "new": (None, 999),
    "new and still at nothing": (None, 0),
}
# A 32-bit counter likewise.
NARROW = {
    "ordinary": (1000, 4567),
    "unchanged": (77, 77),
    "wrapped": (4294967000, 100),
    "down by one": (5, 4),
    "from end to end": (WORD, 0),
    "gone": (5, None),
    "new": (None, 999),
    "new and still at nothing": (None, 0),
}


def spread(value, count, top):
    """A counter case for several counters: the same with a little more in each, where there is room."""
    return tuple(min(value + at * 3, top) if 0 < value < top - 100 else value for at in range(count))


def port_columns(number, which, wide):
    """(speed, wide columns, narrow columns) of case `number`, before (0) or after (1), or None."""
    cases = WIDE if wide else NARROW
    value = list(cases.values())[number % len(cases)][which]
    if value is None:
        return None
    low = list(NARROW.values())[number % len(NARROW)][which]
    speed = (10**9, 0, 10**4, 2**32 - 1)[number % 4]
    halves = value - value // 3  # multicasts and broadcasts are added up
    wide_columns = (*spread(value, 2, TOP), halves, value // 3) * 2
    return speed, wide_columns, spread(low or 0, 10, WORD)


def serve_vlans(supervisor, which):
    rows = {number: spread(values[which], 4, TOP) for number, values in enumerate(WIDE.values(), 1)
            if values[which] is not None}
    supervisor.serve(*[vlan_row(number, number * 300, counters) for number, counters in rows.items()])
    return [(VLANS.pack_key(number * 300), tuple(map(float, counters))) for number, counters in rows.items()]


def serve_ports(supervisor, which, wide=True):
    rows = {number * 5: columns for number in range(1, 25) if (columns := port_columns(number, which, wide))}
    supervisor.serve(*[port(index, b"eth%d" % index, speed=speed, wide=up, narrow=low)
                       for index, (speed, up, low) in rows.items()])
    return [port_sample(index, b"eth%d" % index, speed, up if wide else None, low)
            for index, (speed, up, low) in rows.items()]


def in_order(layout, before, rows):
    """The rows in the order of their list: VLANs by their id, interfaces as they were found."""
    known = [key for key, _ in before] if layout is PORTS else []
    return sorted(rows, key=lambda row: known.index(row[0]) if row[0] in known else len(known))


def judge(kind, begun, before, now, change):
    """All three files of a poll; `before` are the records of the sample before."""
    last = kind.read("last")
    assert begun <= last.header.time <= time.time()
    assert kind.path("last").read_bytes() == kind.layout.pack((0, 0, last.header.time, kind.layout.code), now)
    prev, found = kind.read("prev"), kind.read("delta")
    assert prev.rows == before
    interval = last.header.time - prev.header.time
    _, wanted = merge(kind.layout, before, now, interval, change)
    assert found.rows == wanted
    header = interval, 0, last.header.time, kind.layout.code
    assert kind.path("delta").read_bytes() == kind.layout.pack(header, wanted)
    return interval


@pytest.mark.parametrize("layout, serve, change, wide", [
    (VLANS, serve_vlans, vlan_change, True), (PORTS, serve_ports, port_change(True), True),
    (PORTS, serve_ports, port_change(False), False)], ids=["VLANs", "ports", "ports of 32 bits"])
def test_numbers(layout, serve, change, wide, fresh_daemon, supervisor, log):
    wide_or_not = () if layout is VLANS else (wide,)
    if not wide:
        supervisor.misbehave("wide counters", bound(1, (None, NO_INSTANCE, None)))
    before = serve(supervisor, 0, *wide_or_not)
    kind = Kind(fresh_daemon, layout).create()
    if not wide:
        log.expect((DEBUG, "Retrieving Counter32 objects instead of Counter64 objects in ifstats"))
    assert kind.read("last").rows == before
    assert not kind.path("prev").exists() and not kind.path("delta").exists()

    for seconds in (7, 0, -100, 3600):  # since the sample before
        now = in_order(layout, before, serve(supervisor, 1, *wide_or_not))
        next_second()
        kind.set_sample_time(int(time.time()) - seconds)
        begun = int(time.time())
        kind.view(seconds=0)
        interval = judge(kind, begun, before, now, change)
        assert interval - seconds in (0, 1)
        texts = log.take_all()
        assert texts == ([(DEBUG, kind.zero_interval)] * len(now) if interval == 0 else [])
        before = in_order(layout, now, serve(supervisor, 0, *wide_or_not))
        kind.set_sample_time(int(time.time()) - 1)
        kind.view(seconds=0)
        judge(kind, begun, now, before, change)


def test_which_vlans(daemon, supervisor):
    """Rows of other owners and invalid rows are skipped; equal ids keep their order."""
    serve = lambda *rows: supervisor.serve(*[vlan_row(*row[:2], (row[0],) * 4, *row[2:]) for row in rows])
    serve((1, 9), (2, 5), (3, 5), (4, 1, b"monitors"), (5, 2, b"monitor", 2), (6, 3, b"monitor", 3), (7, 1))
    supervisor.table[(*CONTROL, 2, 4)] = NO_INSTANCE, None  # what others' rows say does not matter
    vlans = Kind(daemon, VLANS).create()
    in_order = [(7, 1), (2, 5), (3, 5), (1, 9)]
    assert supervisor.take_asked() == [*[("vlan walk", index) for index in range(8)],
                                       *[("vlan counters", *row) for row in in_order]]
    found = lambda: [(int(counters[0]), int.from_bytes(key, "little")) for key, counters in vlans.read("last").rows]
    assert found() == in_order
    # A row keeps its VLAN while it exists, and may come back with another one.
    serve((2, 5), (3, 5), (7, 1, b"someone"), (8, 5), (9, 4))
    vlans.view()
    assert found() == [(9, 4), (2, 5), (3, 5), (8, 5)]
    assert [row[0] for row in vlans.read("delta").rows] == [VLANS.pack_key(vlan) for vlan in (4, 5)]
    serve((9, 4))
    vlans.view()
    assert found() == [(9, 4)]
    serve()
    vlans.view()
    assert (found(), vlans.read("delta").rows) == ([], [])


def test_which_ports(daemon, supervisor):
    """Interfaces that are up, in the order in which they were found; the delta is made in that order."""
    ports = Kind(daemon, PORTS)
    states = {number: number for number in range(1, 8)}  # each ifOperStatus

    def round_of(states, order, act=ports.view):
        counters = {number: (round_of.polls * 1000 + number,) * 8 for number in states}
        round_of.polls += 1
        supervisor.serve(*[port(number, status=status, wide=counters[number]) for number, status in states.items()])
        before = ports.read("last").rows if act != ports.create else None
        begun = int(time.time())
        act()
        asked = [("port walk", number) for number in (0, *sorted(states))]
        assert supervisor.take_asked() == asked + [("wide counters", number) for number in order]
        now = [port_sample(number, b"port%d" % number, 10**9, counters[number], (0,) * 10) for number in order]
        assert ports.read("last").rows == now
        if before is not None:
            judge(ports, begun, before, now, port_change(True))

    round_of.polls = 0
    round_of(states, [1, 3, 4], act=ports.create)
    states[2] = states[5] = 1
    round_of(states, [1, 3, 4, 2, 5])
    states[1] = 2
    del states[3]
    round_of(states, [4, 2, 5])
    states[1] = states[3] = 1
    round_of(states, [4, 2, 5, 1, 3])
    # A name of no bytes ends the walk; one of 17 is cut, and kept as long as the interface stays.
    supervisor.serve(port(1, b"seventeen is cut.", wide=(1,) * 8), port(2, b"", wide=(1,) * 8), port(3))
    ports.view()
    assert supervisor.take_asked() == [("port walk", 0), ("port walk", 1), ("wide counters", 1)]
    assert ports.read("last").rows == [port_sample(1, b"port1", 10**9, (1,) * 8, (0,) * 10)]


def test_fall_back(fresh_daemon, supervisor, log):
    """Whenever a 64-bit counter is missing it asks for 32 bits; once that has worked, for good."""
    ports = Kind(fresh_daemon, PORTS).create()
    before = {number: (2**40 * number,) * 8 for number in (1, 2)}
    supervisor.serve(*[port(number, wide=wide) for number, wide in before.items()])
    asked = lambda: [query for query in supervisor.take_asked() if query[0] != "port walk"]
    fallen = [("wide counters", 1), ("narrow counters", 1), ("wide counters", 2)]
    not_wide = [*((at, NO_INSTANCE, None) for at in range(1, 9)), (1, COUNTER32, 5), (8, NULL, None), (4, GAUGE32, 5)]
    ports.view(seconds=0)
    assert asked() == [("wide counters", 1), ("wide counters", 2)]
    for at, kind, value in not_wide:
        supervisor.misbehave("wide counters", bound(at, (None, kind, value)))
        supervisor.misbehave("narrow counters", always=changed(error=5))
        ports.view(seconds=0)
        assert asked() == fallen, (at, kind)
        log.wait("ifTableEntry response packet had error 5", DEBUG)
    assert [key for key, _ in ports.read("last").rows] == [port_sample(2, b"port2", 0, (0,) * 8, (0,) * 10)[0]]
    # Nothing else that is unusable or missing makes it ask for 32 bits.
    for step in (*[bound(at, (None, NO_OBJECT, None)) for at in (0, 9, 10, 11, 12)], *map(cut, range(13))):
        supervisor.misbehave("wide counters", step)
        ports.view(seconds=0)
        assert asked() == [("wide counters", 1), ("wide counters", 2)]
    ports.view()
    asked()
    log.take_all(ports.zero_interval)

    # From 64-bit samples to 32 bits: a rate may be negative, a utilisation not.
    old = ports.read("last").rows
    narrow = {1: (100, 200, 300, 4, 5, 2**32 - 1, 7, 8, 9, 10), 2: (0,) * 10}
    supervisor.serve(*[port(number, wide=before[number], narrow=narrow[number]) for number in (1, 2)])
    supervisor.behave()
    supervisor.misbehave("wide counters", bound(8, (None, COUNTER64, 1)), bound(8, (None, COUNTER32, 1)))
    ports.set_sample_time(int(time.time()) - 10)
    ports.view(seconds=0)
    assert asked() == [("wide counters", 1), ("wide counters", 2), ("narrow counters", 2)]
    log.expect((DEBUG, "Retrieving Counter32 objects instead of Counter64 objects in ifstats"))
    # The counters of the first interface were read before the fall-back; the deltas are made after it.
    now = [port_sample(1, b"port1", 10**9, (*before[1][:7], 1), narrow[1]),
           port_sample(2, b"port2", 10**9, None, narrow[2])]
    begun = int(time.time()) - 1
    judge(ports, begun, old, now, port_change(False))
    assert min(ports.read("delta").rows[1][1]) < 0 == min(ports.read("delta").rows[1][1][:2])
    old, now = now, [port_sample(number, b"port%d" % number, 10**9, None, narrow[number]) for number in (1, 2)]
    ports.view()
    assert asked() == [("narrow counters", 1), ("narrow counters", 2)], "although 64 bits are on offer again"
    judge(ports, begun, old, now, port_change(False))
    ports.destroy()
    ports.create().view()
    assert {query for query, _ in asked()} == {"narrow counters"}
