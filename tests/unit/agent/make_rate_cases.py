#!/usr/bin/python3
"""Computes rate_cases.inc with whole numbers and fractions: make_rate_cases.py > rate_cases.inc

Each operation is rounded to the 64 bits of extended precision, the result then to the 53 of a
double (ties to even). Columns: interval, previous count, new count, rate, rate of a new row.
"""
import random
from fractions import Fraction


def rounded(value, bits):
    if value == 0:
        return Fraction(0)
    shift = bits - 1 - (value.numerator.bit_length() - value.denominator.bit_length())
    scaled = value * Fraction(2) ** shift
    if scaled >= 2**bits:
        scaled, shift = scaled / 2, shift - 1
    elif scaled < 2 ** (bits - 1):
        scaled, shift = scaled * 2, shift + 1
    return Fraction(round(scaled)) / Fraction(2) ** shift  # round() takes ties to even


def extended(value):
    return rounded(Fraction(value), 64)


def rate_of_new(new, seconds):
    return rounded(extended(Fraction(new) / seconds), 53)


def rate(old, new, seconds):
    if new >= old:
        difference = extended(new - old)
    elif old > 2**63:
        difference = extended(extended(new + 2**64) - old)
    else:
        return Fraction(new)
    return rounded(extended(difference / seconds), 53)


def line(interval, old, new):
    seconds = interval or 1
    columns = [float(old), float(new), float(rate(old, new, seconds)), float(rate_of_new(new, seconds))]
    assert columns[:2] == [old, new]
    print("{%du, %s}," % (interval, ", ".join(column.hex() for column in columns)))


COUNTS = [0, 1, 101, 2**53, 2**53 + 2, 2**63, 2**63 + 2048, 2**64 - 4096, 2**64]
INTERVALS = [0, 1, 3, 10, 60, 2047, 2048, 3600, 2**31 + 1, 2**32 - 60, 2**32 - 1]

random.seed(1)
for position, old in enumerate(COUNTS):
    for new in COUNTS:
        line(INTERVALS[(position + COUNTS.index(new) * 3) % len(INTERVALS)], old, new)
line(10, 2**64 - 4096, 100)  # 419.6
line(10, 10, 4)  # a reset is not divided
# Where rounding once and rounding twice differ.
found = 0
while found < 8:
    new, interval = random.getrandbits(53), random.choice([2049, 3601, 65521, 2**32 - 60])
    if rounded(Fraction(new, interval), 53) != rate_of_new(new, interval):
        line(interval, 0, new)
        found += 1
