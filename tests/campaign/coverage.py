"""Lines and branches of the daemon that the end-to-end tests and the unit tests reach, and log texts never seen

Needs `cmake --preset coverage && cmake --build --preset coverage`; a share takes too long, and so does nothing.
"""
import json
import os
import pathlib
import re
import subprocess
import sys

ROOT = pathlib.Path(__file__).resolve().parents[2]
BUILD = ROOT / "build" / "coverage"
GOAL = 95  # percent of lines; and 90 of branches
BRANCHES = 90


def unseen(seen):
    """The texts of docs/log-messages.md that no line of the log is made of, but for those that cannot occur."""
    texts = set()
    for line in (ROOT / "docs" / "log-messages.md").read_text(encoding="utf-8").splitlines():
        if line.startswith("| `") and "Cannot occur" not in line:
            texts.update(re.findall(r"`([^`]*)`", line.split("|")[1]))
    return sorted(text for text in texts
                  if not re.search("(?m)^" + re.sub("%[uds]", ".*", re.escape(text)), seen))


def run(share, case):
    if share:
        return
    log = BUILD / "log"
    log.unlink(missing_ok=True)
    environment = {**os.environ, "TALLYD_BIN": str(BUILD / "src" / "tallyd"), "LOG_HISTORY": str(log)}
    for tests in sorted((ROOT / "tests" / "e2e").glob("test_*.py")):
        subprocess.run([ROOT / "scripts" / "sandbox", "/usr/bin/python3", "-m", "pytest", "-q", "-p", "no:cacheprovider",
                        tests], cwd=ROOT, env=environment, check=False, stdout=sys.stderr)
    subprocess.run([ROOT / "scripts" / "sandbox", "ctest", "--test-dir", BUILD], check=False, stdout=sys.stderr)
    for text in unseen(log.read_text(encoding="utf-8") if log.exists() else ""):
        print(f"-- never logged: {text}", flush=True)
    report = subprocess.check_output(["gcovr", "--root", ROOT, "--filter", "src/", "--json-summary", BUILD,
                                      "--exclude-throw-branches", "--exclude-unreachable-branches"], cwd=ROOT)
    reached = json.loads(report)
    print(f"-- {reached['line_percent']} % of lines, {reached['branch_percent']} % of branches", flush=True)
    short = reached["branch_percent"] < BRANCHES
    yield "all", int(reached["line_percent"]), f"{reached['branch_percent']} % of branches" if short else None
