"""The tutorial, as somebody types it who believes it."""
import os
import re
import subprocess

from harness.paths import DATA, PIPE, REPOSITORY, program

# What must be seen, in this order.
SEEN = ("pdist 1  interval", '"row_count":', "protocol_tag,protocolDirLocalIndex", "last sample", "running, process",
        "answers at", "protocolDistStatsPkts", "tallyd_pdist_packets_total{")


def test_tutorial(log):
    page = (REPOSITORY / "docs" / "tutorial.md").read_text(encoding="utf-8")
    blocks = re.findall(r"^```sh\n(.*?)^```", page, re.DOTALL | re.MULTILINE)
    assert len(blocks) == 6
    build = program("TALLYD_BIN", "src/tallyd").removesuffix("/src/tallyd")
    script = "".join(blocks).replace("$PWD/build/release", build)
    shell = subprocess.run(["bash", "-e", "-c", f"trap 'kill $(jobs -p)' EXIT\n{script}"],
                           cwd=REPOSITORY, env=dict(os.environ, TERM="dumb"), timeout=120,
                           capture_output=True, text=True, check=False)
    assert shell.returncode == 0, shell.stdout + shell.stderr
    at = 0
    for text in SEEN:
        at = shell.stdout.find(text, at)
        assert at >= 0, f"{text} missing: {shell.stdout}"
    assert not PIPE.exists()
    log.wait("Terminating tallyd.")
    log.take_all()
    for path in DATA.iterdir():  # of collections that it did not destroy
        path.unlink()
