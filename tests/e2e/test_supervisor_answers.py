"""Answers that no good supervisor gives, to each of the queries: what is logged and what is done."""
import random
import time

import pytest

from harness import control, settings
from harness.ber import (COUNTER32, COUNTER64, END_OF_MIB, GAUGE32, INTEGER, NO_INSTANCE, NO_OBJECT, NULL, OCTETS, OID,
                         GET, REPORT, TICKS, Pdu, message, tlv)
from harness.kinds import ETHER, PORTS, VLANS, Kind
from harness.supervisor import (CONTROL, ETHER as ROWS, IF, IFX, UP_TIME, Elsewhere, bound, changed, ether_row, port,
                                silence, vlan_row)
from harness.syslog import DEBUG, WARNING

TABLE = [ether_row(3, 7, range(17)), vlan_row(4, 10, (1, 2, 3, 4)), port(7, b"3/12", wide=range(8), narrow=range(10))]
TIMED_OUT = "Timeout error performing SNMP request."


class Query:
    """How to have it asked, what its texts are, and which queries follow when it has failed."""

    def __init__(self, layout, texts, failed, complaint=None, act="view", seconds=0):
        self.layout, self.act, self.seconds = layout, act, seconds
        self.request_text, self.type_text, self.error_text = texts
        self.failed = failed
        self.complaint = complaint  # logged besides, when it has failed


def texts(name, error="{} response packet had error %u", request="Error performing SNMP request for {}."):
    return (request.format(name), f"Received unexpected response type %u for {name}.", error.format(name))


STATUS = "Received error status %u for {}."
WALKED, POLLED = ("ether walk", 3), ("ether counters", 3, 7)
NO_BASELINE = "Error getting etherstats baseline"
QUERIES = {
    "ether walk": Query(ETHER, texts("etherStatsStatus", request="Error performing SNMP request for {}()."), []),
    "ether counters": Query(ETHER, texts("etherStatsEntry"), [WALKED], NO_BASELINE, "create"),
    "name": Query(ETHER, texts("name, status, and last change", STATUS), [WALKED], None, "create"),
    "state": Query(ETHER, texts("ifOperStatus", STATUS), [WALKED]),
    "port duplex": Query(ETHER, texts("portDuplex", STATUS), [], seconds=1),
    "duplex": Query(ETHER, texts("duplexStatus", STATUS), [], seconds=1),
    "vlan walk": Query(VLANS, texts("smonVlanStatsControlStatus", request="Error performing {}() SNMP request."), []),
    "vlan counters": Query(VLANS, texts("smonVlanIdStatsEntry"), []),
    "port walk": Query(PORTS, (
        "Error performing SNMP request for get_ifNameAndOperStatus().",
        "Received unexpected response type %u for get_ifNameAndOperStatus.", "ifNameAndOperStatus response packet had error %u"), []),
    "wide counters": Query(PORTS, texts("ifTableEntry"), []),
    "narrow counters": Query(PORTS, texts("ifTableEntry"), []),
}

