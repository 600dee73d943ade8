"""Ten years of hourly polls under faketime, and clock steps both ways: rates as the model says, no poll lost

The agent's up-time wraps every 497 days, a counter of 64 bits now and then. The years pass for all clocks of the
daemon; steps only for the time of day, while the seconds pass as they do. libfaketime leaves the waits of condition
variables alone, so while the years pass every poll is asked for by a message. A case is "years N", the first N polls,
or "step SECONDS".
"""
import pathlib
import time

from ._appliance import FAKETIME, Appliance, sandboxed

GOAL = 10 * 365 * 24  # polls
HOUR, DAY = 3600, 86400
STEPS = tuple(sign * seconds for seconds in (1, HOUR, DAY) for sign in (-1, 1))
OFFSET = pathlib.Path("/tmp/clock-offset")
WRAP = 2**64


def run(share, case):
    steps, polls = (STEPS[-2:], 30 * 24) if share else (STEPS, GOAL)
    if case:
        kind, number = case.split()
        steps, polls = ([int(number)], 0) if kind == "step" else ([], int(number))
    if polls:
        yield from sandboxed("years", polls=polls)
    if steps:
        yield from sandboxed("years", steps=steps)


class Watched:
    """A collection of hosts whose counters grow with every poll, each at a pace of its own."""

    def __init__(self, interval, *settings):
        from harness import control, files, model, processes
        self.control, self.layout, self.model, self.wait_until = control, files.HOST, model, processes.wait_until
        self.appliance = Appliance(interval)
        self.offset, self.number, self.rows, self.time = 0, 0, [], 0
        self.move(0)
        self.serve()
        self.appliance.agent.start()
        self.appliance.daemon.start(FAKETIME + (f"FAKETIME_TIMESTAMP_FILE={OFFSET}",) + settings)
        self.appliance.log.take_all()
        control.send(control.CREATE, self.layout.code, 1)
        self.judge(lambda: None)

    def move(self, seconds):
        self.offset += seconds
        new = OFFSET.with_suffix(".new")
        new.write_text(f"{self.offset:+d}\n", encoding="ascii")
        new.rename(OFFSET)

    def serve(self):
        self.number += 1
        up_time = self.number * HOUR * 100 % 2**32
        self.served = [(1, (bytes((2, 0, 0, 0, 0, host)),
                            *((self.number * 7**(host + column) * 10**10 + column) % WRAP for column in range(7))))
                       for host in range(1, 9)]
        self.appliance.agent.serve(up_time=up_time, host=self.served)
        self.up_time = up_time

    def judge(self, view, timeout=30):
        """What is wrong with the next sample, or None."""
        before = self.time
        view()
        try:
            self.wait_until(lambda: self.layout.sampled(1) not in (0, before), timeout, pause=0.0005)
        except AssertionError:
            return f"no sample {self.number}, {self.offset} s on; the log: {self.appliance.log.history[-9:]}"
        self.time, now = self.layout.sampled(1), self.model.returned(self.layout, self.served, 1)
        late = abs(self.time - time.time() - self.offset)
        self.rows, rates = self.model.merge(self.layout, self.rows, now, self.time - before)
        wanted = {"last": self.layout.pack((0, self.up_time, self.time, 0), self.rows)}
        if before:
            wanted["delta"] = self.layout.pack((self.time - before, 0, self.time, 0), rates)
        # The delta file is finished last. A call that is under way when the years pass would run out of its time.
        self.appliance.daemon.rest(self.appliance.agent)
        wrong = [kind for kind, data in wanted.items() if self.layout.path(1, kind).read_bytes() != data]
        return f"sample {self.number}, {late:.0f} s late, wrong: {wrong}" if wrong or late > 20 else None

    def view(self):
        self.control.send(self.control.VIEWING, self.layout.code, 1)


def scenario(polls=0, steps=()):
    if polls:
        watched = Watched(HOUR)
        for number in range(1, polls + 1):
            watched.serve()
            watched.move(HOUR)
            yield f"years {number}", 1, watched.judge(watched.view)
            watched.appliance.log.take_all()
        assert watched.appliance.daemon.stop() == 0
    if steps:
        watched = Watched(4, "DONT_FAKE_MONOTONIC=1")
        yield f"step {steps[0]}", 0, watched.judge(watched.view)
    for step in steps:
        for moved in (step, 0):
            watched.serve()
            watched.move(moved)
            yield f"step {step}", 0, watched.judge(watched.view)
        try:
            way = "ahead" if step > 0 else "back"
            watched.appliance.log.wait(f"The clock was set {abs(step)} seconds {way}; the times of the next polls move "
                                       "with it.")
        except AssertionError as fault:
            yield f"step {step}", 0, str(fault)
