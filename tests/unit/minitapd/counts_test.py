"""The agent's counters of a capture file, number by number, against what tshark says of its frames: tshark takes them
apart; the sums over its fields are made here."""
import collections
import ipaddress
import json
import os
import pathlib
import random
import subprocess
import sys

from scapy.all import ARP, ICMP, IP, TCP, UDP, Dot1Q, Ether, ICMPv6EchoRequest, IPv6, PcapWriter, Raw

sys.path.append(str(pathlib.Path(__file__).parents[2] / "e2e"))
from harness.files import TYPES  # behind its place

OWN = "02:00:00:00:00:01"
MAX_FRAME = 800  # octets; longer frames are errors
# Local indexes, as minitapd --protocols tells them.
TRANSPORTS = {(11, 1): 30, (11, 6): 32, (11, 17): 33, (12, 58): 50, (12, 6): 51, (12, 17): 52}
PORTS = {(32, 80): 106, (32, 443): 111, (33, 53): 130, (33, 161): 135, (51, 80): 166, (51, 443): 171,
         (52, 53): 190, (52, 161): 195}


def frames(count):
    dice = random.Random(6)
    mac = lambda i: f"02:00:00:00:00:{i:02x}"
    for _ in range(count):
        a, b = dice.randrange(40), dice.randrange(1, 40)
        dest = dice.choice([mac(b)] * 6 + ["ff:ff:ff:ff:ff:ff", "01:00:5e:00:00:fb"])
        frame = Ether(src=mac(a), dst=dest)
        for _ in range(dice.choice([0, 0, 1, 1, 2])):
            frame /= Dot1Q(vlan=dice.choice([0, 1, 2, 255, 256, 257, 4094, 4095]), prio=dice.randrange(8))
        tos = dice.choice([0, 0, 0x28, 0xB8, 0xFF])
        upper = dice.choice([TCP(sport=80, dport=50000 + a), TCP(sport=50000, dport=443), UDP(sport=53, dport=161),
                             UDP(sport=40000, dport=40001), None])
        load = Raw(b"x" * (900 if a == 0 else dice.randrange(1, 900)))  # station 0 is never seen in a good frame
        kind = dice.random()
        if kind < 0.5:
            frame /= IP(src=f"10.0.{a}.1", dst=f"10.0.{b}.2", tos=tos) / (upper or ICMP()) / load
        elif kind < 0.8:
            frame /= IPv6(src=f"2001:db8::{a:x}", dst=f"2001:db8::{b:x}", tc=tos) / (upper or ICMPv6EchoRequest()) / load
        elif kind < 0.95:
            frame /= ARP(psrc=f"10.0.{a}.1", pdst=f"10.0.{b}.2") / load
        else:
            frame = frame.copy()
            frame.lastlayer().type = 0x9999
            frame /= load
        yield frame


def fields(path):
    """What tshark finds in each frame: a dict of the first value of each field."""
    names = ["frame.len", "eth.src", "eth.dst", "vlan.id", "vlan.priority", "arp.src.proto_ipv4",
             "arp.dst.proto_ipv4", "ip.src", "ip.dst", "ip.dsfield.dscp", "ip.proto", "ipv6.src", "ipv6.dst",
             "ipv6.tclass.dscp", "ipv6.nxt", "tcp.srcport", "tcp.dstport", "udp.srcport", "udp.dstport"]
    command = ["tshark", "-n", "-r", path, "-T", "fields", "-E", "separator=;", "-E", "occurrence=f"]
    out = subprocess.run(command + [part for name in names for part in ("-e", name)], check=True,
                         capture_output=True, text=True).stdout
    for line in out.splitlines():
        yield dict(zip(names, line.split(";")))


def stack_of(f):
    network = 10 if f["arp.src.proto_ipv4"] else 11 if f["ip.src"] else 12 if f["ipv6.src"] else 0
    stack = [1, network] if network else [1]
    transport = TRANSPORTS.get((network, int(f["ip.proto"] or f["ipv6.nxt"] or 0)))
    if transport:
        stack.append(transport)
        ports = sorted(int(f[n]) for n in ("tcp.srcport", "tcp.dstport", "udp.srcport", "udp.dstport") if f[n])
        stack += [PORTS[transport, port] for port in ports if (transport, port) in PORTS][:1]
    return network, stack