foreign = lambda answer: [answer._replace(id=(answer.id - 7) & 0x7FFF), answer]
DROPPED = "Error 8 performing SNMP request."
NO_PACKLET = "NULL packlet error performing SNMP request."
NO_PDU = "Error 7 performing SNMP request."
# Label: (step, what the request logs, which of the query's texts follows with which number, failed).
FAULTS = {
    "nothing wrong": (lambda answer: [answer], [], None, False),
    "an error status": (changed(error=5, index=1), [], ("error_text", 5), True),
    "tooBig, without bindings": (changed(error=1, bindings=[]), [], ("error_text", 1), True),
    "a request": (changed(kind=GET), [], ("type_text", GET), True),
    "a report": (changed(kind=REPORT), [], ("type_text", REPORT), True),
    "a foreign id before": (foreign, [DROPPED], None, False),
    "foreign ids before": (lambda answer: foreign(answer)[:1] * 50 + [answer], [DROPPED] * 50, None, False),
    "from elsewhere": (lambda answer: [Elsewhere(answer)], [], None, False),
    "another community": (lambda answer: [message(answer, b"public")], [], None, False),
    "no bindings": (changed(bindings=[]), [], None, True),
    "more bindings": (lambda answer: [answer._replace(bindings=[*answer.bindings, (UP_TIME, TICKS, 1)])], [], None, False),
    "version 1": (lambda answer: [message(answer, version=0)], [NO_PACKLET], ("request_text",), True),
    "version 3": (lambda answer: [message(answer, version=3)], [NO_PACKLET], ("request_text",), True),
    "garbage": (lambda _: [b"\0garbage"], [NO_PACKLET], ("request_text",), True),
    "one byte": (lambda _: [b"0"], [NO_PACKLET], ("request_text",), True),
    "the last byte missing": (lambda answer: [message(answer)[:-1]], [NO_PACKLET], ("request_text",), True),
    "more behind it": (lambda answer: [message(answer) + b"\0\1\2"], [], None, False),
    "no PDU": (lambda _: [tlv(0x30, b"\2\1\1\4\6kivrel\xa2\0")], [NO_PDU], ("request_text",), True),
    "a damaged PDU": (lambda answer: [tlv(0x30, b"\2\1\1\4\6kivrel" + tlv(0xA2, b"\2\1"))], [NO_PDU], ("request_text",), True),
}
# Of each query that is asked whatever the target, how many bindings it has.
LENGTHS = {"ether walk": 4, "ether counters": 28, "name": 3, "state": 2, "vlan walk": 3, "vlan counters": 5,
           "port walk": 2, "wide counters": 13}
UNUSABLE = [(kind, None) for kind in (NULL, NO_OBJECT, NO_INSTANCE, END_OF_MIB)]


class Scene:
    """One row of each table and a daemon that asks for it."""

    def __init__(self, daemon, supervisor, log):
        self.daemon, self.supervisor, self.log = daemon, supervisor, log
        supervisor.serve(*TABLE)
        self.kinds = {layout: Kind(daemon, layout).create() for layout in (ETHER, VLANS, PORTS)}
        log.take_all()
        self.usual = {}  # by name: what is asked behind the query when nothing is wrong

    def act(self, query, seconds=0):
        kind = self.kinds[query.layout]
        if query.act == "create":
            kind.destroy()
            kind.create()
            return
        if query.layout is not ETHER:
            kind.set_sample_time(int(time.time()) - 5)
        kind.view(seconds=seconds)

    def asked_after(self, name):
        """What was asked behind the first query of that name."""
        asked = self.supervisor.take_asked()
        at = [query[0] for query in asked].index(name)
        return asked[at + 1:]

    def recover(self, query):
        self.supervisor.behave()
        self.act(query)
        assert self.log.take_all() == []
        self.supervisor.take_asked()

    def judge(self, name, label, step, logged, text=None, failed=False):
        query = QUERIES[name]
        self.recover(query)
        if name not in self.usual:
            self.act(query, query.seconds)
            self.usual[name] = self.asked_after(name)
        self.supervisor.misbehave(name, step)
        self.act(query, query.seconds)
        texts = list(logged)
        if text:
            texts.append(getattr(query, text[0]).replace("%u", "{}").format(*text[1:]))
        if failed and query.complaint:
            texts.append(query.complaint)
        assert self.log.take_all() == [(DEBUG, text) for text in texts], (name, label)
        asked = self.asked_after(name)
        if step is silence:
            assert asked.pop(0)[0] == name, "asked twice"
        assert asked == (query.failed if failed else self.usual[name]), (name, label)


@pytest.fixture(name="scene")
def scene_of(fresh_daemon, supervisor, log):
    scene = Scene(fresh_daemon, supervisor, log)
    before = fresh_daemon.measure()
    yield scene
    assert fresh_daemon.running() and fresh_daemon.measure() == before


