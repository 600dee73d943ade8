#!/usr/bin/python3
"""make_ber_seeds.py VECTORS DIRECTORY: every PDU, message and OID of tests/data/ber.txt, named after what it shows."""
import pathlib
import re
import sys


def unfold(text):
    words = []
    for word in text.split():
        byte, _, times = word.partition("*")
        words += [byte] * int(times or 1)
    return bytes.fromhex("".join(words))


vectors, directory = map(pathlib.Path, sys.argv[1:])
for title, hexadecimal in re.findall(r"^([^#\s].*) \| (?:pdu|message|oid)\b(.*)$", vectors.read_text(), re.MULTILINE):
    name = re.sub(r"[^a-z0-9]+", "-", title.lower()).strip("-")
    (directory / name).write_bytes(unfold(hexadecimal))
