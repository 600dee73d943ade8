"""Calls that would last for ever: none lasts longer than its 25 seconds, connecting included."""
import socket
import time

import pytest

from harness import control, model, processes
from harness.agent import ROWS
from harness.collection import Collection
from harness.files import HOST
from harness.paths import AGENT
from harness.syslog import DEBUG

HOSTS = [(1, (number.to_bytes(6, "big"), *range(number, number + 7))) for number in range(1, 251)]
DIED = "RPC connection died, reopening!"
CALL = 25  # seconds


@pytest.mark.parametrize("fault", [{"action": "no_answer"}, {"action": "drip", "bytes": 1, "seconds": 1}],
                         ids=lambda fault: fault["action"])
def test_reply_that_does_not_come(fault, daemon, agent, log):
    """Silence, and a byte a second: the rows so far are used, and then the daemon serves again."""
    agent.serve(host=HOSTS, faults=[{"procedure": ROWS["host"], "call": 2, **fault}])
    begun = time.time()
    control.send(control.CREATE, HOST.code, 1)
    collection = Collection(daemon, HOST)
    log.wait("host_rpc_getnext: RPC failed", DEBUG, timeout=CALL + 3)
    assert CALL - 1 < time.time() - begun < CALL + 2
    daemon.settle()
    collection.judge_first(model.returned(HOST, HOSTS[:100], 1), int(begun))
    daemon.collections.add(collection)
    agent.serve(host=HOSTS)
    collection.next_sample(model.returned(HOST, HOSTS, 1))
    assert len(log.take_all(DIED)) <= 1  # a line that dripped is given up


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
