"""tallyctl: what people and scrapers see of it, without a daemon and of a poll of one."""
import contextlib
import fcntl
import http.client
import json
import os
import pathlib
import random
import re
import resource
import shutil
import signal
import socket
import struct
import subprocess
import threading
import time

import pytest
from scapy.layers.dns import DNS, DNSRR

from harness import processes, samples
from harness.collection import Collection
from harness.files import HOST
from harness.paths import DATA, PIPE, TALLYCTL
from harness.terminal import DOWN, LEFT, RIGHT, UP, Watch, on_screen


def needs(judge):
    return pytest.mark.skipif(shutil.which(judge) is None, reason=f"{judge} is not there to judge")


def run(line, *words, **how):
    return subprocess.run([TALLYCTL, *line.split(), *words], capture_output=True, text=True, timeout=60, check=False, **how)


def tallyctl(line, status=0):
    done = run(line)
    assert done.returncode == status, done
    return done.stdout


def processor_time(pid):
    with open(f"/proc/{pid}/stat", encoding="ascii") as stat:
        return sum(map(int, stat.read().rpartition(") ")[2].split()[11:13])) / os.sysconf("SC_CLK_TCK")


def begin(line):
    return subprocess.Popen([TALLYCTL, *line.split()], stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True)


def put(name, code, records=b"", interval=60, time=1_700_000_000):
    """One delta file of a scenario's own; others by their whole name."""
    path = DATA / f"{name}{'' if name.endswith(('last', 'prev')) else '_delta'}.bin"
    path.write_bytes(struct.pack("<iIiI", interval, 0, time, code) + records)
    return path


def locked(path):
    """The file, opened and locked as the daemon does."""
    file = open(path, "r+b")
    fcntl.flock(file, fcntl.LOCK_EX)
    return file


def messages(reader):
    return list(struct.iter_unpack("<3I", reader.read(65536) or b""))


# What is typed, and the message; and what is said of one that does not do what it says.
SENT = (("create host 3 supvlan", [(3, 0, 3), (3, 13, 0)], ""), ("destroy 10 4294967295", [(4, 10, 4294967295)], ""),
        ("viewing etherstats 0", [(2, 12, 0)], ""), ("create dsmatrix 1", [(3, 10, 1)], "note: the daemon only logs"),
        ("interval 15", [(1, 15, 0)], ""), ("interval -1", [(1, 0xffffffff, 0)], "note: the daemon takes 15 s for -1 s"),
        ("interval 3601", [(1, 3601, 0)], "note: the daemon takes 3600 s"), ("reload", [(5, 0, 0)], ""),
        ("rescan", [(6, 0, 0)], ""), ("stop", [(0, 0, 0)], ""))

