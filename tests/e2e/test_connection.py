"""An agent that is absent, or goes away and comes back."""
import time

import pytest

from harness import control, processes
from harness.agent import NULL
from harness.collection import Collection, next_second
from harness.daemon import DIED, NO_AGENT, NO_PREFERENCES, STARTED
from harness.files import HOST, MATRIX
from harness.samples import HOSTS, LATER, records
from harness.syslog import DEBUG


@pytest.mark.parametrize("fault", [
    {"action": "close"}, {"action": "truncate", "bytes": 24}, None],
    ids=lambda fault: fault["action"] if fault else "agent gone")
def test_connection_check_fails(fault, daemon, agent, log):
    """The daemon connects anew. While the agent refuses that, polls wait and no sample is lost."""
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
    log.take_all(DIED)


def test_agent_that_comes_late(own_daemon, agent, log):
    """Absent at the start: the daemon waits silently and remembers what was asked for."""
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
