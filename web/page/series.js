// History for the charts: the last files as they came, so that any column of any row can be drawn
// afterwards. Bounded in number and in bytes, whatever the files hold.

import { shownIn } from "./text.js";

const MAX_SAMPLES = 720;
const MAX_BYTES = 64 << 20;

export class History {
  #tables = [];

  add(table) {
    // A new poll of the same second, or a clock that was set back, replaces what it overlaps.
    this.#tables = this.#tables.filter((older) => older.header.time < table.header.time);
    this.#tables.push(table);
    let bytes = this.#tables.reduce((sum, each) => sum + each.buffer.byteLength, 0);
    while (this.#tables.length > MAX_SAMPLES || (bytes > MAX_BYTES && this.#tables.length > 1)) {
      bytes -= this.#tables.shift().buffer.byteLength;
    }
  }

  // series gives for each of these rows of the newest table the values of one column over time, in what its
  // heading says, and before them that of all rows (`whole`) where the type has a total: {label, whole,
  // points: [{x, y}]}. A rate holds for its whole interval, so each sample has two points; where no
  // sample is known the line is broken by a NaN. A row that a file leaves out is drawn as 0. After a sample that could not be
  // kept the next interval begins before the last one ended; what was drawn stays.
  series(column, rows) {
    const newest = this.#tables.at(-1);
    const named = rows.map((row) => ({ row, label: newest.label(row), points: [] }));
    const summed = newest.layout.total !== "none" && column.kind !== "percent";
    const all = { label: newest.layout.totals ? "total" : "sum of all rows", whole: true, points: [] };
    let end = null;
    for (const table of this.#tables) {
      const { time, interval } = table.header;
      const begin = Math.max(time - Math.max(interval, 1), end ?? -Infinity);
      const draw = ({ points }, value) => {
        const y = shownIn(column, value);
        if (end !== null && begin > end) points.push({ x: begin, y: NaN });
        points.push({ x: begin, y }, { x: time, y });
      };
      const found = findRows(table, newest, rows);
      named.forEach((line, at) => draw(line, found[at] < 0 ? 0 : table.number(found[at], column)));
      if (summed) draw(all, total(table, column));
      end = time;
    }
    return summed ? [all, ...named] : named;
  }
}

function total(table, column) {
  let sum = 0;
  for (let row = 0; row < table.count; row++) {
    const value = table.number(row, column);
    if (table.isTotal(row)) return value;
    sum += value;
  }
  return table.layout.totals ? 0 : sum;
}

// findRows finds rows of the newest table in an older one by their keys; -1 where there is none.
function findRows(table, newest, rows) {
  if (table === newest) return rows;
  const { keySize } = table.layout;
  const starts = rows.map((row) => newest.start(row));
  const found = rows.map(() => -1);
  for (let row = 0; row < table.count; row++) {
    const at = table.start(row);
    for (let wanted = 0; wanted < starts.length; wanted++) {
      // From the end: the beginnings of keys are alike.
      let byte = keySize - 1;
      while (byte >= 0 && table.bytes[at + byte] === newest.bytes[starts[wanted] + byte]) byte--;
      if (byte < 0) found[wanted] = row;
    }
  }
  return found;
}
