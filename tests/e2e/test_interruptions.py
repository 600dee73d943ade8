"""Polls that somebody breaks off or puts off: a terminate message, a reader."""
import fcntl

import pytest

from harness import control, processes, settings
from harness.agent import CONTROL, ROWS, SYSTEM_INFO
from harness.collection import Collection
from harness.daemon import CALL, NOT_THERE, STARTED
from harness.files import HOST, MATRIX
from harness.samples import HOSTS, LATER, records
from harness.syslog import DEBUG, WARNING

PAIR = (1, (b"\2\0\0\0\0\1", b"\2\0\0\0\0\2", 1, 2, 3))
LOCK_FAILED = (WARNING, "poll_coll_delta: Error locking delta file.")


@pytest.mark.parametrize("procedure", [ROWS["host"], SYSTEM_INFO, CONTROL["host"], None], ids=[
    "row call", "up-time call", "control scan", "reader's lock"])
def test_terminate(procedure, own_daemon, agent, log):
    """Whatever the daemon waits for, and although another message waits for the poll, it ends."""
    scan = procedure == CONTROL["host"]  # the main thread's own; all others are the poll task's
    settings.refresh(3600 if scan else 2)
    agent.serve(host=HOSTS)
    own_daemon.start()
    log.expect(*STARTED)
    collection = Collection(own_daemon, HOST)
    collection.create()
    collection.poll()
    with open(HOST.path(1, "delta"), "rb") as reader:
        if procedure is None:
            fcntl.flock(reader, fcntl.LOCK_SH)
        agent.serve(host=LATER, faults=[{"procedure": procedure, "action": "no_answer"}] if procedure else ())
        control.send(control.RESCAN if scan else control.VIEWING, HOST.code, 1)
        if procedure:
            processes.wait_until(lambda: agent.calls(procedure))
        else:
            processes.wait_until(lambda: HOST.path(1, "delta").stat().st_size == 0)
        sample = HOST.path(1, "last" if scan else "prev").read_bytes()
        control.send(control.VIEWING, 0, 99)
        control.send(control.TERMINATE)
        assert own_daemon.exit_status(timeout=CALL - 10) == 0
    log.wait("Terminating tallyd.", WARNING)
    log.take_all()
    assert HOST.path(1, "last").read_bytes() == sample


def test_reader_holds_a_poll_up(own_daemon, agent, log):
    """The poll empties the delta file and waits for the lock, and messages for the poll, which is given up
    after the time of a call: then the others are polled, and messages are served."""
    interval = 5  # long enough to judge the files of a poll before the next one moves them
    settings.refresh(interval)
    agent.serve(host=HOSTS, matrix=[PAIR])
    own_daemon.start()
    log.expect(*STARTED)
    host, matrix = Collection(own_daemon, HOST), Collection(own_daemon, MATRIX)
    host.first_sample(records(HOSTS))
    host.next_sample(records(HOSTS))
    matrix.create()
    matrix.poll()
    with open(HOST.path(1, "delta"), "rb") as reader:
        fcntl.flock(reader, fcntl.LOCK_SH)
        sample = HOST.path(1, "last").read_bytes()
        agent.serve(host=LATER, matrix=[PAIR])
        begun = host.time + interval
        control.send(control.VIEWING, HOST.code, 1)
        processes.wait_until(lambda: HOST.path(1, "delta").stat().st_size == 0)
        control.send(control.VIEWING, 0, 99)
        processes.wait_until(lambda: processes.asleep(own_daemon.pid))
        assert log.peek() == [], "the message waits for the poll"
    log.wait(NOT_THERE.format(0, 99), WARNING)
    host.judge_next(records(LATER), sample, begun)
    with open(HOST.path(1, "delta"), "rb") as reader:
        fcntl.flock(reader, fcntl.LOCK_SH)
        sample = HOST.path(1, "last").read_bytes()
        before = processes.wait_until(lambda: MATRIX.sampled(1))  # it is polled by itself, too
        for collection in (HOST, MATRIX):
            control.send(control.VIEWING, collection.code, 1)
        log.wait(LOCK_FAILED[1], LOCK_FAILED[0], timeout=CALL + processes.PATIENCE)
        own_daemon.settle()
        assert HOST.path(1, "last").read_bytes() == sample
        processes.wait_until(lambda: MATRIX.sampled(1) > before)
    assert own_daemon.stop() == 0
    log.take_all(LOCK_FAILED[1])
