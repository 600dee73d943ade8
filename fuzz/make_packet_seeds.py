#!/usr/bin/python3
"""make_packet_seeds.py DIRECTORY: one frame of each kind that the packet parser knows."""
import pathlib
import sys

from scapy.all import (ARP, AH, IP, LLC, SNAP, STP, TCP, UDP, Dot1AD, Dot1Q, Dot3, Ether, IPOption_Router_Alert, IPv6,
                       IPv6ExtHdrDestOpt, IPv6ExtHdrFragment, IPv6ExtHdrHopByHop, PadN, Raw)

ether = Ether(src="02:00:00:00:00:01", dst="02:00:00:00:00:02")
ip, ip6 = IP(src="10.0.0.1", dst="10.0.0.2", tos=0xB8), IPv6(src="2001:db8::1", dst="2001:db8::2", tc=0x28)
dot3 = Dot3(src="02:00:00:00:00:01", dst="01:80:c2:00:00:00")
SEEDS = {
    "arp": ether / ARP(psrc="10.0.0.1", pdst="10.0.0.2"),
    "ip-tcp": ether / ip / TCP(dport=80),
    "ip-options": ether / IP(src="10.0.0.1", options=[IPOption_Router_Alert()]) / UDP(dport=53),
    "ip-fragment": ether / IP(src="10.0.0.1", dst="10.0.0.2", frag=9, proto=17) / Raw(b"\0\x35\0\x35"),
    "ipv6-udp": ether / ip6 / UDP(dport=161),
    "ipv6-extensions": ether / ip6 / IPv6ExtHdrHopByHop(options=[PadN(optdata=b"\0" * 4)]) / IPv6ExtHdrDestOpt()
    / IPv6ExtHdrFragment() / AH(spi=1, icv=b"", payloadlen=1) / TCP(dport=443),
    "tags": ether / Dot1AD(vlan=100, prio=5) / Dot1Q(vlan=7, prio=3) / ip / TCP(dport=22),
    "stp": dot3 / LLC(dsap=0x42, ssap=0x42, ctrl=3) / STP(),
    "cdp": dot3 / LLC(dsap=0xAA, ssap=0xAA, ctrl=3) / SNAP(OUI=0x0C, code=0x2000),
    "short": Raw(bytes(ether)[:13]),
}
for name, frame in SEEDS.items():
    (pathlib.Path(sys.argv[1]) / name).write_bytes(bytes(frame))
