"""How the agent's binary starts, takes calls, reads a script, misbehaves, finds rows that it counted, and watches an
interface. What it serves of a script is seen end to end."""
import json
import os
import subprocess
import time

import pytest
from agent_wire import BINARY, BULK, SINGLE, XID, Agent, key_names, pack, record, words
from scapy.all import IP, TCP, Dot1Q, Ether, wrpcap

HEADER = words(XID, 1, 0, 0, 0, 0)  # of an accepted call


@pytest.fixture
def serve(tmp_path):
    def start(script, *options):
        (tmp_path / "script.json").write_text(json.dumps(script))
        return Agent("--script", tmp_path / "script.json", *options)
    return start


@pytest.mark.parametrize("script, message", [
    ('{"host": [', "parse error"),
    ([], "wants an object"),
    ({"host": {}}, "host: wants an array"),
    ({"host": [{"index": 1}, {}]}, "host[1].index: is missing"),
    ({"host": [{"index": 4294967296}]}, "host[0].index: wants an integer"),
    ({"host": [{"index": 1, "adress": ""}]}, "host[0].adress: unknown key"),
    ({"host": [{"index": 1, "address": "2:0"}]}, "host[0].address: wants pairs"),
    ({"host": [{"index": 1, "counters": [1, 2]}]}, "host[0].counters: wants 7 counters"),
    ({"prio": [{"index": 1, "counters": [1, "18446744073709551616"]}]}, "counters[1]"),
    ({"control": {"host": [{"index": 1, "owner": 7}]}}, "host[0].owner: wants a string"),
    ({"batch": 101}, "batch: wants an integer, 0 to 100"),
    ({"faults": [{"procedure": 11, "action": "explode"}]}, "no such action: explode"),
    ({"faults": [{"procedure": 11, "action": "drip"}]}, "bytes: a drip wants"),
    ({"replies": {"11": []}}, "replies.11: wants at least one reply"),
])
def test_an_error_of_a_script_is_told_with_its_place(script, message, tmp_path):
    path = tmp_path / "script.json"
    path.write_text(script if isinstance(script, str) else json.dumps(script))
    ended = subprocess.run([BINARY, "--script", path], capture_output=True, text=True)
    assert ended.returncode == 1 and f"minitapd: {path}: " in ended.stderr and message in ended.stderr


REPLY = HEADER + words(1, 0, 2, 0, 3)
WHOLE = words(0x80000000 | len(REPLY)) + REPLY
FOREIGN = words(0x80000000 | len(REPLY), XID + 1) + REPLY[4:]
REFUSED = words(0x80000018, XID, 1, 0, 0, 0)
# The stream and the seconds that it takes at least. The end-to-end tests use the other faults.
FAULTS = [
    ({"action": "decode_err"}, REFUSED + words(4), 0),
    ({"action": "no_proc"}, REFUSED + words(3), 0),
    ({"action": "no_prog"}, REFUSED + words(1), 0),
    ({"action": "weak_auth"}, words(0x80000014, XID, 1, 1, 1, 5), 0),
    ({"action": "stream", "hex": "ff00"}, b"\xff\0", 0),
    ({"action": "drip", "bytes": 24, "seconds": 1}, WHOLE, 1),
    ({"action": "fragments", "bytes": 24}, words(24) + HEADER + words(0x80000014) + REPLY[24:], 0),
    ({"action": "wrong_xid", "count": 2, "seconds": 1}, FOREIGN * 2, 1),
    ({"action": "wrong_xid", "count": 100000}, FOREIGN * 100000, 0),  # more than a socket takes
]


def test_a_fault_strikes_one_call_of_one_client(serve):
    faults = [{"procedure": 9, "action": "drip", "bytes": 1, "seconds": 0.01}]
    faults += [{"procedure": 184, "call": call, **fault} for call, (fault, *_) in enumerate(FAULTS, 1)]
    with serve({"pdist_totals": [{"index": 7, "status": 1, "counters": [2, 3]}], "faults": faults}) as agent:
        for fault, stream, seconds in FAULTS:
            with agent.connect() as victim, agent.connect() as other:
                begin = time.monotonic()
                victim.send(record(184, words(7)))
                with agent.connect() as third:
                    third.send(record(9, words(0, 2)))  # goes away before it is answered
                assert other.call(0) == words(0), "others are served meanwhile"
                assert victim.receive(len(stream)) == stream, fault
                assert time.monotonic() - begin >= seconds, fault
                assert victim.call(0) == words(0), fault
        with agent.connect() as client:
            assert client.call(184, words(7)) == REPLY[24:], "no fault is left"


