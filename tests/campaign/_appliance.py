"""A make-believe appliance for a kind: its scenario runs in a sandbox of its own, as a process of its own."""
import importlib
import json
import pathlib
import subprocess
import sys

ROOT = pathlib.Path(__file__).resolve().parents[2]
FAKETIME = ("env", "LD_PRELOAD=/usr/$LIB/faketime/libfaketime.so.1", "FAKETIME_NO_CACHE=1")  # a command's start


def sandboxed(kind, **options):
    """Yield what `scenario(**options)` of that kind yields, each a list that JSON can carry."""
    command = [ROOT / "scripts" / "sandbox", "--size-data", "1g", "--", sys.executable, "-B", __file__, kind]
    with subprocess.Popen([*command, json.dumps(options)], stdout=subprocess.PIPE, text=True) as child:
        for line in child.stdout:
            yield json.loads(line)
    if child.returncode:
        yield "scenario", 0, f"the scenario of {kind} broke off, see above"


class Appliance:
    """The log, a scripted agent and the daemon, with an interval in seconds."""

    def __init__(self, interval):
        from harness import processes, settings
        from harness.agent import Agent
        from harness.daemon import Daemon
        from harness.syslog import Syslog
        processes.become_reaper()
        self.log = Syslog()
        settings.no_supervisor()
        settings.refresh(interval)
        self.agent = Agent()
        self.daemon = Daemon(self.log)


def main():
    sys.path[:0] = [str(ROOT / "tests"), str(ROOT / "tests" / "e2e")]
    kind, options = sys.argv[1:]
    for result in importlib.import_module(f"campaign.{kind}").scenario(**json.loads(options)):
        print(json.dumps(result), flush=True)


if __name__ == "__main__":
    main()
