"""Bad answers to each of the queries: what is logged, and what is done."""
import collections
import time

import pytest

from harness import processes
from harness.ber import (COUNTER32, COUNTER64, GAUGE32, INTEGER, NO_INSTANCE, OCTETS, REPORT, TICKS, message,
                         tlv)
from harness.kinds import ETHER, PORTS, VLANS, Kind
from harness.supervisor import (CONTROL, ETHER as ROWS, IF, IFX, UP_TIME, Elsewhere, bound, changed, cut,
                                ether_row, port, silence, vlan_row)
from harness.syslog import DEBUG

TABLE = [ether_row(3, 7, range(17)), vlan_row(4, 10, (1, 2, 3, 4)), port(7, b"3/12", wide=range(8), narrow=range(10))]

# What a query logs when its request fails, for a wrong type and for an error status; how many bindings it
# has; which queries follow, and what is logged besides, when it has failed; whether a creation asks it.
Query = collections.namedtuple("Query", "layout request type error bindings failed besides created",
                               defaults=([], [], False))
PERFORM, RECEIVED = "Error performing SNMP request for {}.", "Received error status {{}} for {}."


def query(layout, bindings, name, *rest, request=PERFORM, error="{} response packet had error {{}}"):
    return Query(layout, request.format(name), f"Received unexpected response type {{}} for {name}.",
                 error.format(name.removeprefix("get_")), bindings, *rest)


WALKED = [("ether walk", 3)]
CALL = "Error performing SNMP request for {}()."
QUERIES = {
    "ether walk": query(ETHER, 4, "etherStatsStatus", request=CALL),
    "ether counters": query(ETHER, 28, "etherStatsEntry", WALKED, ["Error getting etherstats baseline"], True),
    "name": query(ETHER, 3, "name, status, and last change", WALKED, [], True, error=RECEIVED),
    "state": query(ETHER, 2, "ifOperStatus", WALKED, error=RECEIVED),
    "vlan walk": query(VLANS, 3, "smonVlanStatsControlStatus", request="Error performing {}() SNMP request."),
    "vlan counters": query(VLANS, 5, "smonVlanIdStatsEntry"),
    "port walk": query(PORTS, 2, "get_ifNameAndOperStatus", request=CALL),
    "wide counters": query(PORTS, 13, "ifTableEntry"),
    "narrow counters": query(PORTS, 11, "ifTableEntry"),
    "port duplex": query(ETHER, 1, "portDuplex", error=RECEIVED),
    "duplex": query(ETHER, 1, "duplexStatus", error=RECEIVED),
}
ALWAYS = list(QUERIES)[:8]  # asked whatever the target and the counters are

TIMED_OUT = "Timeout error performing SNMP request."
DROPPED = "Error 8 performing SNMP request."
NO_PACKLET = ["NULL packlet error performing SNMP request.", ("request",)]
NO_PDU = ["Error 7 performing SNMP request.", ("request",)]
VERSION_2 = b"\2\1\1\4\6kivrel"


def foreign(answer):
    return answer._replace(id=(answer.id - 7) & 0x7FFF)


# Label: (step, what is logged). A query's own texts are given by name, with the number in them; they mean
# that it has failed. The unit tests cover every other kind of message that cannot be read.
FAULTS = {
    "nothing wrong": (lambda answer: [answer], []),
    "an error status": (changed(error=5, index=1), [("error", 5)]),
    "tooBig, without bindings": (changed(error=1, bindings=[]), [("error", 1)]),
    "a report": (changed(kind=REPORT), [("type", REPORT)]),
    "foreign ids before": (lambda answer: [foreign(answer)] * 50 + [answer], [DROPPED] * 50),
    "from elsewhere": (lambda answer: [Elsewhere(answer)], []),
    "another community": (lambda answer: [message(answer, b"public")], []),
    "more bindings": (lambda answer: [answer._replace(bindings=[*answer.bindings, (UP_TIME, TICKS, 1)])], []),
    "version 1": (lambda answer: [message(answer, version=0)], NO_PACKLET),
    "garbage": (lambda _: [b"\0garbage"], NO_PACKLET),
    "more than 2048 bytes": (changed(bindings=[(UP_TIME, OCTETS, bytes(2048))]), NO_PACKLET),
    "an empty PDU": (lambda _: [tlv(0x30, VERSION_2 + tlv(0xA2, b""))], NO_PDU),
}
TEXTS = ("an error status", "a report", "garbage")  # that have each of a query's own texts


