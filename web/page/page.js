// The live page: the watcher brings files, the engine makes sense of them, and one of three views -
// the overview, a collection, a row - shows what the address says.
import { SPANS, idOf, read, titleOf, write } from "./address.js";
import { engine } from "./begin.js";
import { CollectionView } from "./collection.js";
import * as messages from "./messages.js";
import { $, element, perFrame, say } from "./dom.js";
import { Known } from "./known.js";
import { LAYOUTS } from "./layouts.js";
import { health } from "./notes.js";
import * as overview from "./overview.js";
import * as recorded from "./recorded.js";
import { RowView } from "./row.js";
import { refreshSources } from "./server.js";
import { count, duration, grouped, moment } from "./text.js";
import { Watcher, find } from "./watcher.js";

const FOLLOWED = 40;  // collections that the overview keeps up to date, at most
const RELOOK = 60000; // milliseconds between two looks at the settings, while a kind of the supervisor's is stale
const TICK = 1000;    // milliseconds between two looks at the age of things
const NARROW = matchMedia("(max-width: 50rem)");

let listing = null, listed = 0;  // the newest list, and when it came
let place = read(location.hash);  // what the address says; null: the overview
let leaving = null;               // a collection that is being destroyed: not viewed until it has no file
const known = new Map();          // by id
const created = new Set();        // ids of what this page asked for; it may have no file yet

const takePast = (told, error) => {
  messages.fault("past-trouble", error ?? (told.left_out > 0 ? { message: `${count(told.left_out, "row")} left out, for lack of time to read them all.` } : null));
  if (told) engine.postMessage({ past: told });
};
const views = { collection: new CollectionView(change), row: new RowView() };
const watcher = new Watcher({
  list: takeList,
  file: takeFile,
  trouble: (error) => messages.fault("trouble", error),
  // Where nothing answers it is said once.
  messageTrouble: (error) => messages.fault("message-trouble", $("trouble").hidden ? error : null),
});

const showSoon = perFrame(showAll);
const viewed = () => (place === null ? null : place.row ? views.row : views.collection);
const serverTime = () => listing.now + (performance.now() - listed) / 1000;

function knownOf(collection) {
  const id = idOf(collection);
  if (!known.has(id)) known.set(id, new Known(collection));
  return known.get(id);
}

// forget lets go of what is known of a collection that is gone, or begins anew.
function forget(collection) {
  known.delete(idOf(collection));
  overview.forget(collection);
  engine.postMessage({ forget: idOf(collection) });
}

// go shows what the address says.
function go() {
  place = read(location.hash);
  $("overview").hidden = place !== null;
  $("collection").hidden = place === null;
  $("whole").hidden = Boolean(place?.row);
  $("row").hidden = !place?.row;
  if (place === null) {
    document.title = "tallyd";
    engine.postMessage({ query: null });
    recorded.want(null);
  } else {
    const { title, creatable } = LAYOUTS.get(place.stem);
    document.title = `${place.row || titleOf(place)} \u2013 tallyd`;
    say("title", place.row || `${titleOf(place)} \u2013 ${title}`);
    $("above").textContent = place.row ? `${titleOf(place)} \u2013 ${title}` : "Overview";
    $("above").href = place.row ? write({ ...place, row: "" }) : "#";
    $("destroy").hidden = !creatable || Boolean(place.row);
    turn();
  }
  follow();
  showAll();
  markCurrent();
}

// change shows something else of the same collection or row, at another address.
function change(wanted) {
  place = wanted;
  history.replaceState(null, "", write(place));
  turn();
}

// turn has the view on show turn to the place.
function turn() {
  viewed().open(place, knownOf(place));
  const query = viewed().query();
  engine.postMessage({ query });
  recorded.want(query.past ? { stem: place.stem, index: place.index, span: place.span, column: query.metric, row: place.row } : null, takePast);
  if (!query.past) messages.fault("past-trouble", null);
  for (const choice of $("spans").querySelectorAll("input")) choice.checked = choice.value === (query.past && place.span);
}

// follow tells the watcher what to keep up to date: the collection on show, or all of the overview.
function follow() {
  const all = place ? [place] : collections().slice(0, FOLLOWED);
  const samples = place !== null;
  const wanted = all.filter((each) => leaving === null || idOf(each) !== idOf(leaving));
  watcher.follow(wanted.map(({ stem, index }) => ({ stem, index, samples, asked: created.has(idOf({ stem, index })) })));
}

// collections gives {stem, index} of all that have files, and of the one on show.
function collections() {
  const all = (listing?.collections ?? []).map(({ type, index }) => ({ stem: type, index }));
  return place && listing && !find(listing, place) ? [...all, place] : all;
}

