"""The appliance's fixed places, as its other programs know them, and the programs under test."""
import os
import pathlib

DATA = pathlib.Path("/usr/local/apache/htdocs/tmp")
PIPE = pathlib.Path("/usr/local/qor/bin/tallyd_pipe")
PID_FILE = pathlib.Path("/tmp/tallyd.pid")
PREFERENCES = pathlib.Path("/nvram/config/web/pref.dba")
NMP_SETTINGS = pathlib.Path("/nvram/config/web/nmp.dba")
APPLIANCE_SETTINGS = pathlib.Path("/usr/local/qor/etc/qor_settings")
LOG_SOCKET = pathlib.Path("/dev/log")
AGENT = ("127.0.0.1", 9911)

REPOSITORY = pathlib.Path(__file__).resolve().parents[3]


def program(variable, path):
    """A program under test: named by an environment variable, else out of the release build."""
    return os.environ.get(variable) or str(REPOSITORY / "build" / "release" / path)


TALLYCTL = program("TALLYCTL_BIN", "tools/tallyctl")
