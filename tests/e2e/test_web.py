"""The live page in a real browser, behind the stock web servers with the shipped configuration."""
import fcntl
import json
import os
import pathlib
import random
import re
import shutil
import struct
import subprocess
import time

import pytest
from selenium.webdriver.common.by import By
from selenium.webdriver.common.keys import Keys

from harness import control, model, processes, samples, settings, web
from harness.collection import next_second
from harness.files import FORMATS, HOST
from harness.paths import DATA, NMP_SETTINGS, PIPE, program

NAMES = pathlib.Path("/tmp/web-names")
HISTORY = pathlib.Path("/tmp/recorded")
TALLYCTL = program("TALLYCTL_BIN", "tools/tallyctl")


@pytest.fixture(scope="module", params=["lighttpd", "apache"])
def either_server(request):
    server = web.WebServer(request.param, 8081)
    yield server
    server.stop()


@pytest.fixture(scope="module")
def server():
    NAMES.mkdir(exist_ok=True)
    for file, text in (("protocols", "ether2.ip.udp.dns 5 dns\nother 6 x y # comment\n"), ("vlans", "voice 4"), ("groups", "EF 2"),
                       ("hosts", "10.0.0.1 router\n0001:0:0:2::3 six"), ("priorities", "best 0\n")):
        (NAMES / file).write_text(text)
    server = web.WebServer("lighttpd", 8080, f'setenv.set-environment = ("TALLYD_NAMES" => "{NAMES}", "TALLYD_HISTORY" => "{HISTORY}")\n')
    yield server
    server.stop()


@pytest.fixture(scope="module")
def browser(server):
    browser = web.start_browser()
    browser.get(server.origin + "/tally/")
    yield browser
    browser.quit()


@pytest.fixture
def files():
    """Files of the scenario's own, put in place whole: {name: bytes}."""
    def put(**contents):
        for name, data in contents.items():
            (DATA / ".new").write_bytes(data)
            (DATA / ".new").rename(DATA / f"{name}.bin")
    yield put
    for path in DATA.iterdir():
        path.unlink()


def header(code, interval=60, age=0, up_time=0):
    return struct.pack("<iIiI", interval, up_time, int(time.time()) - age, code)


def hosts(count, seed=0):
    numbers = random.Random(seed)
    return b"".join(
        struct.pack("<6s7d", b"\2\0" + row.to_bytes(4, "big"), *[numbers.random() * (row % 97) for _ in range(7)])
        for row in range(count))


def host(last, value):
    return struct.pack("<5xB7d", last, *[value] * 7)


def show(browser, server, collection):
    browser.get(f"{server.origin}/tally/#{collection}")


def texts(browser, selector):
    return browser.execute_script("return [...document.querySelectorAll(arguments[0])].map(e => e.textContent)", selector)


def wait_for(browser, selector, wanted):
    """Wait until what is selected reads as wanted says (a list, or a condition)."""
    holds = wanted if callable(wanted) else lambda found: found == wanted
    try:
        processes.wait_until(lambda: holds(texts(browser, selector)))
    except AssertionError:
        raise AssertionError((selector, texts(browser, selector), texts(browser, ".note"))) from None


# Octets of addresses and names: what counts of them is said by the word before, and no key may look like another.
OCTETS = [octets.ljust(16, b"\0") for octets in (
    b"", b"\x0a\0\0\1", b"\x0a\0\0\1\xff", b"\x20\1\x0d\xb8" + bytes(11) + b"\1", b"\0\1" + bytes(5) + b"\2" + bytes(7) + b"\3",
    b"\0\1" + bytes(5) + b"\2" + bytes(5) + b"\3", b"\x0a", b"\1\2", b"Gi1/1", b"<b>\x1b[2J", b"\\\x7f\xc3 x")]