@pytest.mark.parametrize("target, name", [(1, "port duplex"), (6, "duplex")])
def test_duplex_queries(target, name, scene):
    for label in ("an error status", "a report", "garbage", "no bindings"):
        scene.judge(name, label, *FAULTS[label])
    for kind, value in (*UNUSABLE, (OCTETS, b"1"), (OID, (1, 3, 1))):
        scene.judge(name, kind, bound(0, (None, kind, value)), [], failed=True)
    scene.judge(name, "silence once", silence, [TIMED_OUT])


def test_other_queries(scene, supervisor, log):
    for name in LENGTHS:
        for label, fault in FAULTS.items():
            scene.judge(name, label, *fault)
    supervisor.misbehave("wide counters", bound(1, (None, COUNTER32, 1)))
    scene.act(QUERIES["wide counters"])
    log.wait("Retrieving Counter32 objects instead of Counter64 objects in ifstats")
    for label, fault in FAULTS.items():
        scene.judge("narrow counters", label, *fault)


WRONG = [(OCTETS, b"abc"), (OID, (1, 3, 6)), (COUNTER64, 5)]  # never what is asked for in these places
def test_each_binding(scene, supervisor, log):
    """One that is missing, has no value or one of a wrong type ends the query, without a word."""
    for name, length in LENGTHS.items():
        if name == "wide counters":
            continue  # lacking 64 bits, it is another query's turn
        for at in range(length):
            scene.judge(name, f"{at} only", lambda answer: [answer._replace(bindings=answer.bindings[:at])], [], failed=True)
            for kind, value in UNUSABLE:
                scene.judge(name, (at, kind), bound(at, (None, kind, value)), [], failed=True)
    for name, at in (("ether counters", 1), ("state", 1), ("vlan counters", 0)):
        for kind, value in WRONG:
            scene.judge(name, (at, kind), bound(at, (None, kind, value)), [], failed=True)
        for kind in (COUNTER32, GAUGE32, TICKS):  # 32 bits without a sign, all of them
            scene.judge(name, (at, kind), bound(at, (None, kind, 5)), [])
    # The names that are compared: those of walks, and those of samples.
    for name, first, step in (
            ("ether walk", 1, bound(0, ((*ROWS, 2, 5), INTEGER, 5))), ("ether walk", 1, bound(0, ((*ROWS, 1), INTEGER, 5))),
            ("ether walk", 1, bound(0, ((*ROWS, 1, 5, 1), INTEGER, 5))), ("ether walk", 1, bound(0, ((*ROWS, 1, 0), INTEGER, 5))),
            ("vlan walk", 1, bound(0, ((*CONTROL, 5, 5), OCTETS, b"monitor"))),
            ("vlan walk", 1, bound(0, ((*CONTROL, 4), OCTETS, b"monitor"))),
            ("vlan walk", 1, bound(0, ((*CONTROL, 4, 5, 5), OCTETS, b"monitor"))),
            ("vlan counters", 0, bound(4, ((*UP_TIME, 4, 11), COUNTER64, 5))), ("vlan counters", 0, bound(4, ((*UP_TIME, 5, 10), COUNTER64, 5))),
            ("port walk", 1, bound(0, ((*IFX, 2, 5), OCTETS, b"x"))), ("port walk", 1, bound(0, ((*IFX, 1), OCTETS, b"x"))),
            ("port walk", 1, bound(1, ((*IF, 9, 7), INTEGER, 1))), ("port walk", 1, bound(1, ((*IF, 8, 7, 7), INTEGER, 1))),
            ("port walk", 1, bound(0, (None, OCTETS, b""))),
            ("wide counters", 0, bound(12, ((*IF, 20, 8), COUNTER32, 1)))):
        scene.judge(name, "names", step, [], failed=True)
        if not first:
            assert scene.kinds[QUERIES[name].layout].read("last").rows == []
    scene.judge("port walk", "the second index", bound(1, ((*IF, 8, 9), INTEGER, 1)), [])
    # Walks that go back or stay, and one that never ends.
    for name, columns in (("ether walk", ROWS), ("vlan walk", CONTROL), ("port walk", IFX)):
        asked_for = 4 if name == "vlan walk" else 1
        back = lambda answer: [answer._replace(bindings=[
            (answer.bindings[0].name[:-1] + (2,), *answer.bindings[0][1:]), *answer.bindings[1:]])]
        row = {"ether walk": 3, "vlan walk": 4, "port walk": 7}[name]
        for index in (row, row - 1, 0):
            step = lambda answer: [answer._replace(bindings=[((*columns, asked_for, index), OCTETS, b"monitor"), *answer.bindings[1:]])]
            supervisor.misbehave(name, lambda answer: [answer], step)
            scene.act(QUERIES[name])
            assert [query for query in supervisor.take_asked() if query[0] == name] == [(name, 0), (name, row)]
    log.take_all()