# What is typed, the exit status, and what stands in standard output and standard error: nothing where nothing is.
SAID = (
    ("frob", 2, "", "there is no command 'frob'; commands are create,"), ("create host", 2, "", "needs a control index"),
    ("show host 1 --top -1", 2, "", "not in range"), ("watch", 2, "", "needs a terminal"),
    ("show host 3 pdist 1", 2, "", "not expected"), ("metrics --listen 99999999", 2, "", "cannot listen at"),
    ("show host 77", 1, "", "hint: it has no files yet: 'tallyctl create host 77'"),
    ("show host 9", 1, "", "hint: there is a sample but no delta file yet: 'tallyctl view host 9'"),
    ("show host 10", 1, "", "hint: the agent has no rows for it: does the agent have host control row 10?"),
    ("create host 4294967296", 2, "", "is not a control index"), ("create host 1 2", 2, "", "needs a control index"),
    ("create 11 1", 2, "", "unknown collection type"), ("viewing host 1 --keep 0", 2, "", "--keep"),
    ("watch host 1 --sort frob", 2, "", "no column 'frob'"), ("--help", 0, "tallyctl", ""),
    ("show host 1 --sort HOSTINPKTS", 0, "2 rows by In, pkt/s", ""), ("show host 2", 0, "  0 rows\n", "only a header"),
    ("show host 1 --csv --no-notes", 0, "\n00:00:00:00:00:00,0,0,0,0,0,0,0,,", ""),
    ("show host 1 --csv", 0, "hostOutMulticastPkts,notes,hostAddress_name\n", "note: rows are not compared"),
    ("show host 9 --file last", 0, "last sample  up-time 0", ""),
    ("show host 9 --file prev", 1, "", "no such file yet"), ("show etherstats --file last", 2, "", "in memory"),
    ("show host 1 --json --csv", 2, "", "excludes"), ("view host 1 pdist", 2, "", "needs a control index"),
    ("record", 2, "", "needs one of"), ("record --csv /proc/none/there", 1, "", "name a directory"),
    ("metrics --listen nowhere", 2, "", "cannot listen at 'nowhere'"),
    ("metrics --textfile /proc/none", 1, "", "its directory must exist"),
    ("metrics host 1", 0, 'tallyd_file_good{type="host",index="1",file="last",state="absent"} 0', ""),
    ("show host 3", 1, "", "is empty"), ("show host 4", 1, "", "15 octets are too short"),
    ("show host 5", 1, "", "139 octets are not 16 + n x 62"), ("show host 6", 1, "", "names collection type 5, not 0"),
    ("status", 3, "\nhost 4      short-header   absent         absent ", ""), ("status", 3, "\nhost 7      being-written ", ""),
    ("check", 1, "\nproblem  prio 1               the file is cut short: 1 row changed behind its last one\n", ""),
    ("check", 1, "nobody holds the lock", ""), ("check", 1, "host 1               2 rates, ", ""),
    ("check", 1, "the agent has no rows for it", ""), ("check", 1, "does not exist: defaults apply", ""),
    ("show host 7 --wait 0", 1, "", "the daemon is writing it"), ("show host 8", 1, "", "not a regular file"),
    ("watch --no-viewing host 2 --seconds 1", 1, "0 rows", "host 2: no rates were shown"))


def test_what_is_sent_and_said(pipe):
    put("host_1", 0, bytes(2 * 62))
    put("host_2", 0)
    (DATA / "host_3_delta.bin").touch()
    (DATA / "host_4_delta.bin").write_bytes(bytes(15))
    put("host_5", 0, bytes(123))
    put("host_6", 5, bytes(36))
    os.mkfifo(DATA / "host_8_delta.bin")
    put("host_9_last", 0, bytes(62))
    put("host_10_last", 0)
    first, second = (struct.pack("<I2d", number, 60, 60) for number in (1, 2))  # of two rows the delta file has one
    put("prio_1", 6, first)
    put("prio_1_last", 6, first + second)
    put("prio_1_prev", 6, time=1_700_000_000 - 60)
    for line, message, note in SENT:
        done = run(line)
        assert (done.returncode, messages(pipe)) == (0, message), line
        assert note in done.stderr and bool(note) == bool(done.stderr), line
    with locked(put("host_7", 0, bytes(62))):
        for line, status, out, words in SAID:
            done = run(line)
            assert (done.returncode, messages(pipe)) == (status, []), line
            assert out in done.stdout and bool(out) == bool(done.stdout), line
            assert words in done.stderr and bool(words) == bool(done.stderr), line


def test_pipe_without_a_reader_or_room(pipe):
    """The other troubles are those of the page's program, which sends with the same routine."""
    def wait_for_room():
        with open(os.open(PIPE, os.O_WRONLY | os.O_NONBLOCK), "wb", buffering=0) as writer:
            writer.write(bytes(1 << 20))  # as much of it as there is room for
        stop = begin("stop")
        processes.wait_until(lambda: str(PIPE) in processes.descriptors(stop.pid).values())
        return stop
    stop = wait_for_room()
    pipe.read(1 << 20)
    assert stop.wait(60) == 0 and messages(pipe) == [(0, 0, 0)]
    stop = wait_for_room()
    pipe.close()
    assert "nobody reads" in stop.communicate(timeout=60)[1] and stop.returncode == 3
    watch = run("watch host 1 --seconds 50")
    assert watch.returncode == 3 and "nobody reads" in watch.stderr