def test_every_type_is_read(browser, files):
    """tallyctl finds each value under its name, as struct has packed it; the page, with the names that
    its program tells, writes all of them as tallyctl's table does. What the recorder keeps comes back under
    the keys of the files."""
    numbers = random.Random(7)

    def draw(blank):
        if isinstance(blank, bytes):
            return numbers.choice(OCTETS) if len(blank) == 16 else numbers.randbytes(6)
        size = 10 ** numbers.randrange(-5, 9)
        return numbers.random() * size if isinstance(blank, float) else numbers.choice((0, 1, 2, 4, 5, 6, 16, 17, 2**31))
    every = {}
    for stem, (code, form) in FORMATS.items():
        record = struct.Struct("<" + form)
        rows = [[draw(blank) for blank in record.unpack(bytes(record.size))] for _ in range(200)]
        data = header(code, 300) + b"".join(record.pack(*row) for row in rows)
        files(**{f"{stem}_delta" if code > 11 else f"{stem}_1_delta": data})
        every[stem] = code, rows, data
    subprocess.run([TALLYCTL, "record", "--rrd", HISTORY, "--top", "6", "--seconds", "1"], check=True)
    for stem, (code, rows, data) in every.items():
        command = [TALLYCTL, "show", stem, "0" if code > 11 else "1", "--no-notes"]
        shown = json.loads(subprocess.check_output(command + ["--json"]))["rows"]
        for cells, row in zip(shown, rows, strict=True):
            assert [cell for cell in cells.values() if isinstance(cell, float)] == [
                value for value in row if isinstance(value, float)], stem
            assert [cell for cell in cells.values() if re.fullmatch("(..:){5}..", str(cell))] == [
                value.hex(":") for value in row if isinstance(value, bytes) and len(value) == 6], stem
        page = browser.execute_async_script("""
            const [stem, index, octets, done] = arguments;
            Promise.all(["delta", "layouts", "past"].map(name => import(`./${name}.js`))).then(
              async ([{decode}, {LAYOUTS}, {Past}]) => {
                const ask = async (query) => (await fetch(`control?${query}`)).json();
                const names = (await ask(`names=${stem}/${index}`)).names[`${stem}/${index}`], past = await ask(`history=${stem}/${index}&span=hour`);
                const layout = LAYOUTS.get(stem), { table } = decode(new Uint8Array(octets).buffer, layout, { names });
                const all = Array.from({length: table.count}, (_, row) => ({label: table.label(row), title: table.title(row), rate: table.number(row, layout.rank)}));
                const kept = new Past(past, layout).rows().map((row, at) => [Math.max(...past.rows[at].rates[layout.rank.name]), all.filter(({label, title}) => label === row.label && title === row.title).map(({rate}) => rate)]);
                done([kept, layout.shown.map(({heading}) => heading), ...Array.from({length: table.count}, (_, row) =>
                  layout.shown.map(column => table.named(row, column)))]);
              });""", stem, int(command[3]), list(data))
        kept = page.pop(0)
        assert kept and all(any(abs(each - mean) <= 1e-4 * mean for each in rates) for mean, rates in kept), (stem, kept)
        _, headings, *lines = subprocess.check_output(command, text=True, env={**os.environ, "TALLYD_NAMES": str(NAMES)}).splitlines()
        assert re.split("  +", headings.replace("  Share", "").strip()) == page[0], stem
        share = re.compile(r"  [\d.<]+ %(?=  )" if "Share" in headings else "$")  # which the page does not show yet
        assert [share.sub("", line, count=1).split() for line in lines[:200]] == [
            " ".join(cells).split() for cells in page[1:]], stem


