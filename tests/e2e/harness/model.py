"""What must be in the files, computed anew: exact rational arithmetic, rounded as the daemon rounds,
and the merge of two samples, row by row."""
import itertools
from fractions import Fraction

WRAP = 2**64
EXTENDED, DOUBLE = 64, 53  # bits of the significand


def rounded(value, bits):
    """The nearest number of that many significant bits, ties to the even one."""
    value = Fraction(value)
    if value == 0:
        return value
    exponent = abs(value.numerator).bit_length() - value.denominator.bit_length()
    if abs(value) < Fraction(2)**exponent:
        exponent -= 1
    unit = Fraction(2)**(exponent - bits + 1)
    return round(value / unit) * unit  # round() of a Fraction takes ties to even


def divisor(seconds):
    """The interval as the unsigned 32-bit number that rates are divided by."""
    return (seconds & 0xFFFFFFFF) or 1


def rate(old, new, seconds):
    """Change per second of one counter between two doubles: every step is rounded to extended
    precision, the result once more to double. A reset counter counts from 0, undivided."""
    if new >= old:
        change = rounded(Fraction(new) - Fraction(old), EXTENDED)
    elif old > 2.0**63:
        change = rounded(rounded(Fraction(new) + WRAP, EXTENDED) - Fraction(old), EXTENDED)
    else:
        return new
    return float(rounded(rounded(change / divisor(seconds), EXTENDED), DOUBLE))


def rate_of_new(new, seconds):
    return float(rounded(rounded(Fraction(new) / divisor(seconds), EXTENDED), DOUBLE))


def change_of(old, new, seconds):
    """The rates of one row, None when nothing has changed; a new row always has some."""
    if old is None:
        return tuple(rate_of_new(value, seconds) for value in new)
    changes = tuple(rate(a, b, seconds) for a, b in zip(old, new))
    return changes if any(changes) else None


def merge(layout, before, now, seconds, change=change_of):
    """(last rows, delta rows) of a poll: `before` are the rows of the previous sample, `now` those
    that were returned; both in their own order."""
    last, delta = [], []
    before = list(before)
    for key, counters in now:
        while before and layout.order(before[0][0]) < layout.order(key):
            last.append(before.pop(0))  # gone: carried on as it was, without a rate
        last.append((key, counters))
        known = before and layout.order(before[0][0]) == layout.order(key)
        found = change(before.pop(0)[1] if known else None, counters, seconds)
        if found is not None:
            delta.append((key, found))
    return last + before, delta


def record(layout, row):
    """The record of one row as the agent states it: (key parts..., counters...)."""
    parts, counters = row[:-layout.counters], row[-layout.counters:]
    return layout.pack_key(*parts), tuple(float(counter) for counter in counters)


def returned(layout, rows, index, totals=None):
    """The records that a collection is made of when the agent returns these rows, each (control
    index, row[, others]): up to the first foreign one; of protocols also the totals, unless there was
    no row at all."""
    def own(entry):
        others = entry[2] if len(entry) > 2 else {}
        return entry[0] == index and others.get("time_mark", 0) == 0
    records = [record(layout, entry[1]) for entry in itertools.takewhile(own, rows)]
    if layout.stem == "pdist" and rows and totals is not None:
        records.append(record(layout, (132, 0xFFFFFFFF, *totals)))
    return records
