"""The real daemon beside a canned agent, in a sandbox: start, steer, wait, read what it cost."""
import dbm.gnu
import fcntl
import os
import pathlib
import socket
import struct
import subprocess
import time

DATA_DIRECTORY = pathlib.Path("/usr/local/apache/htdocs/tmp")
CONTROL_PIPE = "/usr/local/qor/bin/tallyd_pipe"
PID_FILE = "/tmp/tallyd.pid"
NMP_SETTINGS = "/nvram/config/web/nmp.dba"
AGENT_PORT = 9911
SUPERVISOR_PORT = 161

TERMINATE, SET_INTERVAL, VIEWING, CREATE = 0, 1, 2, 3
HOST = 0
HEADER, HOST_RECORD = 16, 62
LONGEST_INTERVAL = 3600


def wait_until(done, seconds, what):
    """Poll a condition; the pauses are short against anything that is measured here."""
    end = time.monotonic() + seconds
    while not done():
        if time.monotonic() > end:
            raise TimeoutError(f"waited {seconds} s in vain: {what}")
        time.sleep(0.002)


class Canned:
    """A canned agent, or a canned supervisor, on the daemon's port."""

    def __init__(self, program, rows):
        self.process = subprocess.Popen([program, "--with-parent", "--rows", str(rows)],
                                        stdout=subprocess.PIPE, text=True)
        if not self.process.stdout.readline().startswith("listening"):
            raise RuntimeError(f"{program} does not start")

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self.process.kill()
        self.process.wait()
        self.process.stdout.close()


class Agent(Canned):
    def epoch(self):
        """How many null calls it has answered: one for each pass of the daemon's poll task."""
        call = struct.pack(">10I", 1, 0, 2, 99999, 1, 1, 0, 0, 0, 0)
        with socket.create_connection(("127.0.0.1", AGENT_PORT)) as connection:
            connection.sendall(struct.pack(">I", 0x80000000 | len(call)) + call)
            reply = connection.recv(4096)
        return struct.unpack_from(">I", reply, 32)[0] // 100  # behind the empty description


class Supervisor(Canned):
    def requests(self):
        """How many requests it has answered, of all kinds."""
        with socket.socket(socket.AF_INET, socket.SOCK_DGRAM) as client:
            client.settimeout(10)
            client.sendto(b"c", ("127.0.0.1", SUPERVISOR_PORT))
            report = client.recv(4096)
        return sum(struct.unpack(f">{len(report) // 4}I", report))


class Daemon:
    """The daemon, started as it is shipped. Its files are removed at the end."""

    def __init__(self, program, supervisor=False):
        with dbm.gnu.open(NMP_SETTINGS, "n", 0o666) as settings:
            settings["NMP_ADDR"], settings["NMP_COMMSTR"] = "127.0.0.1", "kivrel"
            wanted = "enable" if supervisor else "disable"
            settings["NMP_ETHERSTATS"] = settings["NMP_VLANSTATS"] = wanted
        subprocess.run([program], stdin=subprocess.DEVNULL, check=True)
        wait_until(lambda: os.path.exists(CONTROL_PIPE), 10, "the control pipe")
        self.pid = int(pathlib.Path(PID_FILE).read_text(encoding="ascii"))
        self.pipe = os.open(CONTROL_PIPE, os.O_WRONLY)

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self.send(TERMINATE)
        os.close(self.pipe)
        wait_until(lambda: not os.path.exists(f"/proc/{self.pid}"), 60, "the daemon's end")
        for path in DATA_DIRECTORY.iterdir():
            path.unlink()

    def send(self, kind, first=0, second=0):
        os.write(self.pipe, struct.pack("<3I", kind, first, second))

    @staticmethod
    def file(index, kind):
        return DATA_DIRECTORY / f"host_{index}_{kind}.bin"

    def create(self, index, rows=0):
        """Create a host collection and wait for its first sample."""
        self.send(CREATE, HOST, index)
        last = self.file(index, "last")
        wait_until(lambda: size(last) == HEADER + rows * HOST_RECORD, 120, f"{last.name}")

    def poll(self, index, rows=0):
        """Make the daemon poll a collection now, and wait until its delta file is complete.

        Most of the wait is one sleep, so that the daemon has the CPU and its caches to itself; and
        polls of one collection are a second apart, because an interval of 0 is logged for each row.
        """
        delta = self.file(index, "delta")
        delta.unlink(missing_ok=True)
        self.send(VIEWING, HOST, index)
        time.sleep(1.1)
        wait_until(lambda: size(delta) == HEADER + rows * HOST_RECORD, 120, f"{delta.name}")
        with open(delta, "rb") as file:
            fcntl.flock(file, fcntl.LOCK_SH)

    def threads(self):
        """The ids of its threads; the first is the main thread, the second the poll task."""
        return sorted(int(name) for name in os.listdir(f"/proc/{self.pid}/task"))

    def cpu_of(self, thread):
        """Seconds that a thread has run."""
        return int(self._read(f"task/{thread}/schedstat").split()[0]) * 1e-9

    def cpu(self):
        return sum(self.cpu_of(thread) for thread in self.threads())

    def wake_ups(self):
        """How often its threads went to sleep or were pushed aside."""
        return sum(int(line.split()[1]) for thread in self.threads()
                   for line in self._read(f"task/{thread}/status").splitlines()
                   if "ctxt_switches" in line)

    def ticks(self):
        """User and system time, in clock ticks."""
        fields = self._read("stat").rpartition(")")[2].split()
        return int(fields[11]) + int(fields[12])

    def peak_memory(self):
        """Peak resident memory, in KiB."""
        return next(int(line.split()[1]) for line in self._read("status").splitlines()
                    if line.startswith("VmHWM"))

    def asleep(self):
        return all(" (" in (text := self._read(f"task/{thread}/stat"))
                   and text.rpartition(")")[2].split()[0] == "S" for thread in self.threads())

    def settle(self):
        """Wait until it sleeps and has slept for a while."""
        def quiet():
            before = self.wake_ups()
            time.sleep(0.05)
            return self.asleep() and self.wake_ups() == before
        wait_until(quiet, 60, "the daemon's rest")

    def _read(self, name):
        return pathlib.Path(f"/proc/{self.pid}/{name}").read_text(encoding="ascii")


def size(path):
    try:
        return path.stat().st_size
    except FileNotFoundError:
        return -1