def test_lines_of_the_chart(browser):
    """Each rate over its whole interval, a break where a sample was missed, 0 where a row is left
    out, and the sum of all; no overlap; a clock that was set back begins anew."""
    files = [struct.pack("<iIiI", interval, 0, time_, 6) + b"".join(struct.pack("<I2d", *row) for row in rows)
             for interval, time_, rows in ((60, 90, [(7, 9, 9)]), (15, 40, [(1, 4, 8), (2, 1, 1)]), (20, 55, [(2, 6, 1)]),
                                           (10, 80, [(0, 1, 1), (1, 2, 2)]))]
    found = browser.execute_async_script("""
        const [files, done] = arguments;
        const modules = ["delta", "layouts", "series"].map(name => import(`./${name}.js`));
        Promise.all(modules).then(([{decode}, {LAYOUTS}, {History}]) => {
          const layout = LAYOUTS.get("prio"), history = new History();
          for (const bytes of files) history.add(decode(new Uint8Array(bytes).buffer, layout).table, 1e6);
          const column = layout.rates.at(-1), {times, values} = history.lines([null, history.keyOf("1")].map(key => ({key, column})));
          done([times, ...values.map(line => line.map(String))]);
        });""", [list(data) for data in files])
    assert found == [[25, 40, 40, 55, 70, 70, 80], ["5", "5", "6", "6", "NaN", "3", "3"],
                     ["4", "4", "0", "0", "NaN", "2", "2"]]


# What a request is changed in, and its answer; nothing reaches the pipe but with status 200. Everything
# that is refused for what the headers and the body say is in the corpus of the program's fuzzer.
VIEWING = {"message": "viewing", "type": "host", "index": 3}
REQUESTS = {
    "viewing": (VIEWING, {}, 200), "create": ({**VIEWING, "message": "create"}, {}, 200),
    "destroy": ({"message": "destroy", "type": "ifstats", "index": 0},
                {"Content_Type": "application/json; charset=utf-8"}, 200),
    "old browser": (VIEWING, {"Sec_Fetch_Site": None}, 200),
    "behind TLS": (VIEWING, {"Origin": "https://127.0.0.1:8081"}, 200),
    "cross-site": (VIEWING, {"Sec_Fetch_Site": "cross-site"}, 403), "a form": (VIEWING, {"Content_Type": "text/plain"}, 415),
    "too long": ({**VIEWING, "type": "h" * 300}, {}, 413),
}


def test_requests(either_server, pipe):
    for label, (message, changes, wanted) in REQUESTS.items():
        status, answer = either_server.send(message, **changes)
        assert status == wanted and (status == 200 or answer["error"]), label
        sent = control.message({"viewing": 2, "create": 3, "destroy": 4}[message["message"]],
                               FORMATS[message["type"]][0], message["index"]) if wanted == 200 else b""
        assert (pipe.read(100) or b"") == sent, label
    if either_server.kind == "apache":  # the one that gives up root's powers
        PIPE.chmod(0o755)
        status, answer = either_server.send(VIEWING)
        assert status == 500 and "has no access to" in answer["error"]
    for method, wanted in (("PUT", 405), ("DELETE", 405), ("HEAD", 200)):
        assert either_server.request(method, "/tally/control", {"Content-Length": "0"})[0] == wanted, method
    assert either_server.request("GET", "/tally/control?history=host/1,host/2&span=hour")[0] == 400, "one at a time"
    status, headers, _ = either_server.request("GET", "/tally")
    assert status == 301 and headers["Location"].endswith("/tally/")
    for name, wanted in (("", (403, 404)), ("x.html", (200,))):  # no listing, and nothing of it is a page
        (DATA / "x.html").write_text("<script>")
        status, headers, _ = either_server.request("GET", "/tally/data/" + name)
        assert status in wanted and (status != 200 or (
            headers["Content-Type"], headers["X-Content-Type-Options"], headers["Content-Security-Policy"]) ==
            ("application/octet-stream", "nosniff", "default-src 'none'; sandbox")), name
    (DATA / "x.html").unlink()


def test_what_becomes_of_a_message(server, pipe):
    """Each trouble with the pipe has its own words; none leaves the page without an answer."""
    def full():
        with open(os.open(PIPE, os.O_WRONLY | os.O_NONBLOCK), "wb", buffering=0) as writer:
            writer.write(bytes(1 << 20))  # as much of it as there is room for

    def replace(make):
        PIPE.unlink()
        make()
    for make, wanted, words in (
            (full, 503, "is full"), (lambda: replace(lambda: os.mkfifo(PIPE)), 503, "Nobody reads"),
            (lambda: replace(lambda: PIPE.symlink_to("/dev/null")), 500, "symbolic link"),
            (lambda: replace(PIPE.touch), 500, "is not a FIFO"), (PIPE.unlink, 503, "no control pipe")):
        make()
        status, answer = server.send(VIEWING)
        assert status == wanted and words in answer["error"], answer


