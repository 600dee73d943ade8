"""SIGKILL before each file operation of the polls of every type and kind, and the restart after it."""
from campaign import _scenes
from campaign._scenes import SCENES, Fault

GOAL = 500
CALLS = ("openat", "read", "write", "pwrite64", "flock", "rename", "unlink", "access", "ftruncate", "close")


def point(world, scene, call, number):
    """Before the n-th of a call. False if there are fewer."""
    world.fault = Fault(call, "KILL", "once", True)
    world.running()
    played = SCENES[scene](world)
    with world.traced(call, f"signal=KILL:when={number}", played.paths):
        lives = played.under_fault([])
    if not lives:
        status = world.daemon.exit_status()
        assert status == -9, f"the daemon ended with {status}"
        played.judge(killed=True)
        world.restart()
    world.fault = None
    played.recover(restarted=not lives)
    return not lives


def run(share, case):
    jobs = [((scene, call), None) for scene in SCENES if scene != "tables" for call in CALLS]
    if case:
        *group, number = case.split()
        jobs = [(group, int(number))]
    elif share:
        jobs = [(group, 1 + at % 6) for at, (group, _) in enumerate(jobs) if at % 2 == 0]
    yield from _scenes.results("kills", jobs, 8, set())
