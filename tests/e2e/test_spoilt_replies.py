"""Replies that are spoilt at any call of a poll. The unit tests of the codec cover hostile ones."""
import pytest

from harness import model, samples
from harness.agent import ROWS
from harness.collection import Collection
from harness.daemon import DIED
from harness.files import DSSTATS, HOST, LAYOUTS, SINGLE
from harness.samples import HOSTS, LATER, records
from harness.syslog import DEBUG

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
    for rows, sample in ((HOSTS, collection.first_sample), (LATER, collection.next_sample)):
        agent.serve(host=rows, faults=spoilt)
        sample(records(rows[:100 * (call - 1)]))
        log.wait(FAILED, DEBUG)
        agent.bring_back()
        agent.serve(host=rows)
        sample(records(rows))
        assert len(log.take_all(DIED)) == lost


@pytest.mark.parametrize("layout", LAYOUTS, ids=lambda layout: layout.stem)
def test_each_type_says_whose_call_failed(layout, daemon, agent, log):
    """The second call fails, or has another status: the rows of the first one are used, the others carried on."""
    first = 0 if layout is DSSTATS else 1  # so that it needs no second call for its first row
    collection = Collection(daemon, layout)
    said = {"system_err": 1, "status": 0} if layout in SINGLE else {"system_err": 1}
    for action, texts in said.items():
        for value, take in ((10, collection.first_sample), (20, collection.next_sample)):
            served = samples.rows(layout, {number: value for number in range(first, first + 101)}, 1)
            fault = {"procedure": ROWS[layout.stem], "call": 2, "action": action, "value": 1}
            agent.serve(**{layout.stem: served}, faults=[fault])
            take(model.returned(layout, served[:1 if layout in SINGLE else 100], 1))
            assert len(log.take_all(f"{layout.stem}_rpc_getnext: RPC failed")) == texts