def test_refused_calls(serve):
    with serve({}) as agent, agent.connect() as client:
        for call, reason in [(record(0, program=1), (1,)), (record(0, version=2), (2, 1, 1)), (record(2), (3,)),
                             (record(11), (4,)), (record(11, words(1, 0xFFFFFFFF)), (4,))]:  # an endless address
            client.send(call)
            refusal = words(0x80000014 + 4 * len(reason), XID, 1, 0, 0, 0, *reason)
            assert client.receive(len(refusal)) == refusal
        client.send(words(0xFFFFFFFF, 0))
        assert client.at_end(), "a record longer than any call"


def test_a_client_that_never_reads_is_closed(serve):
    """The agent tries to write to it no more often than it was called, whoever refuses its calls."""
    rows = [{"index": 1, "address": mac(number).hex(":")} for number in range(100)]
    with serve({"host": rows}) as agent:
        for call in (record(11, words(1, 0, 100, 3)), record(0, program=1)):
            with agent.connect() as client:
                before, calls = agent.writes(), 0
                with pytest.raises(OSError):
                    while True:
                        client.send(100 * call)
                        calls += 100
                assert agent.writes() - before <= calls + 100
        with agent.connect() as client:
            assert client.call(0) == words(0), "others are served"


def mac(number):
    return b"\2\0\0\0" + number.to_bytes(2, "big")


LOW, HIGH = bytes([10, 0, 0, 1]), bytes([10, 0, 0, 2])
# Keys that no row has, or that belong to other indexes: control index, asked key, keys of the rows behind it. The keys
# of rows are walked beside tshark.
WALKS = [
    ("from the start", "host", 4, (b"",), [(mac(i),) for i in (1, 2, 3, 1, 2, 3)]),
    ("on into the next index", "host", 4, (mac(2),), [(mac(i),) for i in (3, 1, 2, 3)]),
    ("behind the last row", "host", 4, (mac(3),), [(mac(i),) for i in (1, 2, 3)]),
    ("behind a key that no row has", "host", 9, (mac(0),), [(mac(i),) for i in (1, 2, 3)]),
    ("an index that is not there", "host", 5, (mac(2),), [(mac(i),) for i in (1, 2, 3)]),
    ("behind the last row of all", "host", 9, (mac(3),), []),
    ("a short key stands before its extensions", "host", 9, (b"\2",), [(mac(i),) for i in (1, 2, 3)]),
    ("protocol 266 compares as 0a 01: before 11", "nlhost", 1, (266, b""), [(11, LOW), (11, HIGH)]),
    ("the shorter address is before", "nlhost", 1, (11, b"\xff\xff\xff"), [(11, LOW), (11, HIGH)]),
    ("the longer address is behind", "nlhost", 1, (11, LOW + b"x"), []),
    ("no destination is before all", "nlmatrix", 1, (11, LOW, b""), [(11, LOW, HIGH)]),
    ("VLAN 512 is behind 257", "vlan", 1, (512,), []),
    ("VLAN 65793 does not pass for 257", "vlan", 1, (65793,), []),
    ("protocol 267 is behind 106 in its group", "dspdist", 1, (10, 267), []),
    ("protocol 267 of the group before", "dspdist", 1, (9, 267), [(10, 1)]),
    ("group 265 compares as 09 01", "dshost", 1, (265, 0, bytes(20), 0), [(10, 11, LOW + bytes(16), 4)]),
    ("bytes 17 to 20 are of no row", "dshost", 1, (10, 11, LOW + bytes(15) + b"x", 4), [(10, 11, HIGH + bytes(16), 4)]),
]


