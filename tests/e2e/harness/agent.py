"""The bundled agent, steered by a script: what its tables hold and how it misbehaves."""
import json
import os
import pathlib
import socket
import subprocess

from . import processes
from .files import TYPES
from .paths import AGENT, program

BINARY = program("MINITAPD_BIN", "minitapd/minitapd")
SCRIPT = pathlib.Path("/tmp/agent-script.json")
TRACE = pathlib.Path("/tmp/agent-trace")

# Procedures by number, as scripts and traces name them.
NULL, SYSTEM_INFO = 0, 1
CONTROL = {"host": 9, "matrix": 16, "pdist": 24, "nlhost": 32, "nlmatrix": 35, "vlan": 76, "prio": 79,
           "dsstats": 72, "dspdist": 133, "dshost": 135}
ROWS = {"host": 11, "matrix": 18, "pdist": 26, "nlhost": 34, "nlmatrix": 37, "vlan": 78, "prio": 81,
        "dsstats": 74, "dspdist": 137, "dshost": 138, "dsmatrix": 141}
TOTALS = 184

LOCAL = "LocalMgr"


def row(table, index, values, others=None):
    """A row of a script from (control index, (key parts..., counters...)[, {other member: value}])."""
    names = list(TYPES[table].parts)
    members = {name: part.hex(":") if isinstance(part, bytes) else part for name, part in zip(names, values)}
    return {"index": index, **members, "counters": list(values[len(names):]), **(others or {})}


class Agent:
    def __init__(self):
        self._process = None
        self._generation = 0
        self._traced = 0
        self._may_exit = False
        self.serve()

    def serve(self, control=None, totals=None, up_time=1000, batch=100, faults=(), replies=None, **tables):
        """From the next call on, serve these tables and no others.

        tables: rows in the order of the agent's answers, as {name: [(control index, row)]};
        control: {name: [(control index, owner, status)]}; totals: {control index: (pkts, octets)};
        faults: members of the script's own format; replies: {procedure: [rows of each call]}, rows
        again as (control index, row).
        """
        self._generation += 1
        numbers = {number: name for name, number in ROWS.items()}
        script = {
            "generation": self._generation,
            "system": {"up_time": up_time},
            "batch": batch,
            "control": {name: [{"index": index, "owner": owner, "status": status} for index, owner, status in rows]
                        for name, rows in (control or {}).items()},
            "pdist_totals": [{"index": index, "counters": list(counters)}
                             for index, counters in (totals or {}).items()],
            "faults": list(faults),
            "replies": {str(number): [[row(numbers[number], *each) for each in rows] for rows in calls]
                        for number, calls in (replies or {}).items()},
            **{name: [row(name, *each) for each in rows] for name, rows in tables.items()},
        }
        self._may_exit = any(fault["action"] == "exit" for fault in faults)
        new = SCRIPT.with_suffix(".new")
        new.write_text(json.dumps(script))
        new.rename(SCRIPT)
        self.forget_calls()

    def start(self, timeout=processes.PATIENCE):
        self._may_exit = False
        self._process = subprocess.Popen([BINARY, "--script", SCRIPT, "--trace", TRACE],
                                         stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL)
        processes.wait_until(self.answers, timeout)
        return self

    @staticmethod
    def answers():
        with socket.socket() as sock:
            return sock.connect_ex(AGENT) == 0

    @property
    def pid(self):
        return self._process.pid

    def ended(self):
        return self._process.poll() is not None

    def stop(self):
        self._process.terminate()
        assert self._process.wait(10) == 0

    def kill(self):
        self._process.kill()
        self._process.wait()

    def bring_back(self):
        """Start it again if it has ended, or will because its script says so."""
        if self._may_exit:
            processes.wait_until(self.ended)
        if self.ended():
            self.start()

    def forget_calls(self):
        self._traced = os.path.getsize(TRACE) if TRACE.exists() else 0

    def calls(self, *procedures):
        """The calls since the last script, of these procedures or all, as "number arguments"."""
        with open(TRACE, encoding="ascii") as file:
            file.seek(self._traced)
            lines = [line.rstrip("\n").split(" ", 2) for line in file]
        return [" ".join([number, *arguments]) for number, _, *arguments in lines
                if not procedures or int(number) in procedures]