def test_list(server, files):
    """Whatever lies in the directory, the list has what is a collection's."""
    files(host_3_delta=header(0, 15) + bytes(62), host_3_last=b"", ifstats_delta=header(14)[:9], host_03_delta=b"", x=b"")
    os.mkfifo(DATA / "vlan_1_delta.bin")
    (DATA / "vlan_2_delta.bin").symlink_to("/etc/passwd")
    status, _, text = server.request("GET", "/tally/control")
    found = {(each["type"], each["index"]): each["files"] for each in json.loads(text)["collections"]}
    assert status == 200 and list(found) == [("host", 3), ("vlan", 1), ("vlan", 2), ("ifstats", 0)]
    delta = found["host", 3]["delta"]
    assert (delta["size"], delta["writing"], delta["header"]["interval"]) == (78, False, 15)
    assert found["host", 3]["last"]["header"] is found["ifstats", 0]["delta"]["header"] is None
    assert "error" in found["vlan", 1]["delta"] and "error" in found["vlan", 2]["delta"]
    status, _, text = server.request("GET", "/tally/control?names=host/77,host/3,vlan/1")  # of no file that is good
    assert (status, json.loads(text)) == (200, {"names": {"host/77": {}, "host/3": {}, "vlan/1": {}}})


# What is in the files, and what the page says of it; rows on show.
STATES = {
    "good": (lambda: {"delta": header(0) + hosts(3)}, [], 3),
    "header only": (lambda: {"delta": header(0)}, ["No rates: no counter changed"], 0),
    "one sample": (lambda: {"last": header(0, 0) + hosts(2)}, ["One sample so far"], 0),
    "no row": (lambda: {"last": header(0, 0)}, ["The agent has no row for it yet"], 0),
    "empty": (lambda: {"delta": b""}, ["The file is empty"], 0),
    "half a header": (lambda: {"delta": header(0)[:9]}, ["Half written: 9 of the 16"], 0),
    "half a record": (lambda: {"delta": header(0) + hosts(2)[:-1]}, ["Half written: 61 bytes behind"], 0),
    "unfinished": (lambda: {"delta": struct.pack("<iIiI", 15, 0, 0, 0) + hosts(2)}, ["Not finished"], 0),
    "foreign": (lambda: {"delta": header(1) + hosts(2)}, ["The header says type 1 (matrix)"], 0),
    "late": (lambda: {"delta": header(0, 60, 120) + hosts(2)},
             ["Late: the sample is 2 min old, and one is expected every 60 s"], 2),
    "not late yet": (lambda: {"delta": header(0, 60, 80) + hosts(2)}, [], 2),
    "an hour": (lambda: {"delta": header(0, 3600) + hosts(2)}, ["The rates are means over 60 min"], 2),
    "clock set back": (lambda: {"delta": header(0, -5, -100) + hosts(2)}, ["ahead of the server's clock", "mean nothing"], 2),
    "restarted": (lambda: {"delta": header(0) + hosts(2), "prev": header(0, 0, 60, 9000) + hosts(2, 1),
                           "last": header(0, 0, 0, 5) + hosts(2, 2)},
                  ["The agent was restarted"], 2),
    "up-time unknown": (lambda: {"delta": header(0) + hosts(2), "prev": header(0, 0, 60) + hosts(2, 1),
                                 "last": header(0, 0) + hosts(2, 2)},
                        ["cannot be told"], 2),
    "reset and new": (lambda: {"prev": header(0, 0, 60, 5) + host(1, 900) + host(2, 2.0**63) +
                                       host(4, 2.0**63 + 4096) + host(5, 1),
                               "last": header(0, 0, 0, 65) + host(1, 30) + host(2, 6) + host(3, 120) +
                                       host(4, 60) + host(5, 1),
                               "delta": header(0) + host(1, 30) + host(2, 6) + host(3, 2) + host(4, 1e17)},
                      ["2 rows with a whole count", "1 row not in the sample before", "1 row without rates"], 4),
    "cut short": (lambda: {"prev": header(0, 0, 60, 5) + host(1, 1) + host(2, 1) + host(3, 1),
                           "last": header(0, 0, 0, 65) + host(1, 7) + host(2, 7) + host(3, 1) + host(4, 0),
                           "delta": header(0) + host(1, 0.1)}, ["Cut short: 1 row behind", "3 rows without rates"], 1),
    "last cut short": (lambda: {"prev": header(0, 0, 60, 5) + host(1, 1) + host(2, 1),
                                "last": header(0, 0, 0, 65) + host(1, 7), "delta": header(0) + host(1, 0.1)},
                       ["The last sample is cut short: 1 row of the sample before"], 1),
    "first sample cut short": (lambda: {"prev": header(0, 0, 60, 5), "last": header(0, 0, 0, 65) + hosts(98)[62 * 88:],
                                        "delta": header(0) + hosts(98)[62 * 88:]},
                               ["may have been cut short", "10 rows not in the sample before"], 10),
    "no number": (lambda: {"delta": header(0) + struct.pack("<6s7d", b"<b>\0\0\0", float("nan"), -1, 1, 1, 1, 1, 1)},
                  ["1 row with a rate that is negative or not a number"], 1),
}


