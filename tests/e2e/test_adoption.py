"""The agent's control rows that this appliance owns become collections, at the start and on demand."""
import pytest

from harness import control, model, processes
from harness.agent import CONTROL, LOCAL
from harness.collection import Collection
from harness.files import HOST, MATRIX, PDIST, listing, wait_for_listing

KINDS = (HOST, MATRIX, PDIST)
# (owner, status): adopted or not.
ADOPTED = [(LOCAL, 1)]
REFUSED = [(LOCAL + "2", 1), (LOCAL[:-1], 1), (LOCAL.lower(), 1), ("", 1), ("x" * 255, 1), (" " + LOCAL, 1),
           (LOCAL, 2), (LOCAL, 3), (LOCAL, 4), (LOCAL, 0), (LOCAL, -1)]
ENTRIES = [(10 * at, *entry) for at, entry in enumerate(
    [REFUSED[0], *ADOPTED, *REFUSED[1:], *ADOPTED, ("monitor", 1), *ADOPTED], start=1)]
MINE = [index for index, *entry in ENTRIES if tuple(entry) in ADOPTED]


def scan_calls(entries):
    """A scan asks for the row after each row, to the end."""
    return [f"index={index} request=2" for index in (0, *(entry[0] for entry in entries))]


def test_adoption_at_the_start(own_daemon, agent, log):
    row = {HOST: (b"\2\0\0\0\0\1", *range(7)), MATRIX: (b"\2\0\0\0\0\1", b"\2\0\0\0\0\2", 1, 2, 3),
           PDIST: (132, 1, 5, 6)}
    agent.serve(control={layout.stem: ENTRIES for layout in KINDS},
                **{layout.stem: [(index, row[layout]) for index in MINE] for layout in KINDS})
    own_daemon.start()
    log.expect((151, "Starting tallyd."),
               (148, "Tallyd could not open preferences file /nvram/config/web/pref.dba."))
    wanted = sorted(layout.path(index, "last").name for layout in KINDS for index in MINE)
    wait_for_listing(wanted)
    own_daemon.settle()
    assert listing() == wanted
    calls = agent.calls(*CONTROL.values())
    assert calls == [f"{CONTROL[layout.stem]} {call}" for layout in KINDS for call in scan_calls(ENTRIES)]

    # Once more: what is known already stays as it is, and is not polled for it.
    samples = {layout: layout.path(MINE[0], "last").read_bytes() for layout in KINDS}
    added = [*ENTRIES, (999, LOCAL, 1)]
    agent.serve(control={"matrix": added}, matrix=[(999, row[MATRIX])])
    control.send(control.RESCAN)
    processes.wait_until(MATRIX.path(999, "last").exists)
    own_daemon.settle()
    assert listing() == sorted([*wanted, "matrix_999_last.bin"])
    assert {layout: layout.path(MINE[0], "last").read_bytes() for layout in KINDS} == samples
    assert agent.calls(*CONTROL.values()) == (
        ["9 index=0 request=2", *(f"16 {call}" for call in scan_calls(added)), "24 index=0 request=2"])
    for layout in KINDS:
        for index in MINE:
            Collection(own_daemon, layout, index).destroy()
    assert own_daemon.stop() == 0


@pytest.mark.parametrize("fault", [
    {"action": "system_err"}, {"action": "status", "value": 1}, {"action": "status", "value": -1 & 0xFFFFFFFF},
    {"action": "truncate", "bytes": 40}, {"action": "raw", "hex": "00 00 00 00"},
    # status, four words, then an owner that is longer than an owner can be
    {"action": "raw", "hex": "00000000 00000003 00000000 00000000 00000000 7fffffff 41414141"}],
    ids=lambda fault: " ".join(str(value) for value in fault.values()))
def test_scan_that_fails_midway(fault, daemon, agent):
    """What came before is adopted, the other kinds are scanned; nothing is said."""
    entries = [(1, LOCAL, 1), (2, LOCAL, 1), (3, LOCAL, 1)]
    agent.serve(control={layout.stem: entries for layout in KINDS},
                faults=[{"procedure": CONTROL["host"], "call": 3, **fault}])
    control.send(control.RESCAN)
    daemon.answer()
    wanted = sorted(["host_1_last.bin", "host_2_last.bin",
                     *(f"{stem}_{index}_last.bin" for stem in ("matrix", "pdist") for index in (1, 2, 3))])
    wait_for_listing(wanted)
    assert len(agent.calls(CONTROL["host"])) == 3
    for name in wanted:
        stem, index, _ = name.split("_")
        Collection(daemon, {layout.stem: layout for layout in KINDS}[stem], int(index)).destroy()


def test_scan_without_agent(daemon, agent, log):
    agent.stop()
    control.send(control.RESCAN)
    log.expect((151, "Error 1 scanning control tables."))
    agent.serve()
    agent.start()
    collection = Collection(daemon, HOST)
    collection.create()  # takes the task's connection back up before descriptors are counted
    log.take_all("RPC connection died, reopening!")
    collection.first_sample(model.returned(HOST, [], 1))
