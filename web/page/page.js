// The live page: what the watcher brings goes to the engine, and what the engine answers is shown.
import { LineChart, span } from "./chart.js";
import { decode } from "./delta.js";
import * as gauges from "./gauges.js";
import { Grid } from "./grid.js";
import { HEADER_SIZE, LAYOUTS } from "./layouts.js";
import { health, notesOf } from "./notes.js";
import { send } from "./server.js";
import { count, duration, grouped, moment } from "./text.js";
import { Watcher, find } from "./watcher.js";

const $ = (id) => document.getElementById(id);
const say = (id, text) => { if ($(id).textContent !== text) $(id).textContent = text; };
const TYPING = 150;  // milliseconds without a key before a search begins

const INTERVALS = 9;  // of which the usual one is found

const titleOf = ({ stem, index }) => (LAYOUTS.get(stem).supervisor ? stem : `${stem} ${index}`);
const hashOf = (collection) => `#${titleOf(collection).replace(" ", "/")}`;

// fromHash reads "#host/3" or "#ifstats"; null for everything else.
function fromHash() {
  const [, stem, index] = /^#([a-z]+)(?:\/(\d{1,10}))?$/.exec(location.hash) ?? [];
  const layout = LAYOUTS.get(stem);
  if (!layout || layout.supervisor !== (index === undefined)) return null;
  return { stem, index: Number(index ?? 0) };
}

let listing = null;
let selected = null;     // {stem, index}
let view = null;         // what is known of the selected collection: see open()
const created = new Set();  // titles of what this page asked for; it may have no file yet

const engine = new Worker(new URL("engine.js", import.meta.url), { type: "module" });
let posted = 0;          // samples that the engine was given
let leaving = null;      // a collection that is being destroyed: not viewed until it has no file
const grid = new Grid($("grid"), (column, descending) => ask({ column, descending }));
const chart = new LineChart($("chart"), $("legend"));
const watcher = new Watcher({
  list: showList,
  file: takeFile,
  trouble: (error) => fault("trouble", error),
  messageTrouble: (error) => fault("message-trouble", error),
});

function open(collection) {
  selected = collection;
  const layout = LAYOUTS.get(collection.stem);
  view = {
    layout,
    sample: null,        // what decode() made of the newest file; null until there is one
    unsettled: false,
    pending: new Map(),  // tables that the engine has and has not answered for, by their number
    shown: null,         // the table whose rows are on show
    shownTime: null,
    answer: null,        // the engine's newest
    drawn: "",           // what of it the chart shows
    intervals: [],       // of the newest samples
    names: new Map(),    // interface name: the ifIndex that it had
    marks: new Map(),    // row on show: what is to be known of it
    query: { column: layout.rank.name, descending: true, search: "", metric: layout.rank.name },
  };
  document.title = `${titleOf(collection)} - tallyd`;
  say("title", `${titleOf(collection)} \u2013 ${layout.title}`);
  $("collection").hidden = false;
  $("metric").replaceChildren(...layout.rates.map(({ heading, name }) => new Option(heading, name)));
  $("metric").value = layout.rank.name;
  $("search").value = "";
  say("found", "");
  $("destroy").hidden = !layout.creatable;
  $("gauges").hidden = layout.percents.length === 0;
  $("gauge-list").replaceChildren();
  grid.open(layout, `Rates per second of ${titleOf(collection)}`);
  chart.clear();
  say("chart-note", "");
  say("state", "");
  engine.postMessage({ open: collection.stem });
  ask({});
  watcher.select({ ...collection, asked: created.has(titleOf(collection)) });
  showFacts();
  markCurrent();
}

// ask changes a part of what the engine is asked for.
function ask(change) {
  Object.assign(view.query, change);
  engine.postMessage({ query: view.query });
}

function takeFile(buffer, unsettled, samples) {
  view.sample = decode(buffer, view.layout);
  view.unsettled = unsettled;
  const { table, header } = view.sample;
  if (table && !unsettled) {
    view.intervals = [header.interval, ...view.intervals].slice(0, INTERVALS);
    view.pending.set(++posted, table);
    engine.postMessage({ sample: { delta: buffer, samples } });
  }
  showFacts();
}

