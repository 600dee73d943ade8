"""Ethernet statistics: every number of the delta file, and which rows are asked for and when."""
import itertools
import time

import pytest

from harness.ber import INTEGER, NO_INSTANCE
from harness.collection import next_second
from harness.kinds import ETHER, Kind, ether_record
from harness.supervisor import DUPLEX, ETHER as COLUMNS, changed, ether_row, port
from harness.syslog import DEBUG

COUNTERS = 17
HALVED = {1, 2, *range(11, 17)}  # the counters that have an overflow column
GIGABIT = 10**9


def each(narrow, wide=None):
    """A value for the 32-bit counters and one for those that have 64 bits."""
    return [(narrow if wide is None or at not in HALVED else wide) for at in range(COUNTERS)]


def traffic(octets, packets):
    return [0, octets, packets, *[0] * 14]


# Label: (counters before, counters after, speed). Three seconds lie between.
NUMBERS = {
    "every counter its own": (range(COUNTERS), [1000 * at * at + at + 1 for at in range(COUNTERS)], GIGABIT),
    "unchanged": (each(5), each(5), GIGABIT),
    "wrapped": (each(2**32 - 1), each(3), GIGABIT),
    "wrapped into the overflow": (each(0, 2**32 - 1), each(0, 2**32 + 3), GIGABIT),
    "restarted": (each(4 * 10**9, 7 * 2**40), each(12, 2**40), GIGABIT),
    "as wide as they get": (each(0, 2**62), each(2**32 - 1, 2**64 - 1), 2**32 - 1),
    "a change that a double does not hold": (each(1, 2**54 - 2), each(2, 2**54 + 2), 2**32 - 1),
    "all of it": (traffic(0, 0), traffic(3 * 250, 0), 1000),
    "130 %": (traffic(0, 0), traffic(3 * 325, 0), 1000),
    "no speed": (each(0), each(2**32 - 1), 0),
    "preamble and gap alone": (traffic(0, 0), traffic(0, 10), 10),
}
NAMES = [b"", b"x", b"sixteen bytes ok", b"seventeen is cut.", bytes(range(16)), b"%s%n%d", b"\xff\0\xff"]


def created(daemon):
    """The kind, created early enough in a second that it is not polled in the next one already."""
    next_second()
    return Kind(daemon, ETHER).create()


def test_numbers(daemon, supervisor):
    """All cases in one file, the newest row first; some at the ends of their ranges."""
    names = dict(zip(NUMBERS, itertools.cycle(NAMES)))
    rows = {label: (index, index + 50) for index, label in enumerate(NUMBERS, 7)}
    rows["unchanged"] = 2**31 - 1, 2**32 - 1

    def serve(which):
        supervisor.serve(*[part for label, (index, interface) in rows.items() for part in (
            ether_row(index, interface, NUMBERS[label][which]),
            port(interface, names[label], speed=NUMBERS[label][2]))])

    before = int(time.time())
    serve(0)
    ether = created(daemon)
    assert not ether.path("delta").exists(), "nothing has passed since the first sample"
    serve(1)
    ether.view(seconds=3)
    sample = ether.read("delta")
    interval = sample.header.interval
    moment = sample.header.time
    assert sample.header == (interval, 0, moment, 12) and before + 3 <= moment <= time.time()
    assert 3 <= interval <= time.time() - before
    newest_first = sorted(rows, key=lambda label: -rows[label][0])
    expected = [ether_record(*rows[label], names[label], *NUMBERS[label], 2, interval) for label in newest_first]
    for label, found, wanted in zip(newest_first, sample.rows, expected):
        assert found == wanted, label
    assert ether.path("delta").read_bytes() == ETHER.pack(sample.header, expected)

    ether.view()
    assert [sum(counters) for _, counters in ether.read("delta").rows] == [0.0] * len(rows), "nothing has changed since"


# Owners of rows, and whether such a row is used.
OWNERS = {b"monitor": True, b"monitor\0": False, b"monitors": False, b"Monitor": False, b"": False}


def test_which_rows(daemon, supervisor):
    rows = [ether_row(index, 9, each(1), owner) for index, owner in enumerate(OWNERS, 1)]
    rows += [ether_row(10 + status, 9, each(1), status=status) for status in range(1, 5)]
    supervisor.serve(port(9), *rows)
    supervisor.table[(*COLUMNS, 2, 2)] = NO_INSTANCE, None  # what others' rows say does not matter
    created(daemon)
    expected = []
    for index in (*range(len(OWNERS) + 1), 11, 12, 13, 14):
        if index in (1, 11):
            expected += [("name", 9), ("ether counters", index, 9)]
        expected.append(("ether walk", index))
    assert supervisor.take_asked() == expected


