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
    for block in re.split(r"\n\s*\n", vectors.read_text()):
        lines = [line for line in block.splitlines() if line and not line.startswith("#")]
        fields = dict(re.split(r" = ?", line, maxsplit=1) for line in lines)
        for target in TARGETS.get(fields.get("read"), []):
            name = re.sub(r"[^a-z0-9]+", "-", fields["name"].lower()).strip("-")
            (corpus / target).mkdir(parents=True, exist_ok=True)
            (corpus / target / name).write_bytes(unfold(fields["hex"]))


if __name__ == "__main__":
    main(pathlib.Path(sys.argv[1]), pathlib.Path(sys.argv[2]))
