#!/usr/bin/python3
"""page_redraw [ROWS...]: how long the live page keeps the browser from drawing.

Run it as: scripts/sandbox bench/page_redraw.py

Serves the page of this checkout with lighttpd, opens a host collection in Chromium and has Chromium
trace what the page's own thread does while new data come, the order changes, the table is scrolled
from end to end and a search is typed. Prints the longest task in milliseconds, of processor time and
by the clock, and beside it that of the plainest page there is: the same rows in one HTML table, put
in place twice. One line of JSON. A frame has 16.7 ms; people notice a stutter from some 100 ms on.
"""
import json
import pathlib
import random
import struct
import sys
import time

from selenium.webdriver.common.by import By

sys.path.append(str(pathlib.Path(__file__).resolve().parents[1] / "tests" / "e2e"))
from harness import processes, web  # behind its place
from harness.paths import DATA

PLAIN = """
const [rows, done] = arguments, table = document.createElement("table");
document.body.replaceChildren(table);
const fill = (seed) => { table.innerHTML = Array.from({length: rows}, (_, row) =>
  `<tr><th>02:00:00:00:${row}</th>${`<td>${(row * seed).toFixed(3)}</td>`.repeat(7)}</tr>`).join(""); };
const frame = (then) => requestAnimationFrame(() => setTimeout(then));
fill(1);
frame(() => { fill(2); frame(done); });
"""
SCROLL = """
const done = arguments[0], grid = document.getElementById("grid"), end = grid.scrollHeight;
let frame = 0;
const step = () => { grid.scrollTop = ++frame * end / 100; frame < 100 ? requestAnimationFrame(step) : done(); };
step();
"""


def put(rows, age):
    numbers = random.Random(rows + age)
    records = b"".join(struct.pack("<6s7d", row.to_bytes(6, "big"), *[numbers.random() * (row % 97) for _ in range(7)])
                       for row in range(rows))
    (DATA / ".new").write_bytes(struct.pack("<iIiI", 15, 0, int(time.time()) - age, 0) + records)
    (DATA / ".new").rename(DATA / "host_3_delta.bin")


def wait_for(browser, selector, holds):
    processes.wait_until(lambda: holds(browser.execute_script(
        "return document.querySelector(arguments[0])?.textContent ?? ''", selector)), 60)


def use(browser, rows):
    first = "#grid tbody tr:nth-child(2)"
    before = browser.find_element(By.CSS_SELECTOR, first).text
    put(rows, 0)
    wait_for(browser, first, lambda text: text != before)
    browser.find_elements(By.CSS_SELECTOR, "#grid thead button")[0].click()
    wait_for(browser, first, lambda text: text.startswith("00:00:00:00:00:00"))
    browser.execute_async_script(SCROLL)
    browser.find_element(By.ID, "search").send_keys("00:27:0")
    wait_for(browser, "#found", lambda text: text.startswith("16 of"))


def longest_task(url, ready, work):
    """Of the page's thread, from when it is ready until the work is done: {processor time, time by the clock} in ms."""
    browser = web.start_browser("toplevel,blink.user_timing")  # the trace can be had once only
    try:
        browser.set_script_timeout(120)
        browser.get(url)
        ready(browser)
        time.sleep(2)  # what the browser does when it has started is not the page's
        browser.execute_script("performance.mark('begin')")
        work(browser)
        events = [json.loads(entry["message"])["message"]["params"] for entry in browser.get_log("performance")]
    finally:
        browser.quit()
    begin, = (event for event in events if event.get("name") == "begin")
    tasks = [event for event in events if event.get("name") == "ThreadControllerImpl::RunTask"
             and (event["pid"], event["tid"]) == (begin["pid"], begin["tid"]) and event["ts"] > begin["ts"]]
    return {"cpu_ms": max(task.get("tdur", 0) for task in tasks) / 1000, "ms": max(task.get("dur", 0) for task in tasks) / 1000}


def main():
    server = web.WebServer("lighttpd", 8080)
    figures = {}
    for rows in map(int, sys.argv[1:] or (10000, 100000)):
        put(rows, 1)
        figures[rows] = {
            "page": longest_task(f"{server.origin}/tally/#host/3",
                                 lambda browser: wait_for(browser, "#fact-rows", lambda text: text == f"{rows:,}"),
                                 lambda browser: use(browser, rows)),
            "plain": longest_task("about:blank", lambda browser: None,
                                  lambda browser: browser.execute_async_script(PLAIN, rows))}
    print(json.dumps(figures))
    server.stop()


main()
