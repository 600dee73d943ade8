"""Calls that are not answered."""
import time

from harness import control, processes
from harness.agent import CONTROL, LOCAL, ROWS, SYSTEM_INFO
from harness.collection import Collection, next_second
from harness.daemon import CALL
from harness.files import HOST, LAYOUTS, PRIO
from harness.samples import HOSTS, LATER, records
from harness.syslog import DEBUG

FAILED = "host_rpc_getnext: RPC failed"


def test_calls_that_are_not_answered(daemon, agent, log):
    """Each costs its own time and no more: what comes behind it is asked over a new connection, in a
    poll as in the scan of the control tables, and nobody calls the agent dead."""
    collection, adopted = Collection(daemon, HOST), Collection(daemon, PRIO, 7)
    agent.serve(host=HOSTS)
    collection.first_sample(records(HOSTS))
    before = HOST.path(1, "last").read_bytes()
    agent.serve(host=LATER, control={"prio": [(7, LOCAL, 1)]},
                faults=[{"procedure": number, "call": call, "action": "no_answer"}
                        for number, call in ((CONTROL["host"], 1), (SYSTEM_INFO, 1), (ROWS["host"], 2))])
    begun = time.time()
    next_second()
    control.send(control.VIEWING, HOST.code, 1)
    daemon.collections.add(adopted)
    control.send(control.RESCAN)
    log.wait(FAILED, DEBUG, timeout=2 * CALL + processes.PATIENCE)
    assert time.time() - begun > 2 * CALL - 1
    daemon.settle()
    collection.judge_next(records(LATER[:100]), before, int(begun), up_time=0)
    assert [call.split()[0] for call in agent.calls(*CONTROL.values())] == [
        str(CONTROL[layout.stem]) for layout in LAYOUTS for _ in range(1 + (layout is PRIO))]
    processes.wait_until(PRIO.path(7, "last").exists)
    agent.serve(host=HOSTS)
    collection.next_sample(records(HOSTS))
