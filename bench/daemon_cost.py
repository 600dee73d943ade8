#!/usr/bin/python3
"""daemon_cost.py --programs DIR [--cpu N] [MEASUREMENT...]

Measure the real daemon beside a canned agent, in scripts/sandbox, on one CPU. Prints JSON.

  poll      CPU of polls of 100,000 host rows, alternating with runs of the stock client
  memory    peak resident memory with tables of 1,000 and of 1,000,000 rows
  idle      wake-ups and CPU in 20 seconds with collections that are not due
  rowless   the same without any, and with a supervisor that has no rows for the enabled kinds
  scaling   CPU of a viewing message and of an idle pass, with 10 and with 10,000 collections

Every file that a poll leaves is checked against the canned table's own arithmetic.
"""
import argparse
import json
import os
import pathlib
import random
import struct
import subprocess
import sys
import time

from appliance import (HEADER, HOST, HOST_RECORD, LONGEST_INTERVAL, SET_INTERVAL, VIEWING, Agent,
                       Daemon, Supervisor, wait_until)

COUNTERS = 7


def address(row):
    return (0x020000000000 + row * 4099).to_bytes(6, "big")


def start(row, field):
    return row * 1000003 + field * 7919 + 1


def step(row, field):
    return 1 + (row * 31 + field * 17) % 997


def records(rows, value):
    """The records of a file whose counters are value(row, field)."""
    pack = struct.Struct(f"<6s{COUNTERS}d").pack
    return b"".join(pack(address(row), *(value(row, field) for field in range(COUNTERS)))
                    for row in range(rows))


def check_files(rows):
    """Compare the last and the delta file of collection 1, byte by byte, with the model."""
    last = Daemon.file(1, "last").read_bytes()
    prev = Daemon.file(1, "prev").read_bytes()
    delta = Daemon.file(1, "delta").read_bytes()

    def epoch(data):
        (first,) = struct.unpack_from("<d", data, HEADER + 6)
        return (int(first) - start(0, 0)) // step(0, 0)

    def header(data):
        return struct.unpack_from("<iIiI", data)

    now, before = epoch(last), epoch(prev)
    interval = header(last)[2] - header(prev)[2]
    expected = [
        (last[HEADER:], records(rows, lambda row, field: start(row, field) + now * step(row, field))),
        (delta[HEADER:], records(rows, lambda row, field:
                                 (now - before) * step(row, field) / max(interval, 1))),
        (header(last), (0, now * 100, header(last)[2], HOST)),
        (header(delta), (interval, 0, header(last)[2], HOST)),
    ]
    if now <= before or any(found != wanted for found, wanted in expected):
        raise RuntimeError("the daemon's files are not what the canned table says")


class Bench:
    def __init__(self, programs, cpu):
        self.cpu = cpu
        self.tallyd = str(programs / "src/tallyd")
        self.canned_agent = str(programs / "bench/canned_agent")
        self.canned_supervisor = str(programs / "bench/supervisor/canned_supervisor")
        self.poll_ratio = str(programs / "bench/poll_ratio")

    def poll(self):
        rows = 100_000
        result = {"rows": rows, "daemon": [], "stock": []}
        with Agent(self.canned_agent, rows), Daemon(self.tallyd) as daemon:
            daemon.create(1, rows)
            time.sleep(1.1)
            daemon.poll(1, rows)
            for _ in range(9):
                daemon.settle()
                before = daemon.cpu()
                daemon.poll(1, rows)
                daemon.settle()
                result["daemon"].append(daemon.cpu() - before)
                stock = subprocess.run([self.poll_ratio, "--rounds", "1", "--cpu", str(self.cpu), "stock"],
                                       stdout=subprocess.PIPE, check=True)
                result["stock"] += json.loads(stock.stdout)["contenders"]["stock"]["cpu"]
            check_files(rows)
        return result

    def memory(self):
        result = {}
        for rows in (1_000, 1_000_000):
            with Agent(self.canned_agent, rows), Daemon(self.tallyd) as daemon:
                daemon.create(1, rows)
                time.sleep(1.1)
                for _ in range(3):
                    daemon.poll(1, rows)
                result[str(rows)] = daemon.peak_memory()
                if rows == 1_000:
                    check_files(rows)
        return result

    def idle(self):
        with Agent(self.canned_agent, 1000), Daemon(self.tallyd) as daemon:
            for index in range(1, 11):
                daemon.create(index, 1000 if index == 1 else 0)
            return self.idleness(daemon)

    def rowless(self):
        with (Agent(self.canned_agent, 0), Supervisor(self.canned_supervisor, 0) as supervisor,
              Daemon(self.tallyd, supervisor=True) as daemon):
            wait_until(lambda: supervisor.requests() >= 2, 10, "the search for rows of both kinds")
            asked = supervisor.requests()
            result = self.idleness(daemon)
            return result | {"requests": supervisor.requests() - asked}

    @staticmethod
    def idleness(daemon):
        daemon.settle()
        time.sleep(10)  # so that the time-out of the last call, 25 s, falls into the window
        before = daemon.wake_ups(), daemon.ticks(), daemon.cpu()
        time.sleep(20)
        after = daemon.wake_ups(), daemon.ticks(), daemon.cpu()
        names = ("wake_ups", "ticks", "cpu")
        return {name: now - then for name, now, then in zip(names, after, before)}

    def scaling(self):
        return {str(count): self.viewing_cost(count) for count in (10, 10_000)}

    def viewing_cost(self, count, messages=1000):
        """CPU of the main thread for a message, and of the task for the pass that it causes."""
        with Agent(self.canned_agent, 0) as agent, Daemon(self.tallyd) as daemon:
            daemon.send(SET_INTERVAL, LONGEST_INTERVAL)
            for index in range(1, count + 1):
                daemon.create(index)
            for index in range(1, count + 1):  # the first view is polled: there is no delta file
                daemon.send(VIEWING, HOST, index)
            wait_until(lambda: all(daemon.file(index, "delta").exists()
                                   for index in range(1, count + 1)), 300, "the first polls")
            daemon.settle()
            main, task = daemon.threads()[:2]
            choose = random.Random(count)
            result = {"messages": messages}
            passes = agent.epoch()
            before = daemon.cpu_of(main), daemon.cpu_of(task)
            for _ in range(messages):
                daemon.send(VIEWING, HOST, choose.randint(1, count))
                time.sleep(0.001)  # lets the pass end, so that the next message causes another
            daemon.settle()
            result["main_cpu"] = daemon.cpu_of(main) - before[0]
            result["task_cpu"] = daemon.cpu_of(task) - before[1]
            result["passes"] = agent.epoch() - passes
        return result


def main():
    parser = argparse.ArgumentParser(usage=__doc__.splitlines()[0])
    names = ("poll", "memory", "idle", "rowless", "scaling")
    parser.add_argument("--programs", type=pathlib.Path, required=True)
    parser.add_argument("--cpu", type=int, default=0)
    parser.add_argument("measurements", nargs="*", choices=[[], *names], default=[])
    options = parser.parse_args()
    os.sched_setaffinity(0, {options.cpu})
    bench = Bench(options.programs.resolve(), options.cpu)
    result = {name: getattr(bench, name)() for name in options.measurements or names}
    json.dump(result, sys.stdout, indent=1)
    print()


if __name__ == "__main__":
    main()