def test_silence(scene, supervisor, log):
    """Each query is tried twice; a stream of foreign answers keeps none of them busy for ever."""
    scene.judge("vlan counters", "silence once", silence, [TIMED_OUT])
    supervisor.misbehave("ether walk", silence, silence)
    scene.act(QUERIES["ether walk"])
    log.expect((DEBUG, TIMED_OUT), (DEBUG, TIMED_OUT))
    assert supervisor.take_asked()[-2:] == [("ether walk", 0)] * 2
    assert scene.kinds[ETHER].read("delta").rows == []
    # A thousand foreign answers end the first try; the true one is taken in the second.
    flood = lambda answer: [*foreign(answer)[:1] * 20, 0.005] * 75 + [answer]
    supervisor.misbehave("port walk", flood, silence)
    scene.act(QUERIES["port walk"])
    flooded = [text for _, text in log.take_all()]
    assert flooded.index(TIMED_OUT) == 1000 and set(flooded[1001:]) == {DROPPED}
    assert ("port walk", 7) in supervisor.take_asked()
    # A late answer to a query of an earlier second, before the right one.
    late = []
    supervisor.misbehave("port walk", lambda answer: late.append(answer) or [], silence)
    scene.act(QUERIES["port walk"])
    log.expect((DEBUG, TIMED_OUT), (DEBUG, TIMED_OUT))
    supervisor.misbehave("port walk", lambda answer: [late[0], answer])
    scene.act(QUERIES["port walk"])
    log.expect((DEBUG, DROPPED))


def mangled(chance):
    """A step that sends the true answer with some bytes changed, missing or twice."""
    def step(answer):
        data = bytearray(message(answer))
        for _ in range(chance.randint(1, 6)):
            at = chance.randrange(len(data))
            match chance.randrange(4):
                case 0: data[at] = chance.randrange(256)
                case 1: data[at] ^= 1 << chance.randrange(8)
                case 2: del data[at:at + chance.randint(1, 9)]
                case 3: data[at:at] = data[at:at + chance.randint(1, 9)]
            data = data or bytearray(b"0")
        return [bytes(data), answer]  # the true one ends the wait when the first one is dropped
    return step


def test_hostile_bytes(scene, supervisor, log):
    """Whatever comes, the daemon goes on, and is as it was when it has passed."""
    chance = random.Random(20260101)
    for name in LENGTHS:
        supervisor.misbehave(name, *[mangled(chance)] * 150)
    for _ in range(150):
        for kind in scene.kinds.values():
            kind.path("delta").unlink(missing_ok=True)
            control.send(control.VIEWING, kind.layout.code)
        scene.daemon.answer(timeout=30)
    # What still waits to be received ends a request each, or passes for the answer to one of the same
    # second, whose own answer waits then.
    supervisor.behave()
    quiet = 0
    while quiet < 2:
        for kind in scene.kinds.values():
            kind.view(seconds=0)
            log.take_all(kind.zero_interval)
        quiet = 0 if log.take_all() else quiet + 1
        time.sleep(1.1 if quiet else 0)
    for kind in scene.kinds.values():
        kind.destroy()
        kind.create()
        kind.view()
        assert len(kind.read("delta").rows) == (kind.layout is ETHER)
