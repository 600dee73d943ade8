#!/usr/bin/python3
"""Prints what our codec costs against libsnmp: ratios.py [--cpu N] PATH_OF_BENCH_SNMP

Runs the benchmark pinned to one CPU, with its measurements repeated and in random order, and divides
the medians of CPU time.
"""

import argparse
import csv
import subprocess


def medians(program, cpu, repetitions):
    command = ["taskset", "-c", str(cpu), program, "--benchmark_min_time=0.05",
               f"--benchmark_repetitions={repetitions}", "--benchmark_format=csv",
               "--benchmark_enable_random_interleaving=true",
               "--benchmark_report_aggregates_only=true"]
    output = subprocess.run(command, capture_output=True, check=True, text=True).stdout
    rows = csv.DictReader(output[output.index("name,"):].splitlines())
    return {row["name"].removesuffix("_median"): float(row["cpu_time"])
            for row in rows if row["name"].endswith("_median")}


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("--cpu", type=int, default=0)
    parser.add_argument("--repetitions", type=int, default=15)
    parser.add_argument("program")
    arguments = parser.parse_args()
    times = medians(arguments.program, arguments.cpu, arguments.repetitions)
    for name, time in sorted(times.items()):
        work, packet, side = name.split("/")
        if side == "ours":
            print(f"{work:6}{packet:12}{time / times[f'{work}/{packet}/libsnmp']:6.2f}")


if __name__ == "__main__":
    main()
