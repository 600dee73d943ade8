"""What the data directory and failing system calls do to the supervisor kinds."""
import time

import pytest

from harness.collection import next_second
from harness.daemon import injected
from harness.disk import PAGE, pages, resize, small
from harness.kinds import ETHER, PORTS, VLANS, Kind
from harness.paths import DATA
from harness.supervisor import ether_row, port, vlan_row
from harness.syslog import DEBUG

CACHE = {"Unable to write poll cache to file.", "Not all tallyd cached data written to file.",
         "Unable to flush poll cache to file.", "Not all cached data flushed to file."}


def serve(supervisor, layout, count, value=0):
    rows = {ETHER: lambda number: {**ether_row(number, number, [value] * 17), **port(number)},
            VLANS: lambda number: vlan_row(number, number, [value] * 4),
            PORTS: lambda number: port(number, wide=[value] * 8, narrow=[value] * 10)}[layout]
    supervisor.serve(*[rows(number) for number in range(1, count + 1)])


# Of each kind: how many rows make its files three pages long, and what is logged, after a text of the
# record cache, when a write fails: to the sample, and to the delta file.
DELTA = {("Error 18 creating delta file.",), ("Error 21 creating delta file.",)}
FULL = {
    ETHER: (65, set(), {("Error 10 creating etherstats delta file.",), ("Error 8 polling collection.",)}),
    VLANS: (300, {("vlan_upload() error 6.", "Error 7 polling vlan collection."), ("Error 8 polling collection.",)},
            DELTA),
    PORTS: (90, {("ifstats_upload() error 6.", "Error 7 polling ifstats collection."),
                 ("Error 8 ifstats collection.",)}, DELTA),
}


def assert_cut_short(kind, count, size):
    """Etherstats is written in place: there is as much of the file as there was room for."""
    content = kind.path("delta").read_bytes()
    assert len(content) == size
    if size:
        whole = 16 + (size - 16) // 172 * 172
        header, rows = kind.layout.unpack(content[:whole])
        assert (header.time, header.type) == (0, 12), "it is not finished"
        assert [key[4] for key, _ in rows] == [*range(count, 0, -1)][:len(rows)]


@pytest.mark.parametrize("layout", FULL, ids=lambda layout: layout.stem)
def test_full_disk(layout, daemon, supervisor, log):
    """With one more page each time: a failed write leaves the old sample, or a delta file without a sample time."""
    count, sample_failures, delta_failures = FULL[layout]
    serve(supervisor, layout, count)
    with small():
        (DATA / "filler").write_bytes(b"1")  # a limit of no pages would be none
        kind = Kind(daemon, layout).create()
        has_samples = layout is not ETHER
        size = kind.path("last").stat().st_size if has_samples else 0
        assert size // PAGE == 2 or not has_samples
        seen = set()
        for free in range(9):
            if has_samples:
                kind.set_sample_time(int(time.time()) - 5)
            else:
                next_second()
            serve(supervisor, layout, count, value=free * 100 + 100)
            for path in (kind.path("delta"), kind.path("prev")):
                path.unlink(missing_ok=True)
            before = kind.path("last").read_bytes() if has_samples else b""
            resize(1 + pages(before) + free)
            kind.view(seconds=0)
            cache, *texts = [text for _, text in log.take_all()] or [None]
            after = kind.path("last").read_bytes() if has_samples else b""
            if cache is None:
                break
            assert cache in CACHE
            seen.add(tuple(texts))
            if tuple(texts) in sample_failures:
                assert after == before and not kind.path("prev").exists()
            elif has_samples:
                assert len(after) == len(before) and kind.path("prev").read_bytes() == before
                assert not kind.path("delta").exists()
            else:
                assert_cut_short(kind, count, free * PAGE)
        assert len(kind.read("delta").rows) == count, "at last there is room"
        assert seen == sample_failures | delta_failures, "every place was reached"
        kind.destroy()


def test_failing_calls(daemon, supervisor, log):
    serve(supervisor, ETHER, 1)
    kind = Kind(daemon, ETHER).create()
    for number, call in enumerate(("openat", "flock", "ftruncate"), 1):
        with injected(daemon, kind.path("delta"), f"{call}:error=EIO"):
            kind.view()
            log.expect((DEBUG, f"Error {number} creating etherstats delta file."))
    kind.view()
    assert len(kind.read("delta").rows) == 1
