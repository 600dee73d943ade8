"""Every decoder against libFuzzer's inputs, under ASan and UBSan; each 300 million times

FUZZ_SECONDS (an hour) is how long each fuzzer runs. What a run adds is put into the table of docs/reliability.md,
and what counts is the sum there.
"""
import concurrent.futures
import datetime
import os
import pathlib
import re
import subprocess

ROOT = pathlib.Path(__file__).resolve().parents[2]
BUILD = ROOT / "build" / "asan"
PAGE = ROOT / "docs" / "reliability.md"
GOAL = 3_000_000_000
SLOWEST = 20_000  # executions per second of processor time


def fuzz(name, seconds):
    """(executions, a second of processor time, fault or None)"""
    found = BUILD / "found" / name
    found.mkdir(parents=True, exist_ok=True)
    report = found.with_suffix(".log")
    # Short stacks of allocations and a quarter of the quarantine: both would cost more than the target.
    options = "quarantine_size_mb=64:malloc_context_size=2"
    with open(report, "w", encoding="ascii") as output:
        process = subprocess.Popen(
            [BUILD / "fuzz" / f"fuzz_{name}", f"-max_total_time={seconds}", "-entropic=0", "-timeout=60",
             "-rss_limit_mb=512", "-print_final_stats=1", f"-artifact_prefix={found}/", found,
             ROOT / "fuzz" / "corpus" / name],
            env={**os.environ, "ASAN_OPTIONS": options}, stdout=output, stderr=subprocess.STDOUT)
        _, status, usage = os.wait4(process.pid, 0)
        process.returncode = os.waitstatus_to_exitcode(status)
    text = report.read_text(encoding="ascii", errors="replace")
    executed = re.search(r"number_of_executed_units: (\d+)", text)
    count = int(executed[1]) if executed else 0
    fault = re.search(r"(?s)(property does not hold|==\d+==|SUMMARY|ERROR|runtime error).*", text) if status else None
    return count, int(count / (usage.ru_utime + usage.ru_stime)), fault and fault[0][:2000] or (status and text[-500:] or None)


def add_to_page(name, count, rate):
    """Add to the fuzzer's line and return its sum."""
    commit = subprocess.check_output(["git", "-C", ROOT, "rev-parse", "--short", "HEAD"], text=True).strip()
    text = PAGE.read_text(encoding="utf-8")
    line = re.search(rf"(?m)^\| `{name}` \| ([\d,]+) \|.*$", text)
    total = int(line[1].replace(",", "")) + count
    new = f"| `{name}` | {total:,} | {rate:,} | {datetime.date.today()}, {commit} |"
    PAGE.write_text(text.replace(line[0], new), encoding="utf-8")
    return total


def run(share, case):
    fuzzers = sorted(path.name[5:] for path in BUILD.glob("fuzz/fuzz_*") if path.is_file())
    if case:
        name, _, inputs = case.partition(" ")
        done = subprocess.run([BUILD / "fuzz" / f"fuzz_{name}", *inputs.split()], check=False)
        yield case, 1, f"it ends with {done.returncode}" if done.returncode else None
        return
    if len(fuzzers) != len(list((ROOT / "fuzz").glob("fuzz_*.cpp"))):
        yield "build", 0, "not every fuzzer is built: cmake --preset asan && cmake --build --preset asan"
    jobs = len(os.sched_getaffinity(0))
    seconds = int(os.environ.get("FUZZ_SECONDS", 80 * jobs // max(len(fuzzers), 1) // 2 if share else 3600))
    with concurrent.futures.ThreadPoolExecutor(jobs) as pool:
        runs = {name: pool.submit(fuzz, name, seconds) for name in fuzzers}
        for name, future in runs.items():
            count, rate, fault = future.result()
            print(f"-- {name}: {count:,} executions, {rate:,} a second of processor time", flush=True)
            if not share:
                count = add_to_page(name, count, rate)
                if rate < SLOWEST and not fault:
                    fault = f"{rate:,} executions a second are too few"
            inputs = " ".join(map(str, (BUILD / "found" / name).glob("*-*")))
            yield f"{name} {inputs}".strip(), count, fault
