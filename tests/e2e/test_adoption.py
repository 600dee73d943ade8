"""The agent's control rows that this appliance owns become collections, at the start and on demand."""
from harness import control, model, processes, samples
from harness.agent import CONTROL, LOCAL, ROWS
from harness.daemon import NO_PREFERENCES, STARTED
from harness.files import DSSTATS, LAYOUTS, MATRIX, PRIO, VLAN, listing, wait_for_listing
from harness.paths import DATA

# (owner, status) of rows that every type adopts, that some types adopt, and that no type adopts.
LOCAL_ROW, AGENTS_OWN, NOT_READY = (LOCAL, 1), ("monitor", 1), (LOCAL, 3)
ENTRIES = [(10 * at, *entry) for at, entry in enumerate(
    [(LOCAL + "2", 1), LOCAL_ROW, ("x" * 255, 1), ("monitor", 2), LOCAL_ROW, AGENTS_OWN, NOT_READY], start=1)]
RULES = {VLAN: [LOCAL_ROW, AGENTS_OWN], PRIO: [LOCAL_ROW, AGENTS_OWN], DSSTATS: [LOCAL_ROW, NOT_READY]}


def adopted(layout):
    return [index for index, *entry in ENTRIES if tuple(entry) in RULES.get(layout, [LOCAL_ROW])]


def scan_calls(entries):
    """The calls of a scan, which asks for the row after each row until there are no more."""
    return [f"index={index} request=2" for index in (0, *(entry[0] for entry in entries))]


def test_adoption_at_the_start(own_daemon, agent, log):
    """Each type adopts by its own rule. No dsmatrix row is ever adopted."""
    mine = {layout: adopted(layout) for layout in LAYOUTS}
    agent.serve(control={layout.stem: ENTRIES for layout in LAYOUTS},
                dsmatrix=[(20, (1, 5, 4, b"\1" * 20, 4, b"\2" * 20, 0, 3, 4))],
                **{layout.stem: [samples.row(layout, 1, 5, index) for index in mine[layout]] for layout in LAYOUTS})
    own_daemon.start()
    log.expect(*STARTED, NO_PREFERENCES)
    wanted = sorted(layout.path(index, "last").name for layout in LAYOUTS for index in mine[layout])
    wait_for_listing(wanted)
    own_daemon.settle()
    assert listing() == wanted
    calls = agent.calls(*CONTROL.values(), ROWS["dsmatrix"])
    assert calls == [f"{CONTROL[layout.stem]} {call}" for layout in LAYOUTS for call in scan_calls(ENTRIES)]
    for layout in LAYOUTS:
        for index in mine[layout]:
            served = [samples.row(layout, 1, 5, index)]
            assert layout.read(index, "last").rows == model.returned(layout, served, index)

    # A second scan leaves known collections alone and does not poll them.
    before = {name: (DATA / name).read_bytes() for name in wanted}
    added = [*ENTRIES, (999, *LOCAL_ROW)]
    agent.serve(control={"matrix": added}, matrix=[samples.row(MATRIX, 1, 5, 999)])
    for path in MATRIX.paths(999):
        path.write_bytes(b"of a collection of that index, long gone")
    control.send(control.RESCAN)
    processes.wait_until(lambda: not MATRIX.path(999, "delta").exists())
    processes.wait_until(MATRIX.path(999, "last").exists)
    own_daemon.settle()
    assert listing() == sorted([*wanted, "matrix_999_last.bin"])
    assert {name: (DATA / name).read_bytes() for name in wanted} == before
    assert own_daemon.stop() == 0
