"""Running processes as /proc shows them, and the exit status of those that detached themselves."""
import ctypes
import os
import pathlib
import time

_PR_SET_CHILD_SUBREAPER = 36
PATIENCE = 60  # seconds that a test waits for what takes no time, on a machine that has much else to do


def become_reaper():
    """Make this process the parent of the daemons that it starts, so that their exit status can
    be had although they detach."""
    if ctypes.CDLL(None, use_errno=True).prctl(_PR_SET_CHILD_SUBREAPER, 1, 0, 0, 0) != 0:
        raise OSError(ctypes.get_errno(), "prctl")


def wait_until(condition, timeout=PATIENCE, pause=0.01):
    """Wait until the condition gives something true, and return it; fail after the time."""
    deadline = time.monotonic() + timeout
    while not (result := condition()):
        assert time.monotonic() < deadline, f"not so within {timeout} s: {condition}"
        time.sleep(pause)
    return result


def children(name):
    """The process ids of this process's children of that program name, zombies included."""
    found = []
    for stat in pathlib.Path("/proc").glob("[0-9]*/stat"):
        try:
            before, _, after = stat.read_text().rpartition(") ")
        except OSError:
            continue  # gone meanwhile
        if before.partition(" (")[2] == name and int(after.split()[1]) == os.getpid():
            found.append(int(stat.parent.name))
    return found


def state(pid):
    """The state letter of a process, "Z" for one that has ended and was not waited for; None when it is gone."""
    try:
        return pathlib.Path(f"/proc/{pid}/stat").read_text().rpartition(") ")[2][0]
    except OSError:
        return None


def switches(*pids):
    """How often each thread of these processes has gone to sleep, all told."""
    return sum(int(status.read_text().split("voluntary_ctxt_switches:")[1].split()[0])
               for pid in pids for status in pathlib.Path(f"/proc/{pid}/task").glob("*/status"))


def asleep(*pids):
    """Whether every thread of these processes sleeps. None can have woken another unseen: the waker
    would have gone to sleep since the first look, which the second would show."""
    before = switches(*pids)
    states = [stat.read_text().rpartition(") ")[2][0]
              for pid in pids for stat in pathlib.Path(f"/proc/{pid}/task").glob("*/stat")]
    return set(states) == {"S"} and switches(*pids) == before


def descriptors(pid):
    """What every open descriptor refers to, as {number: target}."""
    found = {}
    for link in pathlib.Path(f"/proc/{pid}/fd").iterdir():
        try:
            found[int(link.name)] = os.readlink(link)
        except OSError:
            pass  # closed meanwhile
    return found


def status_field(pid, field):
    """One number of /proc/PID/status: "Threads", or "VmRSS" and "VmHWM" in KiB."""
    for line in pathlib.Path(f"/proc/{pid}/status").read_text().splitlines():
        if line.startswith(field + ":"):
            return int(line.split()[1])
    raise KeyError(field)


def exit_status(pid, timeout=PATIENCE):
    """Wait for a child to end: its exit status, or minus the signal that ended it."""
    deadline = time.monotonic() + timeout
    while True:
        found, status = os.waitpid(pid, os.WNOHANG)
        if found == pid:
            return os.waitstatus_to_exitcode(status)
        assert time.monotonic() < deadline, f"process {pid} still runs after {timeout} s"
        time.sleep(0.01)
