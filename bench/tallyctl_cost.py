#!/usr/bin/python3
"""tallyctl_cost [--tallyctl PROGRAM] [--rows N] [--runs N]: what it costs to read a delta file.

Makes the three files of a host collection, then compares processor time (user and system, whole
processes, the least of some runs) and memory of tallyctl with those of the reader that
docs/collection-files.md shows, which is run as it stands there but for the path. Measures how long
a writer has to wait for the lock, beside the time that a plain copy takes. One line of JSON.
"""
import argparse
import fcntl
import json
import os
import re
import struct
import subprocess
import tempfile
import time

ROOT = os.path.dirname(os.path.dirname(os.path.realpath(__file__)))


def make_files(directory, rows):
    """Counters of 100,000 hosts that look like those of a busy network: few round numbers."""
    now = int(time.time())
    samples = {"prev": [], "last": [], "delta": []}
    seed = 1
    for row in range(rows):
        mac = struct.pack(">Q", row)[2:]
        counters = []
        for _ in range(7):
            seed = (seed * 6364136223846793005 + 1442695040888963407) % 2**64
            counters.append((float(seed >> 24), seed >> 40))
        samples["prev"].append(mac + struct.pack("<7d", *(old for old, _ in counters)))
        samples["last"].append(mac + struct.pack("<7d", *(old + more for old, more in counters)))
        samples["delta"].append(mac + struct.pack("<7d", *(more / 60 for _, more in counters)))
    headers = {"prev": (0, 1000, now - 60, 0), "last": (0, 7000, now, 0), "delta": (60, 0, now, 0)}
    for kind, records in samples.items():
        with open(f"{directory}/host_3_{kind}.bin", "wb") as file:
            file.write(struct.pack("<iIiI", *headers[kind]) + b"".join(records))


def cost(command, directory, runs):
    """The least processor time in seconds, and the most memory in MB, of some runs."""
    seconds, memory = [], 0
    for _ in range(runs):
        with open(os.devnull, "wb") as nowhere:
            process = subprocess.Popen(command, stdout=nowhere, stderr=nowhere,
                                       env={**os.environ, "TALLYD_DIR": directory})
            _, status, usage = os.wait4(process.pid, 0)
        process.returncode = status
        assert status == 0, command
        seconds.append(usage.ru_utime + usage.ru_stime)
        memory = max(memory, usage.ru_maxrss / 1024)
    return round(min(seconds), 4), round(memory, 1)


def reader_of_the_page(directory):
    with open(f"{ROOT}/docs/collection-files.md", encoding="utf-8") as page:
        program = re.search(r"```python\n(.*?)```", page.read(), re.S).group(1)
    program = program.replace("/usr/local/apache/htdocs/tmp", directory)
    assert directory in program and "json" in program
    return ["/usr/bin/python3", "-c", program]


def longest_wait(tallyctl, directory, runs):
    """How long the exclusive lock is out of reach while tallyctl reads, at most, in milliseconds."""
    longest = 0
    with open(f"{directory}/host_3_delta.bin", "r+b") as file, open(os.devnull, "wb") as nowhere:
        for _ in range(runs):
            process = subprocess.Popen([tallyctl, "show", "host", "3", "--json"], stdout=nowhere,
                                       env={**os.environ, "TALLYD_DIR": directory})
            while process.poll() is None:
                begun = time.perf_counter()
                fcntl.flock(file, fcntl.LOCK_EX)
                longest = max(longest, time.perf_counter() - begun)
                fcntl.flock(file, fcntl.LOCK_UN)
                time.sleep(0.0005)
    return round(longest * 1000, 2)


def copy_time(directory, runs):
    times = []
    for _ in range(runs):
        begun = time.perf_counter()
        with open(f"{directory}/host_3_delta.bin", "rb") as source, \
                open(f"{directory}/copy", "wb") as target:
            os.copy_file_range(source.fileno(), target.fileno(), 1 << 40)
        times.append(time.perf_counter() - begun)
    return round(max(times) * 1000, 2)


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("--tallyctl", default=f"{ROOT}/build/release/tools/tallyctl")
    parser.add_argument("--rows", type=int, default=100000)
    parser.add_argument("--runs", type=int, default=5)
    options = parser.parse_args()
    with tempfile.TemporaryDirectory() as directory:
        # In a process of its own: what this one holds counts for those that it starts.
        if os.fork() == 0:
            make_files(directory, options.rows)
            os._exit(0)
        assert os.wait()[1] == 0
        tallyctl = options.tallyctl
        commands = {
            "python": reader_of_the_page(directory),
            "json": [tallyctl, "show", "host", "3", "--json"],
            "json without notes": [tallyctl, "show", "host", "3", "--json", "--no-notes"],
            "csv": [tallyctl, "show", "host", "3", "--csv"],
            "metrics": [tallyctl, "metrics", "host", "3"],
            "metrics of every row": [tallyctl, "metrics", "host", "3", "--top", str(options.rows)],
        }
        figures = {name: cost(command, directory, options.runs)
                   for name, command in commands.items()}
        seconds = {name: figure[0] for name, figure in figures.items()}
        print(json.dumps({
            "rows": options.rows,
            "seconds": seconds,
            "megabytes": {name: figure[1] for name, figure in figures.items()},
            "json / python": round(seconds["json"] / seconds["python"], 3),
            "metrics / csv": round(seconds["metrics"] / seconds["csv"], 3),
            "metrics of every row / csv":
                round(seconds["metrics of every row"] / seconds["csv"], 3),
            "longest wait for the lock, ms": longest_wait(tallyctl, directory, options.runs),
            "plain copy, ms": copy_time(directory, options.runs),
        }))


if __name__ == "__main__":
    main()
