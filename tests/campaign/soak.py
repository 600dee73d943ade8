"""The daemon at work for an hour beside an agent that restarts and a supervisor that falls silent: no growth, no poll lost

50 collections of 10,000 rows and the supervisor's kinds. The agent restarts every minute, by a signal or killed in the
middle of whatever it does, and comes back with other counters; the supervisor says nothing for one minute in ten.
"""
import os
import statistics
import sys
import time

from ._appliance import Appliance, sandboxed

GOAL = 3600  # seconds
INTERVAL = 30


def run(share, case):
    seconds, rows, minute = (30, 100, 6) if share else (GOAL, 10_000, 60)
    if case:
        seconds, rows, minute = map(int, case.split(","))
    yield from sandboxed("soak", seconds=seconds, rows=rows, minute=minute)


def scenario(seconds, rows, minute):
    from harness import agent as agents, control, files, processes, samples, settings, supervisor as switch
    interval = INTERVAL * minute // 60
    appliance = Appliance(interval)
    daemon, log, agent = appliance.daemon, appliance.log, appliance.agent
    scripts = []
    for more in (0, 1000):
        agent.serve(**{layout.stem: [samples.row(layout, number, number + more, index) for index in range(1, 11)
                                     for number in range(1, rows + 1)] for layout in files.BATCHED})
        scripts.append(agents.SCRIPT.with_suffix(f".{more}"))
        os.link(agents.SCRIPT, scripts[-1])
    agents.SCRIPT.unlink()
    supervisor = switch.Supervisor().start()
    supervisor.serve(*switch.rows(1, 2))
    settings.supervisor()

    def start_agent(turn):
        agents.SCRIPT.unlink(missing_ok=True)
        os.link(scripts[turn % 2], agents.SCRIPT)
        agent.start(timeout=600)  # it reads 50 MB

    start_agent(0)
    daemon.start()
    collections = [(layout, index) for layout in files.BATCHED for index in range(1, 11)]
    kinds = [(layout, 0) for layout in (files.ETHER, files.VLANS)]
    for layout, index in collections:
        control.send(control.CREATE, layout.code, index)
    processes.wait_until(lambda: all(layout.path(index, "last").exists() for layout, index in collections), timeout=120)

    begun = time.monotonic()
    seen, measured, turn, away = {}, [], 0, 0
    case = f"{seconds},{rows},{minute}"
    while (now := time.monotonic() - begun) < seconds:
        if now >= (turn + 1) * minute:
            turn += 1
            (agent.kill if turn % 2 else agent.stop)()
            start_agent(turn)
            away = max(away, time.monotonic() - begun - now)
            supervisor.misbehave("vlan counters", always=switch.silence if turn % 10 == 5 else None)
            supervisor.misbehave("ether counters", always=switch.silence if turn % 10 == 5 else None)
        for layout, index in collections + kinds:
            control.send(control.VIEWING, layout.code, index)
            sampled = layout.sampled(index, "delta" if layout is files.ETHER else "last")
            before, at, longest, polls = seen.get((layout, index), (sampled, now, 0, 0))
            if sampled and sampled != before:
                before, at, longest, polls = sampled, now, max(longest, now - at), polls + 1
            seen[layout, index] = before, at, max(longest, now - at), polls
        measured.append((processes.status_field(daemon.pid, "VmRSS"), *daemon.measure()))
        time.sleep(interval / 15)
        log.take_all()

    quarter = len(measured) // 4
    warm_up = 64 if seconds < GOAL else 0  # KiB: in a short run some code and stack is used for the first time
    for name, values, more in zip(("KiB", "descriptors", "threads"), zip(*measured), (warm_up, 0, 0)):
        # Polls hold more for a moment, and not every look meets one: what stays is what the least shows.
        early, late = statistics.median_high(values[quarter:2 * quarter]), min(values[-quarter:])
        print(f"-- {name}: mostly {early} in the second quarter, at least {late} and at most {max(values[-quarter:])} "
              "in the last", file=sys.stderr)
        yield case, 0, f"{name} grew from {early} to {late}" if late > early + more else None
    for layout, index in collections + kinds:
        _, _, longest, polls = seen[layout, index]
        allowed = 2 * interval + (minute if index == 0 else 0) + away
        lost = longest > allowed and f"{layout.stem} {index}: no poll for {longest:.0f} s, {polls} polls"
        yield case, 0, lost or None
    polls = sum(polls for *_, polls in seen.values())
    print(f"-- {polls} polls, {turn} restarts of the agent, which was away for up to {away:.0f} s", file=sys.stderr)
    yield case, seconds, None
    assert daemon.stop() == 0
