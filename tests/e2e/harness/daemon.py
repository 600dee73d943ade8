"""The daemon under test: the shipped binary, run as shipped, at its true paths."""
import os
import pathlib
import signal
import subprocess

from . import control, processes
from .paths import PREFERENCES, program
from .syslog import DEBUG, WARNING

BINARY = program("TALLYD_BIN", "src/tallyd")
REPORTS = pathlib.Path("/tmp/sanitizer-reports")  # of a binary that was built with sanitizers

# What the log says first where the settings let no supervisor kind be.
STARTED = ((DEBUG, "Starting tallyd."), (DEBUG, "etherstats disabled"), (DEBUG, "supvlanstats disabled"),
           (DEBUG, "ifstats disabled"))
NO_PREFERENCES = (WARNING, f"Tallyd could not open preferences file {PREFERENCES}.")
NO_AGENT = (DEBUG, "Error 1 scanning control tables.")
DIED = "RPC connection died, reopening!"
CALL = 25  # seconds that no call takes longer than, connecting included
UNEXPECTED_TYPE = "Unexpected message type found in pipe."
NOT_THERE = "Received TALLYD_VIEWING_COLL message for non-existent collection type {}, index {}"
STRACE = ("strace", "-f", "-qq", "-o", "/dev/null")  # to make one of its system calls fail
ERROR_STATUS = 255  # what the shell sees of -1


def environment(traced=False):
    # The leak checker does not work in a traced process.
    options = f"log_path={REPORTS}/tallyd:detect_leaks={int(not traced)}:verify_asan_link_order=0"
    return dict(os.environ, ASAN_OPTIONS=options, UBSAN_OPTIONS=options + ":print_stacktrace=1",
                TSAN_OPTIONS=options)


class Daemon:
    def __init__(self, log):
        self.log = log
        self.pid = None
        self.collections = set()  # that a scenario made and has not destroyed
        self.first_status = None  # exit status of the process that was started

    def start(self, wrapper=(), serve=True, **popen):
        """Start the daemon, behind a wrapper command if one is given, and wait until it serves."""
        REPORTS.mkdir(exist_ok=True)
        known = set(processes.children(self._name()))
        self.first_status = subprocess.run([*wrapper, BINARY], stdin=subprocess.DEVNULL, check=False,
                                           env=environment(wrapper[:1] == STRACE[:1]), timeout=processes.PATIENCE, **popen).returncode
        new = set(processes.children(self._name())) - known
        self.pid = new.pop() if new else None
        if serve:
            self.wait_until_serving()
        return self

    def wait_until_serving(self):
        """The start sleeps 2 seconds after it made the pipe; then the first answer comes."""
        def offered():
            try:
                control.send(control.IGNORED)
                return True
            except OSError:
                return False
        processes.wait_until(offered)
        self.answer()

    @staticmethod
    def _name():
        return pathlib.Path(BINARY).name

    def answer(self):
        """Wait until the main thread has dealt with every message sent before."""
        control.send(8)
        self.log.wait(UNEXPECTED_TYPE, DEBUG)

    def settle(self):
        """Wait until no poll pass is under way: a pass holds the registry's lock, which this message needs."""
        nobodys = 9, 987654321
        control.send(control.VIEWING, *nobodys)
        self.log.wait(NOT_THERE.format(*nobodys), WARNING)

    def rest(self, agent):
        """Wait until it has done everything that it was told to, calls to the agent included."""
        self.answer()
        processes.wait_until(lambda: processes.asleep(self.pid, agent.pid))

    def running(self):
        return self.pid is not None and processes.state(self.pid) not in ("Z", "X", None)

    def measure(self):
        """How many descriptors and threads it has, for a comparison that shows leaks."""
        return len(processes.descriptors(self.pid)), processes.status_field(self.pid, "Threads")

    def exit_status(self, timeout=processes.PATIENCE):
        pid, self.pid = self.pid, None
        return processes.exit_status(pid, timeout)

    def stop(self):
        """End it with a message, as the appliance does; its exit status."""
        control.send(control.TERMINATE)
        status = self.exit_status()
        self.log.wait("Terminating tallyd.", WARNING)
        return status

    def kill(self):
        """End it, if it still runs, whatever state it is in."""
        if self.pid is not None:
            os.kill(self.pid, signal.SIGKILL)
            self.exit_status()


def sanitizer_reports():
    """The new reports of sanitizers about any daemon, which are then removed."""
    texts = []
    for path in sorted(REPORTS.glob("*")):
        texts.append(f"{path.name}:\n{path.read_text(errors='replace')}")
        path.unlink()
    return texts
