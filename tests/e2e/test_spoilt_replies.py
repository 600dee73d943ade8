"""Replies that are spoilt at any call of a poll, and replies that are only unusual."""
import pytest

from harness import processes
from harness.agent import ROWS
from harness.collection import Collection
from harness.daemon import SANITIZED
from harness.files import HOST
from harness.samples import HOSTS, LATER, records
from harness.syslog import DEBUG

DIED = "RPC connection died, reopening!"
FAILED = "host_rpc_getnext: RPC failed"
HOST_ROWS = ROWS["host"]

# Each way to spoil the reply to one call, and whether the connection is gone with it.
SPOILT = {
    "process ends": ({"action": "exit"}, True),
    "connection closed": ({"action": "close"}, True),
    "closed within the reply header": ({"action": "cut", "bytes": 20}, True),
    "closed within the rows": ({"action": "cut", "bytes": 120}, True),
    "system error": ({"action": "system_err"}, False),
    "no results": ({"action": "truncate", "bytes": 24}, False),
    "rows cut short": ({"action": "truncate", "bytes": 100}, False),
    "4294967295 rows": ({"action": "raw", "hex": "ffffffff"}, False),
    "a million rows": ({"action": "raw", "hex": "000f4240" + "00" * 400}, False),
    "an address of 1073741824 bytes": ({"action": "raw", "hex": "00000001 00000001 40000000" + "00" * 4000}, False),
}
# (label, call that is spoilt): every way at the first batch, the plain ones at later calls, too.
POINTS = [(label, 1) for label in SPOILT] + [
    ("process ends", 2), ("connection closed", 4), ("system error", 3), ("rows cut short", 3)]


@pytest.mark.parametrize("label, call", POINTS)
def test_row_call_fails(label, call, daemon, agent, log):
    """The table ends there and the poll succeeds: the rows that came are used, the others carried on
    under the new time. The next poll is an ordinary one."""
    fault, lost = SPOILT[label]
    spoilt = [{"procedure": HOST_ROWS, "call": call, **fault}]
    collection = Collection(daemon, HOST)
    peak = processes.status_field(daemon.pid, "VmHWM")
    for rows, sample in ((HOSTS, collection.first_sample), (LATER, collection.next_sample)):
        agent.serve(host=rows, faults=spoilt)
        sample(records(rows[:100 * (call - 1)]))
        log.wait(FAILED, DEBUG)
        agent.bring_back()
        agent.serve(host=rows)
        sample(records(rows))
        assert len(log.take_all(DIED)) == lost
    assert SANITIZED or processes.status_field(daemon.pid, "VmHWM") - peak < 8 * 1024, "KiB for a reply that was not there"


@pytest.mark.parametrize("fault", [
    {"action": "fragments", "bytes": 7}, {"action": "delay", "seconds": 1.2},
    {"action": "drip", "bytes": 500, "seconds": 0.01}],
    ids=lambda fault: " ".join(str(value) for value in fault.values()))
def test_reply_in_pieces_is_a_reply(fault, daemon, agent):
    collection = Collection(daemon, HOST)
    agent.serve(host=HOSTS, faults=[{"procedure": HOST_ROWS, **fault}])
    collection.first_sample(records(HOSTS))


