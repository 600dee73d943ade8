"""What the kinds faults and kills share: scenes of the shipped daemon under strace, the judgement of the files that
they leave, and workers, each in a sandbox of its own, side by side because they mostly wait."""
import collections
import contextlib
import fcntl
import functools
import importlib
import json
import os
import pathlib
import platform
import signal
import socket
import struct
import subprocess
import termios
import time

from harness import control, kinds, model, processes, samples, settings
from harness.agent import LOCAL, Agent
from harness.collection import next_second
from harness.daemon import BINARY, ERROR_STATUS, STRACE, Daemon, environment
from harness.files import BATCHED, ETHER, HOST, LAYOUTS, PDIST, PORTS, PRIO, TYPES, VLAN, VLANS
from harness.paths import (APPLIANCE_SETTINGS, DATA, LOG_SOCKET, NMP_SETTINGS, PID_FILE, PIPE, PREFERENCES,
                           REPOSITORY)
from harness.supervisor import Supervisor, ether_row, port, vlan_row
from harness.syslog import Syslog

# System calls: pselect6; futex, also when it is resumed.
SELECT, *FUTEX = {"x86_64": ("270", "202", "219"), "aarch64": ("72", "98", "128")}.get(platform.machine(), ("",))
INTERVAL = 10  # seconds that the samples are made to lie apart, although polls follow one another at once
BLOCK = 8192  # bytes that are read and written at once
change_of = functools.lru_cache(None)(model.change_of)  # the same few numbers at every point
port_change = functools.lru_cache(None)(kinds.port_change(True))

# What happens to the daemon: which call, in which way it fails, "once" or "ever"; on_files if only the
# calls on the paths of the scene are meant.
Fault = collections.namedtuple("Fault", "call error how on_files")


class World:
    """All that surrounds the daemon in a sandbox, and the daemon itself, which lives as long as it behaves."""

    def __init__(self):
        processes.become_reaper()
        self.log, self.agent, self.supervisor = Syslog(), Agent().start(), Supervisor().start()
        self.daemon, self.texts, self.fault = Daemon(self.log), set(), None
        self.marker = socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM)
        self.marker.connect(str(LOG_SOCKET))

    def take_texts(self):
        """What the log has said since the last look."""
        self.marker.send(b"<150>Jan  1 00:00:00 mark: mark")  # comes behind all that the daemon has sent
        self.log.wait("mark")
        texts = [text for _, text in self.log.take_all()]
        self.texts.update(texts)
        return texts

    def running(self):
        """A daemon that serves and polls nothing by itself."""
        if not self.daemon.running():
            self.clean()
            self.restart()
        return self.daemon

    def restart(self):
        settings.no_supervisor()
        self.agent.serve()
        self.daemon.start()
        self.wait()
        self.take_texts()

    def clean(self):
        with contextlib.suppress(AssertionError, OSError):  # a build for coverage writes it at its end
            if self.daemon.running():
                self.daemon.stop()
        self.daemon.kill()
        for pid in processes.children(pathlib.Path(BINARY).name):  # one that never came under our hands
            os.kill(pid, signal.SIGKILL)
        for path in (*DATA.iterdir(), PREFERENCES, APPLIANCE_SETTINGS):
            path.unlink(missing_ok=True)
        settings.refresh(3600)

    @staticmethod
    def send(*message):
        """Send a message, to nobody if the daemon has been killed."""
        with contextlib.suppress(OSError):
            control.send(*message)

    def wait(self, main_only=False):
        """Wait until the main thread waits for messages, of which there are none, and the others for work.
        False if the daemon has ended."""
        pid = self.daemon.pid

        def settled():
            before = processes.switches(pid)
            calls = {task.name: (task / "syscall").read_text().split()[0]
                     for task in pathlib.Path(f"/proc/{pid}/task").iterdir()}
            main = calls.pop(str(pid))
            with open(os.open(PIPE, os.O_RDONLY | os.O_NONBLOCK), "rb") as pipe:
                left = fcntl.ioctl(pipe, termios.FIONREAD, bytes(4))
            return (main == SELECT and not any(left) and (main_only or set(calls.values()) <= set(FUTEX))
                    and processes.asleep(pid) and processes.switches(pid) == before)

        def settled_or_ended():
            try:
                return not self.daemon.running() or settled()
            except OSError:  # there is no pipe yet, or a thread has ended meanwhile
                return False
        processes.wait_until(settled_or_ended, 300)
        return self.daemon.running()

    @contextlib.contextmanager
    def traced(self, call, what, paths=()):
        """This happens to the daemon's calls, to those on these paths if there are any. Gives the file that
        tells about it."""
        output = pathlib.Path("/tmp/trace")
        trace = subprocess.Popen([*STRACE[:-1], output, "-p", str(self.daemon.pid), "-e", f"trace={call}", "-e",
                                  f"inject={call}:{what}", *[word for path in paths for word in ("-P", path)]],
                                 stderr=subprocess.DEVNULL)
        try:
            tasks = [f"{self.daemon.pid}/task/{task}" for task in os.listdir(f"/proc/{self.daemon.pid}/task")]
            processes.wait_until(lambda: all(processes.status_field(task, "TracerPid") for task in tasks), pause=0.002)
            yield output
        finally:
            trace.kill()  # it would wait for a daemon that has been killed
            trace.wait()


