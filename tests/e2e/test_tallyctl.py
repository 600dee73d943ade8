"""tallyctl beside the running daemon: what people and scrapers see of a poll."""
import json
import shutil
import subprocess
import urllib.error
import urllib.parse
import urllib.request

import pytest

from harness import processes, samples
from harness.collection import Collection
from harness.files import HOST
from harness.paths import REPOSITORY, program

TALLYCTL = program("TALLYCTL_BIN", "tools/tallyctl")


def tallyctl(*words, status=0):
    done = subprocess.run([TALLYCTL, *words], capture_output=True, text=True, timeout=60, check=False)
    assert done.returncode == status, done.stderr + done.stdout
    return done.stdout


def answer(url):
    with urllib.request.urlopen(url, timeout=10) as response:
        return response.read().decode()


@pytest.fixture
def polled(agent, daemon):
    """A collection of three hosts: one goes on, one is reset, one stands still; the agent restarted."""
    collection = Collection(daemon, HOST)
    agent.serve(host=samples.rows(HOST, {1: 1000, 2: 9000, 3: 5}, 1), up_time=700)
    collection.create()
    agent.serve(host=samples.rows(HOST, {1: 4000, 2: 40, 3: 5}, 1), up_time=3)
    collection.poll()
    return collection


def test_views(polled):
    document = json.loads(tallyctl("show", "host", "1", "--json"))
    first, second = document["rows"]
    assert first["hostInPkts"] == 3000 / document["interval"] and "notes" not in first
    assert (second["hostInPkts"], second["notes"]) == (40, ["reset"])
    assert {"agent-restarted", "reset", "unchanged"} == {note["code"] for note in document["notes"]}
    assert "1 rows" in document["notes"][1]["text"]
    last = json.loads(tallyctl("show", "host", "1", "--file", "last", "--json", "--where", "hostInPkts<10"))
    assert [(row["hostAddress"], row["notes"]) for row in last["rows"]] == [("02:00:00:00:00:03", ["unchanged"])]
    overview = json.loads(tallyctl("status", "--json"))
    assert overview["daemon"]["running"]
    assert [(each["collection"], each["delta"], each["rates"], each["rows"])
            for each in overview["collections"]] == [("host 1", "good", 2, 3)]
    findings = {each["subject"]: each["level"] for each in json.loads(tallyctl("check", "--json"))}
    assert {findings[name] for name in ("daemon", "pipe", "space", "preferences", "agent", "host 1")} == {"ok"}


def test_prometheus_scrapes(polled, tmp_path):
    prometheus = shutil.which("prometheus")
    if prometheus is None:
        pytest.skip("Prometheus is not installed")
    server = subprocess.Popen([TALLYCTL, "metrics", "--listen", "9912", "--top", "2"], stderr=subprocess.DEVNULL)
    config = tmp_path / "prometheus.yml"
    config.write_text(json.dumps({
        "rule_files": [str(REPOSITORY / "packaging/metrics/tallyd.rules.yml")],
        "scrape_configs": [{"job_name": "tallyd", "scrape_interval": "1s",
                            "static_configs": [{"targets": ["127.0.0.1:9912"]}]}]}))
    engine = subprocess.Popen([prometheus, f"--config.file={config}", f"--storage.tsdb.path={tmp_path}/data",
                               "--web.listen-address=127.0.0.1:9990"],
                              stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)

    def ask(query):
        url = "http://127.0.0.1:9990/api/v1/query?query=" + urllib.parse.quote(query)
        try:
            return {each["metric"].get("mac", ""): float(each["value"][1])
                    for each in json.loads(answer(url))["data"]["result"]}
        except urllib.error.URLError:
            return {}
    try:
        processes.wait_until(lambda: ask("tallyd_up"), 30)
        assert ask("tallyd_host_in_packets_total") == {"02:00:00:00:00:01": 4000, "02:00:00:00:00:02": 40}
        assert ask("tallyd_host_rest_in_packets") == {"": 5}
        assert ask("tallyd_host_all_in_packets_total") == {"": 4045}
        assert ask('tallyd_note{code="agent-restarted"}') == {"": 1}
        assert ask('up{job="tallyd"}') == {"": 1}
    finally:
        for process in (engine, server):
            process.terminate()
            process.wait(20)