def test_show_waits_for_the_whole_file(pipe):
    """The daemon may end what it began, or make the file anew meanwhile."""
    for made_anew in (False, True):
        path = put("host_1", 0, bytes(62))
        with locked(path):
            show = begin("show host 1 --wait 30")
            assert "waiting up to 30 s" in show.stderr.readline()
            if made_anew:
                path.unlink()
            put("host_1", 0, bytes(2 * 62))
        assert "2 rows" in show.communicate(timeout=60)[0]


def test_never_a_part_of_a_file(pipe):
    """One of the daemon's writers empties the file before it asks for the lock, under the eyes of whoever reads."""
    path, over = put("host_1", 0, bytes(62 * 16_000)), threading.Event()

    def write():
        data = path.read_bytes()
        while not over.wait(random.random() / 20):
            with open(path, "wb", buffering=0) as file:
                fcntl.flock(file, fcntl.LOCK_EX)
                file.write(data[:500_000])
                over.wait(random.random() / 20)
                file.write(data[500_000:])
    writer = threading.Thread(target=write)
    writer.start()
    seen = set()

    try:
        for _ in range(30):
            status = json.loads(run("status --json").stdout)["collections"][0]
            seen.add((status["delta"], status["rates"]))
    finally:
        over.set()
        writer.join()
    assert seen <= {("good", 16_000), ("empty", None), ("being-written", None)}
    status = json.loads(run("status --json").stdout)["collections"][0]
    assert (status["delta"], status["rates"]) == ("good", 16_000)