engine.onmessage = ({ data }) => {
  const table = view.pending.get(data.answered) ?? (data.answered === view.answer?.answered ? view.shown : null);
  if (table === null || table.layout !== view.layout) return;  // of the collection before
  for (const number of view.pending.keys()) if (number <= data.answered) view.pending.delete(number);
  if (table !== view.shown) view.marks = new Map([...data.findings.marks, ...movedNames(table)]);
  view.shown = table;
  view.answer = data;
  showRows();
  showFacts();
};

// movedNames notes the rows whose interface name stood at another index in the sample before.
function movedNames(table) {
  const notes = new Map();
  if (view.layout.percents.length === 0) return notes;
  for (let row = 0; row < table.count; row++) {
    const name = gauges.interfaceName(table, row);
    const index = table.number(row, view.layout.columns[0]);
    const before = view.names.get(name);
    if (before !== undefined && before !== index) notes.set(row, `was ifIndex ${before}`);
    view.names.set(name, index);
  }
  return notes;
}

function showRows() {
  const { shown, answer, query, layout } = view;
  const metric = layout.columns.find(({ name }) => name === query.metric);
  grid.show(shown, answer.order, query, metric, answer.top, view.marks);
  say("found", query.search ? `${grouped(answer.order.length)} of ${count(shown.count, "row")}` : "");
  if (layout.percents.length) {
    gauges.show($("gauge-list"), shown, answer.gauges);
    say("gauges-count", shown.count > answer.gauges.length ? `of the ${answer.gauges.length} busiest of ${grouped(shown.count)}` : "");
  }
  const drawn = `${answer.answered} ${query.metric} ${query.search}`;
  if (drawn === view.drawn) return;  // another order of the rows changes nothing below
  view.drawn = drawn;
  chart.show(answer.series, metric, shown.header.interval);
  const covered = `The chart covers ${span(answer.series)}: what this page has seen; the files keep no history.`;
  const five = "Its lines are the five busiest rows that the search finds; a row that a file leaves out counts as 0.";
  say("chart-note", LineChart.available ? `${covered} ${five}` :
    "Charts need the package libjs-chart.js at chart/ on the server. The newest values:");
}

// facts gathers what notes.js judges.
function facts() {
  const files = (listing && find(listing, selected)?.files) ?? {};
  const { shown, sample, layout } = view;
  return {
    stem: selected.stem, file: files.delta, last: files.last, prev: files.prev, files: Object.keys(files).length,
    ...sample, ...view.answer?.findings, now: listing.now, usual: usual(view.intervals), unsettled: view.unsettled,
    silent: sample?.table && files.last?.header?.time === sample.header.time ?
      (files.last.size - HEADER_SIZE) / layout.size - sample.table.count : 0,
    kept: shown !== null && sample !== null && (view.unsettled || sample.table === undefined),
  };
}

// usual gives the median of enough intervals, else 0. Polls out of turn have shorter ones, and the
// first after a pause a longer one.
const usual = (intervals) =>
  (intervals.length < 3 ? 0 : intervals.toSorted((a, b) => a - b)[Math.floor(intervals.length / 2)]);

function showFacts() {
  if (!view || !listing) return;
  const known = facts();
  const { header, table } = view.sample ?? {};
  say("fact-time", header ? moment(header.time) : "\u2013");
  say("fact-age", header ? duration(listing.now - header.time) : "\u2013");
  say("fact-interval", header ? `${header.interval} s` : "\u2013");
  say("fact-rows", table ? grouped(table.count) : "\u2013");
  const notes = view.sample ? notesOf(known) : [];
  const text = notes.map(({ level, text }) => `${level} ${text}`).join("\n");
  if ($("notes").dataset.text === text) return;
  $("notes").dataset.text = text;
  $("notes").replaceChildren(...notes.map(({ level, text }) => {
    const item = Object.assign(document.createElement("li"), { className: `note ${level}` });
    const word = Object.assign(document.createElement("b"), { textContent: { bad: "Fault", warn: "Note", info: "Info" }[level] });
    item.append(word, text);
    return item;
  }));
  // A screen reader hears of a change of health, not of every sample that comes in.
  const now = health(notes);
  if (now === $("state").dataset.health) return;
  $("state").dataset.health = now;
  say("state", now === "good" ? "The sample is as it should be." : notes.filter(({ level }) => level !== "info").map((note) => note.text).join(" "));
}

