#!/usr/bin/python3
"""Computes the rate cases of agent_types_test.cpp, when it is built: make_rate_cases.py END_TO_END_TESTS [SEED COUNT]

With a seed, that many random cases. The arithmetic is that of the end-to-end tests, in whole numbers and fractions. Columns: interval,
previous count, new count, rate, rate of a new row.
"""
import random
import sys
from fractions import Fraction

sys.dont_write_bytecode = True
sys.path.insert(0, sys.argv[1])
from harness.model import DOUBLE, rate, rate_of_new, rounded


def line(interval, old, new):
    columns = [float(old), float(new), rate(old, new, interval), rate_of_new(new, interval)]
    assert columns[:2] == [old, new]
    print(interval, *(float(column).hex() for column in columns))


def random_cases(seed, count):
    random.seed(seed)
    for _ in range(count):
        old, new = (int(float(random.getrandbits(random.randint(1, 64)))) for _ in range(2))
        if random.random() < 0.5:
            new = min(int(float(old + random.getrandbits(random.randint(1, 40)))), 2**64)
        line(random.getrandbits(random.randint(1, 32)) or 1, old, new)


if len(sys.argv) > 2:
    random_cases(*map(int, sys.argv[2:]))
    sys.exit()

COUNTS = [0, 1, 101, 2**53, 2**53 + 2, 2**63, 2**63 + 2048, 2**64 - 4096, 2**64]
INTERVALS = [0, 1, 3, 10, 60, 2047, 2048, 3600, 2**31 + 1, 2**32 - 60, 2**32 - 1]

random.seed(1)
for position, old in enumerate(COUNTS):
    for new in COUNTS:
        line(INTERVALS[(position + COUNTS.index(new) * 3) % len(INTERVALS)], old, new)
line(10, 2**64 - 4096, 100)  # 419.6
line(1, 2**64 - 4096, 103)  # odd sums go to a multiple of 4: up here, down with 101
line(10, 10, 4)  # a reset is not divided
# Quotients so close beside the middle of two doubles that rounding once and rounding twice differ:
# odd * interval = new * 2**53 +- 1, with an odd number of 54 bits for the middle. The tie then goes to the
# wrong double if the interval is 3 modulo 4; 2051 is the first of these that is long enough.
for interval in (2051, 3599, 65519, 2**31 + 3, 2**32 - 1):
    for side in (1, -1):
        odd = pow(interval, -1, 2**53) * side % 2**53 + 2**53
        new = (odd * interval - side) // 2**53
        assert rounded(Fraction(new, interval), DOUBLE) != rate_of_new(new, interval)
        line(interval, 0, new)
        line(interval, 2**64 - 2048, 4 * new - 2048)  # wraps, and has gone up by four times as much
# Counts and intervals whose quotient is rounded once in any case.
for bits in range(4, 54):
    new = random.getrandbits(bits)
    line(random.randrange(3, 2048), new >> random.randrange(1, bits), new)
