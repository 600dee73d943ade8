"""The documents, believed to the letter: what they have people type is typed, what they show is what comes."""
import fcntl
import json
import os
import pathlib
import re
import struct
import subprocess
import sys

import pytest
from scapy.asn1.asn1 import ASN1_NULL
from scapy.layers.snmp import SNMP, SNMPget

from harness import control, processes, web
from harness.agent import BINARY as MINITAPD
from harness.agent import SCRIPT, TRACE
from harness.collection import Collection
from harness.files import FORMATS, HOST, MATRIX, PDIST, PRIO
from harness.paths import DATA, NMP_SETTINGS, PID_FILE, PIPE, PREFERENCES, REPOSITORY, TALLYCTL, program



def page(name):
    return (REPOSITORY / "docs" / name).read_text(encoding="utf-8")


def blocks(path):
    """The fenced blocks of a page, with their languages."""
    return re.findall(r"^ *```(.*?)\n(.*?)^ *```$", path.read_text(encoding="utf-8"), re.DOTALL | re.MULTILINE)


def examples(name, language=""):
    """The fenced blocks of a page that are in this language."""
    return [text for of, text in blocks(REPOSITORY / "docs" / name) if of == language]


def example(name, contents, language=""):
    """The one that has these contents."""
    found, = (block for block in examples(name, language) if contents in block)
    return found


def dumped(block):
    """The bytes of a block that xxd has printed."""
    return bytes.fromhex("".join(line[10:49] for line in block.splitlines()))


def run(*command, status=0, **options):
    done = subprocess.run(command, capture_output=True, text=True, timeout=120, check=False, **options)
    assert done.returncode == status, done.stdout + done.stderr
    return done.stdout


@pytest.fixture(autouse=True)
def leave_nothing():
    yield
    for path in (*DATA.iterdir(), PREFERENCES, NMP_SETTINGS):  # of collections that were not destroyed
        path.unlink(missing_ok=True)


# Blocks of the language "sh" are commands. A second word says from which state on they work, and so who runs
# them: without one they are typed in the sandbox, see TYPED.
STATES = {"": "", "clone": "scripts/bare", "installed": "packaging/test-packages", "packages": "packaging/test-packages",
          "test": "scripts/test"}
COMMAND = re.compile(r"^\s*(scripts/|cmake |ctest |tallyctl |minitapd |printf |apt|dpkg|systemctl|service |install |cp )", re.MULTILINE)

COUNTING = example("tutorial.md", "minitapd --interface", "sh")  # a daemon, and an agent with something to count

# Page, what must have been typed before, what is typed in place of something endless or out of reach, what must
# be typed afterwards, and what must be seen, in this order.
TYPED = [
    ("tutorial.md", "", {}, "", (
        "pdist 1  interval", '"row_count":', "protocol_tag,protocolDirLocalIndex", "last sample", "running, process",
        "answers at", "one value in", "protocolDistStatsPkts", "tallyd_pdist_packets_total{")),
    ("../README.md", COUNTING, {"watch host 1": "watch host 1 --count 2", "tallyctl check": "tallyctl check || true"}, "tallyctl stop", (
        "host 1  interval", '"row_count":', "running, process", "answers at")),
    ("settings.md", "", {}, "tallyctl status --json || tallyctl check || true", ('"planned_interval": 30', "10.0.0.2")),
    ("fleet.md", COUNTING, {
        "tallyctl metrics --listen": "ip address add 192.0.2.17 dev lo\ntimeout --preserve-status 1 tallyctl metrics --listen",
        "/var/lib/prometheus/node-exporter": "/tmp"}, "tallyctl stop; cat /tmp/tallyd.prom", ("192.0.2.17:9912", "tallyd_up 1")),
]


def no_daemon():
    """Whether the pipe is gone and nobody holds the PID file's lock."""
    if PIPE.exists():
        return False
    with open(PID_FILE, "a", encoding="ascii") as file:
        try:
            return fcntl.flock(file, fcntl.LOCK_EX | fcntl.LOCK_NB) is None
        except BlockingIOError:
            return False


@pytest.mark.parametrize("name, before, edits, after, seen", TYPED, ids=[page for page, *_ in TYPED])
def test_commands(log, name, before, edits, after, seen):
    script = "\n".join([before, *examples(name, "sh"), after])
    build = program("TALLYD_BIN", "src/tallyd").removesuffix("/src/tallyd")
    for typed, instead in edits.items():
        assert typed in script, "the page has changed"
        script = script.replace(typed, instead)
    script = script.replace("$PWD/build/", f"{build}/")
    told = run("bash", "-e", "-o", "pipefail", "-c", f"exec 2>&1\ntrap 'kill $(jobs -p) 2>/dev/null || true' EXIT\n{script}", cwd=REPOSITORY,
               env=dict(os.environ, TERM="dumb", PATH=f"{build}/tools:{os.environ['PATH']}"))
    at = 0
    for text in seen:
        at = told.find(text, at)
        assert at >= 0, f"{text} missing: {told}"
    processes.wait_until(no_daemon)
    log.take_all()