def test_states(browser, server, files):
    for index, (label, (make, notes, rows)) in enumerate(STATES.items()):
        files(**{f"host_{index}_{kind}": data for kind, data in make().items()})
        show(browser, server, f"host/{index}")
        wait_for(browser, "#title", lambda found, index=index: found[0].startswith(f"host {index} "))
        wait_for(browser, "#notes li", lambda found, notes=notes: len(found) == len(notes) and all(
            wanted in text for wanted, text in zip(notes, found)))
        wait_for(browser, "#grid tbody tr:not(.pad)", lambda found, rows=rows: len(found) == rows)
    show(browser, server, f"host/{list(STATES).index('reset and new')}")
    wait_for(browser, "#grid tbody .mark:not(:empty)", [" (raw count)", " (raw count)", " (new)"])
    # What changes under the eyes: a half-written file leaves the rows before it on show.
    files(host_0_delta=header(0, 15) + hosts(4))
    show(browser, server, "host/0")
    wait_for(browser, "#fact-rows", ["4"])
    for row in range(2):
        files(host_0_delta=header(0, 15, -1) + hosts(2 + row))
        wait_for(browser, "#fact-rows", [str(2 + row)])
    files(host_0_delta=header(0, 90, -1) + hosts(5))
    wait_for(browser, "#notes li", lambda found: any("instead of the usual 15 s" in text for text in found))
    files(host_0_delta=header(0, 15, -2) + hosts(3)[:-5])
    wait_for(browser, "#notes li", lambda found: "those of the sample before" in "".join(found))
    assert len(texts(browser, "#grid tbody tr:not(.pad)")) == 5
    # A file that is being written is not believed, whole as it may look, until the lock is gone.
    with open(DATA / "host_0_delta.bin", "wb") as file:
        fcntl.flock(file, fcntl.LOCK_EX)
        file.write(header(0, 15, -3) + hosts(2))
        file.flush()
        wait_for(browser, "#notes li", lambda found: all(
            text in "".join(found) for text in ("tallyd is writing", "went on changing")))
        assert len(texts(browser, "#grid tbody tr:not(.pad)")) == 5
    wait_for(browser, "#grid tbody tr:not(.pad)", lambda found: len(found) == 2)
    settings.no_supervisor()
    files(supvlan_delta=header(13, 60, 900))
    browser.refresh()
    show(browser, server, "supvlan")
    wait_for(browser, "#fact-state", ["Switched off"])
    wait_for(browser, "#notes li", lambda found: "Switched off" in found[-1] and "Late" not in "".join(found))
    NMP_SETTINGS.unlink()


