"""What the data directory and the files in it can do to a poll: full, missing, read-only, damaged."""
import fcntl
import subprocess

import pytest

from harness import control, processes, samples
from harness.agent import ROWS as CALLS
from harness.collection import Collection, next_second
from harness.disk import PAGE, mounted, pages, resize, small
from harness.files import HOST, LAYOUTS
from harness.paths import DATA
from harness.samples import HOSTS, records
from harness.syslog import DEBUG, WARNING

ROWS = [(1, (number.to_bytes(6, "big"), *[number * 1000] * 7)) for number in range(1, 400)]  # 4 blocks
MORE = [(1, (*row[:1], *[value + 100 for value in row[1:]])) for _, row in ROWS]
# What may stand first in the log when a write fails, all of it or a part of it, and which texts follow it.
WRITE = {(WARNING, "Unable to write poll cache to file."), (WARNING, "Not all tallyd cached data written to file.")}
FLUSH = {(WARNING, "Unable to flush poll cache to file."), (WARNING, "Not all cached data flushed to file.")}
HIGH = [(1, (b"\xff" * 6, *[9] * 7))]
# The rows of two samples, and the writes of the second poll that can fail: the levels differ.
FULL = {
    "all change": (ROWS, MORE, [(WARNING, "writing last record 4."), (WARNING, "writing delta record 2.")]),
    "all are gone": (ROWS, [], [(WARNING, "writing last record 1.")]),
    "all are new": ([], ROWS, [(WARNING, "writing last record 2."), (WARNING, "writing delta record 1.")]),
    "all are gone before a new one": (ROWS, HIGH, [(WARNING, "writing last record 3.")]),
    "all are new before one that is gone": (HIGH, ROWS, [(DEBUG, "writing last record 5."),
                                                         (DEBUG, "writing delta record 3.")]),
}


@pytest.mark.parametrize("label", FULL)
def test_full_at_every_write(label, daemon, agent, log):
    """With one page more each time: a poll that fails puts the old sample back."""
    first, second, writes = FULL[label]
    causes = {(level, "poll_coll_delta: Error " + text): WRITE for level, text in writes}
    causes |= {(DEBUG, f"poll_coll_delta: Error flushing {file} file."): FLUSH for file in ("last", "delta")}
    with small():
        agent.serve(host=first)
        collection = Collection(daemon, HOST)
        collection.first_sample(records(first))
        sample = HOST.path(1, "last").read_bytes()
        agent.serve(host=second)
        seen = []
        next_second()
        needed = sum(pages(HOST.pack((0, 0, 0, 0), rows)) for rows in (
            records(list({row[0]: (1, row) for _, row in first + second}.values())), records(second)))
        for free in range(needed):
            HOST.path(1, "delta").unlink(missing_ok=True)
            resize(pages(sample) + free)
            collection.poll(same_second=True)
            writing, polling = log.take_all()
            assert writing in causes[polling]
            seen.append(polling)
            assert HOST.path(1, "last").read_bytes() == sample
            assert not HOST.path(1, "prev").exists()
        assert set(seen) == set(causes), "every place was reached"
        resize(pages(sample) + needed)
        HOST.path(1, "delta").unlink()
        collection.next_sample(records(second))
        collection.destroy()


@pytest.mark.parametrize("layout", LAYOUTS, ids=lambda layout: layout.stem)
def test_full_at_the_first_sample(layout, daemon, agent, log):
    """Every type logs it, one of them under another's name, and no partial file is left."""
    agent.serve(**{layout.stem: samples.rows(layout, {number: 1 for number in range(1, 1000)}, 1)})
    collection = Collection(daemon, layout)
    with mounted("-t", "tmpfs", "-o", "mode=777,size=4k", "tmpfs"):
        control.send(control.CREATE, layout.code, 1)
        log.wait(f"{'pdist' if layout.stem == 'vlan' else layout.stem}_upload() error 1.", DEBUG)
        log.wait("poll_tapd_collection: Error uploading collection.", DEBUG)
        daemon.settle()
        assert set(log.take_all()) <= WRITE
        assert list(DATA.iterdir()) == []
        if layout is HOST:  # less than a block: it is the flush that fails
            (DATA / "filler").write_bytes(bytes(PAGE))
            agent.serve(host=ROWS[:1])
            control.send(control.CREATE, HOST.code, 1)
            log.wait("poll_tapd_collection: Error flusing buffer.", DEBUG)
            daemon.settle()
            assert set(log.take_all()) <= FLUSH
            assert [path.name for path in DATA.iterdir()] == ["filler"]
    collection.destroy()


