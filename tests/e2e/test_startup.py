"""Start and end of the process: detaching, PID file, pipe, exit statuses and the order of texts."""
import fcntl
import os
import stat
import subprocess

import pytest

from harness import control, processes
from harness.daemon import ERROR_STATUS, STARTED, STRACE, Daemon
from harness.paths import PID_FILE, PIPE, PREFERENCES
from harness.syslog import DEBUG, WARNING

STARTING = STARTED[0]
TERMINATING = (WARNING, "Terminating tallyd.")
NO_PREFERENCES = (WARNING, f"Tallyd could not open preferences file {PREFERENCES}.")
NO_AGENT = (DEBUG, "Error 1 scanning control tables.")


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
    left_over = PIPE.stat().st_ino
    log_order = [*STARTED, NO_PREFERENCES, NO_AGENT]

    own_daemon.start()
    assert own_daemon.first_status == 0
    log.expect(*log_order)
    pid = own_daemon.pid
    assert PID_FILE.read_bytes() == b"%d\n" % pid
    assert locked_by_another(PID_FILE)
    fifo = PIPE.stat()
    assert stat.S_ISFIFO(fifo.st_mode) and stat.S_IMODE(fifo.st_mode) == 0o777
    assert fifo.st_ino != left_over or fifo.st_ctime > 0
    assert os.getsid(pid) == pid, "leads a session of its own"
    assert open(f"/proc/{pid}/status", encoding="ascii").read().split("Umask:\t")[1][:4] == "0000"
    assert os.readlink(f"/proc/{pid}/cwd") == os.getcwd()

    second = Daemon(log).start(serve=False)
    assert (second.first_status, second.exit_status()) == (0, 0)
    log.expect(STARTING, (WARNING, "tallyd already running."))
    assert PIPE.stat().st_ino == fifo.st_ino
    assert PID_FILE.read_bytes() == b"%d\n" % pid
    own_daemon.answer()

    assert own_daemon.stop() == 0
    assert not PIPE.exists()
    assert PID_FILE.exists() and not locked_by_another(PID_FILE)


def test_killed_daemon_does_not_hinder_the_next(own_daemon, log):
    own_daemon.start()
    own_daemon.kill()
    assert PIPE.exists() and PID_FILE.exists()
    log.take_all()
    own_daemon.start()
    log.expect(*STARTED, NO_PREFERENCES, NO_AGENT)
    assert own_daemon.stop() == 0


def fsize(limit):
    """A wrapper under which no file grows beyond the limit; trying it is an error, not a signal."""
    return ("sh", "-c", f'trap "" XFSZ; exec prlimit --fsize={limit} -- "$0"')


def a_link():
    target = PID_FILE.with_name("someone-elses-file")
    target.write_text("precious")
    PID_FILE.symlink_to(target)


def bound_to(device):
    PID_FILE.touch()
    subprocess.run(["mount", "--bind", device, PID_FILE], check=True)


PID_FILE_FAILURES = {
    "a directory": (lambda: PID_FILE.mkdir(), (), "Error opening tallyd PID file %s"),
    "a link": (a_link, (), "Error opening tallyd PID file %s"),
    "cannot be locked": (lambda: None, (*STRACE, "-e", "inject=flock:error=ENOLCK"),
                         "Error locking tallyd PID file %s"),
    "cannot be truncated": (lambda: bound_to("/dev/full"), (), "Error truncating tallyd PID file %s"),
    "cannot be written": (lambda: None, fsize(0), "Error writing tallyd PID file %s"),
    "is written in part": (lambda: None, fsize(1), "Error writing tallyd PID file %s"),
}


@pytest.mark.parametrize("label", PID_FILE_FAILURES)
def test_pid_file_failure_ends_the_start(label, own_daemon, log):
    prepare, wrapper, text = PID_FILE_FAILURES[label]
    prepare()
    try:
        own_daemon.start(wrapper, serve=False)
        assert (own_daemon.first_status, own_daemon.exit_status()) == (0, ERROR_STATUS)
        log.expect(STARTING, (WARNING, text % PID_FILE), TERMINATING)
        assert not PIPE.exists()
        if label == "a link":
            assert PID_FILE.with_name("someone-elses-file").read_text() == "precious"
    finally:
        subprocess.run(["umount", "-q", PID_FILE], check=False, stderr=subprocess.DEVNULL)
        if PID_FILE.is_dir():
            PID_FILE.rmdir()
        PID_FILE.unlink(missing_ok=True)


def test_failing_fork(own_daemon, log):
    own_daemon.start((*STRACE, "-e", "inject=clone,clone3,fork,vfork:error=EAGAIN"), serve=False)
    assert own_daemon.first_status == ERROR_STATUS
    assert own_daemon.pid is None
    log.expect((WARNING, "Error forking child for tallyd daemon."), TERMINATING)


def occupy_pipe():
    (PIPE / "full").mkdir(parents=True)


PIPE_FAILURES = {
    "cannot be made": (occupy_pipe, (), "Cannot create tallyd pipe."),
    "cannot be opened": (lambda: None, (*STRACE, "-P", str(PIPE), "-e", "inject=open,openat:error=EACCES"),
                         "Error opening tallyd pipe."),
}


@pytest.mark.parametrize("label", PIPE_FAILURES)
def test_pipe_failure_ends_the_start(label, own_daemon, log):
    prepare, wrapper, text = PIPE_FAILURES[label]
    prepare()
    own_daemon.start(wrapper, serve=False)
    assert (own_daemon.first_status, own_daemon.exit_status()) == (0, ERROR_STATUS)
    log.expect(*STARTED, (WARNING, text), TERMINATING)
    if label == "cannot be made":
        (PIPE / "full").rmdir()
        PIPE.rmdir()
    assert not PIPE.exists(), "removed at the end, because it had been made"


def test_end_of_the_pipe_and_failing_reads(own_daemon, log):
    """What a pipe cannot do while the daemon itself holds a writer: a read of 0 bytes."""
    text = "Input/output error"
    own_daemon.start(serve=False)
    processes.wait_until(PIPE.exists)
    own_daemon.wait_until_serving()
    log.take_all()
    trace = subprocess.Popen(["strace", "-f", "-qq", "-o", "/dev/null", "-p", str(own_daemon.pid), "-P", str(PIPE),
                              "-e", "inject=read:error=EIO:when=1", "-e", "trace=read,select,pselect6"])
    try:
        processes.wait_until(lambda: processes.status_field(own_daemon.pid, "TracerPid") != 0)
        control.send(control.IGNORED)
        log.expect((DEBUG, f"errno 5, {text}"))
        own_daemon.answer()
    finally:
        trace.terminate()
        trace.wait()
    own_daemon.answer()
    assert own_daemon.stop() == 0
