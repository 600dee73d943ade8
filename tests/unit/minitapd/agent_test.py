"""How the agent's binary starts, takes calls, reads a script, misbehaves, finds rows that it counted, and watches an
interface. What it serves of a script is seen end to end."""
import json
import os
import socket
import struct
import subprocess
import time

import pytest
from scapy.all import IP, TCP, Ether, wrpcap

BINARY = os.environ["MINITAPD"]  # which ctest names
XID = 100


def words(*values):
    return struct.pack(f">{len(values)}I", *(value & 0xFFFFFFFF for value in values))


def record(procedure, argument=b"", program=99999, version=1):
    return words(0x80000000 | 40 + len(argument), XID, 0, 2, program, version, procedure, 0, 0, 0, 0) + argument


class Connection(socket.socket):
    def __init__(self, port):
        super().__init__()
        self.settimeout(20)
        self.connect(("127.0.0.1", port))
        self.receive = self.makefile("rb").read

    def at_end(self):
        try:
            return self.receive(1) == b""
        except ConnectionResetError:
            return True

    def call(self, procedure, argument=b""):
        """The results of a call that must be accepted."""
        self.sendall(record(procedure, argument))
        data, mark = b"", 0
        while not mark & 0x80000000:
            mark, = struct.unpack(">I", self.receive(4))
            data += self.receive(mark & 0x7FFFFFFF)
        assert data[:24] == HEADER, "an accepted call"
        return data[24:]


class Agent(subprocess.Popen):
    """Runs the binary on a free port until the end of a with statement."""

    def __init__(self, *arguments):
        super().__init__([BINARY, "--port", "0", *map(str, arguments)], stdout=subprocess.PIPE, text=True)
        self.port = int(self.stdout.readline().split()[-1])

    def __exit__(self, *raised):
        self.kill()
        super().__exit__(*raised)

    def client(self):
        return Connection(self.port)

    def writes(self):
        """How often it has tried to write anything."""
        with open(f"/proc/{self.pid}/io", encoding="ascii") as file:
            return next(int(line.split()[1]) for line in file if line.startswith("syscw"))


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
            with agent.client() as victim, agent.client() as other:
                begin = time.monotonic()
                victim.sendall(record(184, words(7)))
                with agent.client() as third:
                    third.sendall(record(9, words(0, 2)))  # goes away before it is answered
                assert other.call(0) == words(0), "others are served meanwhile"
                assert victim.receive(len(stream)) == stream, fault
                assert time.monotonic() - begin >= seconds, fault
                assert victim.call(0) == words(0), fault
        with agent.client() as client:
            assert client.call(184, words(7)) == REPLY[24:], "no fault is left"


def test_refused_calls(serve):
    with serve({}) as agent, agent.client() as client:
        for call, reason in [(record(0, program=1), (1,)), (record(0, version=2), (2, 1, 1)), (record(2), (3,)),
                             (record(11), (4,)), (record(11, words(1, 0xFFFFFFFF)), (4,))]:  # an endless address
            client.sendall(call)
            refusal = words(0x80000014 + 4 * len(reason), XID, 1, 0, 0, 0, *reason)
            assert client.receive(len(refusal)) == refusal
        client.sendall(words(0xFFFFFFFF, 0))
        assert client.at_end(), "a record longer than any call"


def test_a_client_that_never_reads_is_closed(serve):
    """The agent tries to write to it no more often than it was called, whoever refuses its calls."""
    rows = [{"index": 1, "address": mac(number).hex(":")} for number in range(100)]
    with serve({"host": rows}) as agent:
        for call in (record(11, words(1, 0, 100, 3)), record(0, program=1)):
            with agent.client() as client:
                before, calls = agent.writes(), 0
                with pytest.raises(OSError):
                    while True:
                        client.sendall(100 * call)
                        calls += 100
                assert agent.writes() - before <= calls + 100
        with agent.client() as client:
            assert client.call(0) == words(0), "others are served"


def mac(number):
    return b"\2\0\0\0" + number.to_bytes(2, "big")


def test_counted_rows_and_their_control_rows(tmp_path):
    """A script printed of counted rows serves the same."""
    capture, script = tmp_path / "frames.pcap", tmp_path / "script.json"
    wrpcap(str(capture), [Ether(src=mac(i), dst=mac(i), type=0x9000) for i in (3, 1, 2)] + [
        Ether(src=mac(1), dst=mac(2)) / IP(src="10.0.0.1", dst="10.0.0.2", tos=0x28) / TCP(dport=80)])
    control = [word for row in ("host:9:later", "host:4:LocalMgr", "nlhost:1:mine", "dshost:1:mine")
               for word in ("--control", row)]
    read = ["--read", capture, "--max-rows", 1000, *control]
    with open(script, "wb") as file:
        subprocess.run([BINARY, *map(str, read), "--print"], stdout=file, check=True)
    rows = [(11, (4, 0, 100, 3)), (138, (1, 0, 0, 0, *[0] * 21, 2)), (138, (1, 0, 10, 11, 10, 0, 0, 2, *[0] * 16, 4, 1))]
    with Agent(*read) as live, Agent("--script", script) as scripted:
        with live.client() as client, scripted.client() as other:
            for procedure, argument in rows:
                found = client.call(procedure, words(*argument))
                assert found == other.call(procedure, words(*argument)) and found[:4] == words(procedure == 11 and 6)
            for index, request, found, owner in [(0, 2, 4, b"LocalMgr"), (4, 2, 9, b"later\0\0\0"), (9, 1, 9, b"later\0\0\0")]:
                assert client.call(9, words(index, request)) == words(0, found, 0, 3, 0, len(owner.strip(b"\0"))) + owner + words(1)
            assert client.call(9, words(9, 2))[:4] == client.call(9, words(5, 1))[:4] == words(1), "no such control row"
            assert client.call(9, words(4, 3))[:4] == client.call(138, words(1, 0, 10, 11, 10, 0, 0, 2, *[0] * 16, 4, 3))[:4] \
                == words(1), "no such request"
            assert client.call(32, words(0, 2))[:28] == words(0, 1, 0, 0, 2, 0, 1000), "inserts, deletes, most rows"
            assert client.call(184, words(4))[:4] == words(1), "no totals under an index of another table"


def test_a_full_table_drops_what_was_not_seen_for_longest(tmp_path):
    path = tmp_path / "frames.pcap"
    for seen, left in [((1, 2, 3, 4, 1, 5, 2, 6), (1, 2, 5, 6)), ((*range(1, 500), *range(300, 400)), range(396, 400))]:
        wrpcap(str(path), [Ether(src=mac(i), dst=mac(i), type=0x9000) for i in seen])
        printed = json.loads(subprocess.check_output([BINARY, "--read", path, "--max-rows", "4", "--print"]))
        assert [row["address"] for row in printed["host"]] == [mac(i).hex(":") for i in left]


def test_an_interface_of_another_network_namespace():
    def ip(*arguments):
        return subprocess.run(["ip", *arguments]).returncode == 0
    name = f"minitapd_{os.getpid()}"
    if not ip("netns", "add", name):
        pytest.skip("needs the right to make a namespace")
    assert ip("-n", name, "link", "set", "lo", "up")
    with Agent("--interface", "lo", "--capture-netns", f"/run/netns/{name}") as agent, agent.client() as client:
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
