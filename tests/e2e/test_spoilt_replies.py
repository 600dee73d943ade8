"""Replies that are spoilt at any call of a poll, and replies that are only unusual."""
import pytest

from harness import model, processes
from harness.agent import ROWS
from harness.collection import Collection
from harness.daemon import SANITIZED
from harness.files import HOST
from harness.syslog import DEBUG

DIED = "RPC connection died, reopening!"
FAILED = "host_rpc_getnext: RPC failed"
HOSTS = [(1, (number.to_bytes(6, "big"), *range(number, number + 7))) for number in range(1, 251)]  # 3 batches
LATER = [(1, (*row[:1], *[value * 2 for value in row[1:]])) for _, row in HOSTS]
HOST_ROWS = ROWS["host"]

# Each way to spoil the reply to one call, and whether the connection is gone with it.
SPOILT = {
    "process ends": ({"action": "exit"}, True),
    "connection closed": ({"action": "close"}, True),
    "closed within the record mark": ({"action": "cut", "bytes": 3}, True),
    "closed within the reply header": ({"action": "cut", "bytes": 20}, True),
    "closed within the rows": ({"action": "cut", "bytes": 120}, True),
    "system error": ({"action": "system_err"}, False),
    "arguments refused": ({"action": "decode_err"}, False),
    "procedure unknown": ({"action": "no_proc"}, False),
    "program unknown": ({"action": "no_prog"}, False),
    "caller refused": ({"action": "weak_auth"}, False),
    "no results": ({"action": "truncate", "bytes": 24}, False),
    "rows cut short": ({"action": "truncate", "bytes": 100}, False),
    "4294967295 rows": ({"action": "raw", "hex": "ffffffff"}, False),
    "2147483648 rows": ({"action": "raw", "hex": "80000000 00000001 00000006"}, False),
    "a million rows": ({"action": "raw", "hex": "000f4240" + "00" * 400}, False),
    "an address of 4294967295 bytes": ({"action": "raw", "hex": "00000001 00000001 ffffffff 00000002"}, False),
    "an address of 1073741824 bytes": ({"action": "raw", "hex": "00000001 00000001 40000000" + "00" * 4000}, False),
}
# (label, call that is spoilt): every way at the first batch, the plain ones at each other call, too.
POINTS = [(label, 1) for label in SPOILT] + [
    (label, call) for label in ("process ends", "connection closed", "system error", "rows cut short")
    for call in (2, 3, 4) if not (label == "rows cut short" and call == 4)]


def records(rows):
    return model.returned(HOST, rows, 1)


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
    {"action": "fragments", "bytes": 1}, {"action": "fragments", "bytes": 7}, {"action": "fragments", "bytes": 4096},
    {"action": "delay", "seconds": 1.2}, {"action": "drip", "bytes": 500, "seconds": 0.01}],
    ids=lambda fault: " ".join(str(value) for value in fault.values()))
def test_reply_in_pieces_is_a_reply(fault, daemon, agent):
    collection = Collection(daemon, HOST)
    agent.serve(host=HOSTS, faults=[{"procedure": HOST_ROWS, **fault}])
    collection.first_sample(records(HOSTS))


def test_batch_beyond_the_agreed_size(daemon, agent):
    many = [(1, (number.to_bytes(6, "big"), *range(7))) for number in range(1, 5001)]
    agent.serve(replies={HOST_ROWS: [many, []]})
    collection = Collection(daemon, HOST)
    collection.first_sample(records(many))
    agent.serve(replies={HOST_ROWS: [many, []]})
    collection.next_sample(records(many))
