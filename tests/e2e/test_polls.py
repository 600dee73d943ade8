"""Collections from a create message to delta files, byte by byte, for all three kinds."""
import pytest

from harness import control, model
from harness.agent import NULL, ROWS, SYSTEM_INFO, TOTALS
from harness.collection import Collection
from harness.files import HOST, MATRIX, PDIST, STEMS
from harness.paths import DATA

KINDS = (HOST, MATRIX, PDIST)
TOP = 2**64 - 1
INDEX = 5


def key(layout, number):
    """The key parts of a row: ascending with the number, from 1 to 65535."""
    address = b"\2\0\0\0" + number.to_bytes(2, "big")
    return {"host": (address,), "matrix": (b"\2\0\0\0\0\0", address), "pdist": (132, number)}[layout.stem]


def rows(layout, values, index=INDEX):
    """Rows by number, each with one value in all its counters but the last, which is 7."""
    return [(index, (*key(layout, number), *[value] * (layout.counters - 1), 7))
            for number, value in sorted(values.items())]


def returned(layout, served, totals=None):
    return model.returned(layout, served, INDEX, totals)


# (before, after) of one counter: plain, unchanged, reset, wrapped, the edges of the doubles.
COUNTERS = [(0, 0), (0, 1), (5, 5), (10, 4), (3, TOP), (TOP, TOP), (TOP, 0), (2**64 - 4096, 100), (2**63, 5),
            (2**63 + 2048, 5), (2**63 + 2048, 2**63), (2**53, 2**53 + 1), (2**53, 2**53 + 3), (1, 2**60 + 77),
            (12345678901234567, 12345678901999999), (2**62, 2**62 - 1)]


@pytest.mark.parametrize("layout", KINDS, ids=lambda layout: layout.stem)
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


@pytest.mark.parametrize("layout", KINDS, ids=lambda layout: layout.stem)
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
    log.wait(f"{layout.stem}_calc_delta() found a 0-length interval.", 151, count=2)
    log.wait(f"{layout.stem}_calc_rate() found a 0-length interval.", 151, count=1)


BATCHES = [(0, 1), (1, 2), (99, 2), (100, 2), (101, 3), (200, 3), (201, 4)]


@pytest.mark.parametrize("layout", KINDS, ids=lambda layout: layout.stem)
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


FIRST_KEYS = {"host": "address= count=100 mode=3", "matrix": "source= dest= count=100 mode=3 direction=0",
              "pdist": "local_index=0 count=100 mode=3"}
NEXT_KEYS = {"host": "address=02:00:00:00:00:64", "matrix": "source=02:00:00:00:00:00 dest=02:00:00:00:00:64",
             "pdist": "local_index=100"}


@pytest.mark.parametrize("layout", KINDS, ids=lambda layout: layout.stem)
def test_keys_that_are_asked_for(layout, daemon, agent):
    served = rows(layout, {number: 1 for number in range(1, 101)})
    agent.serve(**{layout.stem: served})
    collection = Collection(daemon, layout, INDEX)
    collection.first_sample(returned(layout, served))
    first = FIRST_KEYS[layout.stem]
    after = NEXT_KEYS[layout.stem] + first[first.index(" count"):]
    assert agent.calls(ROWS[layout.stem]) == [f"{ROWS[layout.stem]} index={INDEX} {key}" for key in (first, after)]


@pytest.mark.parametrize("layout", KINDS, ids=lambda layout: layout.stem)
def test_rows_of_other_collections_end_the_table(layout, daemon, agent):
    """In the middle of a batch, at its very end, right behind it, and as the first row of all."""
    collection = Collection(daemon, layout, INDEX)
    for own in (3, 99, 100, 0):
        served = (rows(layout, {number: 4 for number in range(1, own + 1)})
                  + rows(layout, {number: 5 for number in range(60000, 60003)}, index=INDEX + 1))
        agent.serve(totals={INDEX: (8, 9)}, **{layout.stem: served},
                    replies=None if own else {ROWS[layout.stem]: [served]})
        collection.first_sample(returned(layout, served, (8, 9)))
        assert len(agent.calls(ROWS[layout.stem])) == (2 if own == 100 else 1), own