def test_history(browser, server, files):
    """The recorder's rates, with a gap where it had none, up to the sample that the page has seen; of all rows and of
    one, as the address says; and why there are none."""
    shutil.rmtree(HISTORY, ignore_errors=True)
    HISTORY.mkdir()
    for age, value in ((1800, 1e3), (600, 3e3)):
        files(host_7_delta=header(0, 240, age) + host(1, value) + host(2, value / 2))
        subprocess.run([TALLYCTL, "record", "--rrd", HISTORY, "--seconds", "1"], check=True)
    files(host_7_delta=header(0, 60) + host(1, 2e3))
    told = json.loads(server.request("GET", "/tally/control?history=host/7&span=hour&column=hostInOctets")[2])
    for values, first in ((told["rows"][0]["rates"]["hostInOctets"], 1e3), (told["total"], 1.5e3)):
        known = [value for value in values if value is not None]
        assert known == sorted(known) and {first, 3 * first} == set(known) and 20 <= len(known) <= 40, values
    begin = told["begin"] + 15 * next(at for at, value in enumerate(told["total"]) if value == 4.5e3)
    assert abs(begin - (time.time() - 840)) < 200
    browser.refresh()
    show(browser, server, "host/7?span=hour")
    wait_for(browser, "#chart-note", lambda found: "the last hour: as the recorder has kept it" in found[0])
    wait_for(browser, "#chart .value", ["16.0 kbit/s", "0 bit/s"])
    wait_for(browser, "#chart canvas", lambda found: len(found) > 0)  # which comes behind its legend
    first = told["total"].index(1.5e3) + 3
    for presses, shown in ((first, ["8.00 kbit/s", "4.00 kbit/s"]), (first + 40, ["\u2013", "\u2013"])):
        browser.find_element(By.CSS_SELECTOR, "#chart .plot").send_keys(Keys.HOME, *[Keys.ARROW_RIGHT] * presses)
        wait_for(browser, "#chart .value", shown)
    browser.find_element(By.CSS_SELECTOR, "#spans input[value=hour]").send_keys(Keys.ARROW_RIGHT)
    wait_for(browser, "#chart-note", lambda found: "the last day" in found[0])
    browser.find_element(By.CSS_SELECTOR, "#chart a.who").click()
    wait_for(browser, "#row-charts .value", lambda found: "16.0 kbit/s" in found)
    assert browser.current_url.endswith("#host/7?row=00%3A00%3A00%3A00%3A00%3A01&span=day")
    for place, words in (("host/7?span=day&row=02", "Nothing is kept of this row"), ("host/8?span=day", "Nothing is kept of host 8")):
        files(host_8_delta=header(0) + host(1, 1))
        show(browser, server, place)
        wait_for(browser, "#past-trouble", lambda found, words=words: words in found[0])
    shutil.rmtree(HISTORY)
    browser.refresh()
    wait_for(browser, "#past-trouble", lambda found: "systemctl enable --now tallyd-record" in found[0])


def test_redraw_of_10000_rows(browser, server, files):
    """New data, another order, scrolling: only the rows in sight are ever in the document."""
    files(host_3_delta=header(0, 15) + hosts(10000))
    show(browser, server, "host/3")
    wait_for(browser, "#fact-rows", ["10,000"])
    browser.execute_script("""
        window.most = 0;
        const body = document.querySelector("#grid tbody"), count = () => { most = Math.max(most, body.rows.length); };
        new MutationObserver(count).observe(body, {childList: true});
        count();""")
    files(host_3_delta=header(0, 15, -1) + hosts(10000, seed=2))
    first = "#grid tbody tr:nth-child(2)"
    before = texts(browser, first)
    wait_for(browser, first, lambda found: found != before)
    browser.find_elements(By.CSS_SELECTOR, "#grid thead button")[0].click()
    wait_for(browser, "#grid tbody tr:nth-child(2) th", ["02:00:00:00:00:00"])
    browser.execute_script("document.getElementById('grid').scrollTop = 1e9")
    wait_for(browser, "#grid tbody tr:nth-last-child(2) th", ["02:00:00:00:27:0f"])
    assert 10 < browser.execute_script("return most") < 100