def test_missing_or_read_only_directory(daemon, agent, log):
    """Nothing is lost. A missing directory is not logged."""
    rows = ROWS[:3]
    agent.serve(host=rows)
    known, fresh = Collection(daemon, HOST, 1), Collection(daemon, HOST, 2)
    known.first_sample(records(rows))
    before = HOST.path(1, "last").read_bytes()
    with mounted("-t", "tmpfs", "tmpfs", on=DATA.parent):
        assert not DATA.exists()
        control.send(control.CREATE, HOST.code, 2)
        known.poll(wait_for_delta=False)
        daemon.rest(agent)  # such a poll leaves no trace
    with mounted("--bind", str(DATA)):
        subprocess.run(["mount", "-o", "remount,bind,ro", str(DATA)], check=True)
        control.send(control.VIEWING, HOST.code, 1)
        log.expect((WARNING, "poll_coll_delta: Error opening file!"))
        daemon.settle()
    assert HOST.path(1, "last").read_bytes() == before
    known.next_sample(records(rows))
    fresh.first_sample([])


NO_HEADER = (WARNING, "poll_coll_delta: Error reading header from prev file!")


def test_last_file_without_a_whole_header(daemon, agent, log):
    """Every poll fails and keeps the file, until the collection is created anew."""
    rows = ROWS[:3]
    agent.serve(host=rows)
    collection = Collection(daemon, HOST)
    collection.first_sample(records(rows))
    stump = HOST.path(1, "last").read_bytes()[:15]
    HOST.path(1, "last").write_bytes(stump)
    for _ in range(2):
        collection.poll()
        log.expect(NO_HEADER)
        assert HOST.path(1, "last").read_bytes() == stump
        assert HOST.path(1, "delta").read_bytes() == b""


@pytest.mark.parametrize("rows, odd", [(3, 61), (132, 30)])
def test_last_file_of_impossible_length(rows, odd, daemon, agent, log):
    """The rows of the blocks before the odd one are used; all rows behind it count as new."""
    block = 8192 // HOST.size
    agent.serve(host=ROWS)
    collection = Collection(daemon, HOST)
    collection.first_sample(records(ROWS))
    damaged = HOST.path(1, "last").read_bytes()[:16 + rows * HOST.size + odd]
    HOST.path(1, "last").write_bytes(damaged)
    collection.rows = records(ROWS[:rows // block * block])
    agent.serve(host=MORE)
    collection.next_sample(records(MORE))
    log.expect((WARNING, "Error 2 reading to fill file cache."), (DEBUG, "filebuf_getnext: ERROR filling cache!"))
    collection.next_sample(records(MORE))


def test_poll_holds_readers_up(daemon, agent):
    """Nobody gets the lock of the delta file while the rows are still being fetched."""
    agent.serve(host=HOSTS)
    collection = Collection(daemon, HOST)
    collection.first_sample(records(HOSTS))
    agent.serve(host=HOSTS, faults=[{"procedure": CALLS["host"], "call": 2, "action": "delay", "seconds": 2}])
    collection.poll(wait_for_delta=False)
    processes.wait_until(lambda: len(agent.calls(CALLS["host"])) == 2)
    with open(HOST.path(1, "delta"), "rb") as delta:
        with pytest.raises(BlockingIOError):
            fcntl.flock(delta, fcntl.LOCK_SH | fcntl.LOCK_NB)
        fcntl.flock(delta, fcntl.LOCK_SH)
        assert len(delta.read()) == 16, "nothing has changed"