function takeList(json) {
  listing = json;
  listed = performance.now();
  $("truncated").hidden = !json.truncated;
  if (leaving && !find(json, leaving)) {
    forget(leaving);
    leaving = null;
    go();
  }
  const all = collections();
  const names = all.map(idOf).join();
  if (names !== $("collections").dataset.names) {
    $("collections").dataset.names = names;
    $("collections").replaceChildren(...all.map((collection) => element("li", {}, element("a", { href: write({ stem: collection.stem, index: collection.index }) },
      element("span", { className: "dot" }), titleOf(collection), element("small", {}, LAYOUTS.get(collection.stem).title)))));
    markCurrent();
    follow();
  }
  showSoon();
}

function takeFile(collection, buffer, unsettled, samples, names) {
  const sample = knownOf(collection).take(buffer, unsettled, samples, names);
  if (sample) engine.postMessage({ sample });
  showSoon();
}

engine.onmessage = ({ data: { summary, answer } }) => {
  const each = known.get((summary ?? answer).id);
  if (!each) return;
  if (summary) each.takeSummary(summary);
  if (answer) each.takeAnswer(answer);
  if (answer && each.answer && place && idOf(place) === answer.id) viewed().show();
  showSoon();
};

// showAll shows the states of everything as of now.
function showAll() {
  if (!listing) return;
  say("now", `server time ${moment(serverTime())}`);
  const all = collections();
  $("loading").hidden = true;
  $("welcome").hidden = all.length > 0 || place !== null;
  all.forEach((each, at) => {
    const { state, word } = knownOf(each).condition(listing, serverTime());
    if (state === "stale" && LAYOUTS.get(each.stem).supervisor) void refreshSources(RELOOK);
    const dot = $("collections").children[at]?.querySelector(".dot");
    if (!dot) return;
    dot.dataset.state = place === null || idOf(each) === idOf(place) ? state : "";
    dot.title = dot.dataset.state && word;
  });
  if (place === null) overview.show(all.map(knownOf), listing, serverTime());
  else showFacts();
}

function showFacts() {
  const shown = knownOf(place);
  const { state, word, notes } = shown.condition(listing, serverTime());
  const { header, table } = shown.sample ?? {};
  const facts = { state: word, rows: table && grouped(table.count), ...(header && {
    time: moment(header.time).slice(0, -7), age: duration(serverTime() - header.time), interval: `${header.interval} s` }) };
  for (const name of ["state", "time", "age", "interval", "rows"]) say(`fact-${name}`, facts[name] ?? "\u2013");
  $("fact-state").dataset.state = state;
  $("panels").hidden = shown.answer === null;
  const text = notes.map(({ level, text }) => `${level} ${text}`).join("\n");
  if ($("notes").dataset.text === text) return;
  $("notes").dataset.text = text;
  $("notes").replaceChildren(...notes.map(({ level, text }) => element("li", { className: `note ${level}` },
    element("b", { textContent: { bad: "Fault", warn: "Note", info: "Info" }[level] }), text)));
  // A screen reader hears of a change of health, not of every sample that comes in.
  const now = health(notes);
  if (now === $("state").dataset.health) return;
  $("state").dataset.health = now;
  say("state", now === "good" ? "The sample is as it should be." : notes.filter(({ level }) => level !== "info").map((note) => note.text).join(" "));
}

function markCurrent() {
  const current = place ? write({ stem: place.stem, index: place.index }) : "#";
  for (const link of $("navigation").querySelectorAll("nav a")) {
    link.ariaCurrent = link.getAttribute("href") === current ? "page" : null;
  }
}

messages.setUp((wanted) => find(listing ?? { collections: [] }, wanted) !== undefined, (wanted) => {
  created.add(idOf(wanted));
  forget(wanted);
  if (location.hash === write(wanted)) go();
  else location.hash = write(wanted);
});
$("spans").append(...[["", ["Live"]], ...SPANS].map(([value, [word]]) => element("label", {},
  element("input", { type: "radio", name: "span", value }), element("span", {}, word))));
$("spans").onchange = ({ target }) => change({ ...place, span: target.value });
$("destroy").onclick = async () => {
  const gone = place;
  const asked = await messages.destroy(gone, () => {
    created.delete(idOf(gone));
    leaving = gone;
    follow();
  });
  if (asked !== false) return;
  leaving = null;
  follow();
};
addEventListener("hashchange", () => {
  go();
  if (NARROW.matches) $("navigation").open = false;
  scrollTo(0, 0);
  (place ? $("title") : $("overview-title")).focus();
});
document.querySelector(".skip").onclick = (event) => {
  event.preventDefault();
  $("main").focus();
};
NARROW.onchange = () => { $("navigation").open = !NARROW.matches; };
NARROW.onchange();
setInterval(showAll, TICK);
go();
// What there is to be created is asked for behind what there is to be seen.
watcher.run().then(messages.refresh);
