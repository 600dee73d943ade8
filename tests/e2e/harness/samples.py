"""Rows of every type that follow from a number, ascending with it from 1 to 65535 in the order of
their type."""
from . import model
from .agent import ROWS
from .files import HOST, SINGLE

# Three batches of hosts of collection 1, and the same with other counters.
HOSTS = [(1, (number.to_bytes(6, "big"), *range(number, number + 7))) for number in range(1, 251)]
LATER = [(1, (*row[:1], *[value * 2 for value in row[1:]])) for _, row in HOSTS]


def records(served):
    """The records of these rows in the files of collection 1."""
    return model.returned(HOST, served, 1)


def key(layout, number):
    """The key parts of row `number`. Protocol 256 stands for those that do not fit into a byte."""
    low = number.to_bytes(2, "big")
    mac = b"\2\0\0\0"
    return {
        "host": lambda: (mac + low,),
        "matrix": lambda: (mac + b"\0\0", mac + low),
        "pdist": lambda: (132, number),
        "nlhost": lambda: (256, b"\x0a\0" + low),
        "nlmatrix": lambda: (256, b"\x0a\0\0\1", bytes(14) + low),
        "vlan": lambda: (number,),
        "prio": lambda: (number,),
        "dsstats": lambda: (number,),
        "dspdist": lambda: (number >> 4, number),
        "dshost": lambda: (3, 256, 4, bytes(14) + low + b"\xfe\xdc\xba\x98"),
    }[layout.stem]()


def row(layout, number, value, index):
    """Row `number` with one value in all its counters but the last, which is 7."""
    return index, (*key(layout, number), *[value] * (layout.counters - 1), 7)


def rows(layout, values, index):
    return [row(layout, number, value, index) for number, value in sorted(values.items())]


def replies(layout, served):
    """Forced replies that return these rows and then none."""
    calls = [[each] for each in served] + [[]] if layout in SINGLE else [served, []]
    return {ROWS[layout.stem]: calls}