def test_any_key_has_a_place_among_the_rows(tmp_path):
    path, control = tmp_path / "frames.pcap", ["--control", "host:9:later", "--control", "host:4:LocalMgr"]
    wrpcap(str(path), [Ether(src=mac(i), dst=mac(i), type=0x9000) for i in (3, 1, 2)] + [
        Ether(src=mac(1), dst=mac(2)) / Dot1Q(vlan=257) / IP(src="10.0.0.1", dst="10.0.0.2", tos=0x28)
        / TCP(sport=49153, dport=80)])
    for table in ("nlhost", "nlmatrix", *SINGLE):
        control += ["--control", f"{table}:1:mine"]
    with Agent("--read", path, "--max-rows", 1000, *control) as agent, agent.connect() as client:
        for label, table, index, asked, behind in WALKS:
            names = key_names(table)
            key = dict(zip(names, asked, strict=True))
            found = client.rows(table, index=index, **key)
            assert [tuple(row[name] for name in names) for row in found] == behind, label
            if table in BULK:
                assert client.rows(table, index=index, count=1, **key) == found[:1], label
                assert client.rows(table, index=index, count=0, **key) == [], label
            else:
                exact = client.rows(table, index=1, request=1, **key)
                assert bool(exact) == (asked in client.walk(table)), label
                assert client.rows(table, index=2, request=1, **key) == [], "an index that is not there"
                assert client.rows(table, index=1, request=3, **key) == [], "no such request"
        for index, request, found, owner in [(0, 2, 4, "LocalMgr"), (4, 2, 9, "later"), (9, 1, 9, "later")]:
            assert client.call(9, words(index, request)) == words(0) + pack(
                "index fields:3I owner:s status", {"index": found, "fields": (0, 3, 0), "owner": owner, "status": 1})
        assert client.call(9, words(9, 2))[:4] == client.call(9, words(5, 1))[:4] == words(1), "no such control row"
        assert client.call(32, words(0, 2))[:28] == words(0, 1, 0, 0, 2, 0, 1000), "inserts, deletes, most rows"
        assert client.call(184, words(4))[:4] == words(1), "no totals under an index of another table"


def test_a_full_table_drops_what_was_not_seen_for_longest(tmp_path):
    path = tmp_path / "frames.pcap"
    for seen, left in [((1, 2, 3, 4, 1, 5, 2, 6), (1, 2, 5, 6)), ((*range(1, 500), *range(300, 400)), range(396, 400))]:
        wrpcap(str(path), [Ether(src=mac(i), dst=mac(i), type=0x9000) for i in seen])
        with Agent("--read", path, "--max-rows", 4) as agent, agent.connect() as client:
            assert list(client.walk("host")) == [(mac(i),) for i in left]


def test_an_interface_of_another_network_namespace():
    def ip(*arguments):
        return subprocess.run(["ip", *arguments]).returncode == 0
    name = f"minitapd_{os.getpid()}"
    if not ip("netns", "add", name):
        pytest.skip("needs the right to make a namespace")
    assert ip("-n", name, "link", "set", "lo", "up")
    with Agent("--interface", "lo", "--capture-netns", f"/run/netns/{name}") as agent, agent.connect() as client:
        assert ip("netns", "exec", name, "bash", "-c", "echo 123456789 >/dev/udp/127.0.0.1/161")
        assert ip("netns", "del", name)  # the agent still has it
        # Index 135 is ether2.ip.udp.snmp; a frame of 52 bytes, padded, with its check sequence.
        expected = words(1, 1, 1, 135, 0, 1, 0, 64, 7)
        for _ in range(100):
            if (found := client.call(26, words(1, 134, 3, 1))) == expected:
                break
            time.sleep(0.02)
        assert found == expected
        assert client.call(24, words(0, 2))[:16] == words(0, 1, 1, 0), "the interface's index; no dropped frames"


def test_a_bad_start_is_refused(serve, tmp_path):
    script = str(tmp_path / "script.json")
    with serve({}) as other:
        for status, *arguments in [
                (1, "--script", "/nonexistent"),
                (1, "--script", script, "--listen", "::1"),
                (1, "--script", script, "--port", str(other.port)),
                (1, "--read", script),
                (1, "--interface", "nonexistent0"),
                (1, "--interface", "lo", "--capture-netns", "/nonexistent"),
                (2, "--interface", "lo", "--control", "host:0:x"),
                (1, "--interface", "lo", "--control", "host:1:a", "--control", "host:1:b")]:
            assert subprocess.run(["timeout", "60", BINARY, *arguments]).returncode == status, arguments
