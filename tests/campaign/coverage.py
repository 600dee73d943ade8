"""Lines and branches of `src/` that the tests and the fault points run, in per cent of lines

Needs gcovr, and `cmake --preset coverage && cmake --build --preset coverage`. A case is one of the steps, by its name.
"""
import json
import os
import pathlib
import subprocess

ROOT = pathlib.Path(__file__).resolve().parents[2]
BUILD = ROOT / "build" / "coverage"
GOAL = 95
BRANCHES = 90
STEPS = {"units": ["scripts/sandbox", "ctest", "--test-dir", BUILD],
         "e2e": ["scripts/e2e", "coverage"],
         "faults": ["scripts/campaign", "faults"]}


def run(share, case):
    if not (BUILD / "src" / "tallyd").exists():
        yield "build", 0, f"{BUILD} is not built"
        return
    for name, command in STEPS.items():
        if case in (None, name) and not (share and name == "faults"):
            done = subprocess.run(command, cwd=ROOT, env={**os.environ, "TALLYD_BIN": str(BUILD / "src" / "tallyd")},
                                  check=False, stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, text=True)
            yield name, 0, done.stdout[-4000:] if done.returncode else None
    # Branches that only an exception takes do not count, nor do those of the fold over a struct's members: a
    # number whose bytes are there is always read.
    found = json.loads(subprocess.check_output(
        ["gcovr", "-r", ROOT, "--object-directory", BUILD, "--filter", f"{ROOT}/src/", "--exclude-throw-branches",
         "--exclude-unreachable-branches", "--exclude-branches-by-pattern", r".*decode_member<T, I>.*&& \.\.\..*",
         "--json-summary"], cwd=ROOT, stderr=subprocess.DEVNULL))
    branches = found["branch_percent"]
    print(f"-- {found['line_percent']} % of lines, {branches} % of branches")
    yield "all", int(found["line_percent"]), None if case or branches >= BRANCHES else f"{branches} % of branches"
