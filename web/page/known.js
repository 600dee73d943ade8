// What the page knows of one collection, and in which state that is.
import { idOf } from "./address.js";
import { decode } from "./delta.js";
import { HEADER_SIZE, LAYOUTS } from "./layouts.js";
import { isEmpty, isLate, isOff, notesOf } from "./notes.js";
import { isDisabled, rowsOf } from "./server.js";
import { find } from "./watcher.js";

const INTERVALS = 9;  // of which the usual one is found

// The states of a collection, the first that holds: what it is called, and when it is so.
const STATES = [
  ["loading", "Loading", ({ sample }) => sample === null],
  ["waiting", "Waiting", ({ sample, notes }) => !sample.header && !notes.some(({ level }) => level === "bad")],
  ["off", "Switched off", ({ off }) => off],
  ["failing", "Failing", ({ late, notes }) => notes.filter(({ level }) => level === "bad").length > (late ? 1 : 0)],
  ["stale", "Stale", ({ late }) => late],
  ["waiting", "No rows", ({ empty }) => empty],
  ["live", "Live", () => true],
];

let given = 0;  // samples of all collections

export class Known {
  sample = null;         // what decode() made of the newest file; null until there is one
  unsettled = false;
  answer = null;         // the engine's newest, and its summary
  summary = null;
  shown = null;          // the table whose rows the answer is about
  marks = new Map();     // row of it: what is to be known of it
  number = 0;            // of the newest sample that the engine was given; no other has it
  #tables = new Map();   // by number, the newest that the engine has summed up, and those since
  #intervals = [];       // of the newest samples
  #names = new Map();    // interface name: the ifIndex that it had
  #naming = { names: {} };  // what people call the values of the key

  constructor(collection) {
    this.collection = collection;
    this.id = idOf(collection);
    this.layout = LAYOUTS.get(collection.stem);
  }

  // take reads a file, and gives what the engine is to be told of it, or null.
  take(buffer, unsettled, samples, names) {
    this.#naming.names = names;
    this.sample = decode(buffer, this.layout, this.#naming);
    this.unsettled = unsettled;
    const { table, header } = this.sample;
    if (!table || unsettled) return null;
    this.#intervals = [header.interval, ...this.#intervals].slice(0, INTERVALS);
    this.number = ++given;
    this.#tables.set(this.number, table);
    return { id: this.id, stem: this.collection.stem, number: this.number, delta: buffer, samples, names };
  }

  // What comes after a summary is about the same table or a newer one.
  takeSummary(summary) {
    this.summary = summary;
    for (const number of this.#tables.keys()) if (number < summary.number) this.#tables.delete(number);
  }

  takeAnswer(answer) {
    const table = this.#tables.get(answer.number);
    if (table === undefined) return;  // of a collection that was destroyed and created again
    if (table !== this.shown) this.marks = new Map([...answer.findings.marks, ...this.#movedNames(table)]);
    this.shown = table;
    this.answer = answer;
  }

  // movedNames notes the rows whose interface name stood at another index in the sample before.
  #movedNames(table) {
    const notes = new Map();
    for (let row = 0; this.layout.percents.length > 0 && row < table.count; row++) {
      const name = table.title(row);
      const index = table.number(row, this.layout.columns[0]);
      const before = this.#names.get(name);
      if (before !== undefined && before !== index) notes.set(row, `was ifIndex ${before}`);
      this.#names.set(name, index);
    }
    return notes;
  }

  // facts gathers what notes.js judges; now is the server's clock.
  facts(listing, now) {
    const files = find(listing, this.collection)?.files ?? {};
    const { sample, layout, collection: { stem } } = this;
    return {
      ...this.collection, file: files.delta, last: files.last, prev: files.prev, files: Object.keys(files).length,
      ...sample, ...this.answer?.findings, now, usual: this.#usual(), offers: rowsOf(stem), disabled: isDisabled(stem), unsettled: this.unsettled,
      silent: sample?.table && files.last?.header?.time === sample.header.time ?
        (files.last.size - HEADER_SIZE) / layout.size - sample.table.count : 0,
      kept: this.shown !== null && sample !== null && (this.unsettled || sample.table === undefined),
    };
  }

  // condition gives {state, word, notes}.
  condition(listing, now) {
    const facts = this.facts(listing, now);
    const notes = this.sample ? notesOf(facts) : [];
    const [state, word] = STATES.find(([, , holds]) => holds({ sample: this.sample, notes, late: isLate(facts), off: isOff(facts), empty: isEmpty(facts) }));
    return { state, word, notes };
  }

  // usual gives the median of enough intervals, else 0. Polls out of turn have shorter ones, and the
  // first after a pause a longer one.
  #usual() {
    return this.#intervals.length < 3 ? 0 :
      this.#intervals.toSorted((a, b) => a - b)[Math.floor(this.#intervals.length / 2)];
  }
}