def test_from_the_overview_to_a_row(browser, server, files):
    """On a phone and by keyboard: tiles of the interfaces, of which one stood elsewhere in the sample before, each with
    a page of its own; order, search and columns as the address says; what a screen reader is told; nothing sticks out."""
    interfaces = [(1, 5, b"Gi1/1", 12.5, 100, *[3.0] * 10), (2, 5, b"Gi1/2", 0, 99.5, *[2.0] * 10)]
    rows = [struct.pack("<II16s12d", *row) for row in interfaces]
    files(ifstats_prev=header(14, 0, 60) + rows[1] + rows[0], ifstats_last=header(14, 0) + rows[0] + rows[1],
          ifstats_delta=header(14) + b"".join(rows), host_1_delta=header(0, 60, 300) + hosts(9), host_2_delta=b"x",
          prio_1_last=header(6, 0))
    browser.execute_cdp_cmd("Emulation.setDeviceMetricsOverride",
                            {"width": 360, "height": 740, "deviceScaleFactor": 2, "mobile": True})
    browser.execute_cdp_cmd("Emulation.setEmulatedMedia",
                            {"features": [{"name": "prefers-reduced-motion", "value": "reduce"}]})
    read = lambda: {(node["role"]["value"], node.get("name", {}).get("value")) for node in
                    browser.execute_cdp_cmd("Accessibility.getFullAXTree", {})["nodes"] if not node["ignored"]}
    try:
        show(browser, server, "")
        browser.refresh()
        wait_for(browser, ".card .pill", ["Stale", "Failing", "Waiting", "Live"])
        wait_for(browser, ".card .big", lambda found: "24" in found)  # 3 octets a second of the busiest
        wait_for(browser, "#port-list li", ["Gi1/1in12.5 %out100 %", "Gi1/2in0 %out99.5 %"])
        assert ("meter", "Gi1/1 in") in read()
        browser.find_element(By.CSS_SELECTOR, "#port-list a").send_keys(Keys.ENTER)
        wait_for(browser, "#title", ["Gi1/1"])
        wait_for(browser, "#row-charts h3", ["Traffic", "Utilisation", "Packets by kind and errors"])
        assert "24 bit/s" in texts(browser, "#counters dd")
        browser.find_element(By.ID, "above").send_keys(Keys.ENTER)
        assert "1 row at 100 %" in texts(browser, "#notes li")[0]
        wait_for(browser, "#grid tbody th", ["Gi1/1 (new)", "Gi1/2"])
        width, moving = browser.execute_script("""return [document.documentElement.scrollWidth,
            [...document.querySelectorAll("*")].filter(e => parseFloat(getComputedStyle(e).transitionDuration) > 0).length];""")
        assert (width, moving) == (360, 0)
        browser.execute_cdp_cmd("Emulation.clearDeviceMetricsOverride", {})
        for presses, order in ((1, "ascending"), (2, "descending")):
            browser.find_element(By.CSS_SELECTOR, "#grid thead button").send_keys(Keys.ENTER)
            wait_for(browser, "#grid tbody th", [["Gi1/1 (new)", "Gi1/2"], ["Gi1/2", "Gi1/1 (new)"]][presses - 1])
            assert browser.find_element(By.CSS_SELECTOR, "#grid thead th").get_attribute("aria-sort") == order
        browser.find_element(By.ID, "search").send_keys("gi1/2")
        wait_for(browser, "#grid tbody th", ["Gi1/2"])
        assert browser.current_url.endswith("#ifstats?sort=-ifIndex&q=gi1%2F2")
        for wanted in (("columnheader", "Interface"), ("rowheader", "Gi1/2"), ("searchbox", "Search"),
                       ("region", "Table of rows"), ("status", ""), ("heading", "ifstats \u2013 Interfaces of the switch")):
            assert wanted in read(), wanted
        show(browser, server, "ifstats?q=1&columns=ifOutOctets,ifInErrors")  # as somebody else was given it
        wait_for(browser, "#grid thead th", ["Index", "Interface", "Out, bit/s", "In errors"])
        wait_for(browser, "#chart .who", ["Gi1/1", "Gi1/2"])
        wait_for(browser, ".dygraph-axis-label-y", lambda found: "20 bit/s" in found)
        show(browser, server, "ifstats?q=nothing")
        browser.refresh()
        wait_for(browser, "#no-hit:not([hidden])", lambda found: len(found) == 1)
        assert not [entry for entry in browser.get_log("browser") if "Content Security" in entry["message"]]
        browser.get("about:blank")
    finally:
        browser.execute_cdp_cmd("Emulation.clearDeviceMetricsOverride", {})
        browser.execute_cdp_cmd("Emulation.setEmulatedMedia", {"features": []})


