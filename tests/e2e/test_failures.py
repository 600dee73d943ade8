"""An agent that is absent, goes away, comes back, or hangs; a daemon that is killed."""
import socket
import time

import pytest

from harness import control, processes, settings
from harness.agent import NULL, ROWS, SYSTEM_INFO
from harness.collection import Collection, next_second
from harness.daemon import DIED, NO_AGENT, NO_PREFERENCES, STARTED
from harness.files import HOST, MATRIX
from harness.paths import AGENT
from harness.samples import HOSTS, LATER, records
from harness.syslog import DEBUG

FAILED = "host_rpc_getnext: RPC failed"
CALL = 25  # seconds that no call takes longer than, connecting included


@pytest.mark.parametrize("action", ["exit", "close", "system_err"])
def test_up_time_call_fails(action, daemon, agent, log):
    """The up-time is told as 0; whether rows come depends on what became of the connection."""
    collection = Collection(daemon, HOST)
    agent.serve(host=HOSTS)
    collection.first_sample(records(HOSTS))
    agent.serve(host=LATER, faults=[{"procedure": SYSTEM_INFO, "call": 1, "action": action}])
    alive = action == "system_err"
    collection.next_sample(records(LATER if alive else []), up_time=0)
    assert len(log.take_all(FAILED)) == (not alive)
    agent.bring_back()
    agent.serve(host=LATER)
    collection.next_sample(records(LATER))
    assert len(log.take_all(DIED)) == (not alive)


@pytest.mark.parametrize("fault", [
    {"action": "close"}, {"action": "truncate", "bytes": 24}, None],
    ids=lambda fault: fault["action"] if fault else "agent gone")
def test_connection_check_fails(fault, daemon, agent, log):
    """A new connection is made; while that is refused, the polls are put off and no sample is lost."""
    collection = Collection(daemon, HOST)
    agent.serve(host=HOSTS)
    collection.first_sample(records(HOSTS))
    before = HOST.path(1, "last").read_bytes()
    agent.serve(host=LATER, faults=[{"procedure": NULL, "call": 1, **fault}] if fault else ())
    begun = time.time()
    next_second()
    if fault is None:
        agent.stop()
    control.send(control.VIEWING, HOST.code, 1)
    log.wait(DIED, DEBUG)
    if fault is None:
        time.sleep(0.5)
        assert HOST.path(1, "last").read_bytes() == before
        assert not HOST.path(1, "prev").exists()
        agent.start()
    processes.wait_until(HOST.path(1, "delta").exists)  # without another word from outside
    daemon.settle()
    collection.judge_next(records(LATER), before, int(begun))
    assert time.time() - begun < 8
    log.take_all(DIED)


def test_agent_that_comes_late(own_daemon, agent, log):
    """Absent at the start: nothing is said while it is waited for, and what was asked for is kept."""
    agent.stop()
    try:
        own_daemon.start()
        log.expect(*STARTED, NO_PREFERENCES, NO_AGENT)
        for layout in (HOST, MATRIX):
            control.send(control.CREATE, layout.code, 1)
        own_daemon.answer()
        time.sleep(4)
        assert log.peek() == []
    finally:
        agent.serve(host=HOSTS, control={"host": [(7, "LocalMgr", 1)]})
        agent.start()
    processes.wait_until(HOST.path(1, "last").exists)
    own_daemon.settle()
    assert HOST.read(1, "last").rows == records(HOSTS)
    assert MATRIX.read(1, "last").rows == []
    control.send(control.RESCAN)
    processes.wait_until(HOST.path(7, "last").exists)
    assert own_daemon.stop() == 0


def test_killed_at_any_moment(own_daemon, agent, log):
    """SIGKILL between a poll's steps leaves whole rows and nothing that hinders the next daemon."""
    settings.refresh(1)
    agent.serve(host=HOSTS, faults=[{"procedure": ROWS["host"], "action": "delay", "seconds": 0.01}])
    for turn in range(8):
        own_daemon.start()
        Collection(own_daemon, HOST).create()
        next_second()
        control.send(control.VIEWING, HOST.code, 1)
        time.sleep(turn * 0.006)
        own_daemon.kill()
        for path in HOST.paths(1):
            if path.exists() and len(data := path.read_bytes()) >= 16:
                HOST.unpack(data)
        log.take_all()


def test_reply_that_does_not_come(daemon, agent, log):
    """The rows so far are used, and then the daemon serves again."""
    agent.serve(host=HOSTS, faults=[{"procedure": ROWS["host"], "call": 2, "action": "no_answer"}])
    begun = time.time()
    control.send(control.CREATE, HOST.code, 1)
    collection = Collection(daemon, HOST)
    log.wait(FAILED, DEBUG, timeout=CALL + 5)
    assert CALL - 1 < time.time() - begun < CALL + 2
    daemon.settle()
    collection.judge_first(records(HOSTS[:100]), int(begun))
    daemon.collections.add(collection)
    agent.serve(host=HOSTS)
    collection.next_sample(records(HOSTS))
    assert len(log.take_all(DIED)) <= 1


def test_connection_that_is_not_accepted(daemon, agent, log):
    """A listener whose queue is full leaves a caller hanging: messages are served meanwhile, and the
    agent is found once it is back."""
    agent.serve(host=HOSTS)
    collection = Collection(daemon, HOST)
    collection.create()
    agent.stop()
    with socket.socket() as deaf:
        deaf.setsockopt(socket.SOL_SOCKET, socket.SO_REUSEADDR, 1)
        deaf.bind(AGENT)
        deaf.listen(0)
        callers = [socket.socket() for _ in range(4)]
        for caller in callers:
            caller.setblocking(False)
            caller.connect_ex(AGENT)
        begun = time.monotonic()
        control.send(control.VIEWING, HOST.code, 1)
        log.wait(DIED, DEBUG)
        daemon.settle(timeout=2)
        time.sleep(3)
        assert log.peek() == [], "still in the first try"
        log.wait(DIED, DEBUG, timeout=CALL + 8)  # given up, and tried again
        assert CALL - 1 < time.monotonic() - begun
        for caller in callers:
            caller.close()
    agent.start()
    processes.wait_until(HOST.path(1, "delta").exists)
    daemon.settle()
    log.take_all(DIED)
