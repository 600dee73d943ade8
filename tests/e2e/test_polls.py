"""Collections from a create message to delta files, byte by byte, for every type that can be created."""
import random

import pytest

from harness import model, samples
from harness.agent import NULL, ROWS, SYSTEM_INFO, TOTALS
from harness.collection import Collection
from harness.files import BATCHED, DSSTATS, HOST, LAYOUTS, MATRIX, NLHOST, NLMATRIX, PDIST, SINGLE
from harness.syslog import DEBUG

TOP = 2**64 - 1
INDEX = 5


def rows(layout, values, index=INDEX):
    return samples.rows(layout, values, index)


def returned(layout, served, totals=None):
    return model.returned(layout, served, INDEX, totals)


# (before, after) of one counter: plain, unchanged, reset, wrapped, the edges of the doubles.
COUNTERS = [(0, 0), (0, 1), (5, 5), (10, 4), (3, TOP), (TOP, TOP), (TOP, 0), (2**64 - 4096, 100), (2**63, 5),
            (2**63 + 2048, 5), (2**63 + 2048, 2**63), (2**53, 2**53 + 1), (2**53, 2**53 + 3), (1, 2**60 + 77),
            (12345678901234567, 12345678901999999), (2**62, 2**62 - 1)]


@pytest.mark.parametrize("layout", LAYOUTS, ids=lambda layout: layout.stem)
def test_three_samples(layout, daemon, agent):
    collection = Collection(daemon, layout, INDEX)
    before = {10 + number: pair[0] for number, pair in enumerate(COUNTERS)}
    after = {10 + number: pair[1] for number, pair in enumerate(COUNTERS)}
    samples = [
        before | {5: 1, 50: 9},
        after | {1: 1000, 5: 1, 13: 4, 30: 77, 60: TOP},  # 50 is gone; 1, 30 and 60 are new
        {50: 8, 60: 3, 65535: 0},  # nearly all are gone, 50 is back and was reset
        {},
    ]
    for number, values in enumerate(samples):
        totals = (10**19 // (number + 1), number * 3)  # 2^63 < the first one; the next are resets
        served = rows(layout, values)
        agent.serve(**{layout.stem: served}, totals={INDEX: totals}, up_time=4294967295 - number)
        judge = collection.next_sample if number else collection.first_sample
        judge(returned(layout, served, totals), up_time=4294967295 - number)


@pytest.mark.parametrize("layout", LAYOUTS, ids=lambda layout: layout.stem)
def test_interval_of_no_time(layout, daemon, agent, log):
    """Two samples within a second: taken as one second, and said so for every row."""
    served = rows(layout, {1: 10, 2: 20})
    agent.serve(**{layout.stem: served})
    collection = Collection(daemon, layout, INDEX)
    for _ in range(5):  # the second may be over in between
        collection.first_sample(returned(layout, served))
        first = collection.time
        agent.serve(**{layout.stem: rows(layout, {1: 11, 2: 19, 3: 5})})
        collection.next_sample(returned(layout, rows(layout, {1: 11, 2: 19, 3: 5})), same_second=True)
        agent.serve(**{layout.stem: served})
        if collection.time == first:
            break
    assert collection.time == first
    delta_name = "host" if layout.stem in ("vlan", "prio") else layout.stem
    log.wait(f"{delta_name}_calc_delta() found a 0-length interval.", 151, count=2)
    log.wait(f"{layout.stem}_calc_rate() found a 0-length interval.", 151, count=1)


BATCHES = [(0, 1), (1, 2), (99, 2), (100, 2), (101, 3), (200, 3), (201, 4)]


@pytest.mark.parametrize("layout", BATCHED, ids=lambda layout: layout.stem)
def test_batches(layout, daemon, agent):
    """Whole tables around the batch size, and what is asked of the agent for them."""
    collection = Collection(daemon, layout, INDEX)
    for count, requests in BATCHES:
        served = rows(layout, {number: number * 3 for number in range(1, count + 1)})
        agent.serve(**{layout.stem: served}, totals={INDEX: (1, 2)})
        collection.first_sample(returned(layout, served, (1, 2)))
        calls = agent.calls(SYSTEM_INFO, ROWS[layout.stem], TOTALS)
        assert calls[0] == str(SYSTEM_INFO)
        assert len([call for call in calls if call.startswith(f"{ROWS[layout.stem]} ")]) == requests
        assert calls[requests + 1:] == (
            [f"{TOTALS} index={INDEX}"] if layout is PDIST and count else [])


# Stem: what the first request says behind the control index, and the request behind row 100 in
# place of {}.
KEYS_ASKED = {
    "host": ("address={} count=100 mode=3", [""], ["02:00:00:00:00:64"]),
    "matrix": ("source={} dest={} count=100 mode=3 direction=0", ["", ""], ["02:00:00:00:00:00", "02:00:00:00:00:64"]),
    "pdist": ("local_index={} count=100 mode=3", [0], [100]),
    "nlhost": ("local_index={} address={} count=100 mode=3 time_mark=0 reserved_1=0 reserved_2=0", [0, ""],
               [256, "0a:00:00:64"]),
    "nlmatrix": ("local_index={} source={} dest={} count=100 mode=3 time_mark=0 reserved_1=0 reserved_2=0 reserved_3=0",
                 [0, "", ""], [256, "0a:00:00:01", "00:" * 15 + "64"]),
    "vlan": ("id={} request=2", [0], [100]),
    "prio": ("id={} request=2", [-1], [100]),
    "dsstats": ("group={} request={}", [0, 1], [100, 2]),
    "dspdist": ("group={} local_index={} request=2 time_mark=0", [0, 0], [6, 100]),
    "dshost": ("group={} local_index={} address_word={} address={} request=2 time_mark=0", [0, 0, 0, "00:" * 19 + "00"],
               [3, 256, 4, "00:" * 15 + "64:fe:dc:ba:98"]),
}


@pytest.mark.parametrize("layout", LAYOUTS, ids=lambda layout: layout.stem)
def test_keys_that_are_asked_for(layout, daemon, agent):
    """Whole requests: the first and the last of a hundred rows."""
    served = rows(layout, {number: 1 for number in range(1, 101)})
    agent.serve(**{layout.stem: served})
    collection = Collection(daemon, layout, INDEX)
    collection.first_sample(returned(layout, served))
    members, first, last = KEYS_ASKED[layout.stem]
    calls = agent.calls(ROWS[layout.stem])
    assert len(calls) == (2 if layout in BATCHED else 101) + (layout is DSSTATS)
    assert [calls[0], calls[-1]] == [
        f"{ROWS[layout.stem]} index={INDEX} {members.format(*parts)}" for parts in (first, last)]


@pytest.mark.parametrize("layout", LAYOUTS, ids=lambda layout: layout.stem)
def test_rows_of_other_collections_end_the_table(layout, daemon, agent):
    """In the middle of a batch, at its very end, right behind it, and as the first row of all."""
    collection = Collection(daemon, layout, INDEX)
    for own in (3, 99, 100, 0) if layout in BATCHED else (3, 0):
        served = (rows(layout, {number: 4 for number in range(1, own + 1)})
                  + rows(layout, {number: 5 for number in range(60000, 60003)}, index=INDEX + 1))
        agent.serve(totals={INDEX: (8, 9)}, **{layout.stem: served},
                    replies=None if own else samples.replies(layout, served))
        collection.first_sample(returned(layout, served, (8, 9)))
        calls = own + 1 + (layout is DSSTATS and own > 0) if layout in SINGLE else 2 if own == 100 else 1
        assert len(agent.calls(ROWS[layout.stem])) == calls, own


TIME_MARKED = [layout for layout in LAYOUTS if layout.stem.startswith("nl") or layout.stem in ("dspdist", "dshost")]


@pytest.mark.parametrize("layout", TIME_MARKED, ids=lambda layout: layout.stem)
def test_rows_with_a_time_mark_end_the_table(layout, daemon, agent):
    collection = Collection(daemon, layout, INDEX)
    for own in (2, 0):
        served = rows(layout, {number: 4 for number in range(1, own + 3)})
        served[own] = (*served[own], {"time_mark": 4294967295})
        agent.serve(replies=samples.replies(layout, served))
        collection.first_sample(returned(layout, served))


def test_totals_that_do_not_come(daemon, agent, log):
    """The agent has none, the call fails, there is no row at all, or the row call failed before."""
    collection = Collection(daemon, PDIST, INDEX)
    some = rows(PDIST, {1: 5})
    for served, calls, faults in ((some, 1, [{"procedure": TOTALS, "action": "status", "value": 1}]),
                                  (some, 1, [{"procedure": TOTALS, "action": "system_err"}]), ([], 0, []),
                                  (some, 0, [{"procedure": ROWS["pdist"], "call": 2, "action": "system_err"}])):
        agent.serve(pdist=served, totals={INDEX: (8, 9)}, faults=faults)
        collection.first_sample(returned(PDIST, served))
        assert len(agent.calls(TOTALS)) == calls
    log.wait("pdist_rpc_getnext: RPC failed", DEBUG)


@pytest.mark.parametrize("layout", BATCHED, ids=lambda layout: layout.stem)
def test_batch_that_does_not_come(layout, daemon, agent, log):
    """The rows before it are taken; of the types that come one row a call see test_single_rows."""
    served = rows(layout, {number: 6 for number in range(1, 102)})
    agent.serve(**{layout.stem: served}, faults=[{"procedure": ROWS[layout.stem], "call": 2, "action": "system_err"}])
    Collection(daemon, layout, INDEX).first_sample(returned(layout, served[:100]))
    log.wait(f"{layout.stem}_rpc_getnext: RPC failed", DEBUG)


def mac(text):
    return bytes.fromhex(text)


# Address lengths of MAC and network addresses, and others: cut to their field, or filled up with zeros.
ADDRESSES = [b"", mac("01"), mac("01020304"), mac("0203040506"), mac("020304050607"), mac("03040506070809"),
             bytes(range(4, 20)), b"\5" * 17, b"\6" * 255, b"\7" * 65536]
LONGEST_IN_KEYS = 255  # network addresses are asked after whole, and the agent takes no longer request


# How a row of these types begins that has such an address.
ADDRESSED = {
    HOST: lambda address: (address,),
    MATRIX: lambda address: (b"\2\0\0\0\0\1", address),
    NLHOST: lambda address: (5, address),
    NLMATRIX: lambda address: (5, address, b"\x0a\0\0\1"),
}


@pytest.mark.parametrize("layout", ADDRESSED, ids=lambda layout: layout.stem)
def test_addresses_of_any_length(layout, daemon, agent):
    addresses = [address for address in ADDRESSES if len(address) <= LONGEST_IN_KEYS or layout in (HOST, MATRIX)]
    collection = Collection(daemon, layout, INDEX)
    for take, order in ((collection.first_sample, addresses), (collection.next_sample, addresses[4:] + addresses[:4])):
        served = [(INDEX, (*ADDRESSED[layout](address), *range(3, 3 + layout.counters))) for address in order]
        agent.serve(replies={ROWS[layout.stem]: [served, []]})
        take(returned(layout, served))
        after = order[-1][:6] if layout in (HOST, MATRIX) else order[-1]
        assert f"={after.hex(':')} " in agent.calls(ROWS[layout.stem])[1], "what is behind the last one"


# Rows that a correct agent does not send; each case is (first sample, second sample), by number.
DISORDERS = {
    "descending": ([3, 2, 1], [3, 2, 1]),
    "one out of place": ([1, 5, 3, 7], [1, 5, 3, 7]),
    "twice the same": ([1, 2, 2, 3], [1, 2, 2, 3]),
    "order changes": ([1, 2, 3, 4], [4, 1, 3, 2]),
}


@pytest.mark.parametrize("layout", LAYOUTS, ids=lambda layout: layout.stem)
def test_disorder(layout, daemon, agent):
    """The rows are taken as they come; the merge does what two sorted streams would need."""
    collection = Collection(daemon, layout, INDEX)
    for label, (first, second) in DISORDERS.items():
        if layout in SINGLE and label == "twice the same":
            continue  # there it is a row that does not lead on, see below
        for take, order in ((collection.first_sample, first), (collection.next_sample, second)):
            served = [row for at, number in enumerate(order) for row in rows(layout, {number: at * 10})]
            agent.serve(replies=samples.replies(layout, served))
            take(returned(layout, served))


@pytest.mark.parametrize("layout", LAYOUTS, ids=lambda layout: layout.stem)
def test_agent_that_does_not_advance(layout, daemon, agent):
    """A batch that ends with the very key that was asked after is not used and ends the table."""
    served = rows(layout, {1: 4, 2: 5})
    again = rows(layout, {2: 6})
    cases = ([[served, served], [served, again], [served, rows(layout, {9: 6}) + again]] if layout in BATCHED
             else [[*([each] for each in served), again]])
    collection = Collection(daemon, layout, INDEX)
    for replies in cases:
        agent.serve(replies={ROWS[layout.stem]: replies})
        collection.first_sample(returned(layout, served))
        assert len(agent.calls(ROWS[layout.stem])) == len(replies)


def test_create_begins_anew(daemon, agent):
    agent.serve(host=rows(HOST, {1: 4}))
    collection = Collection(daemon, HOST, INDEX)
    collection.first_sample(returned(HOST, rows(HOST, {1: 4})))
    collection.next_sample(returned(HOST, rows(HOST, {1: 4})))
    agent.serve(host=rows(HOST, {2: 4}))
    collection.first_sample(returned(HOST, rows(HOST, {2: 4})))


def test_one_pass_asks_no_more_than_it_needs(daemon, agent):
    """The connection is tried once a pass; then the rows, and the up-time for the header."""
    agent.serve(host=rows(HOST, {1: 4}))
    collection = Collection(daemon, HOST, INDEX)
    collection.create()
    # A pass without work follows the first one if the wake-up came while that was under way.
    calls = [call.split()[0] for call in agent.calls()]
    assert [call for call in calls if call != str(NULL)] == ["1", "11", "11"]
    assert 1 <= calls.count(str(NULL)) <= 2


def random_hosts(pick, count):
    """Two samples of the same hosts. In two of three rows every counter grows, below 2^53 or at any
    size; in the others they go where they will, near the powers of two more often than not."""
    def counter():
        return pick.choice([pick.getrandbits(pick.randint(1, 64)), 2**pick.randint(0, 63) + pick.randint(-3, 3)])

    def pair(flavour):
        if flavour == 2:
            return max(0, counter()), max(0, counter())
        return sorted(pick.getrandbits(pick.randint(40, (53, 62)[flavour])) for _ in range(2))

    before, after = [], []
    for number in range(count):
        old, new = zip(*(pair(number % 3) for _ in range(7)))
        for sample, counters in ((before, old), (after, new)):
            sample.append((INDEX, (number.to_bytes(6, "big"), *counters)))
    return before[:-40], after


# Seconds between two samples: within the edges of the arithmetic, and what a clock that was set
# makes of it (the header tells the sign, the divisor is an unsigned number).
@pytest.mark.parametrize("interval", [1, 3, 7, 60, 2047, 2048, 2049, 3600, 86400, 99991, 10**8, 2**31 - 1, -1, -3600, -10**6])
def test_arithmetic_over_any_interval(interval, daemon, agent):
    """A sample that is as old as that, or from the future, and hundreds of random counters."""
    pick = random.Random(interval)
    before, after = random_hosts(pick, 240 if interval < 10000 else 900)
    agent.serve(host=before)
    collection = Collection(daemon, HOST, INDEX)
    collection.first_sample(returned(HOST, before))
    last = HOST.path(INDEX, "last")
    sample = HOST.unpack(last.read_bytes())
    collection.time = max(sample.header.time - interval, 0)
    last.write_bytes(HOST.pack(sample.header._replace(time=collection.time), sample.rows))
    agent.serve(host=after)
    collection.next_sample(returned(HOST, after), same_second=True)
