"""The appliance's settings databases, written by gdbm itself through Python's own binding."""
import dbm.gnu

from .paths import APPLIANCE_SETTINGS, NMP_SETTINGS, PREFERENCES


def write(path, **values):
    """Make a fresh database of these keys; the values are bytes."""
    path.unlink(missing_ok=True)
    with dbm.gnu.open(str(path), "n", 0o666) as database:
        for key, value in values.items():
            database[key.encode()] = value


def supervisor(address=b"127.0.0.11", community=b"kivrel", **kinds):
    """The supervisor's address and community, and a value for each kind ("NMP_VLANSTATS" and so on)."""
    write(NMP_SETTINGS, NMP_ADDR=address, NMP_COMMSTR=community, **kinds)


def no_supervisor():
    """Disable the supervisor kinds: nobody would answer."""
    supervisor(NMP_ETHERSTATS=b"disable", NMP_VLANSTATS=b"disable")


def target(number):
    """The id of the switch that this appliance is made for."""
    APPLIANCE_SETTINGS.write_text(f"QOR_TARGET_ID={number}\n")


def refresh(seconds):
    write(PREFERENCES, refresh=str(seconds).encode())
