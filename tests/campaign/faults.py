"""Fault points: each system call of the daemon fails, the n-th, n = 1 until clean; once alone and for good."""
import re

from campaign import _scenes
from campaign._scenes import SCENES, Fault, StartScene
from harness.paths import PIPE, REPOSITORY

GOAL = 2000

# Calls on files, and how each can fail: in all these ways once, in the first for good.
FILES = {
    "openat": ("EMFILE", "EIO", "ENOSPC", "EINTR"),
    "read": ("EIO", "EINTR", "short"),
    "write": ("ENOSPC", "EIO", "EINTR", "short"),
    "pwrite64": ("ENOSPC", "EIO", "EINTR", "short"),
    "flock": ("ENOLCK", "EINTR"),
    "rename": ("EIO", "ENOSPC"),
    "unlink": ("EIO",),
    "access": ("EIO",),
    "ftruncate": ("EIO",),
}
# All other calls: sockets, the pipe, memory. (A brk that fails does not return an error.)
OTHERS = {
    "socket": ("EMFILE", "ENOMEM"),
    "setsockopt": ("ENOMEM",),
    "bind": ("EADDRINUSE",),
    "connect": ("ECONNREFUSED", "EINTR"),
    "sendto": ("ECONNRESET", "EINTR"),
    "recvfrom": ("end", "EINTR"),
    "ioctl": ("EIO",),
    "pselect6": ("EINTR",),
    "mmap": ("ENOMEM",),
    "mprotect": ("ENOMEM",),
}
START = {
    "mknodat": ("ENOSPC", "EIO"),
    "newfstatat": ("EIO",),
    "clone3": ("EAGAIN",),
    "tee": ("ENOMEM",),
    "pipe2": ("EMFILE",),
    "clock_nanosleep": ("EINTR",),
}
# When these fail the log may not have heard what the daemon said.
UNHEARD = {"sendto", "socket", "connect"}
# What the log says about files that cannot be written or read: all of it is to be seen.
DUE = re.compile(r"Unable to (write|flush) .*|Not all .*|Error [12] reading .*|filebuf_getnext: .*|Error [78] polling .*|"
                 r"poll_coll_delta: Error (opening|locking|reading|writing (last|delta) record|flushing).*|"
                 r"poll_tapd_collection: Error (uploading|flusing).*|(?!dsmatrix)\w+_upload\(\) error \d\.")


def groups():
    for scene in ("start", *SCENES):
        for calls in (FILES, OTHERS, START) if scene == "start" else (FILES, OTHERS):
            for call, errors in calls.items():
                if scene == "tables" and call != "write":
                    continue
                for error in errors[:1] if scene == "tables" else errors:
                    yield scene, call, error, "once"
                if errors[0] != "EINTR":
                    yield scene, call, errors[0], "ever"


def point(world, scene, call, error, how, number):
    """One of them. False if there are fewer such calls."""
    what = {"short": "retval=7", "end": "retval=0"}.get(error, f"error={error}")
    what += f":when={number}{'' if how == 'once' else '+'}"
    world.fault = Fault(call, error, how, call in FILES)
    unheard = ["RPC failed", "performing SNMP request"] if call in UNHEARD else []
    if scene == "start":
        played = StartScene(world)
        played.prepare()
        # A pipe that can never be read would never tell to end.
        paths = [path for path in played.paths if path != PIPE or (call, how) != ("read", "ever")]
        with world.traced(call, what, paths if call in FILES else ()) as trace:
            status = played.play()
        played.judge(status, world.take_texts() + unheard)
        return "INJECTED" in trace.read_text(errors="replace")
    daemon = world.running()
    before = daemon.measure()
    played = SCENES[scene](world)
    with world.traced(call, what, played.paths if call in FILES else ()) as trace:
        assert played.under_fault(unheard), f"the daemon ended with {daemon.exit_status()}"
    world.fault = None
    played.recover()
    assert daemon.measure() == before, f"{daemon.measure()} descriptors and threads, {before} before"
    return "INJECTED" in trace.read_text(errors="replace")


def run(share, case):
    jobs = [(group, None) for group in groups()]
    if case:
        *group, number = case.split()
        jobs = [(group, int(number))]
    elif share:
        jobs = [(group, 1 + at % 5) for at, (group, _) in enumerate(jobs) if at % 9 == 4]
        jobs += [(("host", "write", "ENOSPC", "once"), number) for number in range(1, 25)]
    texts = set()
    yield from _scenes.results("faults", jobs, 8, texts)
    page = (REPOSITORY / "docs/log-messages.md").read_text()
    known = {text: re.escape(text).replace("%s", ".*").replace("%d", r"-?\d+").replace("%u", r"\d+")
             for text in re.findall(r"`([^`\n]*)`", page)}
    seen = {text for text, form in known.items() if any(re.fullmatch(form, each.rstrip()) for each in texts)}
    print(f"{len(seen)} texts of the log were seen")
    if not case and not share:
        for text in filter(DUE.fullmatch, known.keys() - seen):
            yield "texts", 0, f"never logged: {text}"
