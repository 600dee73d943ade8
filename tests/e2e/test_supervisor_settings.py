"""Who the supervisor is and which kinds there are: databases and settings files in every state; and a
supervisor that is absent, goes away and is found again elsewhere."""
import time

from harness import control, processes, settings
from harness.daemon import ERROR_STATUS, NO_AGENT, NO_PREFERENCES, STARTED
from harness.kinds import ETHER, PORTS, VLANS, Kind
from harness.paths import APPLIANCE_SETTINGS, NMP_SETTINGS
from harness.supervisor import Supervisor, rows
from harness.syslog import DEBUG, WARNING

NO_DATABASE = (WARNING, "Tallyd error reading NMP parameters, using defaults")
NO_ADDRESS = (WARNING, "Tallyd error reading NMP address, using default")
NO_COMMUNITY = (WARNING, "Tallyd error reading NMP community, using default")
TIMED_OUT = (DEBUG, "Timeout error performing SNMP request.")
DEFAULT, OTHER = "127.0.0.11", "127.0.0.12"
ROWS = rows(7)


def no_setting(kind):
    return (DEBUG, f"Tallyd error reading {kind} setting, using default")


def switches(ether, vlan, ports=False):
    return [(DEBUG, f"{kind} {'enabled' if on else 'disabled'}")
            for kind, on in (("etherstats", ether), ("supvlanstats", vlan), ("ifstats", ports))]


BOTH = switches(True, True)
ON = {"NMP_ETHERSTATS": b"enable", "NMP_VLANSTATS": b""}
HOME = {"NMP_ADDR": b"127.0.0.11", "NMP_COMMSTR": b"kivrel", **ON}
AWAY = {**HOME, "NMP_ADDR": b"127.0.0.12"}
OCTAL = b"177.0.0.014".rjust(255, b"0")  # 127.0.0.12
# Values of the database (or its bytes, None for no file); what is logged; address and community in use
# then. Read by reloads, one after the other, that begin with Ethernet and VLAN statistics on.
DATABASES = [
    (HOME, BOTH, DEFAULT, b"kivrel"),
    (AWAY, BOTH, OTHER, b"kivrel"),
    ({**AWAY, "NMP_COMMSTR": b"other one"}, BOTH, OTHER, b"other one"),
    (None, [NO_DATABASE], DEFAULT, b"kivrel"),
    (AWAY, BOTH, OTHER, b"kivrel"),
    (b"NMP_ADDR=127.0.0.12\n", [NO_DATABASE], DEFAULT, b"kivrel"),
    ({}, [NO_ADDRESS, NO_COMMUNITY, no_setting("etherstats"), no_setting("vlanstats"), *BOTH], DEFAULT, b"kivrel"),
    ({**HOME, "NMP_ADDR": b"", "NMP_COMMSTR": b""}, [NO_ADDRESS, *BOTH], DEFAULT, b""),
    ({**AWAY, "NMP_COMMSTR": b"\xff\x01%s%n"}, BOTH, OTHER, b"\xff\x01%s%n"),
    ({**AWAY, "NMP_ADDR": b"127.0.0.12\0.1", "NMP_COMMSTR": b"ab\0c"}, BOTH, OTHER, b"ab"),
    ({**HOME, "NMP_ADDR": b"localhost", "NMP_COMMSTR": b"c" * 127}, BOTH, "127.0.0.1", b"c" * 127),
    ({**HOME, "NMP_ADDR": OCTAL, "NMP_COMMSTR": b"c" * 255}, BOTH, OTHER, b"c" * 255),
    ({**HOME, "NMP_ADDR": b"0" + OCTAL, "NMP_COMMSTR": b"c" * 256}, [NO_ADDRESS, NO_COMMUNITY, *BOTH],
     DEFAULT, b"kivrel"),
    ({**HOME, "NMP_ETHERSTATS": b"disabl", "NMP_VLANSTATS": b"DISABLED by somebody", "NMP_IFSTATS": b"enable"},
     switches(True, False), DEFAULT, b"kivrel"),
    (HOME, switches(True, False), DEFAULT, b"kivrel"),  # nothing enables it again
    ({**HOME, "NMP_ETHERSTATS": b"dIsAbLe"}, switches(False, False), DEFAULT, b"kivrel"),
]