function showList(json) {
  listing = json;
  say("now", `server time ${moment(json.now)}`);
  $("truncated").hidden = !json.truncated;
  const known = json.collections.map(({ type, index }) => ({ stem: type, index }));
  const all = [...known, ...(selected && !find(json, selected) ? [selected] : [])];
  $("welcome").hidden = all.length > 0;
  const names = all.map(titleOf).join();
  if (names !== $("collections").dataset.names) {
    $("collections").dataset.names = names;
    $("collections").replaceChildren(...all.map((collection) => {
      const link = Object.assign(document.createElement("a"), { href: hashOf(collection) });
      link.append(titleOf(collection), Object.assign(document.createElement("small"), { textContent: LAYOUTS.get(collection.stem).title }));
      const item = document.createElement("li");
      item.append(link);
      return item;
    }));
    markCurrent();
  }
  if (leaving && !find(json, leaving)) {
    if (leaving === selected) watcher.select(leaving);
    leaving = null;
  }
  if (selected === null && known.length > 0) open(fromHash() ?? known[0]);
  showFacts();
}

function markCurrent() {
  for (const link of $("collections").querySelectorAll("a")) {
    if (selected && link.getAttribute("href") === hashOf(selected)) link.setAttribute("aria-current", "page");
    else link.removeAttribute("aria-current");
  }
}

// fault shows an error, or clears it (null).
function fault(id, error) {
  say(id, error?.message ?? "");
  $(id).hidden = error === null;
}

async function confirmed(text, yes) {
  say("confirm-text", text);
  say("confirm-yes", yes);
  $("confirm").returnValue = "no";
  $("confirm").showModal();
  await new Promise((resolve) => $("confirm").addEventListener("close", resolve, { once: true }));
  return $("confirm").returnValue === "yes";
}

async function order(message, collection, done) {
  try {
    await send(message, collection);
    fault("message-trouble", null);
    say("message", `${done} tallyd's log says what became of it.`);
    return true;
  } catch (error) {
    fault("message-trouble", error);
    return false;
  }
}

function setUp() {
  const types = [...LAYOUTS.values()].filter(({ creatable }) => creatable);
  $("create-type").replaceChildren(...types.map(({ stem, title }) => new Option(`${stem} \u2013 ${title}`, stem)));
  $("create-type").onchange = () => { $("create-index").disabled = LAYOUTS.get($("create-type").value).supervisor; };
  $("create").onsubmit = async (event) => {
    event.preventDefault();
    const stem = $("create-type").value;
    const wanted = { stem, index: LAYOUTS.get(stem).supervisor ? 0 : $("create-index").valueAsNumber };
    const title = titleOf(wanted);
    if (find(listing ?? { collections: [] }, wanted) && !LAYOUTS.get(stem).supervisor &&
        !await confirmed(`${title} exists. Creating it again removes its files, and it starts anew.`, "Start anew")) return;
    if (!await order("create", wanted, `Asked for ${title}.`)) return;
    created.add(title);
    if (location.hash === hashOf(wanted)) open(wanted);
    else location.hash = hashOf(wanted);
  };
  $("destroy").onclick = async () => {
    const gone = selected;
    if (!await confirmed(`Destroy ${titleOf(gone)}? Its files are removed, for everybody.`, "Destroy")) return;
    created.delete(titleOf(gone));
    watcher.select(null);
    if (await order("destroy", gone, `Asked to destroy ${titleOf(gone)}.`)) leaving = gone;
    else watcher.select(gone);
  };
  $("metric").onchange = () => ask({ metric: $("metric").value });
  let typing;
  $("search").oninput = () => {
    clearTimeout(typing);
    typing = setTimeout(() => ask({ search: $("search").value }), TYPING);
  };
  addEventListener("hashchange", () => {
    const wanted = fromHash();
    if (!wanted) return;
    open(wanted);
    if (matchMedia("(max-width: 50rem)").matches) $("navigation").open = false;
    $("title").focus();
  });
  if (matchMedia("(max-width: 50rem)").matches) $("navigation").open = false;
  if (fromHash()) open(fromHash());
}

setUp();
