"""Calls that fail or are not answered; a daemon that is killed."""
import time

import pytest

from harness import control, settings
from harness.agent import ROWS, SYSTEM_INFO
from harness.collection import Collection, next_second
from harness.daemon import CALL, DIED
from harness.files import HOST
from harness.samples import HOSTS, LATER, records
from harness.syslog import DEBUG

FAILED = "host_rpc_getnext: RPC failed"


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
    log.wait(FAILED, DEBUG, timeout=CALL + 15)
    assert time.time() - begun > CALL - 1
    daemon.settle()
    collection.judge_first(records(HOSTS[:100]), int(begun))
    daemon.collections.add(collection)
    agent.serve(host=HOSTS)
    collection.next_sample(records(HOSTS))
    assert len(log.take_all(DIED)) <= 1
