"""Eight readers with shared locks beside a daemon that polls without a pause: never a torn row

The daemon's clocks run two hundred times as fast, and its interval is a second. Readers do as docs/collection-files.md
says: what they read while the file changed does not count.
"""
import fcntl
import multiprocessing
import os
import sys
import time

from ._appliance import FAKETIME, Appliance, sandboxed

GOAL = 100_000  # reads
READERS = 8
ROWS = 250


def run(share, case):
    yield from sandboxed("readers", reads=GOAL // 50 if share else GOAL)


def read_whole(path):
    """The bytes of an unchanged file, or None."""
    with open(path, "rb") as file:
        fcntl.flock(file, fcntl.LOCK_SH)
        before = os.fstat(file.fileno())
        data = file.read()
        after = os.fstat(file.fileno())
    return data if (before.st_mtime_ns, before.st_size) == (after.st_mtime_ns, len(data)) else None


def torn(layout, known, data):
    """What is wrong with a file, or None. Its rows have one rate in all columns but the last, which is 0."""
    if len(data) in (0, 16):
        return None
    if len(data) % layout.size != 16 % layout.size:
        return f"{len(data)} bytes"
    rows = layout.unpack(data).rows
    keys = [key for key, _ in rows]
    if keys != sorted(set(keys)) or not known.issuperset(keys):
        return f"keys {keys}"
    return next((f"row {row}" for row in rows if len(set(row[1][:-1])) != 1 or row[1][-1]), None)


def reader(layout, known, reads, results):
    samples, rows, changed, fault = set(), 0, 0, None
    while reads and not fault:
        data = read_whole(layout.path(1, "delta"))
        changed += data is None
        if data is not None:
            reads -= 1
            samples.add(data[8:12])
            rows += len(data) > 16
            fault = torn(layout, known, data)
        time.sleep(0.0005)
    results.put((len(samples), rows, changed, fault))


def scenario(reads):
    from harness import agent as agents, control, processes, samples
    from harness.files import HOST
    appliance = Appliance(1)
    appliance.agent.serve(host=samples.rows(HOST, dict.fromkeys(range(1, ROWS + 1), 0), 1))
    appliance.agent.start()
    appliance.daemon.start(FAKETIME + ("FAKETIME=+0 x200",))
    control.send(control.CREATE, HOST.code, 1)
    known = {HOST.pack_key(*samples.key(HOST, number)) for number in range(1, ROWS + 1)}
    results, begun = multiprocessing.Queue(), False
    readers = [multiprocessing.Process(target=reader, args=(HOST, known, reads // READERS, results))
               for _ in range(READERS)]
    value = 0
    while not begun or results.qsize() < READERS:
        value += 1
        appliance.agent.serve(host=samples.rows(HOST, dict.fromkeys(range(1, ROWS + 1), value), 1))
        control.send(control.VIEWING, HOST.code, 1)
        appliance.log.take_all()
        if not begun and HOST.path(1, "delta").exists():
            begun = [each.start() for each in readers] != []
        time.sleep(0.002)
    found = [results.get() for _ in readers]
    appliance.daemon.kill()
    polls = max(polls for polls, *_ in found)
    print(f"-- {polls} polls; {sum(each[1] for each in found)} reads with rows, {sum(each[2] for each in found)} "
          "that met a change", file=sys.stderr)
    for *_, fault in found:
        yield "all", reads // READERS, fault
    yield "all", 0, None if polls > reads / 1000 else f"only {polls} polls"
