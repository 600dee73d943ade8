"""Collections from a create message to delta files, byte by byte, for every type that can be created."""
import itertools
import random
import time

import pytest

from harness import model, samples
from harness.agent import NULL, ROWS, TOTALS
from harness.collection import Collection
from harness.files import BATCHED, DSHOST, DSSTATS, HOST, LAYOUTS, MATRIX, NLHOST, NLMATRIX, PDIST, SINGLE
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


# Stem: the members of a request behind the control index; what stands for {} in the first request,
# and in the one behind row 100.
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
def test_where_tables_end(layout, daemon, agent):
    """At a row of another collection, at one with a time mark, and when the agent does not advance:
    a batch that ends with the key that was asked for is dropped."""
    batched = layout in BATCHED
    collection = Collection(daemon, layout, INDEX)
    for own in (3, 99, 100, 0):
        served = (rows(layout, {number: 4 for number in range(1, own + 1)})
                  + rows(layout, {number: 5 for number in range(60000, 60003)}, index=INDEX + 1))
        agent.serve(totals={INDEX: (8, 9)}, **{layout.stem: served},
                    replies=None if own else samples.replies(layout, served))
        collection.first_sample(returned(layout, served, (8, 9)))
        calls = agent.calls(ROWS[layout.stem])
        assert len(calls) == (1 + (own == 100) if batched else own + 1 + (layout is DSSTATS and own > 0)), own
        if own == 100:
            members, first, last = KEYS_ASKED[layout.stem]
            assert [calls[0], calls[-1]] == [
                f"{ROWS[layout.stem]} index={INDEX} {members.format(*parts)}" for parts in (first, last)]
    if layout.stem.startswith("nl") or layout.stem in ("dspdist", "dshost"):
        served = rows(layout, {number: 4 for number in range(1, 5)})
        for at in (2, 0):
            served[at] = (*served[at], {"time_mark": 4294967295})
            agent.serve(replies=samples.replies(layout, served))
            collection.first_sample(returned(layout, served))
    served, again = rows(layout, {1: 4, 2: 5}), rows(layout, {2: 6})
    for replies in ([[served, again], [served, served], [served, rows(layout, {9: 6}) + again]] if batched
                    else [[*([each] for each in served), again]]):
        agent.serve(replies={ROWS[layout.stem]: replies})
        collection.first_sample(returned(layout, served))
        assert len(agent.calls(ROWS[layout.stem])) == len(replies)
    if batched:  # but one that ends with the same key of another collection is used as far as that
        second = rows(layout, {9: 6}) + rows(layout, {2: 5}, index=INDEX + 1)
        agent.serve(replies={ROWS[layout.stem]: [served, second]})
        collection.first_sample(returned(layout, served + second))


