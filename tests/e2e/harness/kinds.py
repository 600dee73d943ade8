"""The three supervisor kinds: the layouts of their files, what must be in them, and one of them driven
through the control pipe.

Quotients are what an x86-64 processor's extended precision gives when it is rounded to double at the
end, so the model rounds exact fractions twice, after each step to 64 bits and once more to 53.
"""
import itertools
import os
import time
from fractions import Fraction

from . import control
from .collection import set_sample_time
from .files import ETHER, PORTS, VLANS  # with the rest of what a scenario of the kinds needs
from .model import DOUBLE, EXTENDED, change_of, divisor, rate, rounded
from .syslog import DEBUG

WORD = 0xFFFFFFFF


def steps(first, *others):
    """Work left to right, each result rounded to extended precision: (operator, operand) pairs."""
    value = rounded(Fraction(first), EXTENDED)
    for operator, operand in others:
        operand = Fraction(operand)
        value = rounded({"+": value + operand, "-": value - operand, "*": value * operand}[operator]
                        if operator != "/" else value / operand, EXTENDED)
    return value


def double(value):
    return float(rounded(value, DOUBLE))


def percent(used, room):
    """Limited to 0 to 100."""
    return min(max(double(rounded(used / room, EXTENDED)), 0.0), 100.0)


def ether_record(index, port, name, before, now, speed, duplex, interval):
    """A row of the Ethernet statistics: what went down counts as nothing."""
    changes = [max(Fraction(float(new)) - Fraction(float(old)), 0) for old, new in zip(before, now)]
    rates = [double(steps(change, ("/", interval))) for change in changes]
    usage = 0.0
    if speed:
        used = steps(changes[1] * 800, ("+", steps(changes[2], ("*", 16000))))
        usage = percent(used, steps(speed, ("*", duplex), ("*", interval)))
    return ETHER.pack_key(port, index, name), (usage, *rates)


def port_sample(index, name, speed, wide=None, narrow=None):
    """A row of the interface samples from the columns of harness.supervisor.port."""
    if wide is not None:
        inputs, outputs = ((side[0], side[1], side[2] + side[3]) for side in (wide[:4], wide[4:]))
    else:
        inputs, outputs = narrow[0:3], narrow[5:8]
    traffic = itertools.chain.from_iterable(zip(inputs, outputs))
    discards_errors = narrow[3], narrow[8], narrow[4], narrow[9]
    return PORTS.pack_key(index, name), tuple(map(float, (speed, 0, *traffic, *discards_errors)))


def narrow_rate(old, new, interval):
    """Of a 32-bit counter; one that went down is raised by 2^32 - 1."""
    raised = steps(new, ("+", WORD)) if new < old else Fraction(new)
    return double(steps(raised, ("-", old), ("/", divisor(interval))))


def port_change(wide):
    """The change of one interface, in 64-bit mode or not; None when there was none."""
    def change(old, new, interval):
        old = old or (0.0,) * 12
        rates = [(rate if wide and at < 6 else narrow_rate)(old[2 + at], new[2 + at], interval) for at in range(10)]
        if not any(rates):
            return None
        seconds = divisor(interval)
        usage = [percent(steps(seconds, ("*", octets), ("*", 8), ("*", 100)), steps(new[0], ("*", seconds)))
                 if new[0] else 0.0 for octets in rates[:2]]
        return (*usage, *rates)
    return change


def vlan_change(old, new, interval):
    """The change of one VLAN; None when there was none. A new one counts from 0."""
    rates = change_of(old, new, interval)
    return rates if rates and any(rates) else None


class Kind:
    """A supervisor kind of a running daemon."""

    def __init__(self, daemon, layout):
        self.daemon, self.layout = daemon, layout
        self._name = {12: "etherstats", 13: "supvlanstats", 14: "Ifstats"}[layout.code]
        self.zero_interval = {12: "", 13: "host_calc_delta() found a 0-length interval.",
                              14: "iface_calc_delta() found a 0-length interval."}[layout.code]

    def create(self):
        """Create it, which finds its rows and takes its first sample."""
        self._send(control.CREATE)
        self.daemon.log.wait(f"{self._name} enabled.", DEBUG)
        self.daemon.collections.add(self)
        return self

    def destroy(self):
        self.daemon.collections.discard(self)
        self._send(control.DESTROY)
        self.daemon.log.wait(f"{self._name} disabled.", DEBUG)
        assert not any(path.exists() for path in self.layout.paths(0))

    def _send(self, kind):
        control.send(kind, self.layout.code)
        self.daemon.answer()

    def view(self, seconds=1, **how):
        """Have it polled that many seconds from now, by a viewing message while there is no delta file."""
        if seconds:
            time.sleep(seconds + 0.02 - time.time() % 1)
        self.path("delta").unlink(missing_ok=True)
        self._send(control.VIEWING, **how)

    def path(self, kind):
        return self.layout.path(0, kind)

    def read(self, kind):
        assert os.stat(self.path(kind)).st_mode & 0o7777 == 0o777
        return self.layout.read(0, kind)

    def set_sample_time(self, moment):
        set_sample_time(self.path("last"), moment)