def test_all_commands_are_run():
    for path in (REPOSITORY / "README.md", *(REPOSITORY / "docs").iterdir()):
        for language, text in blocks(path) if path.suffix == ".md" else ():
            kind, _, state = language.partition(" ")
            if kind == "sh":
                assert state or path.name in {pathlib.Path(name).name for name, *_ in TYPED}, text
                assert f"sh {state}" in (REPOSITORY / (STATES[state] or "README.md")).read_text(), state
            else:
                assert not COMMAND.search(text), f"{path.name}: who runs this? {text}"


def test_collection_files():
    """The example, read by the reader of the page and by tallyctl; and where the fields of the diagrams begin."""
    (DATA / "host_3_delta.bin").write_bytes(dumped(example("collection-files.md", "00000000:")))
    read = json.loads(run(sys.executable, "-c", *examples("collection-files.md", "python")))
    row, = read["rows"]
    assert (read["interval"], row.pop("hostAddress")) == (15, "02:00:00:00:00:01")
    assert {name: rate for name, rate in row.items() if rate} == {"hostInPkts": 10, "hostInOctets": 640}
    shown = json.loads(run(TALLYCTL, "show", "host", "3", "--json"))
    assert (shown["interval"], shown["rows"][0]["hostInOctets"]) == (15, 640)

    diagrams = re.findall(r"^### (\w+), (\d+) bytes\n.*?^```\n(.*?)\n", page("collection-files.md"), re.DOTALL | re.MULTILINE)
    assert {stem for stem, *_ in diagrams} == set(FORMATS) - {"supvlan"}  # which is vlan's
    for stem, size, scale in diagrams:
        fields = re.findall(r"\d*[a-zI]", re.sub(r"(\d+)([dI])", lambda many: many[2] * int(many[1]), FORMATS[stem][1]))
        begins = [struct.calcsize("<" + "".join(fields[:count])) for count in range(len(fields) + 1)]
        assert begins[-1] == int(size) and {int(at) for at in scale.split()} <= set(begins), stem


def test_control_pipe(pipe):
    writer, = examples("control-pipe.md", "python")
    run(sys.executable, "-c", writer.replace("time.sleep(10)", "time.sleep(0.01)"))
    assert pipe.read(1000) == control.message(control.CREATE, 0, 5) + 10 * control.message(control.VIEWING, 0, 5)


def test_supervisor_request():
    """The request's bytes, to a decoder that has nothing to do with ours."""
    data = dumped(example("supervisor-snmp.md", "00000000:"))
    request = SNMP(data)
    assert isinstance(request.PDU, SNMPget)
    assert (request.version.val, request.community.val, request.PDU.id.val) == (1, b"kivrel", 0x1234)
    assert [each.oid.val for each in request.PDU.varbindlist] == [f"1.3.6.1.2.1.2.2.1.{column}.7" for column in (8, 9)]
    assert all(isinstance(each.value, ASN1_NULL) for each in request.PDU.varbindlist)


def test_scripts_of_minitapd(agent, daemon):
    """The scripts and the trace of the page: the daemon asks, in these words, and keeps what it is served."""
    tables, replies = examples("minitapd-script.md", "json")
    SCRIPT.write_text(tables)
    agent.forget_calls()
    collections = [Collection(daemon, layout) for layout in (HOST, MATRIX, PDIST, PRIO)]
    for collection in collections:
        collection.create()
    assert HOST.read(1, "last").rows == [(bytes.fromhex("020000000001"), (1, 2, 3, 4, 5, 6, 7))]
    assert PDIST.read(1, "last").rows[0] == (struct.pack("<II", 7, 5), (10, 2.0**64))
    control.send(control.RESCAN)
    daemon.answer()
    traced = TRACE.read_text().splitlines()
    for line in examples("minitapd-script.md")[-1].splitlines():
        assert line in traced, line
    SCRIPT.write_text(replies)
    other = subprocess.run(["timeout", "--preserve-status", "1", MINITAPD, "--script", SCRIPT, "--port", "9913"], capture_output=True, check=False)
    assert (other.returncode, other.stderr) == (0, b"")


# How the page heads each server's passwords, and where it has them looked for.
@pytest.mark.parametrize("kind, heading, directory", [
    ("lighttpd", "# lighttpd", "/etc/lighttpd"), ("apache", "# Apache", "/etc/apache2")])
