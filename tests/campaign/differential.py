"""Codecs and rates against others': libsnmp both ways, rpcgen, and exact fractions

The random cases of a round, or of a seed, are always the same.
"""
import os
import pathlib
import subprocess
import sys
import tempfile

ROOT = pathlib.Path(__file__).resolve().parents[2]
UNIT = ROOT / "build" / "release" / "tests" / "unit"
ROUNDS = 1_000_000
GOAL = 3 * ROUNDS
SEEDED = 50_000  # rate cases of one seed


def tested(program, tests, **settings):
    """What a unit test says when it fails, else None."""
    done = subprocess.run([UNIT / program, f"--gtest_filter={tests}"], env={**os.environ, **settings},
                          check=False, capture_output=True, text=True)
    if "1 test from 1 test suite ran" not in done.stdout and done.returncode == 0:
        return f"{program} has no test {tests}"
    return None if done.returncode == 0 else (done.stdout + done.stderr)[-2000:]


def rates(seed):
    with tempfile.NamedTemporaryFile("w") as cases:
        subprocess.run([sys.executable, ROOT / "tests" / "unit" / "agent" / "make_rate_cases.py",
                        ROOT / "tests" / "e2e", str(seed), str(SEEDED)], stdout=cases, check=True)
        return tested("test_agent", "Rate.FollowsTheRuleInEveryCounterOfEveryType", RATE_CASES=cases.name)


def run(share, case):
    rounds = 20_000 if share else ROUNDS
    kinds = {"snmp": lambda: tested("snmp/test_snmp", "Peer.LibsnmpAgrees", PEER_ROUNDS=str(rounds)),
             "xdr": lambda: tested("test_agent", "Peer.RpcgenAgrees", PEER_ROUNDS=str(rounds)),
             **{f"rates {seed}": lambda seed=seed: rates(seed) for seed in range(-(-rounds // SEEDED))}}
    for name, check in kinds.items():
        if case in (None, name):
            yield name, min(rounds, SEEDED) if name.startswith("rates") else rounds, check()
