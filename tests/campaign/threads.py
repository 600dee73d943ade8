"""The daemon under ThreadSanitizer through all end-to-end tests

Needs `cmake --preset tsan && cmake --build --preset tsan --target tallyd`; all other programs are of the release.
A case is a test file, or one test of it. Left out are those that take other programs from the daemon's build
(test_documents, the client of the SNMP library), and one that counts how often the daemon wakes up:
ThreadSanitizer has a thread of its own that does.
"""
import concurrent.futures
import os
import pathlib
import platform
import re
import subprocess

ROOT = pathlib.Path(__file__).resolve().parents[2]
E2E = ROOT / "tests" / "e2e"
DAEMON = ROOT / "build" / "tsan" / "src" / "tallyd"
GOAL = 140  # tests; there are some more
SHARE = ("test_control.py", "test_connection.py")


def tested(tests):
    """(tests passed, what failed or None)"""
    # ThreadSanitizer of these compilers finds no room for its memory when addresses are randomised widely.
    command = ["scripts/sandbox", "setarch", platform.machine(), "-R", "/usr/bin/python3", "-m", "pytest", "-q",
               "-p", "no:cacheprovider", "-k", "not does_not_wake and not client_of_the_library", f"tests/e2e/{tests}"]
    done = subprocess.run(command, cwd=ROOT, env={**os.environ, "TALLYD_BIN": str(DAEMON)}, check=False,
                          stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True)
    passed = re.search(r"(\d+) passed", done.stdout)
    return int(passed[1]) if passed else 0, done.stdout[-4000:] if done.returncode else None


def run(share, case):
    if not DAEMON.exists():
        yield "build", 0, f"{DAEMON} is not built"
        return
    files = [case] if case else SHARE if share else sorted(
        path.name for path in E2E.glob("test_*.py") if path.name != "test_documents.py")
    with concurrent.futures.ThreadPoolExecutor(len(os.sched_getaffinity(0))) as pool:
        for name, (passed, fault) in zip(files, pool.map(tested, files)):
            yield name, passed, fault