def expected(path):
    tables = collections.defaultdict(dict)

    def add(table, width, key, pkts, octets, size):
        row = tables[table].setdefault(key, [0] * width)
        row[pkts] += 1
        if octets is not None:
            row[octets] += size

    for priority in range(8):
        tables["prio"][(priority,)] = [0, 0]
    for f in fields(path):
        size = max(int(f["frame.len"]), 60) + 4
        source, dest = (bytes.fromhex(f[n].replace(":", "")) for n in ("eth.src", "eth.dst"))
        if size > MAX_FRAME:  # counts for the stations and pairs that good frames have shown
            for table, key, columns in (("host", (source,), (1, 3, 4)), ("matrix", (source, dest), (0, 1, 2))):
                if row := tables[table].get(key):
                    for column, amount in zip(columns, (1, size, 1)):
                        row[column] += amount
            continue
        tables["good"][()] = [old + more for old, more in zip(tables["good"].get((), (0, 0)), (1, size))]
        group = dest[0] & 1
        add("host", 7, (source,), 1, 3, size)
        add("host", 7, (dest,), 0, 2, size)
        if group:
            add("host", 7, (source,), 5 if dest == b"\xff" * 6 else 6, None, size)
        add("matrix", 3, (source, dest), 0, 1, size)
        network, stack = stack_of(f)
        for index in stack:
            add("pdist", 2, (index,), 0, 1, size)
        add("prio", 2, (int(f["vlan.priority"] or 0),), 0, 1, size)
        if 1 <= int(f["vlan.id"] or 0) <= 4094:
            add("vlan", 4, (int(f["vlan.id"]),), 0, 1, size)
            if group:
                add("vlan", 4, (int(f["vlan.id"]),), 2, 3, size)
        if not network:
            continue
        src, dst = (ipaddress.ip_address(f[f"arp.{side}.proto_ipv4"] or f[f"ip.{side}"] or f[f"ipv6.{side}"]).packed
                    for side in ("src", "dst"))
        add("nlhost", 5, (network, src), 1, 3, size)
        add("nlhost", 5, (network, dst), 0, 2, size)
        if group:
            add("nlhost", 5, (network, src), 4, None, size)
        add("nlmatrix", 2, (network, src, dst), 0, 1, size)
        if network == 10:
            continue
        dscp = int(f["ip.dsfield.dscp"] or f["ipv6.tclass.dscp"])
        out = 2 if f["eth.src"] == OWN else 0
        add("dsstats", 4, (dscp,), out, out + 1, size)
        for index in stack:
            add("dspdist", 2, (dscp, index), 0, 1, size)
        pad = lambda address: address.ljust(16, b"\0")
        add("dshost", 4, (dscp, network, len(src), pad(src)), 2, 3, size)
        add("dshost", 4, (dscp, network, len(dst), pad(dst)), 0, 1, size)
        add("dsmatrix", 2, (dscp, network, stack[-1], len(src), len(dst), pad(src), pad(dst)), 0, 1, size)
    return tables


def key_of(row):
    """The members between the index and the counters, by their names."""
    names = list(row)[1:list(row).index("counters")]
    return {name: bytes.fromhex(row[name].replace(":", "")) if isinstance(row[name], str) else row[name]
            for name in names}


def test_tables_hold_what_tshark_counts(tmp_path):
    """In the order that the client sorts its records by."""
    whole, capture = tmp_path / "whole.pcap", tmp_path / "cut.pcap"
    # Big-endian, and of most frames only the headers.
    with PcapWriter(str(whole), endianness=">", snaplen=96) as file:
        file.write(list(frames(4000)))
    capture.write_bytes(whole.read_bytes() + bytes(7))  # cut in its next frame
    tables = expected(whole)
    packets, octets = tables.pop("good")[()]
    done = subprocess.run([os.environ["MINITAPD"], "--read", capture, "--own-address", OWN, "--max-frame",
                           str(MAX_FRAME), "--print"], check=True, capture_output=True, text=True)
    assert "truncated dump file" in done.stderr and "counted the 4000 frames before" in done.stderr
    printed = json.loads(done.stdout)
    assert printed.pop("pdist_totals") == [{"index": 1, "counters": [packets, octets]}]
    assert printed.keys() == tables.keys()
    for table, rows in printed.items():
        keys, layout = [key_of(row) for row in rows], TYPES[table]
        assert {tuple(key.values()): row["counters"] for key, row in zip(keys, rows)} == tables[table], table
        assert len(rows) == len(tables[table]), table
        order = [layout.order(layout.pack_key(*(key.get(part, 0) for part in layout.parts))) for key in keys]
        assert order == sorted(order), table