def test_with_the_daemon(browser, server, daemon, agent, log):
    """Create a collection in the page, see its rates, destroy it there: the daemon polls it as long
    as the page is open, its files agree with the page, and its log says nothing."""
    def serve(values):
        served = samples.rows(HOST, values, 5)
        agent.serve(host=served, control={"host": [(5, "somebody", 1)]})
        return model.returned(HOST, served, 5)
    first = serve({1: 10, 2: 20, 3: 30})
    browser.get(server.origin + "/tally/")
    wait_for(browser, "#create-row option", ["5 (somebody)"])
    assert texts(browser, "#create-type option:not(:disabled)")[0] == "Hosts by MAC address (host)"
    browser.find_element(By.CSS_SELECTOR, "#create button").send_keys(Keys.ENTER)
    wait_for(browser, "#title", lambda found: found[0].startswith("host 5 "))
    wait_for(browser, "#notes li", lambda found: "No rates: no counter changed" in "".join(found))  # polled since it is viewed
    next_second()
    second = serve({1: 1010, 2: 20, 3: 30030, 4: 2**53})
    begun = HOST.read(5, "last").header.time
    HOST.path(5, "delta").unlink()
    browser.refresh()
    wait_for(browser, "#fact-rows", ["3"])
    interval = HOST.read(5, "delta").header.interval
    assert interval == HOST.read(5, "delta").header.time - begun
    _, delta = model.merge(HOST, first, second, interval)
    cells = browser.execute_script("""return [...document.querySelectorAll("#grid tbody tr:not(.pad)")].map(row =>
        [row.cells[0].textContent, ...[...row.cells].slice(1).map(cell => {
          cell.dispatchEvent(new Event("mouseover", {bubbles: true}));  // the exact value
          return parseFloat(cell.title);
        })])""")
    by_octets_out = sorted(delta, key=lambda row: -row[1][3])
    wanted = [[key.hex(":") + " (new)" * (key[-1] == 4), *counters[2:4], *counters[:2], *counters[4:]]
              for key, counters in by_octets_out]
    assert [[row[0], *map(float, row[1:])] for row in cells] == wanted
    daemon.settle()
    for key, exists in ((Keys.ESCAPE, True), (Keys.ENTER, False)):
        browser.find_element(By.ID, "destroy").click()
        if key == Keys.ENTER:
            browser.find_element(By.ID, "confirm-yes").send_keys(key)
        else:
            browser.switch_to.active_element.send_keys(key)
        daemon.answer()
        processes.wait_until(lambda exists=exists: HOST.path(5, "last").exists() == exists)
    wait_for(browser, "#notes li", lambda found: found and "No file yet" in found[0])
    browser.get("about:blank")