class Scene:
    """One row of each table and a daemon that asks for it."""

    def __init__(self, daemon, supervisor, log):
        self.daemon, self.supervisor, self.log = daemon, supervisor, log
        supervisor.serve(*TABLE)
        self.kinds = {layout: Kind(daemon, layout).create() for layout in (ETHER, VLANS, PORTS)}
        log.take_all()
        self._usual = {}  # by name: what is asked behind the query when nothing is wrong

    def act(self, name, poll=True):
        """Have a query asked. Ports' duplex modes are asked for in polls only, which take a second."""
        kind = self.kinds[QUERIES[name].layout]
        if QUERIES[name].created:
            kind.destroy()
            kind.create()
        else:
            if kind.layout is not ETHER:
                kind.set_sample_time(int(time.time()) - 5)
            kind.view(seconds=int(poll and name.endswith("duplex")))

    def asked_after(self, name):
        """What was asked behind the first query of that name, without the poll that follows a walk when
        a second has passed."""
        asked = self.supervisor.take_asked()
        if asked[-2:] == [*WALKED, ("ether counters", 3, 7)]:
            asked.pop()
        return asked[[query for query, *_ in asked].index(name) + 1:]

    def judge(self, name, label, step, texts=(), failed=False):
        query = QUERIES[name]
        self.supervisor.behave()
        self.act(name, poll=False)  # all is as it should be again
        assert self.log.take_all() == []
        self.supervisor.take_asked()
        if name not in self._usual:
            self.act(name)
            self._usual[name] = self.asked_after(name)
        self.supervisor.misbehave(name, step)
        self.act(name)
        own = [getattr(query, text[0]).format(*text[1:]) for text in texts if isinstance(text, tuple)]
        failed = failed or bool(own)
        wanted = [*[text for text in texts if isinstance(text, str)], *own, *(query.besides if failed else [])]
        assert self.log.take_all() == [(DEBUG, text) for text in wanted], (name, label)
        asked = self.asked_after(name)
        if step is silence:
            assert asked.pop(0)[0] == name, "asked twice"
        assert asked == (query.failed if failed else self._usual[name]), (name, label)


@pytest.fixture(name="scene")
def scene_of(fresh_daemon, supervisor, log):
    scene = Scene(fresh_daemon, supervisor, log)
    before = fresh_daemon.measure()
    yield scene
    assert fresh_daemon.running() and fresh_daemon.measure() == before


@pytest.mark.parametrize("target, name", [(1, "port duplex"), (6, "duplex")])
def test_duplex_queries(target, name, scene):
    for label in TEXTS:
        scene.judge(name, label, *FAULTS[label])
    scene.judge(name, OCTETS, bound(0, (None, OCTETS, b"1")), failed=True)
    scene.judge(name, "no bindings", cut(0), failed=True)
    scene.judge(name, "silence once", silence, [TIMED_OUT])


def test_other_queries(scene, supervisor, log):
    for label, fault in FAULTS.items():  # all queries are asked by one routine
        scene.judge("vlan counters", label, *fault)
    for name in ALWAYS:
        for label in TEXTS:
            scene.judge(name, label, *FAULTS[label])
    supervisor.misbehave("wide counters", bound(1, (None, COUNTER32, 1)))
    scene.act("wide counters")
    log.wait("Retrieving Counter32 objects instead of Counter64 objects in ifstats")
    for label in TEXTS:
        scene.judge("narrow counters", label, *FAULTS[label])