@pytest.mark.parametrize("layout", LAYOUTS, ids=lambda layout: layout.stem)
def test_any_rows_come_and_go(layout, daemon, agent):
    """Rows come and go at random, sorted by their whole keys, and at last all go. The batched types have
    enough rows for several blocks of the record cache."""
    chance = random.Random(layout.code)
    most = 900 if layout in BATCHED else 60

    def any_key():
        return [chance.randbytes(len(part)) if isinstance(part, bytes) else chance.getrandbits(31)
                for part in samples.key(layout, 1)]
    order = lambda key: layout.order(layout.pack_key(*key))
    # Every other key differs from its neighbour in only one part.
    keys = [any_key() for _ in range(most // 2)]
    for key in keys[:]:
        at = chance.randrange(len(key))
        keys.append([*key[:at], any_key()[at], *key[at + 1:]])
    keys = sorted({order(key): key for key in keys}.values(), key=order)
    counts = [*itertools.chain(*COUNTERS)]
    collection = Collection(daemon, layout, INDEX)
    for number, (share, interval) in enumerate(((0.6, 0), (0.6, 2048), (0.6, -3600), (0, 2**31 - 1))):
        served = [(INDEX, (*key, *chance.choices(chance.choice((counts, [5])), k=layout.counters)))
                  for key in keys if chance.random() < share]  # many rows with 5 in all counters do not change
        totals = (10**19 // (number + 1), number * 3)  # 2^63 < the first one; the next are resets
        agent.serve(replies=samples.replies(layout, served), totals={INDEX: totals}, up_time=4294967295 - number)
        if number:  # after this interval or a second more; the header keeps the sign
            collection.set_sample_time(max(int(time.time()) - interval, 1))  # 0 is that of an unfinished file
        take = collection.next_sample if number else collection.first_sample
        take(returned(layout, served, totals), up_time=4294967295 - number)


def test_group_zero_is_asked_for(daemon, agent):
    """A table starts with group 0 if it has one, otherwise with its lowest group."""
    collection = Collection(daemon, DSSTATS, INDEX)
    for numbers, asked in (((0, 1, 63), ["0 request=1", "0 request=2", "1 request=2", "63 request=2"]),
                           ((7,), ["0 request=1", "0 request=2", "7 request=2"]),
                           ((0,), ["0 request=1", "0 request=2"]),
                           ((), ["0 request=1", "0 request=2"])):
        served = rows(DSSTATS, {number: 9 for number in numbers})
        agent.serve(dsstats=served)
        collection.first_sample(returned(DSSTATS, served))
        assert agent.calls(ROWS["dsstats"]) == [f"74 index={INDEX} group={rest}" for rest in asked]


def test_addresses_that_differ_behind_the_record(daemon, agent):
    """Requests carry 20 bytes, records 16: all rows are in the files, under the same key."""
    served = [(INDEX, (1, 5, 4, b"\7" * 16 + bytes([0, 0, 0, last]), last, 2, 3, 4)) for last in range(1, 6)]
    collection = Collection(daemon, DSHOST, INDEX)
    for sample in (collection.first_sample, collection.next_sample):
        agent.serve(dshost=served)
        sample(returned(DSHOST, served))
        assert len(agent.calls(ROWS["dshost"])) == 6


def test_totals_that_do_not_come(daemon, agent, log):
    """The agent has none, the call fails, the table is empty, or the row call failed before."""
    collection = Collection(daemon, PDIST, INDEX)
    some = rows(PDIST, {1: 5})
    for served, calls, faults in ((some, 1, [{"procedure": TOTALS, "action": "status", "value": 1}]),
                                  (some, 1, [{"procedure": TOTALS, "action": "system_err"}]), ([], 0, []),
                                  (some, 0, [{"procedure": ROWS["pdist"], "call": 2, "action": "system_err"}])):
        agent.serve(pdist=served, totals={INDEX: (8, 9)}, faults=faults)
        collection.first_sample(returned(PDIST, served))
        assert len(agent.calls(TOTALS)) == calls
    log.wait("pdist_rpc_getnext: RPC failed", DEBUG)


def mac(text):
    return bytes.fromhex(text)


# Lengths of MAC and network addresses, and others: cut to their field, or filled up with zeros. The
# longest is of no use for network addresses: they are asked after whole, and requests have their limit.
ADDRESSES = [b"", mac("01"), mac("01020304"), mac("020304050607"), mac("03040506070809"),
             bytes(range(4, 20)), b"\5" * 17, b"\6" * 255, b"\7" * 65536]
# The beginning of a row with such an address.
ADDRESSED = {HOST: lambda address: (address,), MATRIX: lambda address: (b"\2\0\0\0\0\1", address),
             NLHOST: lambda address: (5, address), NLMATRIX: lambda address: (5, address, b"\x0a\0\0\1")}


@pytest.mark.parametrize("layout", ADDRESSED, ids=lambda layout: layout.stem)
def test_addresses_of_any_length(layout, daemon, agent):
    addresses = ADDRESSES if layout in (HOST, MATRIX) else ADDRESSES[:-1]
    collection = Collection(daemon, layout, INDEX)
    for take, order in ((collection.first_sample, addresses), (collection.next_sample, addresses[4:] + addresses[:4])):
        served = [(INDEX, (*ADDRESSED[layout](address), *range(3, 3 + layout.counters))) for address in order]
        agent.serve(replies={ROWS[layout.stem]: [served, []]})
        take(returned(layout, served))
        after = order[-1][:6] if layout in (HOST, MATRIX) else order[-1]
        assert f"={after.hex(':')} " in agent.calls(ROWS[layout.stem])[1], "what is behind the last one"


# Rows that a correct agent does not send, by number: of the first sample and of the second.
DISORDERS = [([3, 2, 1], [3, 2, 1]), ([1, 2, 2, 3], [1, 2, 2, 3]), ([1, 5, 3, 7], [7, 1, 5, 3])]


@pytest.mark.parametrize("layout", LAYOUTS, ids=lambda layout: layout.stem)
def test_disorder(layout, daemon, agent):
    """Rows are used as they come; the merge treats them as sorted."""
    collection = Collection(daemon, layout, INDEX)
    for first, second in DISORDERS[::2] if layout in SINGLE else DISORDERS:  # there, one twice is the end
        for take, order in ((collection.first_sample, first), (collection.next_sample, second)):
            served = [row for at, number in enumerate(order) for row in rows(layout, {number: at * 10})]
            agent.serve(replies=samples.replies(layout, served))
            take(returned(layout, served))


def test_one_pass_asks_no_more_than_it_needs(daemon, agent):
    """The connection is tried once a pass; then the rows, and the up-time for the header."""
    agent.serve(host=rows(HOST, {1: 4}))
    collection = Collection(daemon, HOST, INDEX)
    collection.create()
    # A pass without work follows the first one if the wake-up came while that was under way.
    calls = [call.split()[0] for call in agent.calls()]
    assert [call for call in calls if call != str(NULL)] == ["1", "11", "11"]
    assert 1 <= calls.count(str(NULL)) <= 2
