"""What the data directory and the files in it can do to a poll: missing, read-only, damaged. That the disk is
full, or a call fails, is for scripts/campaign."""
import fcntl
import subprocess

import pytest

from harness import control, processes
from harness.agent import ROWS as CALLS
from harness.collection import Collection
from harness.disk import mounted
from harness.files import HOST
from harness.paths import DATA
from harness.samples import HOSTS, records
from harness.syslog import DEBUG, WARNING

ROWS = [(1, (number.to_bytes(6, "big"), *[number * 1000] * 7)) for number in range(1, 400)]  # 4 blocks
MORE = [(1, (*row[:1], *[value + 100 for value in row[1:]])) for _, row in ROWS]


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
