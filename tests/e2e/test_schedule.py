"""When collections are polled: looked at, left alone, destroyed, and told a new interval."""
import time

from harness import control, processes, settings
from harness.agent import NULL
from harness.collection import Collection, next_second
from harness.daemon import STARTED
from harness.files import HOST, MATRIX, PDIST, listing

ROW = {HOST: (b"\2\0\0\0\0\1", *range(7)), MATRIX: (b"\2\0\0\0\0\1", b"\2\0\0\0\0\2", 1, 2, 3),
       PDIST: (132, 1, 5, 6)}


def poll_times(seconds=3600, count=3600, meanwhile=lambda: None):
    """The sample times seen in the hosts' last file, until there are `count` of them or time is up."""
    times, end = [], time.monotonic() + seconds
    while time.monotonic() < end and len(times) < count:
        stamp = HOST.sampled(1)
        if stamp and stamp not in times:
            times.append(stamp)
        meanwhile()
        time.sleep(0.1)
    return times


def test_looked_at_left_alone_and_destroyed(own_daemon, agent, log):
    """MATRIX is viewed once, at its first sample; PDIST never is."""
    settings.refresh(2)
    agent.serve(**{layout.stem: [(1, row)] for layout, row in ROW.items()})
    own_daemon.start()
    log.expect(*STARTED)
    for layout in (HOST, MATRIX, PDIST):
        control.send(control.CREATE, layout.code, 1)
    processes.wait_until(HOST.path(1, "last").exists)
    own_daemon.settle()
    next_second()
    control.send(control.VIEWING, MATRIX.code, 1)
    times = poll_times(count=4, meanwhile=lambda: control.send(control.VIEWING, HOST.code, 1))
    assert [b - a for a, b in zip(times[1:], times[2:])] == [2, 2], times  # the first look finds no delta file
    assert len(poll_times(4.5)) <= 3, "one more poll, or two, after the last look"
    assert len(poll_times(2.5)) == 1, "an hour to the next one"
    assert not PDIST.path(1, "delta").exists()
    assert MATRIX.read(1, "last").header.time - MATRIX.read(1, "prev").header.time == 2
    control.send(control.VIEWING, HOST.code, 1)
    for layout in (HOST, MATRIX, PDIST):
        control.send(control.DESTROY, layout.code, 1)
    own_daemon.rest(agent)
    agent.forget_calls()
    time.sleep(2.5)
    assert agent.calls() == [] and listing() == []
    assert own_daemon.stop() == 0


def test_new_interval_does_not_wake_the_task(daemon, agent, log):
    """The daemon sleeps on as planned; the new interval counts from the task's next wake-up."""
    agent.serve(host=[(1, ROW[HOST])])
    collection = Collection(daemon, HOST)
    collection.create()
    collection.poll()
    agent.forget_calls()
    for _ in range(3):  # there is a delta file, so none is made
        control.send(control.VIEWING, HOST.code, 1)
    daemon.rest(agent)
    assert set(agent.calls()) <= {str(NULL)}
    first = HOST.read(1, "last").header.time
    control.send(control.INTERVAL, 1)
    log.wait("msg_set_interval() passed too small a value")
    daemon.rest(agent)
    before = processes.switches(daemon.pid)
    time.sleep(max(2.0, first + 15.5 - time.time()))
    assert processes.switches(daemon.pid) == before
    daemon.settle()
    assert HOST.read(1, "last").header.time == first
    other = Collection(daemon, MATRIX)
    other.create()
    daemon.settle()
    assert HOST.read(1, "last").header.time - first in (15, 16)
    control.send(control.INTERVAL, 3600)


def test_many_collections(daemon, agent):
    """Hundreds come and go while the task polls; those that stay have their own rows."""
    indexes = [0, 2**31 - 1, 2**31, 2**32 - 1, *range(1, 200)]  # 32 bits on every road
    agent.serve(host=[(index, (b"\2\0\0\0\0\1", *[index] * 7)) for index in indexes])
    for turn in range(4):
        for index in indexes:
            control.send(control.CREATE, HOST.code, index)
            if turn % 2 == 0:
                control.send(control.DESTROY, HOST.code, index)
    processes.wait_until(lambda: all(HOST.path(index, "last").exists() for index in indexes))
    daemon.settle()
    for index in indexes:
        assert HOST.read(index, "last").rows == [(b"\2\0\0\0\0\1", (index,) * 7)]
        control.send(control.DESTROY, HOST.code, index)
    daemon.answer()
    assert listing() == []
