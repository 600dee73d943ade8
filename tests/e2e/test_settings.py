"""The polling interval out of the preferences database, whatever state that one is in."""
import contextlib
import dbm.gnu
import time

import pytest

from harness import processes, settings
from harness.collection import Collection
from harness.daemon import NO_PREFERENCES, STARTED
from harness.files import HOST
from harness.paths import PREFERENCES
from harness.syslog import WARNING

NO_INTERVAL = (WARNING, f"Tallyd could not retrieve interval from {PREFERENCES}.")


def holding(content):
    """Prepares the file of these bytes, or the database of these values."""
    def prepare():
        if isinstance(content, bytes):
            PREFERENCES.write_bytes(content)
        else:
            settings.write(PREFERENCES, **content)
        return contextlib.nullcontext()
    return prepare


def held_by_a_writer():
    settings.refresh(1)
    return dbm.gnu.open(str(PREFERENCES), "w")


# label: (what to prepare, what is logged, seconds between the polls of a viewed collection)
CASES = {
    "missing": (contextlib.nullcontext, [NO_PREFERENCES], 60),
    "no database": (holding(b"refresh=1\n"), [NO_PREFERENCES], 60),
    "held by a writer": (held_by_a_writer, [NO_PREFERENCES], 60),
    "without the key": (holding({"refreshed": b"1"}), [NO_INTERVAL], 60),
    "0": (holding({"refresh": b"0"}), [], 60),
    "below the limits of the message": (holding({"refresh": b"2"}), [], 2),
}


@pytest.mark.parametrize("label", CASES)
def test_interval(label, own_daemon, agent, log):
    prepare, texts, interval = CASES[label]
    agent.serve(host=[(1, (b"\2\0\0\0\0\1", *range(7)))])
    with prepare():
        own_daemon.start()
    log.expect(*STARTED, *texts)
    collection = Collection(own_daemon, HOST)
    collection.create()
    collection.poll(same_second=True)  # at once, then by the interval
    first = HOST.read(1, "last").header.time
    log.take_all("host_calc_delta() found a 0-length interval.")
    if interval == 60:
        time.sleep(1.5)
        assert HOST.read(1, "last").header.time == first, "polled again although 60 s have not passed"
    else:
        # The delta file is empty, or short, while it is written.
        sampled = lambda: int.from_bytes(HOST.path(1, "delta").read_bytes()[8:12], "little")
        processes.wait_until(lambda: sampled() > first, timeout=interval + 10)
        own_daemon.settle()
        assert sampled() - first == interval
    assert own_daemon.stop() == 0


def test_damaged_database_is_survived(own_daemon, agent, log):
    settings.refresh(1)
    content = PREFERENCES.read_bytes()
    PREFERENCES.write_bytes(content[:64].ljust(len(content), b"\xff"))
    own_daemon.start()
    log.expect(*STARTED)
    assert set(log.take_all()) <= {NO_PREFERENCES, NO_INTERVAL}
    assert own_daemon.stop() == 0
