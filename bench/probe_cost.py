#!/usr/bin/python3
"""probe_cost.py MINITAPD CAPTURE: CPU seconds that minitapd takes to count a capture file into all its
tables, beside those of `tcpdump -nn -r CAPTURE >/dev/null`, which prints it. The aim is 0.5 at most."""
import resource
import signal
import statistics
import subprocess
import sys


def cpu_of(run):
    before = resource.getrusage(resource.RUSAGE_CHILDREN)
    run()
    after = resource.getrusage(resource.RUSAGE_CHILDREN)
    return after.ru_utime + after.ru_stime - before.ru_utime - before.ru_stime


def count(minitapd, capture):
    process = subprocess.Popen([minitapd, "--read", capture, "--port", "0"], stdout=subprocess.PIPE)
    if not process.stdout.readline():  # it serves when all is counted
        sys.exit("probe_cost: minitapd did not start")
    process.send_signal(signal.SIGTERM)
    process.wait()


def show(capture):
    subprocess.run(["tcpdump", "-nn", "-r", capture], check=True, stdout=subprocess.DEVNULL,
                   stderr=subprocess.DEVNULL)


def main(minitapd, capture):
    pairs = [(cpu_of(lambda: count(minitapd, capture)), cpu_of(lambda: show(capture))) for _ in range(5)]
    counting, showing = (statistics.median(column) for column in zip(*pairs))
    print(f"minitapd {counting:.3f} s, tcpdump {showing:.3f} s, ratio {counting / showing:.2f}")


if __name__ == "__main__":
    main(*sys.argv[1:])