def test_totals_that_are_refused(daemon, agent):
    """No totals row when the agent has none, when the call fails, or when there is no row at all."""
    collection = Collection(daemon, PDIST, INDEX)
    served = rows(PDIST, {1: 5})
    for served, faults in ((served, [{"procedure": TOTALS, "action": "status", "value": 1}]),
                           (served, [{"procedure": TOTALS, "action": "system_err"}]), ([], [])):
        agent.serve(pdist=served, totals={INDEX: (8, 9)}, faults=faults)
        collection.first_sample(returned(PDIST, served))
        assert len(agent.calls(TOTALS)) == len(served)


def mac(text):
    return bytes.fromhex(text)


# Address lengths that no MAC address has: cut to 6 bytes, or filled up with zeros.
ADDRESSES = [b"", mac("01"), mac("0203040506"), mac("020304050607"), mac("03040506070809"), bytes(range(4, 20)),
             b"\5" * 17, b"\6" * 255, b"\7" * 65536]


@pytest.mark.parametrize("layout", (HOST, MATRIX), ids=lambda layout: layout.stem)
def test_addresses_of_any_length(layout, daemon, agent):
    fixed = b"\2\0\0\0\0\1"
    served = [(INDEX, (*((address,) if layout is HOST else (fixed, address)), *range(3, 3 + layout.counters)))
              for address in ADDRESSES]
    call = {ROWS[layout.stem]: [served, []]}
    collection = Collection(daemon, layout, INDEX)
    agent.serve(replies=call)
    collection.first_sample(returned(layout, served))
    agent.serve(replies=call)
    collection.next_sample(returned(layout, served))


# Rows that a correct agent does not send; each case is (first sample, second sample), by number.
DISORDERS = {
    "descending": ([3, 2, 1], [3, 2, 1]),
    "one out of place": ([1, 5, 3, 7], [1, 5, 3, 7]),
    "twice the same": ([1, 2, 2, 3], [1, 2, 2, 3]),
    "order changes": ([1, 2, 3, 4], [4, 1, 3, 2]),
}


@pytest.mark.parametrize("layout", KINDS, ids=lambda layout: layout.stem)
def test_disorder(layout, daemon, agent):
    """The rows are taken as they come; the merge does what two sorted streams would need."""
    collection = Collection(daemon, layout, INDEX)
    for first, second in DISORDERS.values():
        for take, order in ((collection.first_sample, first), (collection.next_sample, second)):
            served = [row for at, number in enumerate(order) for row in rows(layout, {number: at * 10})]
            agent.serve(replies={ROWS[layout.stem]: [served, []]})
            take(returned(layout, served))


@pytest.mark.parametrize("layout", KINDS, ids=lambda layout: layout.stem)
def test_agent_that_does_not_advance(layout, daemon, agent):
    """A batch that ends with the very key that was asked after is not used and ends the table."""
    served = rows(layout, {1: 4, 2: 5})
    collection = Collection(daemon, layout, INDEX)
    for replies in ([served, served], [served, rows(layout, {2: 6})], [served, rows(layout, {9: 6}) + rows(layout, {2: 6})]):
        agent.serve(replies={ROWS[layout.stem]: replies})
        collection.first_sample(returned(layout, served))
        assert len(agent.calls(ROWS[layout.stem])) == 2


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


@pytest.mark.parametrize("code", range(3, 10))
def test_types_that_are_not_polled_yet(code, daemon, agent, log):
    """They can be created and destroyed; their polls fail without a file."""
    agent.serve()
    for _ in range(2):
        control.send(control.CREATE, code, 3)
        daemon.answer()
        daemon.settle()
        control.send(control.VIEWING, code, 3)
        daemon.settle()
    control.send(control.DESTROY, code, 3)
    daemon.answer()
    log.take_all()
    assert not list(DATA.glob(STEMS[code] + "_*"))