# Answers with a wrong name, or an empty value, which silently end the query: the place, and what is there.
NAMES = [
    ("ether walk", 0, ((*ROWS, 2, 5), INTEGER, 5)), ("ether walk", 0, ((*ROWS, 1, 0), INTEGER, 5)),
    ("vlan walk", 0, ((*CONTROL, 4), OCTETS, b"monitor")), ("vlan counters", 4, ((*UP_TIME, 4, 11), COUNTER64, 5)),
    ("port walk", 0, ((*IFX, 1), OCTETS, b"x")), ("port walk", 1, ((*IF, 8, 7, 7), INTEGER, 1)),
    ("port walk", 0, (None, OCTETS, b"")), ("wide counters", 12, ((*IF, 20, 8), COUNTER32, 1))]


def test_each_binding(scene, supervisor, log):
    """One that is missing or has no value silently ends the query. A number may be signed or unsigned."""
    for name in ALWAYS[:-1]:  # without 64 bits, it is another query's turn
        for at in range(QUERIES[name].bindings):
            scene.judge(name, f"{at} only", cut(at), failed=True)
            scene.judge(name, at, bound(at, (None, NO_INSTANCE, None)), failed=True)
    for name, at, kind in (("ether counters", 1, INTEGER), ("state", 0, GAUGE32), ("ether walk", 2, COUNTER32)):
        scene.judge(name, (at, kind), bound(at, (None, kind, 1)))
    for name, at, other in NAMES:
        scene.judge(name, other, bound(at, other), failed=True)
        if name.endswith("counters"):
            assert scene.kinds[QUERIES[name].layout].read("last").rows == []
    scene.judge("port walk", "the second index", bound(1, ((*IF, 8, 9), INTEGER, 1)))
    supervisor.misbehave("port walk", lambda answer: [answer], bound(0, ((*IFX, 1, 7), OCTETS, b"x")))
    scene.act("port walk")  # it stays where it is
    assert [query for query in supervisor.take_asked() if query[0] == "port walk"] == [
        ("port walk", 0), ("port walk", 7)]
    assert log.take_all() == []


def test_silence(scene, supervisor, log):
    """Each query is tried twice; a stream of foreign answers does not keep it busy for ever."""
    scene.judge("vlan counters", "silence once", silence, [TIMED_OUT])
    supervisor.misbehave("ether walk", silence, silence)
    scene.act("ether walk")
    log.expect((DEBUG, TIMED_OUT), (DEBUG, TIMED_OUT))
    assert supervisor.take_asked()[-2:] == [("ether walk", 0)] * 2
    assert scene.kinds[ETHER].read("delta").rows == []
    # A thousand foreign answers end the first try; the true one is taken in the second.
    def flood(answer):
        for sent in range(20, 1501, 20):
            yield from [foreign(answer)] * 20
            processes.wait_until(lambda: len(log.peek()) >= sent)  # none may be lost
        yield answer

    supervisor.misbehave("port walk", flood, silence)
    scene.act("port walk")
    flooded = [text for _, text in log.take_all()]
    assert flooded.index(TIMED_OUT) == 1000 and set(flooded[1001:]) == {DROPPED}
    assert ("port walk", 7) in supervisor.take_asked()
    # A late answer is taken for the answer to the second try, whose own is dropped by the next query.
    supervisor.misbehave("port walk", lambda answer: [2.3, answer])
    scene.act("port walk")
    log.expect((DEBUG, TIMED_OUT), (DEBUG, DROPPED))
    assert len(scene.kinds[PORTS].read("last").rows) == 1
    # A second copy of the last answer waits for a query of a later second.
    supervisor.misbehave("wide counters", lambda answer: [answer, answer])
    scene.act("wide counters")
    time.sleep(1.1)
    scene.act("vlan counters")
    log.expect((DEBUG, DROPPED))