def content(path):
    with contextlib.suppress(FileNotFoundError):
        return path.read_bytes()
    return None


def whole(data):
    """Whether a file is one that its readers believe."""
    return data is not None and len(data) >= 16 and any(data[8:12])


class Judged:
    """The files of one collection, and what the model makes of them."""

    def __init__(self, world, layout, index, change=change_of):
        self.world, self.layout, self.index, self.change = world, layout, index, change
        self.base = self.old_prev = self.old_last = None

    def files(self):
        return [content(path) for path in self.layout.paths(self.index)]

    def look(self, new=False):
        """Before a poll: nobody has seen its delta file, and the sample before it is older."""
        self.layout.path(self.index, "delta").unlink(missing_ok=True)
        self.begun = int(time.time())
        prev, last, _ = self.files()
        if whole(last):
            last = last[:8] + struct.pack("<i", self.begun - INTERVAL) + last[12:]
            with open(self.layout.path(self.index, "last"), "r+b") as file:
                file.write(last)
        self.old_last, self.old_prev = last, None if new else prev
        self.base = None if new else last if whole(last) else prev  # the last whole sample

    def polled(self):
        last = self.files()[1]
        return whole(last) and last != self.old_last

    def candidates(self, rows, texts):
        """(rows of the sample before, rows now) that a poll may have gone by: they follow from what it logged."""
        known = self.layout.unpack(self.base).rows if self.base else []
        yield known, rows
        if self.layout is PDIST and self.world.fault and not self.world.fault.on_files:
            yield known, rows[:-1]  # totals that do not come are left out, and nothing is said
        if any("RPC failed" in text for text in texts):
            for count in range(0, len(rows) + 1, 100 if self.layout in BATCHED else 1):
                yield known, rows[:count]
                yield known, rows[:count] + rows[-1:]  # the totals of pdist
        if any("to fill file cache" in text for text in texts):
            for count in range(0, len(known) + 1, BLOCK // self.layout.size):
                yield known[:count], rows

    def judge(self, rows, texts=(), up_times=(1000,), killed=False):
        """True if this poll has made a sample of these rows, False if it has left the one before."""
        prev, last, delta = self.files()
        call = self.world.fault.call if self.world.fault else ""
        name = self.layout.stem
        kind = self.layout in (VLANS, PORTS)
        if not whole(last) or last == self.base:
            assert not whole(delta), f"{name}: rates without a sample"
            if killed:
                assert self.base in (None, prev, last), f"{name}: a sample is lost"
                return False
            silent = self.base is None or kind and call == "openat"  # a sample that cannot be created says nothing
            assert texts or silent, f"{name}: a poll failed silently"
            assert last == self.base or call == "unlink" and not self.base, f"{name}: the old sample is not put back"
            assert prev in (None, self.old_prev), f"{name}: a stale prev file"
            return False
        header = self.layout.unpack(last).header
        assert self.begun - 1 <= header.time <= time.time() and header.up_time in up_times, f"{name}: {header}"
        interval = header.time - self.layout.unpack(self.base).header.time if self.base else 0
        for known, now in self.candidates(rows, texts):
            sample, rates = model.merge(self.layout, known, now, interval, self.change)
            sample = now if kind else sample
            wanted = self.layout.pack((interval, 0, header.time, self.layout.code), rates)
            if last == self.layout.pack(header, sample) and (not whole(delta) or delta == wanted):
                break
        else:
            assert self.layout.unpack(last).rows == sample, f"{name}: a sample that the model does not know"
            assert self.layout.unpack(delta).rows == rates, f"{name}: rates that the model does not know"
            assert delta == wanted, f"{name}: {self.layout.unpack(delta).header}"
        assert self.base or not whole(delta), f"{name}: rates of a first sample"
        assert whole(delta) or not self.base or killed or kind and texts, f"{name}: no rates of a new sample"
        assert prev == self.base, f"{name}: the prev file is not the sample before"
        return True


class AgentScene:
    """A collection of one type and a small one of another beside it, which nothing may disturb."""

    def __init__(self, world, layout):
        self.world = world
        self.collections = Judged(world, layout, 1), Judged(world, VLAN if layout is PRIO else PRIO, 2)
        self.paths = layout.paths(1)
        # More than a block of the cache where that matters, or two calls.
        fault, batched = world.fault, layout in BATCHED
        many = fault.on_files and (batched or fault.call == "write")
        self.counts = BLOCK // layout.size + 20 if many else 102 if batched else 4, 1

    def serve(self, version):
        """First and second the same rows; then others before them, then others behind them."""
        first = {3: 1, 4: 40001}.get(version, 20001)
        served = [samples.rows(each.layout, {first + at: 1000 * version + at % 3 for at in range(count)}, each.index)
                  for each, count in zip(self.collections, self.counts)]
        totals = {1: (version * 7, version)}
        stems = [each.layout.stem for each in self.collections]
        self.world.agent.serve(totals=totals, **dict(zip(stems, served)))
        self.rows = [model.returned(each.layout, rows, each.index, totals.get(each.index))
                     for each, rows in zip(self.collections, served)]

    def poll(self, version):
        self.serve(version)
        for each in self.collections:
            each.look(new=version == 1)
            self.world.send(control.CREATE if version == 1 else control.VIEWING, each.layout.code, each.index)

    def judge(self, texts=(), **how):
        """Of each collection, whether it has a new sample."""
        return [each.judge(rows, texts, **how) for each, rows in zip(self.collections, self.rows)]

    def under_fault(self, unheard):
        """Four polls. False if the daemon has ended. A fault that comes once costs one poll at most, and one of
        files concerns nobody else."""
        done, fault = [], self.world.fault
        for version in range(1, 5):
            self.poll(version)
            if not self.world.wait():
                return False
            up_times = (1000,) if fault.on_files else (1000, 0)
            done.append(self.judge(self.world.take_texts() + unheard, up_times=up_times))
        mine, others = zip(*done)
        enough = all(others) and (fault.how == "ever" or sum(mine) >= 3)
        assert enough or not fault.on_files, f"polls are missing: {done}"
        return True

    def healthy(self, version):
        """A poll after the fault, exactly as the model has it."""
        self.poll(version)
        processes.wait_until(lambda: all(each.polled() for each in self.collections), 60)
        self.world.daemon.settle()
        self.world.take_texts()
        assert all(self.judge())

    def recover(self, restarted=False):
        """A daemon that was restarted begins anew, the other one goes on."""
        if restarted:
            self.healthy(1)
        self.healthy(6)
        for each in self.collections:
            control.send(control.DESTROY, each.layout.code, each.index)
        self.world.daemon.settle()


class KindsScene:
    """The three supervisor kinds, polled once in each of some seconds."""

    CODES = ETHER.code, VLANS.code, PORTS.code

    def __init__(self, world, long=False):
        self.world = world
        self.kinds = Judged(world, VLANS, 0), Judged(world, PORTS, 0, port_change)
        self.paths = [*VLANS.paths(0), *PORTS.paths(0), ETHER.path(0, "delta")]
        self.counts = {layout: 2 + long * BLOCK // layout.size for layout in (ETHER, VLANS, PORTS)}

    def serve(self, version):
        """All rows are others the third time."""
        first = 1001 if version == 3 else 1
        self.numbers = {layout: range(first, first + count) for layout, count in self.counts.items()}
        count = lambda number, much: [1000 * version + number % 3] * much
        self.world.supervisor.serve(
            *[ether_row(number, number, count(number, 17)) for number in self.numbers[ETHER]],
            *[vlan_row(number, number, count(number, 4)) for number in self.numbers[VLANS]],
            *[port(number, wide=count(number, 8), narrow=count(number, 10)) for number in self.numbers[PORTS]])
        self.rows = {
            VLANS: [(number.to_bytes(4, "little"), tuple(map(float, count(number, 4))))
                    for number in self.numbers[VLANS]],
            PORTS: [kinds.port_sample(number, b"port%d" % number, 10**9, count(number, 8), count(number, 10))
                    for number in self.numbers[PORTS]]}

    def poll(self, version, create=False):
        next_second()
        self.serve(version)
        ETHER.path(0, "delta").unlink(missing_ok=True)
        for each in self.kinds:
            each.look()
        for code in self.CODES:
            self.world.send(control.CREATE if create else control.VIEWING, code)

    def judge(self, texts=(), killed=False):
        """Rows that were not answered for are missing, and the log says so."""
        done, unanswered = [], any("performing" in text and "SNMP" in text for text in texts)
        for each in self.kinds:
            last = each.files()[1]
            found = {key for key, _ in each.layout.unpack(last).rows} if unanswered and whole(last) else None
            rows = [row for row in self.rows[each.layout] if found is None or row[0] in found]
            done.append(each.judge(rows, texts, (0,), killed))
        ether = content(ETHER.path(0, "delta"))
        return [*done, whole(ether) and len(ETHER.unpack(ether).rows) == self.counts[ETHER]]

    def under_fault(self, unheard):
        done = []
        for version in range(1, 4):
            self.poll(version, create=version == 1)
            if not self.world.wait():
                return False
            done.append(self.judge(self.world.take_texts() + unheard))
        done[0][2] = True  # its first poll has nothing before it
        fault = self.world.fault
        assert fault.how == "ever" or not fault.on_files or sum(map(sum, done)) >= 8, f"polls are missing: {done}"
        return True

    def healthy(self, version, create=False):
        self.poll(version, create)
        self.world.daemon.answer()
        self.world.take_texts()
        assert all(self.judge()[:2])

    def recover(self, restarted=False):
        """The kinds go on from the samples that they find."""
        self.healthy(6, create=restarted)
        self.healthy(7)
        sample = ETHER.read(0, "delta")
        wanted = [kinds.ether_record(number, number, b"port%d" % number, [6000] * 17, [7000] * 17, 10**9, 2,
                                     sample.header.interval) for number in self.numbers[ETHER]]
        assert sorted(sample.rows) == sorted(wanted), "the rates of the Ethernet statistics"
        for code in self.CODES:
            control.send(control.DESTROY, code)
        self.world.daemon.answer()


class StartScene:
    """A start with all that it finds, a reload, a rescan, polls and a terminate message."""

    def __init__(self, world):
        self.world, self.kinds = world, KindsScene(world)
        self.paths = [PID_FILE, NMP_SETTINGS, PREFERENCES, APPLIANCE_SETTINGS, PIPE, *HOST.paths(1), *self.kinds.paths]

    def prepare(self):
        """The daemon stands still behind its fork, before the first call of its own."""
        self.world.clean()
        APPLIANCE_SETTINGS.write_text("QOR_TARGET_ID=1\n")
        settings.supervisor(NMP_ETHERSTATS=b"enable", NMP_VLANSTATS=b"enable", NMP_IFSTATS=b"enable")
        self.kinds.serve(1)
        self.world.agent.serve(control={"host": [(1, LOCAL, 1)]}, host=samples.HOSTS)
        name = pathlib.Path(BINARY).name
        halted = lambda: [pid for pid in processes.children(name) if processes.state(pid) in "tT"]
        halt = subprocess.Popen([*STRACE, "-e", "trace=setsid", "-e", "inject=setsid:signal=STOP", BINARY],
                                env=environment(True), stdin=subprocess.DEVNULL)
        try:
            self.world.daemon.pid = processes.wait_until(halted, 60)[0]
        finally:
            halt.kill()
            halt.wait()

    def play(self):
        """What the daemon does once it may. Its exit status."""
        os.kill(self.world.daemon.pid, signal.SIGCONT)
        if self.world.wait(main_only=True):
            for message in ((control.RELOAD,), (control.RESCAN,), (control.VIEWING, HOST.code, 1),
                            (control.VIEWING, VLANS.code)):
                self.world.send(*message)
            if self.world.wait(main_only=True):
                control.send(control.TERMINATE)
        return self.world.daemon.exit_status()

    def judge(self, status, texts):
        """It ended as it was told to, or for a reason that it told. What it held is free, and what it wrote is true."""
        told = set(texts) - {"Starting tallyd.", "Terminating tallyd."}
        assert status == 0 or status == ERROR_STATUS and told, f"exit status {status}"
        with open(PID_FILE, "ab") as file:
            fcntl.flock(file, fcntl.LOCK_EX | fcntl.LOCK_NB)
        for path in DATA.iterdir():
            layout = TYPES[path.name.split("_")[0]]
            rows = layout.unpack(path.read_bytes()).rows if whole(path.read_bytes()) else []
            true = self.kinds.rows.get(layout, samples.records(samples.HOSTS))
            assert "delta" in path.name or rows == [row for row in true if row in rows], path.name


SCENES = {layout.stem: functools.partial(AgentScene, layout=layout) for layout in LAYOUTS} | {
    "kinds": KindsScene, "tables": functools.partial(KindsScene, long=True)}


def work(name, jobs):
    """What a worker does with its jobs, each a group of cases and perhaps the number of one: print results."""
    module, world = importlib.import_module(f"campaign.{name}"), World()
    tell = lambda *result: os.write(1, json.dumps(result).encode() + b"\n")  # at once: lines of workers do not mix
    for group, only in jobs:
        failed = 0
        for number in [only] if only else range(1, 10000):
            fault = None
            try:
                met = module.point(world, *group, number)
            except (AssertionError, OSError) as error:
                met, fault = True, f"{' '.join(group)} {number}: {str(error)[:800]}; log: {world.log.history[-8:]}"
            failed += bool(fault)
            if fault or not world.daemon.running():
                world.clean()
            world.take_texts()
            if met:
                tell(" ".join([*group, str(number)]), fault and fault[:3000])
            if not met or failed == 5:
                break
    for text in world.texts:
        tell(None, text)
    world.clean()


def results(name, jobs, workers, texts):
    """Have the jobs done and yield (case, 1, fault) as they come; adds to the texts of the log that were seen."""
    reading, writing = os.pipe()
    started = [subprocess.Popen(
        [REPOSITORY / "scripts" / "sandbox", "/usr/bin/python3", "-c",
         f"import json, sys; from campaign import _scenes; _scenes.work('{name}', json.loads(sys.argv[1]))",
         json.dumps(jobs[at::workers])], stdout=writing, stdin=subprocess.DEVNULL,
        env=dict(os.environ, PYTHONPATH=f"{REPOSITORY}/tests:{REPOSITORY}/tests/e2e", PYTHONDONTWRITEBYTECODE="1"))
        for at in range(min(workers, len(jobs)))]
    os.close(writing)
    with open(reading, encoding="ascii") as lines:
        for case, text in map(json.loads, lines):
            if case:
                yield case, 1, text
            else:
                texts.add(text)
    if any([worker.wait() for worker in started]):
        yield "all", 0, "a worker has died"
