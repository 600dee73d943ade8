"""An agent that is absent, goes away, comes back; a daemon that is killed."""
import time

import pytest

from harness import control, model, processes, settings
from harness.agent import NULL, ROWS, SYSTEM_INFO
from harness.collection import Collection, next_second
from harness.daemon import SANITIZED, STARTED
from harness.files import HOST, MATRIX
from harness.syslog import DEBUG

DIED = "RPC connection died, reopening!"
FAILED = "host_rpc_getnext: RPC failed"
HOSTS = [(1, (number.to_bytes(6, "big"), *range(number, number + 7))) for number in range(1, 251)]  # 3 batches
LATER = [(1, (*row[:1], *[value * 2 for value in row[1:]])) for _, row in HOSTS]


def records(rows):
    return model.returned(HOST, rows, 1)


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
    {"action": "close"}, {"action": "system_err"}, {"action": "truncate", "bytes": 24}, None],
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


def test_agent_that_stays_away(own_daemon, agent, log):
    """Nothing spins: a try every 5 seconds, or when somebody asks, but not more than one a second."""
    settings.refresh(1)
    agent.serve(host=HOSTS)
    own_daemon.start()
    log.expect(*STARTED)
    collection = Collection(own_daemon, HOST)
    collection.first_sample(records(HOSTS))
    sample = HOST.path(1, "last").read_bytes()
    agent.stop()
    try:
        tries, end = 0, time.monotonic() + 4
        while time.monotonic() < end:
            control.send(control.VIEWING, HOST.code, 1)
            time.sleep(0.05)
        tries = len(log.take_all(DIED))
        assert 2 <= tries <= 5
        time.sleep(6)
        assert 1 <= len(log.take_all(DIED)) <= 2
        own_daemon.settle(timeout=2)
        assert HOST.path(1, "last").read_bytes() == sample
    finally:
        agent.start()
    processes.wait_until(HOST.path(1, "delta").exists)
    own_daemon.settle()
    log.take_all(DIED)
    log.take_all("host_calc_delta() found a 0-length interval.")
    assert own_daemon.stop() == 0


def test_agent_that_comes_late(own_daemon, agent, log):
    """Absent at the start: nothing is said while it is waited for, and what was asked for is kept."""
    agent.stop()
    try:
        own_daemon.start()
        log.expect(*STARTED,
                   (148, "Tallyd could not open preferences file /nvram/config/web/pref.dba."),
                   (DEBUG, "Error 1 scanning control tables."))
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


def test_restarts_leak_nothing(daemon, agent, log):
    """200 connections that are lost, by turns with and without the process."""
    collection = Collection(daemon, HOST)
    agent.serve(host=HOSTS[:1])
    collection.create()
    before = daemon.measure()
    resident = None
    for turn in range(200):
        if turn % 10 == 0:
            agent.restart()
        else:
            agent.serve(host=HOSTS[:1], faults=[{"procedure": NULL, "call": 1, "action": "close"}])
        collection.poll(same_second=True)
        assert len(log.take_all(DIED)) == 1
        assert daemon.measure() == before
        if turn == 50:
            resident = processes.status_field(daemon.pid, "VmRSS")
    log.take_all("host_calc_delta() found a 0-length interval.")
    assert SANITIZED or processes.status_field(daemon.pid, "VmRSS") <= resident + 256


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
