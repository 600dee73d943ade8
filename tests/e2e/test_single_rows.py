"""The tables that come one row a call: where they begin, and calls that fail in the middle of them."""
import pytest

from harness import model, samples
from harness.agent import ROWS
from harness.collection import Collection
from harness.files import DSHOST, DSSTATS, SINGLE
from harness.syslog import DEBUG

INDEX = 5
DIED = "RPC connection died, reopening!"


def test_group_zero_is_asked_for(daemon, agent):
    """A table that has a group 0 starts with it, one without with its lowest group."""
    collection = Collection(daemon, DSSTATS, INDEX)
    for numbers, asked in (((0, 1, 63), ["0 request=1", "0 request=2", "1 request=2", "63 request=2"]),
                           ((7,), ["0 request=1", "0 request=2", "7 request=2"]),
                           ((0,), ["0 request=1", "0 request=2"]),
                           ((), ["0 request=1", "0 request=2"])):
        served = samples.rows(DSSTATS, {number: 9 for number in numbers}, INDEX)
        agent.serve(dsstats=served)
        collection.first_sample(model.returned(DSSTATS, served, INDEX))
        assert agent.calls(ROWS["dsstats"]) == [f"74 index={INDEX} group={rest}" for rest in asked]


def test_addresses_that_differ_behind_the_record(daemon, agent):
    """20 bytes are asked after, 16 are kept: rows with one key in the files, and all of them there."""
    served = [(INDEX, (1, 5, 4, b"\7" * 16 + bytes([0, 0, 0, last]), last, 2, 3, 4)) for last in range(1, 6)]
    collection = Collection(daemon, DSHOST, INDEX)
    for sample in (collection.first_sample, collection.next_sample):
        agent.serve(dshost=served)
        sample(model.returned(DSHOST, served, INDEX))
        assert len(agent.calls(ROWS["dshost"])) == 6


# Each way to spoil the reply to one call: whether the connection is gone with it, and whether the
# daemon can tell it from the end of the table.
SPOILT = {
    "connection closed": ({"action": "close"}, True, True),
    "closed within the row": ({"action": "cut", "bytes": 40}, True, True),
    "row cut short": ({"action": "truncate", "bytes": 36}, False, True),
    "status -1": ({"action": "status", "value": 4294967295}, False, False),
}
SERVED = 4


@pytest.mark.parametrize("label", SPOILT)
@pytest.mark.parametrize("layout", SINGLE, ids=lambda layout: layout.stem)
def test_row_call_fails(layout, label, daemon, agent, log):
    """The rows that came are used, the others carried on; the poll after it is an ordinary one."""
    fault, lost, failed = SPOILT[label]
    first = 0 if layout is DSSTATS else 1  # so that no table needs a second call for its first row
    collection = Collection(daemon, layout, INDEX)

    def poll(take, value, call=None):
        """Serve rows of this value, spoil that call, and judge the sample."""
        served = samples.rows(layout, {first + at: value + at for at in range(SERVED)}, INDEX)
        faults = [{"procedure": ROWS[layout.stem], "call": call, **fault}] if call else []
        agent.serve(**{layout.stem: served}, faults=faults)
        take(model.returned(layout, served[:call - 1] if call else served, INDEX))
        if call and failed:
            log.wait(f"{layout.stem}_rpc_getnext: RPC failed", DEBUG)
        agent.bring_back()

    # The first call (where a refusal only makes dsstats ask on), the one behind the last row, and one
    # in the middle.
    for call in (1, SERVED + 1, 3) if failed or layout is not DSSTATS else (SERVED + 1, 3):
        poll(collection.first_sample, 10, call)
        poll(collection.first_sample, 20)
        assert len(log.take_all(DIED)) == lost
