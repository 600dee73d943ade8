#!/usr/bin/python3
"""Writes the seeds of the SNMP fuzzers from the BER vectors: make_ber_seeds.py VECTORS CORPUS

Every PDU, message and OID of tests/data/ber.txt becomes a file under the corpus of each target that
reads such bytes, named after what it shows.
"""

import pathlib
import re
import sys

TARGETS = {"pdu": ["pdu", "rebuild"], "message": ["message"], "oid": ["oid"]}


def unfold(text):
    words = []
    for word in text.split():
        byte, _, times = word.partition("*")
        words += [byte] * int(times or 1)
    return bytes.fromhex("".join(words))


def main(vectors, corpus):
    for title, parser, hexadecimal in re.findall(r"^([^#\s].*) \| (\w+)(.*)$", vectors.read_text(), re.MULTILINE):
        for target in TARGETS.get(parser, []):
            name = re.sub(r"[^a-z0-9]+", "-", title.lower()).strip("-")
            (corpus / target).mkdir(parents=True, exist_ok=True)
            (corpus / target / name).write_bytes(unfold(hexadecimal))


if __name__ == "__main__":
    main(pathlib.Path(sys.argv[1]), pathlib.Path(sys.argv[2]))
