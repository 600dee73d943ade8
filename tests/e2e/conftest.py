"""One sandbox serves the whole run. Scenarios share a daemon where they do not disturb each
other. What must hold after each of them is in the fixtures `log` and `daemon`."""
import os

import pytest

pytest.register_assert_rewrite("harness")

from harness import processes, settings  # after the registration
from harness.agent import Agent
from harness.daemon import STARTED, Daemon, sanitizer_reports
from harness.paths import APPLIANCE_SETTINGS, DATA, PID_FILE, PIPE, PREFERENCES
from harness.supervisor import Supervisor
from harness.syslog import Syslog


def pytest_configure(config):
    if not PIPE.parent.is_dir() or os.path.exists("/dev/log"):
        raise pytest.UsageError("run it as: scripts/sandbox /usr/bin/python3 -m pytest tests/e2e")
    processes.become_reaper()


@pytest.hookimpl(hookwrapper=True)
def pytest_runtest_makereport(item, call):
    """A skip counts as a failure in CI, where nobody would notice it."""
    report = (yield).get_result()
    if report.skipped and os.environ.get("CI") == "true":
        report.outcome = "failed"
        report.longrepr = f"skipped in CI: {report.longrepr}"


@pytest.fixture(scope="session")
def syslog():
    return Syslog()


@pytest.fixture(autouse=True)
def log(syslog):
    """The log; a scenario must read all of it."""
    yield syslog
    assert syslog.take_all() == [], "not expected in the log"
    assert sanitizer_reports() == []


@pytest.fixture(scope="module")
def agent():
    """A scripted agent with empty tables."""
    agent = Agent()
    agent.start()
    yield agent
    agent.stop()


@pytest.fixture(scope="module")
def scripted_supervisor():
    supervisor = Supervisor().start()
    yield supervisor
    supervisor.stop()


@pytest.fixture
def supervisor(scripted_supervisor):
    """The scripted supervisor with an empty table; every request must be well-formed."""
    scripted_supervisor.restart()
    yield scripted_supervisor
    assert scripted_supervisor.wrong == []


@pytest.fixture
def pipe(shared_daemon):
    """A pipe that this process reads in place of the daemon."""
    shared_daemon.stop()
    os.mkfifo(PIPE)
    PIPE.chmod(0o777)
    with open(os.open(PIPE, os.O_RDONLY | os.O_NONBLOCK), "rb", buffering=0) as reader:
        yield reader
    clean()


@pytest.fixture
def target():
    """The appliance's target id; a scenario overrides it by a parameter of this name."""


@pytest.fixture
def interval():
    """The interval of a fresh daemon in seconds; a fixture of this name overrides it."""
    return 3600


class SharedDaemon:
    """A daemon that polls only when told to (its interval is an hour). It starts when a scenario
    wants it, stays for the next one, and makes way for a daemon of a scenario's own."""

    def __init__(self, log):
        self._log = log
        self._daemon = None

    def running(self, agent):
        if self._daemon is None:
            clean()
            settings.refresh(3600)
            agent.serve()
            self._daemon = Daemon(self._log).start()
            self._log.expect(*STARTED)
        return self._daemon

    def forget(self):
        self._daemon = None

    def stop(self):
        if self._daemon is not None:
            daemon, self._daemon = self._daemon, None
            try:
                assert daemon.stop() == 0
            finally:
                daemon.kill()
                clean()


def clean():
    """Remove what a daemon has left, and disable the supervisor in the settings."""
    for path in (*DATA.iterdir(), PREFERENCES, APPLIANCE_SETTINGS, PIPE, PID_FILE):
        path.unlink(missing_ok=True)
    settings.no_supervisor()


@pytest.fixture(scope="module")
def shared_daemon(syslog):
    shared = SharedDaemon(syslog)
    yield shared
    shared.stop()


@pytest.fixture
def daemon(agent, shared_daemon):
    """The shared daemon, which must still serve after the scenario and hold no more than before."""
    if agent.ended():
        agent.start()
    running = shared_daemon.running(agent)
    before = running.measure()
    yield running
    try:
        assert running.running(), "the daemon ended"
        for collection in list(running.collections):
            collection.destroy()
        running.settle()
        assert running.measure() == before, processes.descriptors(running.pid)
    except BaseException:
        running.kill()  # the next scenario gets a fresh one
        shared_daemon.forget()
        raise


@pytest.fixture
def own_daemon(syslog, shared_daemon):
    """A daemon of the scenario's own, not started yet; killed if the scenario leaves it running."""
    shared_daemon.stop()
    settings.no_supervisor()
    daemon = Daemon(syslog)
    yield daemon
    daemon.kill()
    clean()


@pytest.fixture
def fresh_daemon(own_daemon, agent, supervisor, target, interval, log):
    """A daemon of the scenario's own, started with all kinds disabled. Kinds that are left at the end
    are destroyed before it stops."""
    settings.refresh(interval)
    if target is not None:
        settings.target(target)
    own_daemon.start()
    log.take_all()
    yield own_daemon
    supervisor.behave()
    for kind in list(own_daemon.collections):
        kind.destroy()
    assert own_daemon.stop() == 0
