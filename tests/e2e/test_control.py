"""The control pipe: odd sizes and types, and each message with every type of collection."""
import pytest

from harness import control
from harness.control import CREATE, DESTROY, IGNORED, INTERVAL, RELOAD, VIEWING, message
from harness.daemon import STARTED, UNEXPECTED_TYPE
from harness.syslog import DEBUG, WARNING

SIZE = (DEBUG, "Unexpected message size found in pipe.")
TYPE = (DEBUG, UNEXPECTED_TYPE)
TOO_SMALL = (WARNING, "msg_set_interval() passed too small a value")
TOO_LARGE = (WARNING, "msg_set_interval() passed too large a value")


def not_there(name, kind, index):
    return (WARNING, f"Received TALLYD_{name}_COLL message for non-existent collection type {kind}, index {index}")


def illegal(name):
    return (WARNING, f"Illegal collection type in TALLYD_{name}_COLL message.")


# What is written into the pipe at once, and everything that is then logged.
BYTES = {
    "5 bytes": (b"\3\0\0\0\0", [SIZE]),
    "13 bytes": (message(8) + b"\0", [TYPE, SIZE]),
    "two messages": (message(8) + message(INTERVAL, 14), [TYPE, TOO_SMALL]),
    "type 7": (message(IGNORED, 0xFFFFFFFF, 0xFFFFFFFF), []),
    "type 8": (message(8), [TYPE]),
    "type 0xffffffff": (message(0xFFFFFFFF), [TYPE]),
    "interval 14": (message(INTERVAL, 14), [TOO_SMALL]),
    "interval 15": (message(INTERVAL, 15), []),
    "interval -1": (message(INTERVAL, -1), [TOO_SMALL]),
    "interval 3601": (message(INTERVAL, 3601), [TOO_LARGE]),
    "interval 3600": (message(INTERVAL, 3600), []),
    "reload": (message(RELOAD), STARTED[1:]),
}
for _kind, _index in (*((kind, kind * 1000) for kind in range(10)), (0, 0xFFFFFFFF)):
    for _message, _name in ((VIEWING, "VIEWING"), (DESTROY, "DESTROY")):
        BYTES[f"{_name} {_kind},{_index}"] = (message(_message, _kind, _index), [not_there(_name, _kind, _index)])
for _kind in (11, 15, 0xFFFFFFFF):
    for _message, _name in ((VIEWING, "VIEWING"), (CREATE, "CREATE"), (DESTROY, "DESTROY")):
        BYTES[f"{_name} of {_kind}"] = (message(_message, _kind, 1), [illegal(_name)])
BYTES["viewing 10"] = (message(VIEWING, 10, 1),
                       [(DEBUG, "Tallyd was notified of user viewing DSMATRIX collection.")])
BYTES["create 10"] = (message(CREATE, 10, 1),
                      [(DEBUG, "Tallyd was notified to create a DSMATRIX collection.")])
BYTES["destroy 10"] = (message(DESTROY, 10, 1), [not_there("DESTROY", 10, 1)])


def test_messages(daemon, log):
    for data, texts in BYTES.values():
        control.send_bytes(data)
        log.expect(*texts)


@pytest.mark.parametrize("kind, name", [(12, "etherstats"), (13, "supvlanstats"), (14, "Ifstats")])
def test_supervisor_kind(kind, name, daemon, log):
    """The settings disable it. Only messages that change this are logged."""
    nobody_answers = (DEBUG, "Timeout error performing SNMP request.")  # asked twice
    for send, texts in (
            (VIEWING, [(DEBUG, f"{name} is disabled. VIEW message discarded.")]), (DESTROY, []),
            (CREATE, [(DEBUG, f"{name} enabled."), nobody_answers, nobody_answers]), (CREATE, []),
            (DESTROY, [(DEBUG, f"{name} disabled.")]), (DESTROY, [])):
        control.send(send, kind, 7)
        daemon.answer()
        log.expect(*texts)
        assert log.peek() == []


def test_burst(daemon, log):
    control.send_bytes(message(IGNORED) * 10000)
    daemon.answer()
    control.send_bytes(message(0x80000000) * 10000)
    log.wait(UNEXPECTED_TYPE, DEBUG, count=10000)