def test_databases(own_daemon, agent, supervisor, log):
    supervisors = {DEFAULT: supervisor, **{address: Supervisor(address).start() for address in (OTHER, "127.0.0.1")}}
    for each in supervisors.values():
        each.serve(*ROWS)
    own_daemon.start()
    log.expect(*STARTED, NO_PREFERENCES)
    ether = Kind(own_daemon, ETHER).create()
    vlans = Kind(own_daemon, VLANS).create()
    socket_of = lambda: [name for name in processes.descriptors(own_daemon.pid).values() if name[:7] == "socket:"]
    before, sockets = own_daemon.measure(), socket_of()
    in_use = "127.0.0.11"
    for number, (values, texts, address, community) in enumerate(DATABASES):
        NMP_SETTINGS.unlink(missing_ok=True)
        if isinstance(values, bytes):
            NMP_SETTINGS.write_bytes(values)
        elif values is not None:
            settings.write(NMP_SETTINGS, **values)
        control.send(control.RELOAD)
        own_daemon.answer()
        assert log.take_all() == texts, number
        kept, sockets = sockets == socket_of(), socket_of()
        assert kept == (address == in_use), number
        in_use = address
        for each in supervisors.values():
            each.community = community
            each.take_asked()
        if BOTH[0] in texts or NO_DATABASE in texts:
            ether.view(seconds=0)
            assert [place for place, each in supervisors.items() if each.take_asked()] == [address], number
    # Some of a damaged database may be readable; the daemon survives it.
    settings.write(NMP_SETTINGS, **HOME)
    whole = NMP_SETTINGS.read_bytes()
    known = {NO_DATABASE, NO_ADDRESS, NO_COMMUNITY, *switches(False, False), *map(no_setting, ("etherstats", "vlanstats"))}
    for damaged in (whole[:64].ljust(len(whole), b"\xff"), whole[:len(whole) // 2], whole.replace(b"NMP_", bytes(4))):
        NMP_SETTINGS.write_bytes(damaged)
        control.send(control.RELOAD)
        own_daemon.answer()
        assert set(log.take_all()) <= known
    assert own_daemon.measure() == before
    for kind, name in ((ether, "etherstats"), (vlans, "supvlanstats")):
        kind.view(seconds=0)
        log.expect((DEBUG, f"{name} is disabled. VIEW message discarded."))
    kind = ether.create()
    kind.destroy()
    assert own_daemon.stop() == 0
    for address in (OTHER, "127.0.0.1"):
        supervisors[address].stop()
        assert supervisors[address].wrong == []


# The appliance's settings file, and whether it makes the target 7.
LINE = b"QOR_TARGET_ID=7\n"
APPLIANCES = [
    (b"", False), (b"A=1\n\n" + LINE[:-1], True), (b" " + LINE, False), (b"QOR_TARGET_ID= +7 and more\n", True),
    (b"QOR_TARGET_ID=77\n", False), (b"QOR_TARGET_ID=seven\n" + LINE, True), (b"QOR_TARGET_ID=6\n" + LINE, False),
    (LINE + b"QOR_TARGET_ID=6\n", True), (b"qor_target_id=7\n", False), (b"x" * 255 + LINE, True),
    (b"x" * 254 + LINE, False), (b"\0\xff" * 500 + b"\n" + LINE, True),
]


def test_targets(own_daemon, log):
    """Target 7 has only interface statistics, all others everything else."""
    for content, is_7 in APPLIANCES:
        APPLIANCE_SETTINGS.write_bytes(content)
        own_daemon.start(serve=False)
        log.expect(STARTED[0], *([no_setting("ifstats"), *switches(False, False, True)] if is_7 else STARTED[1:]))
        own_daemon.kill()
    settings.target(7)
    settings.supervisor(NMP_IFSTATS=b"disable", NMP_ETHERSTATS=b"enable")
    own_daemon.start(serve=False)
    log.expect(STARTED[0], *switches(False, False, False))
    own_daemon.kill()


def test_unknown_host_is_the_end(own_daemon, log):
    """At the start, and when it is read again."""
    unknown = (WARNING, "NMP address no such host is unknown, terminating tallyd.")
    settings.supervisor(address=b"no such host", **ON)
    own_daemon.start(serve=False)
    assert (own_daemon.first_status, own_daemon.exit_status()) == (0, ERROR_STATUS)
    log.expect(STARTED[0], *BOTH, unknown)
    settings.no_supervisor()
    own_daemon.start()
    log.take_all()
    settings.supervisor(address=b"no such host", **ON)
    control.send(control.RELOAD)
    assert own_daemon.exit_status() == ERROR_STATUS
    log.expect(*STARTED[1:], unknown)


def test_defaults_and_no_agent(own_daemon, agent, supervisor, log):
    """Without settings all three kinds are on. Without an agent none has rows before a rescan."""
    agent.stop()
    try:
        supervisor.serve(*ROWS)
        NMP_SETTINGS.unlink()
        begun = int(time.time())
        own_daemon.start()
        log.expect(STARTED[0], NO_DATABASE, NO_PREFERENCES, NO_AGENT)
        assert supervisor.take_asked() == []
        for layout in (ETHER, VLANS, PORTS):
            kind = "delta" if layout is ETHER else "last"  # what a first poll writes, here without rows
            assert layout.read(0, kind).rows == [] and layout.read(0, kind).header.time >= begun + 2
        assert ETHER.read(0, "delta").header.interval >= 2
    finally:
        agent.start()
    control.send(control.RESCAN)
    own_daemon.answer()
    walks = [("ether walk", 0), ("name", 7), ("ether counters", 7, 7), ("ether walk", 7), ("vlan walk", 0),
             ("vlan walk", 7), ("port walk", 0), ("port walk", 7)]
    assert supervisor.take_asked() == walks, "refreshed, but not polled"
    assert own_daemon.stop() == 0


def test_absent_and_found_again(own_daemon, agent, scripted_supervisor, log):
    """Messages that arrive while the supervisor is silent are handled afterwards."""
    here, there = scripted_supervisor, Supervisor(OTHER)
    here.restart()
    here.stop()
    settings.supervisor(**ON)
    try:
        own_daemon.start(serve=False)
        log.expect(STARTED[0], *BOTH, NO_PREFERENCES, *[TIMED_OUT] * 4)
        here.start()
        own_daemon.wait_until_serving()
        for each in (here, there):
            each.serve(*ROWS)
        ether, vlans = (Kind(own_daemon, layout) for layout in (ETHER, VLANS))
        vlans.view()
        assert here.take_asked() == [("vlan walk", 0), ("vlan walk", 7), ("vlan counters", 7, 7)]
        here.stop()
        vlans.path("delta").unlink()
        control.send(control.VIEWING, VLANS.code)
        processes.wait_until(lambda: log.peek() == [TIMED_OUT])
        there.start()
        settings.supervisor(address=OTHER.encode(), **ON)
        for message in (control.RELOAD, control.DESTROY, control.CREATE, control.VIEWING):
            control.send(message, VLANS.code)
        own_daemon.answer()
        log.expect(TIMED_OUT, TIMED_OUT, *BOTH, (DEBUG, "supvlanstats disabled."), (DEBUG, "supvlanstats enabled."))
        polled = [("vlan walk", 0), ("vlan walk", 7), ("vlan counters", 7, 7)]
        assert there.take_asked() == polled * 2
        log.take_all(vlans.zero_interval)
        assert [len(vlans.read(kind).rows) for kind in ("prev", "last")] == [1, 1]
        ether.view()
        assert there.take_asked()[0] == ("ether walk", 0)
        assert own_daemon.stop() == 0
    finally:
        there.stop()
        here.start()
    assert here.wrong == there.wrong == []
