#!/usr/bin/python3
"""Writes the seeds of fuzz_delta_file: make_delta_file_seeds.py DIRECTORY

Small delta files of every collection type, made from the layouts in struct notation and not by the
code under test, and each kind of file that a reader must refuse.
"""

import pathlib
import struct
import sys

IPV4 = bytes([192, 0, 2, 7])
IPV6 = bytes.fromhex("20010db8000000000000000000000001")
MAC = bytes.fromhex("02005e001001")
OTHER_MAC = bytes.fromhex("02005e0010ff")
TOTAL = 0xFFFFFFFF
SAMPLED = 1_700_000_000

# type code: (layout, rows)
TYPES = {
    "host": (0, "6s7d", [(MAC, 1, 2.5, 64, 160, 0, 0.1, 0), (OTHER_MAC, 0, 1e9, 0, 2**64, 0, 0, 0)]),
    "matrix": (1, "6s6s3d", [(MAC, OTHER_MAC, 1, 64, 0), (OTHER_MAC, MAC, 3, 999.5, 1 / 3)]),
    "pdist": (2, "II2d", [(1, 1, 10, 640), (132, TOTAL, 12, 700)]),
    "nlhost": (3, "II16s5d", [(7, 4, IPV4, 1, 2, 3, 4, 5), (8, 16, IPV6, 1, 2, 3, 4, 5)]),
    "nlmatrix": (4, "II16sI16s2d", [(7, 4, IPV4, 4, IPV4, 1, 64), (8, 16, IPV6, 5, IPV4, 2, 9)]),
    "vlan": (5, "I4d", [(1, 1, 64, 0, 0), (4094, 2, 128, 1, 64)]),
    "prio": (6, "I2d", [(0, 1, 64), (7, 2, 128)]),
    "dsstats": (7, "I4d", [(0, 1, 64, 2, 128), (63, 0, 0, 1, 70)]),
    "dspdist": (8, "II2d", [(0, 1, 1, 64), (0, 2, 2, 128)]),
    "dshost": (9, "III16s4d", [(0, 1, 4, IPV4, 1, 2, 3, 4), (0, 1, 0, IPV4, 1, 2, 3, 4)]),
    "dsmatrix": (10, "III16sI16sI2d", [(0, 1, 4, IPV4, 16, IPV6, 9, 1, 64)]),
    "etherstats": (12, "III16s18d", [(3, 9, 3, b"3/1", 12.5, *range(17))]),
    "supvlan": (13, "I4d", [(5, 1, 64, 0, 0), (5, 2, 128, 0, 0)]),
    "ifstats": (14, "II16s12d", [(3, 16, b"GigabitEthernet1", 0.5, 100, *range(10)),
                                 (4, 99, b"\x1b[2J\xff\\", 0, 0, *[float("nan")] * 10)]),
}


def header(code, interval=60):
    return struct.pack("<iIiI", interval, 0, SAMPLED, code)


def main(directory):
    seeds = {}
    for name, (code, layout, rows) in TYPES.items():
        seeds[name] = header(code) + b"".join(struct.pack("<" + layout, *row) for row in rows)
    seeds["empty"] = b""
    seeds["short-header"] = header(0)[:15]
    seeds["header-only"] = header(2, interval=-3600)
    seeds["foreign-type"] = header(11) + bytes(62)
    seeds["foreign-size"] = seeds["host"][:-1]
    directory.mkdir(parents=True, exist_ok=True)
    for name, content in seeds.items():
        (directory / name).write_bytes(content)


if __name__ == "__main__":
    main(pathlib.Path(sys.argv[1]))