def test_states(daemon, supervisor, log):
    """Rows come and go, interfaces fall asleep and wake up: what is asked, and what is in the file."""
    ether = Kind(daemon, ETHER)
    rows = {index: ether_row(index, 100 + index, each(index)) for index in (1, 2, 3)}
    new = lambda index: [("name", 100 + index), ("ether counters", index, 100 + index)]
    seen = lambda index: [("state", 100 + index)]
    walk = lambda index: [("ether walk", index)]
    polled = lambda *indexes: [("ether counters", index, 100 + index) for index in indexes]

    def round_of(interfaces, asked, in_file, act=ether.view, gone=()):
        supervisor.serve(*[row for index, row in rows.items() if index not in gone],
                         *[port(100 + index, None, *state) for index, state in interfaces.items()])
        act()
        assert supervisor.take_asked() == asked
        if in_file is not None:
            assert [key[4] for key, _ in ether.read("delta").rows] == in_file

    up = {1: (1, 0), 2: (1, 0), 3: (1, 0)}
    all_seen = [*walk(0), *seen(1), *walk(1), *seen(2), *walk(2), *seen(3), *walk(3)]
    next_second()
    round_of(up, [*walk(0), *new(1), *walk(1), *new(2), *walk(2), *new(3), *walk(3)], None, act=ether.create)
    round_of(up, [*all_seen, *polled(3, 2, 1)], [3, 2, 1])
    # An interface that has gone down is polled once more, and then not until something changes.
    for status in (2, 7):
        round_of({**up, 2: (status, status * 10)}, [*all_seen, *polled(3, 2, 1)], [3, 2, 1])
        round_of({**up, 2: (status, status * 10)}, [*all_seen, *polled(3, 1)], [3, 1])
    round_of({**up, 2: (4, 70)}, [*all_seen, *polled(3, 2, 1)], [3, 2, 1])  # unknown counts as up
    # A row is dropped while its interface cannot be asked about, and new afterwards.
    without_1 = {2: (1, 0), 3: (1, 0)}
    round_of(without_1, [*all_seen, *polled(3, 2)], [3, 2])
    round_of(without_1, [*walk(0), ("name", 101), *all_seen[2:], *polled(3, 2)], [3, 2])
    rows[1] = ether_row(1, 101, each(500))
    round_of(up, [*walk(0), *new(1), *all_seen[2:], *polled(1, 3, 2)], [1, 3, 2])
    # Rows that are gone, and rows behind the one at which the walk broke off.
    round_of(up, [*walk(0), *seen(1), *walk(1), *seen(3), *walk(3), *polled(1, 3)], [1, 3], gone=[2])
    supervisor.misbehave("ether walk", lambda answer: [answer], changed(error=5))
    round_of(up, [*walk(0), *seen(1), *walk(1), *polled(1)], [1])
    log.wait("etherStatsStatus response packet had error 5", DEBUG)
    # A row keeps the interface that it was found with, whatever the supervisor calls it now.
    rows[1] = ether_row(1, 150, each(500))
    round_of(up, [*walk(0), *seen(1), *walk(1), *new(2), *walk(2), *new(3), *walk(3), *polled(3, 2, 1)], [3, 2, 1])
    rows[1] = ether_row(1, 101, each(500))
    round_of(up, [*walk(0), *seen(1), *walk(1), *polled(1)], [1], gone=[2, 3])
    # A new row that is down is not polled at first.
    down_2 = {**up, 2: (2, 0)}
    round_of(down_2, [*walk(0), *seen(1), *walk(1), *new(2), *walk(2), *new(3), *walk(3), *polled(3, 1)], [3, 1])
    # A row without an answer about its counters is missing once and keeps its baseline.
    missing = (*COLUMNS, 3, 3)
    rows[3] = {name: value for name, value in rows[3].items() if name != missing}
    round_of(down_2, [*all_seen, *polled(3, 1)], [1])
    log.expect((DEBUG, "Error 9 creating etherstats delta file."))
    rows[3] = ether_row(3, 103, each(3 + 24))
    round_of(down_2, [*all_seen, *polled(3, 1)], [3, 1])
    assert ether.read("delta").rows[0] == ether_record(3, 103, b"port103", each(3), each(27), GIGABIT, 2,
                                                     ether.read("delta").header.interval)


# Interface names with the port that the switch's own table is asked about.
PORTS = {b"3/12": (3, 12), b"13/48 up": (13, 48), b"Gi 1/1": (1, 1), b"fe-2/5/7": (2, 5), b"01/002": (1, 2),
         **dict.fromkeys([b"", b"eth", b"3", b"3/", b"/3", b"3 /4", b"3/x4", b"0/1", b"1/0", b"14/1", b"1/49", b"vlan1 2/3",
                          b"4294967297/1", b"1/4294967297", b"99999999999999"])}
MODES = [1, 2, 3, 4, None]


@pytest.mark.parametrize("target", [1, 3, 4, 6, 7, 5, None])
def test_duplex(target, fresh_daemon, supervisor):
    """Half duplex doubles the utilisation. Who is asked depends on the switch."""
    cases = [(name, mode) for name in PORTS for mode in (MODES if PORTS[name] else [1])]
    before, now = traffic(0, 0), traffic(1000, 3)

    def serve(counters):
        supervisor.serve(*[row for index, (name, mode) in enumerate(cases, 1) for row in (
            ether_row(index, index, counters), port(index, name, speed=10**6),
            {(*DUPLEX, index): (INTEGER, mode) if mode else (NO_INSTANCE, None)})])

    serve(before)
    ether = created(fresh_daemon)
    serve(now)
    # The same port stands for several cases, so it answers by turns.
    modes = iter([mode for name, mode in reversed(cases) if PORTS[name]])
    supervisor.misbehave("port duplex", always=lambda answer: [answer._replace(bindings=[
        (answer.bindings[0].name, *((INTEGER, mode) if (mode := next(modes)) else (NO_INSTANCE, None)))])])
    supervisor.take_asked()
    ether.view()
    expected, asked = [], []
    header, rows = ether.read("delta")
    for index, (name, mode) in reversed([*enumerate(cases, 1)]):
        factor = 2
        if target in (1, 3, 4) and PORTS[name]:
            asked.append(("port duplex", *PORTS[name]))
            factor = 1 if mode == 1 else 2
        elif target == 6:
            asked.append(("duplex", index))
            factor = 1 if mode == 2 else 2
        expected.append(ether_record(index, index, name, before, now, 10**6, factor, header.interval))
    assert rows == expected
    assert [query for query in supervisor.take_asked() if query[0].endswith("duplex")] == asked
