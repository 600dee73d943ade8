#!/usr/bin/python3
"""daemon_cost.py --programs DIR [--cpu N] [--quick] [MEASUREMENT...]

Measure the daemon as it is shipped, beside a canned agent, in scripts/sandbox, on one CPU. Prints JSON.

  poll      CPU seconds of polls of 1,000 and of 100,000 host rows, in turn with runs of the bare program
  memory    peak resident memory in KiB with a table of 1,000 and of 1,000,000 rows
  idle      wake-ups and CPU seconds in 20 seconds with collections that are not due and supervisor
            kinds that have no rows
"""
import argparse
import json
import os
import pathlib
import subprocess
import sys
import time

sys.path.append(str(pathlib.Path(__file__).resolve().parents[1] / "tests" / "e2e"))


class CannedAgent:
    def __init__(self, program, rows):
        self.rows = rows
        self._process = subprocess.Popen([program, "--rows", str(rows)], stdout=subprocess.PIPE)
        self.pid = self._process.pid
        assert self._process.stdout.readline() == b"listening\n"

    def stop(self):
        self._process.kill()
        self._process.wait()


class Bench:
    def __init__(self, programs, cpu, quick):
        os.environ["TALLYD_BIN"] = str(programs / "src/tallyd")
        from harness import control, files, processes, settings, syslog  # with that binary
        from harness.daemon import Daemon
        self.control, self.host, self.processes, self.settings = control, files.HOST, processes, settings
        self.programs, self.cpu, self.quick = programs / "bench", cpu, quick
        processes.become_reaper()
        self.daemon = Daemon(syslog.Syslog())

    def start(self, rows):
        self.agent = CannedAgent(self.programs / "canned_agent", rows)
        self.settings.refresh(3600)
        self.daemon.start()

    def stop(self):
        assert self.daemon.stop() == 0
        self.agent.stop()
        for path in self.host.path(0, "last").parent.iterdir():
            path.unlink()

    def create(self, index=1):
        self.control.send(self.control.CREATE, self.host.code, index)
        self.daemon.rest(self.agent)

    def poll(self):
        """Have collection 1 polled, and return the CPU seconds that it took.

        Polls of one collection are a second apart, because an interval of 0 is logged for each row."""
        delta = self.host.path(1, "delta")
        delta.unlink(missing_ok=True)
        time.sleep(1.1)
        before = self.cpu_seconds()
        self.control.send(self.control.VIEWING, self.host.code, 1)
        time.sleep(0.1 + self.agent.rows / 1e6)  # most of the wait: it has the CPU and its caches to itself
        self.processes.wait_until(delta.exists)
        self.daemon.settle()
        cost = self.cpu_seconds() - before
        assert delta.stat().st_size == 16 + self.agent.rows * self.host.size
        return cost

    def cpu_seconds(self):
        return sum(int(path.read_text().split()[0]) * 1e-9
                   for path in pathlib.Path(f"/proc/{self.daemon.pid}/task").glob("*/schedstat"))

    def bare(self, rows):
        command = [self.programs / "poll_ratio", "--port", "9912", "--rows", str(rows), "--rounds", "1", "--cpu",
                   str(self.cpu), "bare"]
        return json.loads(subprocess.check_output(command))["bare"]

    def measure_poll(self):
        result = {}
        for rows in (1_000, 100_000):
            self.start(rows)
            self.create()
            self.poll()
            pairs = [(self.poll(), *self.bare(rows)) for _ in range(2 if self.quick else 9)]
            result[str(rows)] = dict(zip(("daemon", "bare"), zip(*pairs)))
            self.stop()
        return result

    def measure_memory(self):
        result = {}
        for rows in (1_000, 10_000 if self.quick else 1_000_000):
            self.start(rows)
            self.create()
            for _ in range(3):
                self.poll()
            result[str(rows)] = self.processes.status_field(self.daemon.pid, "VmHWM")
            self.stop()
        return result

    def measure_idle(self):
        from harness.supervisor import Supervisor
        supervisor = Supervisor().start()
        self.settings.supervisor()
        self.start(1_000)
        for index in range(1, 11):
            self.create(index)
        self.processes.wait_until(lambda: len(supervisor.asked) >= 2)  # for rows of both kinds
        self.daemon.rest(self.agent)
        asked = len(supervisor.asked)
        time.sleep(10)  # so that the time-out of the last call, 25 s, falls into what follows
        before = self.processes.switches(self.daemon.pid), self.cpu_seconds()
        time.sleep(2 if self.quick else 20)
        after = self.processes.switches(self.daemon.pid), self.cpu_seconds()
        assert len(supervisor.asked) == asked
        self.stop()
        supervisor.stop()
        self.settings.no_supervisor()
        return {"wake_ups": after[0] - before[0], "cpu": after[1] - before[1]}


def main():
    parser = argparse.ArgumentParser(usage=__doc__.splitlines()[0])
    names = ("poll", "memory", "idle")
    parser.add_argument("--programs", type=pathlib.Path, required=True)
    parser.add_argument("--cpu", type=int, default=0)
    parser.add_argument("--quick", action="store_true")
    parser.add_argument("measurements", nargs="*", choices=[[], *names], default=[])
    options = parser.parse_args()
    os.sched_setaffinity(0, {options.cpu})
    bench = Bench(options.programs.resolve(), options.cpu, options.quick)
    bench.settings.no_supervisor()
    print(json.dumps({name: getattr(bench, f"measure_{name}")() for name in options.measurements or names}, indent=1))


if __name__ == "__main__":
    main()
