"""One collection, driven and judged: each poll's files are compared, byte by byte, with what the
model makes of the sample before and the rows that the agent was told to serve."""
import os
import struct
import time

from . import control, model, processes


def set_sample_time(path, moment):
    """Give a last sample this time, so that the next interval is what the scenario wants."""
    with open(path, "r+b") as file:
        file.seek(8)
        file.write(struct.pack("<i", moment))


def next_second():
    """Wait until shortly after the next whole second, since the clock that stamps samples
    may lag by a tick."""
    time.sleep(1.02 - time.time() % 1)


class Collection:
    def __init__(self, daemon, layout, index=1):
        self.daemon, self.layout, self.index = daemon, layout, index
        self.rows = None  # of the last sample, by the model
        self.time = None  # of the last sample

    def create(self):
        self.daemon.collections.add(self)
        control.send(control.CREATE, self.layout.code, self.index)
        self.daemon.answer()  # by now the files of an earlier life are gone
        processes.wait_until(self.layout.path(self.index, "last").exists)
        self.daemon.settle()

    def destroy(self):
        self.daemon.collections.discard(self)
        control.send(control.DESTROY, self.layout.code, self.index)
        self.daemon.answer()
        assert not any(path.exists() for path in self.layout.paths(self.index))

    def poll(self, same_second=False, wait_for_delta=True):
        """Have it polled now, by a viewing message while there is no delta file."""
        if not same_second:
            next_second()
        delta = self.layout.path(self.index, "delta")
        delta.unlink(missing_ok=True)
        control.send(control.VIEWING, self.layout.code, self.index)
        if wait_for_delta:
            processes.wait_until(delta.exists)
            self.daemon.settle()

    def set_sample_time(self, moment):
        set_sample_time(self.layout.path(self.index, "last"), moment)
        self.time = moment

    def first_sample(self, records, up_time=1000):
        """Create it, and judge its only file."""
        begun = int(time.time())
        self.create()
        self.judge_first(records, begun, up_time)

    def judge_first(self, records, begun, up_time=1000):
        self._judge("last", (0, up_time, self._stamp(begun), self.layout.code), records)
        for kind in ("prev", "delta"):
            assert not self.layout.path(self.index, kind).exists(), kind
        self.rows = records

    def next_sample(self, records, up_time=1000, **how):
        """Poll it, and judge its three files."""
        before = self.layout.path(self.index, "last").read_bytes()
        begun = int(time.time())
        self.poll(**how)
        self.judge_next(records, before, begun, up_time)

    def judge_next(self, records, before, begun, up_time=1000):
        assert self.layout.path(self.index, "prev").read_bytes() == before
        earlier = self.time
        interval = self._stamp(begun) - earlier
        self.rows, delta = model.merge(self.layout, self.rows, records, interval)
        self._judge("last", (0, up_time, self.time, self.layout.code), self.rows)
        self._judge("delta", (interval, 0, self.time, self.layout.code), delta)

    def _stamp(self, begun):
        """The last sample's time, which must be now."""
        self.time = self.layout.read(self.index, "last").header.time
        assert begun - 1 <= self.time <= time.time(), (begun, self.time)
        return self.time

    def _judge(self, kind, header, rows):
        path = self.layout.path(self.index, kind)
        data, wanted = path.read_bytes(), self.layout.pack(header, rows)
        if data != wanted:  # say it in words: rows are easier to read than bytes
            assert self.layout.unpack(data) == self.layout.unpack(wanted), path.name
        assert data == wanted, path.name
        assert os.stat(path).st_mode & 0o7777 == 0o777, path.name
