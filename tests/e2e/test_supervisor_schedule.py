"""When the supervisor kinds are polled."""
import fcntl
import time

import pytest

from harness import control, processes
from harness.collection import next_second
from harness.kinds import ETHER, PORTS, VLANS, Kind
from harness.supervisor import rows, silence
from harness.syslog import DEBUG, WARNING


@pytest.fixture
def interval():
    return 2


@pytest.fixture(name="brisk")
def brisk_kinds(fresh_daemon, supervisor, log):
    """The three kinds of a daemon whose interval is 2 seconds."""
    supervisor.serve(*rows(1, 2))
    yield {layout: Kind(fresh_daemon, layout).create() for layout in (ETHER, VLANS, PORTS)}
    log.take_all("host_calc_delta() found a 0-length interval.")
    log.take_all("iface_calc_delta() found a 0-length interval.")


def test_reader_holds_a_poll_up(brisk):
    """While a reader holds the lock, the file does not change, and messages wait."""
    ether = brisk[ETHER]
    ether.view()
    with open(ether.path("delta"), "rb") as delta:
        fcntl.flock(delta, fcntl.LOCK_SH)
        content = delta.read()
        assert content
        control.send(control.VIEWING, ETHER.code)  # due within the interval
        time.sleep(3.5)
        control.send(8)
        time.sleep(0.3)
        assert ether.daemon.log.peek() == [], "the message waits for the poll"
        assert ether.path("delta").read_bytes() == content
    ether.daemon.log.wait("Unexpected message type found in pipe.")
    assert ether.read("delta").header.time > int.from_bytes(content[8:12], "little")


@pytest.mark.parametrize("layout, query, texts", [
    (ETHER, "ether counters", []), (VLANS, "vlan counters", ["Error 7 polling vlan collection."]),
    (PORTS, "port walk", [])], ids=["etherstats", "supvlan", "ifstats"])
def test_terminate(layout, query, texts, own_daemon, agent, supervisor, log):
    """The daemon does not wait for a silent supervisor: the query fails, and the old sample stays."""
    supervisor.serve(*rows(*range(1, 30)))
    own_daemon.start()
    kind = Kind(own_daemon, layout).create()
    log.take_all()
    before = kind.path("last").read_bytes() if layout is not ETHER else None
    next_second()
    supervisor.misbehave(query, always=silence)
    supervisor.take_asked()
    control.send(control.VIEWING, layout.code)
    processes.wait_until(lambda: query in [name for name, *_ in supervisor.asked])
    for message in (control.CREATE, control.TERMINATE):
        control.send(message, layout.code)
    assert own_daemon.exit_status(timeout=20) == 0
    log.expect((DEBUG, "Timeout error performing SNMP request."), *((DEBUG, text) for text in texts),
               (WARNING, "Terminating tallyd."))
    if before:
        assert kind.path("last").read_bytes() == before and not kind.path("prev").exists()


def test_schedule(brisk, supervisor):
    """Viewed kinds are polled by the interval, the others are not."""
    ether, vlans, _ = brisk.values()

    def next_poll():
        before = ether.layout.sampled(0, "delta")
        processes.wait_until(lambda: ether.layout.sampled(0, "delta") not in (0, before), pause=0.05)
        return ether.layout.sampled(0, "delta") - before

    for kind in (ether, vlans):
        kind.view()
    supervisor.take_asked()
    intervals = []
    for _ in range(3):
        intervals.append(next_poll())
        for kind in (ether, vlans):  # keep looking; there is a delta file, so nothing is polled for it
            control.send(control.VIEWING, kind.layout.code)
    assert min(intervals) == 2, intervals
    asked = {query[0] for query in supervisor.take_asked()}
    assert asked == {"ether walk", "state", "ether counters", "vlan walk", "vlan counters"}, "nobody looks at the ports"
