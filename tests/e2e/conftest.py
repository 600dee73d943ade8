"""One sandbox serves the whole run; the daemon is started once a module where the scenarios do
not get into each other's way. After every scenario the same things must hold: see `undisturbed`."""
import os

import pytest

pytest.register_assert_rewrite("harness")

from harness import processes, settings  # after the registration
from harness.agent import Agent
from harness.daemon import Daemon, sanitizer_reports
from harness.paths import DATA, PIPE, PREFERENCES
from harness.syslog import Syslog


def pytest_configure(config):
    if not PIPE.parent.is_dir() or os.path.exists("/dev/log"):
        raise pytest.UsageError("run it as: scripts/sandbox /usr/bin/python3 -m pytest tests/e2e")
    processes.become_reaper()


@pytest.hookimpl(hookwrapper=True)
def pytest_runtest_makereport(item, call):
    """A skip is a failure where nobody would notice it."""
    report = (yield).get_result()
    if report.skipped and os.environ.get("CI") == "true":
        report.outcome = "failed"
        report.longrepr = f"skipped in CI: {report.longrepr}"


@pytest.fixture(scope="session")
def syslog():
    return Syslog()


@pytest.fixture(autouse=True)
def log(syslog):
    """The log, which a scenario must have read to the end."""
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
def shared_daemon(syslog, agent):
    """A daemon that polls only when it is told to: the interval is an hour."""
    settings.refresh(3600)
    agent.serve()
    daemon = Daemon(syslog).start()
    syslog.expect((151, "Starting tallyd."))
    yield daemon
    assert daemon.stop() == 0
    PREFERENCES.unlink()
    for path in DATA.iterdir():
        path.unlink()


@pytest.fixture
def daemon(shared_daemon):
    """The shared daemon; after the scenario it serves and holds nothing more than before."""
    before = shared_daemon.measure()
    yield shared_daemon
    assert shared_daemon.running(), "the daemon ended"
    shared_daemon.answer()
    shared_daemon.settle()
    assert shared_daemon.measure() == before, processes.descriptors(shared_daemon.pid)


@pytest.fixture
def own_daemon(syslog):
    """A daemon of the scenario's own, not started yet; killed if the scenario leaves it running."""
    daemon = Daemon(syslog)
    daemon.remove_leavings()
    yield daemon
    daemon.kill()
    for path in DATA.iterdir():
        path.unlink()
    PREFERENCES.unlink(missing_ok=True)
    PIPE.unlink(missing_ok=True)
