"""The appliance's settings databases, written by gdbm itself through Python's own binding."""
import dbm.gnu

from .paths import PREFERENCES


def write(path, **values):
    """Make a fresh database of these keys; the values are bytes."""
    path.unlink(missing_ok=True)
    with dbm.gnu.open(str(path), "n", 0o666) as database:
        for key, value in values.items():
            database[key.encode()] = value


def refresh(seconds):
    write(PREFERENCES, refresh=str(seconds).encode())
