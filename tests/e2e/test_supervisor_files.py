"""What the data directory and failing system calls do to the supervisor kinds."""
import subprocess
import time

import pytest

from harness import processes
from harness.collection import next_second
from harness.daemon import STRACE
from harness.disk import PAGE, pages, resize, small
from harness.kinds import ETHER, PORTS, VLANS, Kind
from harness.paths import DATA
from harness.supervisor import ether_row, port, vlan_row
from harness.syslog import DEBUG

WRITE = {"Unable to write poll cache to file.", "Not all tallyd cached data written to file."}
FLUSH = {"Unable to flush poll cache to file.", "Not all cached data flushed to file."}


def serve(supervisor, layout, count, value=0):
    rows = {ETHER: lambda number: {**ether_row(number, number, [value] * 17), **port(number)},
            VLANS: lambda number: vlan_row(number, number, [value] * 4),
            PORTS: lambda number: port(number, wide=[value] * 8, narrow=[value] * 10)}[layout]
    supervisor.serve(*[rows(number) for number in range(1, count + 1)])


# Of each kind: how many rows make its files three pages long, and what is logged, behind a text of the
# record cache, when a write into a file does not succeed: into the sample, and into the delta file.
FULL = {
    ETHER: (65, [], [(WRITE, ["Error 10 creating etherstats delta file."]), (FLUSH, ["Error 8 polling collection."])]),
    VLANS: (300, [(WRITE, ["vlan_upload() error 6.", "Error 7 polling vlan collection."]),
                  (FLUSH, ["Error 8 polling collection."])],
            [(WRITE, ["Error 18 creating delta file."]), (FLUSH, ["Error 21 creating delta file."])]),
    PORTS: (90, [(WRITE, ["ifstats_upload() error 6.", "Error 7 polling ifstats collection."]),
                 (FLUSH, ["Error 8 ifstats collection."])],
            [(WRITE, ["Error 18 creating delta file."]), (FLUSH, ["Error 21 creating delta file."])]),
}


@pytest.mark.parametrize("layout", FULL, ids=lambda layout: layout.stem)
def test_full_disk(layout, daemon, supervisor, log):
    """One page more each time. What cannot be written leaves the old sample, and no half of a file."""
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
            texts = [text for level, text in log.take_all()]
            after = kind.path("last").read_bytes() if has_samples else b""
            if not texts:
                break
            of_sample = [(cache, more) for cache, more in sample_failures if texts[0] in cache and texts[1:] == more]
            of_delta = [(cache, more) for cache, more in delta_failures if texts[0] in cache and texts[1:] == more]
            assert of_sample or of_delta, texts
            seen.add(texts[-1])
            if of_sample:
                assert after == before and not kind.path("prev").exists()
            elif has_samples:
                assert len(after) == len(before) and kind.path("prev").read_bytes() == before
                assert not kind.path("delta").exists()
            else:
                assert kind.path("delta").read_bytes() == b""
        assert len(kind.read("delta").rows) == count, "at last there is room"
        assert seen == {more[-1] for _, more in sample_failures + delta_failures}, "every place was reached"
        kind.destroy()


@pytest.mark.parametrize("layout, calls", [
    (ETHER, {"openat": "Error 1 creating etherstats delta file.", "flock": "Error 2 creating etherstats delta file.",
             "ftruncate": "Error 3 creating etherstats delta file."}),
    (VLANS, {"openat": "Error 3 creating delta file.", "flock": "Error 24 creating delta file.",
             "ftruncate": "Error 25 creating delta file."})], ids=["etherstats", "supvlan"])
def test_failing_calls(layout, calls, daemon, supervisor, log):
    serve(supervisor, layout, 1)
    kind = Kind(daemon, layout).create()
    kind.view()
    for call, text in calls.items():
        trace = subprocess.Popen([*STRACE, "-p", str(daemon.pid), "-P", str(kind.path("delta")),
                                  "-e", f"inject={call}:error=EIO"])
        try:
            processes.wait_until(lambda: processes.status_field(daemon.pid, "TracerPid") != 0)
            kind.view()
            assert log.take_all() == [(DEBUG, text)]
        finally:
            trace.terminate()
            trace.wait()
    kind.view()
    assert len(kind.read("delta").rows) == (layout is ETHER)