def test_live_page(pipe, kind, heading, directory):
    """With the passwords of the page nobody gets in without one; behind them curl gets what is shown."""
    (DATA / "tallyd.users").write_text("somebody:" + run("openssl", "passwd", "-apr1", "secret"))
    (DATA / "host_5_delta.bin").write_bytes(struct.pack("<iIiI", 15, 0, 1, 0))
    block = example("live-page.md", heading)
    passwords = block[block.index(heading):].partition("\n\n")[0].replace(directory, str(DATA))
    server = web.WebServer(kind, 8082, passwords)
    try:
        for typed, wanted in re.findall(r"^\$ (.*?)\n(?! )(.*?)$", example("live-page.md", "curl"), re.DOTALL | re.MULTILINE):
            typed = typed.replace("http://appliance", server.origin)
            assert "401" in run("bash", "-c", typed + " -w '%{http_code}'")
            answer = run("bash", "-c", typed.replace("curl", "curl -u somebody:secret"))
            assert answer.startswith(wanted.removesuffix("...")), answer
        assert pipe.read(100) == control.message(control.CREATE, 0, 5)
    finally:
        server.stop()


def test_fleet(tmp_path):
    """Prometheus, set up as the page says, takes what tallyctl serves; the table, the alerts and the dashboard
    name what there is. Of three hosts two have series of their own; the agent restarted."""
    def hosts(*counts):
        return b"".join(struct.pack("<5xB7d", row, *[float(count)] * 7) for row, count in enumerate(counts))
    for stem, (code, form) in FORMATS.items():
        for kind, interval, up_time, end, counts in (("prev", 0, 700, 1, (1000, 9000, 5)), ("last", 0, 3, 16, (4000, 40, 5)),
                                                     ("delta", 15, 3, 16, (200, 40))):
            name = f"{stem}_{kind}.bin" if code > 11 else f"{stem}_1_{kind}.bin"
            rows = hosts(*counts) if stem == "host" else 60 * bytes(struct.calcsize("<" + form))
            (DATA / name).write_bytes(struct.pack("<iIiI", interval, up_time, end, code) + rows)
    metrics = REPOSITORY / "packaging" / "metrics"
    dashboard, rules = ((metrics / f"tallyd.{name}").read_text() for name in ("dashboard.json", "rules.yml"))
    there = set(re.findall(r"^# TYPE (\w+)", run(TALLYCTL, "metrics"), re.MULTILINE))
    asked = rules + dashboard + "".join(re.findall(r"^\|.*?\|", page("fleet.md"), re.MULTILINE))
    named = set(re.findall(r"\btallyd_[a-z_]+\b", asked))
    assert len(named) > 15 and named <= there, named - there

    config, = examples("fleet.md", "yaml")
    (tmp_path / "tallyd.rules.yml").write_text(rules)
    (tmp_path / "appliances.json").write_text('[{"targets": ["127.0.0.1:9912"]}]')
    (tmp_path / "prometheus.yml").write_text(config.replace("scrape_interval: 1m", "scrape_interval: 1s"))
    server = subprocess.Popen([TALLYCTL, "metrics", "--listen", "9912", "--top", "2"], stderr=subprocess.DEVNULL)
    engine = subprocess.Popen(["prometheus", f"--config.file={tmp_path}/prometheus.yml", f"--storage.tsdb.path={tmp_path}/data",
                               "--web.listen-address=127.0.0.1:9990"], stderr=subprocess.DEVNULL)

    def ask(query, check=True):
        done = subprocess.run(["promtool", "query", "instant", "http://127.0.0.1:9990", query],
                              capture_output=True, text=True, check=check)
        return sorted(re.findall(r'^\{(?:mac="(.*)")?\} => (\S+)', done.stdout, re.MULTILINE))
    try:
        processes.wait_until(lambda: ask("sum(tallyd_up)", check=False), pause=0.2)
        for query, answer in (("host_in_packets_total", [("00:00:00:00:00:00", "4000"), ("00:00:00:00:00:01", "40")]),
                              ("host_rest_in_packets", [("", "5")]), ("host_all_in_packets_total", [("", "4045")]),
                              ('note{code="agent-restarted",type="host"}', [("", "1")])):
            assert ask(f"sum by (mac) (tallyd_{query})") == answer, query
        assert ask('sum(up{job="tallyd"})') == [("", "1")]
        for panel in json.loads(dashboard)["panels"]:
            for target in panel["targets"]:
                ask(target["expr"].replace("$instance", ".*").replace("$__rate_interval", "1m"))
    finally:
        for process in (engine, server):
            process.terminate()
            process.wait(20)
