"""Start and end of the process: detaching, PID file, pipe, exit statuses and the order of texts."""
import dbm.gnu
import fcntl
import os
import shutil
import stat

import pytest

from harness import settings
from harness.collection import Collection, next_second
from harness.daemon import ERROR_STATUS, NO_AGENT, NO_PREFERENCES, STARTED, STRACE, Daemon
from harness.files import HOST
from harness.paths import PID_FILE, PIPE, PREFERENCES
from harness.syslog import WARNING

NO_INTERVAL = (WARNING, f"Tallyd could not retrieve interval from {PREFERENCES}.")
TERMINATING = (WARNING, "Terminating tallyd.")


def locked_by_another(path):
    with open(path, "rb") as file:
        try:
            fcntl.flock(file, fcntl.LOCK_SH | fcntl.LOCK_NB)
            return False
        except BlockingIOError:
            return True


def test_start_and_end(own_daemon, log):
    PID_FILE.write_bytes(b"9999999999 left by a longer line\n")
    PID_FILE.chmod(0o777)
    os.mkfifo(PIPE, 0o600)
    own_daemon.start()
    assert own_daemon.first_status == 0
    log.expect(*STARTED, NO_PREFERENCES, NO_AGENT)
    pid = own_daemon.pid
    assert PID_FILE.read_bytes() == b"%d\n" % pid
    assert locked_by_another(PID_FILE)
    fifo = PIPE.stat()
    assert stat.S_ISFIFO(fifo.st_mode) and stat.S_IMODE(fifo.st_mode) == 0o777
    assert os.getsid(pid) == pid, "leads a session of its own"
    assert open(f"/proc/{pid}/status", encoding="ascii").read().split("Umask:\t")[1][:4] == "0000"
    assert os.readlink(f"/proc/{pid}/cwd") == os.getcwd()

    second = Daemon(log).start(serve=False)
    assert (second.first_status, second.exit_status()) == (0, 0)
    log.expect(STARTED[0], (WARNING, "tallyd already running."))
    assert PIPE.stat().st_ino == fifo.st_ino
    assert PID_FILE.read_bytes() == b"%d\n" % pid
    own_daemon.answer()

    assert own_daemon.stop() == 0
    assert not PIPE.exists()
    assert PID_FILE.exists() and not locked_by_another(PID_FILE)


def a_link():
    target = PID_FILE.with_name("someone-elses-file")
    target.write_text("precious")
    PID_FILE.symlink_to(target)


# Label: (preparation, what is logged before the text, the text).
FAILURES = {
    "PID file a directory": (PID_FILE.mkdir, STARTED[:1], f"Error opening tallyd PID file {PID_FILE}"),
    "PID file a link": (a_link, STARTED[:1], f"Error opening tallyd PID file {PID_FILE}"),
    "pipe not made": (lambda: (PIPE / "full").mkdir(parents=True), STARTED, "Cannot create tallyd pipe."),
}


@pytest.mark.parametrize("label", FAILURES)
def test_failure_ends_the_start(label, own_daemon, log):
    prepare, before, text = FAILURES[label]
    prepare()
    try:
        own_daemon.start(serve=False)
        assert (own_daemon.first_status, own_daemon.exit_status()) == (0, ERROR_STATUS)
        log.expect(*before, (WARNING, text), TERMINATING)
        if label == "PID file a link":
            assert PID_FILE.with_name("someone-elses-file").read_text() == "precious"
    finally:
        for path in (PIPE, PID_FILE):
            shutil.rmtree(path) if path.is_dir() else path.unlink(missing_ok=True)


# How the preferences are spoilt, and what the log says about it.
PREFERENCES_SEEN = {
    "no database": (lambda: PREFERENCES.write_bytes(b"refresh=1\n"), {NO_PREFERENCES}),
    "held by a writer": (lambda: dbm.gnu.open(str(PREFERENCES), "n"), {NO_PREFERENCES}),
    "without the key": (lambda: settings.write(PREFERENCES, refreshed=b"1"), {NO_INTERVAL}),
    "damaged": (lambda: PREFERENCES.write_bytes(PREFERENCES.read_bytes()[:64].ljust(PREFERENCES.stat().st_size, b"\xff")),
                {NO_PREFERENCES, NO_INTERVAL}),
    "0": (lambda: settings.refresh(0), set()),
}


def test_preferences(own_daemon, agent, log):
    """The daemon starts whatever the preferences hold. An interval of 0 does not mean a poll every second."""
    for label, (prepare, texts) in PREFERENCES_SEEN.items():
        settings.refresh(1)
        held = prepare()
        own_daemon.start()
        log.expect(*STARTED)
        seen = log.take_all()
        assert set(seen) <= texts and (seen or len(texts) != 1), label
        del held
        if label != "0":
            assert own_daemon.stop() == 0
    agent.serve(host=[(1, (b"\2\0\0\0\0\1", *range(7)))])
    collection = Collection(own_daemon, HOST)
    collection.create()
    collection.poll()
    first = HOST.read(1, "last").header.time
    next_second()
    next_second()
    own_daemon.rest(agent)
    assert HOST.read(1, "last").header.time == first
    assert own_daemon.stop() == 0


def test_failing_fork(own_daemon, log):
    own_daemon.start((*STRACE, "-e", "inject=clone,clone3,fork,vfork:error=EAGAIN"), serve=False)
    assert (own_daemon.first_status, own_daemon.pid) == (ERROR_STATUS, None)
    log.expect((WARNING, "Error forking child for tallyd daemon."), TERMINATING)