def test_viewing(pipe):
    """All that is watched is viewed, again and again, until there is nothing more to show or a signal."""
    def rounds(one):
        taken = []
        processes.wait_until(lambda: taken.extend(messages(pipe)) or len(taken) >= 2 * len(one))
        assert taken == one * (len(taken) // len(one)), taken
    put("host_1", 0, bytes(2 * 62))
    watch = begin("watch host 1 pdist 1 --count 1 --seconds 50 --every 1")
    rounds([(2, 0, 1), (2, 2, 1)])
    put("pdist_1", 2, bytes(3 * 24))
    out, words = watch.communicate(timeout=60)
    assert watch.returncode == 0 and "pdist 1: it has no files yet: 'tallyctl create pdist 1'" in words
    assert "host 1  interval 60 s" in out and "3 rows" in out
    messages(pipe)
    for number in (signal.SIGINT, signal.SIGTERM):
        viewing = begin("viewing nlhost 2 --keep 1")
        rounds([(2, 3, 2)])
        viewing.send_signal(number)
        assert viewing.wait(60) == 0


@needs("rrdtool")
def test_record(pipe, tmp_path, monkeypatch):
    """Each interval once; what was polled while nobody recorded, and what is not a rate, is unknown afterwards."""
    def poll(end, packets):
        put("nlhost_1", 3, struct.pack("<II4s12x5d", 7, 4, b"\xc0\0\2\1", packets, 0, 0, 0, 8), time=end)
    (tmp_path / "hosts").write_text("192.0.2.1 router")
    monkeypatch.setenv("TALLYD_NAMES", str(tmp_path))
    base = int(time.time()) // 60 * 60 - 600
    file = tmp_path / "csv" / "nlhost_1.csv"
    csv, rrd = (f"record nlhost 1 --{kind} {tmp_path}/{kind}" for kind in ("csv", "rrd"))
    poll(base + 60, 1.5)
    tallyctl(csv + " --seconds 1")
    tallyctl(rrd + " --seconds 1")
    recorder = begin(csv)
    processes.wait_until(lambda: "inotify" in str(processes.descriptors(recorder.pid)))
    poll(base + 300, 2.5)
    processes.wait_until(lambda: f"{base + 300}," in file.read_text())
    recorder.terminate()
    assert recorder.wait(60) == 0
    (tmp_path / "rrd/nlhost_1/8_127.0.0.2.rrd").write_bytes(b"makes room")
    with open(tmp_path / "rrd/nlhost_1/7_192.0.2.1.rrd", "r+b") as reader:  # the recorder waits for it
        fcntl.lockf(reader, fcntl.LOCK_SH)
        waiting = begin(rrd + " --rows 1 --seconds 1")
        processes.wait_until(lambda: "inotify" in str(processes.descriptors(waiting.pid)))
        time.sleep(0.2)
    assert waiting.wait(60) == 0
    assert file.read_text().splitlines()[1:] == [
        f"{base + 60},60,7,192.0.2.1,1.5,0,0,0,8,,,router", f"{base + 240},180,,,,,,,,gap,,", f"{base + 300},60,7,192.0.2.1,2.5,0,0,0,8,,,router"]
    history = f"history nlhost 1 --rrd {tmp_path}/rrd --since 15min "
    assert tallyctl(history + "--csv").splitlines()[1:] == [f"{base + 60},7 192.0.2.1,1.5,0,0,0,8,,router", f"{base + 300},7 192.0.2.1,2.5,0,0,0,8,,router"]
    assert json.loads(tallyctl(history + "--json"))["rows"][0]["nlHostAddress_name"] == "router"
    shown = run(history, env=dict(os.environ, LANG="C", LC_ALL="")).stdout.splitlines()
    assert re.fullmatch(r"Out, bit/s +mean +most +last", shown[1]) and re.search(r"^7 router +0 +0 +0 +_   _", shown[2])
    assert re.search(r"\nIn, pkt/s +2 +2.50 +2.50 +\S   \S", run(history + "--column nlHostInPkts --key", "7 router").stdout)
    file.write_text(file.read_text().replace(",protocolDirLocalIndex_name,nlHostAddress_name", ""))  # begun before there were names
    poll(base + 360, 3)
    tallyctl(csv + " --seconds 1")
    before = file.read_text()
    assert before.splitlines()[-1] == f"{base + 360},60,7,192.0.2.1,3,0,0,0,8,"

    def full_disk():
        signal.signal(signal.SIGXFSZ, signal.SIG_IGN)
        resource.setrlimit(resource.RLIMIT_FSIZE, (len(before) + 5, len(before) + 5))
    poll(base + 420, 3)
    assert "this interval is missing there" in run(csv + " --seconds 1", preexec_fn=full_disk).stderr
    assert file.read_text() == before


def given_up(connection):
    """With a word or without."""
    try:
        connection.recv(1, socket.MSG_DONTWAIT)
    except BlockingIOError:
        return False
    except ConnectionError:
        pass
    return True


@needs("promtool")
def test_metrics_server(pipe, tmp_path):
    """It serves scrapers whoever else is there, and nobody for long."""
    put("ifstats_last", 14, struct.pack("<II16s16xd72x", 7, 3, b'a"\n', float("inf")))
    server = begin("metrics --listen [::1]:9912")
    assert "http://[::1]:9912/metrics" in server.stderr.readline()
    idle = len(processes.descriptors(server.pid))

    def ask(method, path, body=None):
        connection = http.client.HTTPConnection("::1", 9912, timeout=60)
        connection.request(method, path, body)
        answer = connection.getresponse()
        return answer.status, answer.headers, answer.read().decode()

    def drip():
        for each in dripping:
            with contextlib.suppress(ConnectionError):
                each.send(b"G")
        return all(map(given_up, dripping))
    dripping = [socket.create_connection(("::1", 9912)) for _ in range(200)]
    drip()
    status, headers, page = ask("GET", "/metrics?a=b")
    assert not any(map(given_up, dripping))  # they are in nobody's way
    assert status == 200 and headers["Content-Type"].startswith("text/plain; version=0.0.4") and "\ntallyd_up 0\n" in page
    assert '\ntallyd_ifstats_in_octets_total{type="ifstats",ifindex="7",ifname="a\\"\\\\x0a"} +Inf\n' in page
    for method, path, body, wanted in (("HEAD", "/metrics", None, 200), ("POST", "/metrics", "a" * 20000, 405), ("GET", "/", None, 200),
                                       ("GET", "/other", None, 404), ("BREW", "/metrics", None, 405), ("GET", "/" + "a" * 20000, None, 414)):
        status, headers, page = ask(method, path, body)
        assert status == wanted and bool(page) == (method != "HEAD"), (method, path)
        assert int(headers["Content-Length"]) > 0 and headers.get("Allow") == ("GET, HEAD" if wanted == 405 else None)
    processes.wait_until(drip, 60, pause=0.1)  # what goes on for ever is ended
    # Without descriptors clients wait until one is closed; the server sleeps meanwhile.
    silent = socket.create_connection(("::1", 9912))
    processes.wait_until(lambda: len(processes.descriptors(server.pid)) == idle + 1)
    limits = resource.prlimit(server.pid, resource.RLIMIT_NOFILE)
    resource.prlimit(server.pid, resource.RLIMIT_NOFILE, (idle + 1, limits[1]))
    begun = time.monotonic(), processor_time(server.pid)
    assert ask("GET", "/")[0] == 200 and given_up(silent)
    assert processor_time(server.pid) - begun[1] < (time.monotonic() - begun[0]) / 2
    resource.prlimit(server.pid, resource.RLIMIT_NOFILE, limits)
    server.terminate()
    assert server.wait(60) == 0
    tallyctl(f"metrics --textfile {tmp_path}/page.prom")
    with open(tmp_path / "page.prom", encoding="utf-8") as file:  # which the engine's own tool has no complaint about
        subprocess.run(["promtool", "check", "metrics"], stdin=file, check=True)


def test_screen(pipe):
    """Only a terminal is coloured and redrawn; watch takes its other screen and gives all back."""
    put("vlan_1", 5, bytes(30 * 36))
    put("prio_1", 6, bytes(30 * 20))
    put("host_1", 0, 30 * (b"\2" + bytes(61)))
    put("pdist_1", 2, struct.pack("<II2dII2dII2d", 1, 3, 0.00025, 12.5, 1, 70000, 4e5, 1e10, 132, 2**32 - 1, 2, 1.2e10))
    for options, table in (("", ["Protocol  bit/s    Share   pkt/s",
                                 "70000     80.0G   83.3 %    400k",
                                 "3           100  <0.01 %  <0.001",
                                 "total     96.0G    100 %       2"]),
                           (" --wide", ["protocol_tag  protocolDirLocalIndex  protocolDistStatsPkts  protocolDistStatsOctets",
                                        "           1                  70000                 400000              10000000000",
                                        "           1                      3                0.00025                     12.5",
                                        "         132                  total                      2              12000000000"])):
        lines = tallyctl(f"show pdist 1 --no-notes --sort protocolDistStatsPkts{options}").splitlines()
        assert "2 rows by" in lines[0] and lines[1:] == table
    screen = on_screen("show host 1 --color never").replace("\r", "").splitlines()
    assert max(map(len, screen)) <= 40 and "Host               In, bit/s  Out, bit/s" in screen and screen[-1].endswith("(--wide)"), screen
    show = "show vlan 1 --top 1"
    assert "\x1b[1mvlan 1" in on_screen(show)
    for plain in (tallyctl(show), on_screen(show, no_color="1"), on_screen(show + " --color never"),
                  on_screen("watch --no-viewing vlan 1 prio 1 --count 1", "dumb")):
        assert plain and "\x1b" not in plain


def test_watch(pipe):
    """All collections at a glance, and one of them; at every size figures are whole or not there."""
    def poll(number, rows=30):
        put("nlmatrix_1", 4, b"".join(struct.pack("<II16sI16s2d", 12, 16, b"\x20\1\x0d\xb8" * 4, 16, b"\x20\1\x0d" + bytes((row,)) * 13, 1, row * 12345)
                                      for row in range(rows)), time=int(time.time()) - 3 + number)
        os.utime(DATA / "nlmatrix_1_delta.bin", (number, number))
    poll(1)
    put("host_1", 0, 3 * (b"\2" + bytes(61)), time=int(time.time()) - 600)
    (DATA / "host_2_delta.bin").write_bytes(bytes(15))
    put("vlan_1_last", 5, bytes(36))
    watch = Watch("--every 1", (24, 80), "C")
    watch.shows("4 collections, 1 live, 1 stale, 1 failing, 1 waiting", " 43.0M ", "host 1: a newer sample should be there")
    processes.wait_until(lambda: len(set(messages(pipe))) == 4)
    poll(2)
    watch.shows("  ##     2001", without=("host 2: ",))
    watch.press(DOWN, "host 2: 15 octets are too short")
    watch.press(RIGHT + RIGHT + "s", "Busiest\nnlmatrix 1  live")
    watch.press("/NLM", "  /NLM", "nlmatrix 1", without=("host 1",))
    watch.press("\r\r", "nlmatrix 1  interval 60 s", "18 of 30 rows by bit/s", "! not-compared", "1~  2.86M", "Esc back")
    watch.press("n", "! rows are not compared")
    watch.press("n" + 19 * DOWN + UP, "3 to 19 of 30 rows", "43.0M", without=("2.86M",))
    watch.press("r\x1b[5~\x1b[5~", "18 of 30 rows", "d00:: ")
    watch.press("r" + LEFT, "rows by Destination")
    watch.press("/nlMatrixSDOctets>", "17 of 30 rows")  # no condition yet
    watch.press("=.3M\r", "5 of 30 rows, 5 matching", "2.86M")
    watch.press("\x1b/:1d1d", "1 of 30 rows, 1 matching", "/:1d1d_")
    watch.press("\x7f\x7f\x7f\x7f\x7f\r", "17 of 30 rows")
    watch.press("p", "  paused")
    poll(3, rows=7)
    watch.press("?", "q            quit")
    watch.press("x", "of 30 rows", without=("quit   ",))
    watch.press("p", " 7 rows", without=("paused",))
    poll(4)
    for size, there in (((10, 40), ("2001:db8:~  2001:d01:1~  98.8k",)), ((60, 200), ("2001:db8:2001:db8:2001:db8:2001:db8  2001:d01:", "98.8k", "pkt/s")), ((4, 20), ("nlmatrix 1",))):
        watch.resize(*size)
        watch.shows(*there)
    watch.resize(24, 80)
    watch.press("\x1b", "4 collections")
    watch.process.send_signal(signal.SIGTSTP)
    processes.wait_until(lambda: processes.state(watch.process.pid) == "T")
    assert watch.gave_back()
    watch.process.send_signal(signal.SIGCONT)
    watch.press("\x1bOP", "4 collections")  # a key that means nothing
    watch.resize(12, 40)
    pipe.close()
    watch.shows("nobody reads", "\n  is not running; start it\n", "4 collections")
    watch.process.send_signal(signal.SIGTERM)
    assert watch.process.wait(60) == 0
    assert watch.gave_back()
    for names, status, texts in (  # unviewed, a sample of the last hour is as new as can be
            ("", 0, ("4 collections, 2 live, 1 failing",)),
            ("host 1 nlmatrix 1 vlan 1", 1, ("host 1  interval", "nlmatrix 1  interval", "  there is a sample but no delta file yet"))):
        watch = Watch("--no-viewing " + names, (24, 80), "C.UTF-8")
        watch.shows(*texts)
        watch.screen.write(b"\r\x1bq" if names else b"q")
        assert watch.process.wait(60) == status


def test_names(pipe, tmp_path):
    """Of files and of DNS, which one address gets no answer from; numbers stay beside them."""
    (tmp_path / "protocols").write_text("ether2.ip 11\nether2.ip6 12 ip6\n")
    (tmp_path / "hosts").write_text('10.0.0.1 "a",b\n')
    rows = ((11, 1), (12, 2), (13, 3))
    records = b"".join(struct.pack("<II4s12x5d", tag, 4, bytes((10, 0, 0, last)), 1, 1, 1, 1, 0) for tag, last in rows)
    for kind in ("nlhost_1", "nlhost_1_last"):
        put(kind, 3, records)
    server = re.search(r"^nameserver (\S+)", pathlib.Path("/etc/resolv.conf").read_text(), re.MULTILINE)[1]
    subprocess.run(["ip", "address", "add", server, "dev", "lo"], check=True)
    dns = socket.socket(socket.AF_INET, socket.SOCK_DGRAM)
    dns.bind((server, 53))

    def answer():
        while True:
            data, sender = dns.recvfrom(512)
            query = DNS(data)
            if query.qd.qname == b"2.0.0.10.in-addr.arpa.":
                dns.sendto(bytes(DNS(id=query.id, qr=1, qd=query.qd, an=DNSRR(
                    rrname=query.qd.qname, type="PTR", rdata="two.example"))), sender)
    threading.Thread(target=answer, daemon=True).start()
    how = {"env": {**os.environ, "TALLYD_NAMES": str(tmp_path)}}
    shown = json.loads(run("show nlhost 1 --no-notes --json --resolve", **how).stdout)["rows"]
    assert [(row["protocolDirLocalIndex"], row.get("protocolDirLocalIndex_name"), row["nlHostAddress"], row.get("nlHostAddress_name"))
            for row in shown] == [(11, "ether2.ip", "10.0.0.1", '"a",b'), (12, "ether2.ip6", "10.0.0.2", "two.example"), (13, None, "10.0.0.3", None)]
    lines = run("show nlhost 1 --no-notes --csv --top 1", **how).stdout.splitlines()
    assert lines[0].endswith(",notes,protocolDirLocalIndex_name,nlHostAddress_name") and lines[1].endswith(',,ether2.ip,"""a"",b"')
    assert run('show nlhost 1 --no-notes --where nlHostAddress=*b', **how).stdout.splitlines()[1:3] == [
        "Protocol   Host   In, bit/s  Out, bit/s   Share  In, pkt/s  Out, pkt/s  Out non-unicast",
        'ether2.ip  "a",b          8           8  33.3 %          1           1                0']
    assert '\ntallyd_address_name{address="10.0.0.1",address_name="\\"a\\",b"} 1\n' in run("metrics", **how).stdout


def test_view_outlives_the_daemon(pipe):
    away = PIPE.with_suffix(".away")
    PIPE.rename(away)
    view = begin("view --every 1 host 3")
    assert "no control pipe" in view.stderr.readline()
    away.rename(PIPE)
    assert "again" in view.stderr.readline()
    view.terminate()
    assert (view.wait(10), messages(pipe)[0]) == (0, (2, 0, 3))


def test_with_a_daemon(agent, daemon):
    """Of two hosts one goes on, one stands still. What check finds, and what it does not."""
    collection = Collection(daemon, HOST)
    for packets in (1000, 4000):
        agent.serve(host=samples.rows(HOST, {1: packets, 3: 5}, 1))
        (collection.poll if collection in daemon.collections else collection.create)()
    last = json.loads(tallyctl("show host 1 --file last --json --where hostInPkts<10"))
    assert [(row["hostAddress"], row["notes"]) for row in last["rows"]] == [("02:00:00:00:00:03", ["unchanged"])]
    findings = {each["subject"]: each["level"] for each in json.loads(tallyctl("check --json"))}
    assert {findings[name] for name in ("daemon", "pipe", "space", "preferences", "agent", "host 1")} == {"ok"}
    assert "  access               open to all users: the collection files, the control pipe, the PID file's lock\n" in tallyctl("check")
    away = PIPE.rename(PIPE.with_suffix(".away"))
    assert "makes its pipe only when it starts" in tallyctl("check", status=1)
    away.rename(PIPE)


def test_stop_waits(agent, own_daemon, log):
    own_daemon.start()
    os.kill(own_daemon.pid, signal.SIGSTOP)
    stop = begin("stop")
    assert f"for process {own_daemon.pid} to end" in stop.stderr.readline()
    os.kill(own_daemon.pid, signal.SIGCONT)
    assert stop.wait(60) == 0 and not own_daemon.running()
    assert any("erminat" in text for _, text in log.take_all())
