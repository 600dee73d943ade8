// History for the charts: the last files as they came, so that any column of any row can be drawn
// afterwards. Bounded in number and in bytes, whatever the files hold.

const MAX_SAMPLES = 720;
const BRIDGED = 15;  // seconds: of shorter intervals, which only settings ask for, the page cannot see every sample

export class History {
  #tables = [];
  #places = new WeakMap();  // table: Map of key to row, of the rows that were looked for
  #totals = new WeakMap();  // table: Map of column to its total

  // add takes a table, and lets go of the oldest ones until at most maxBytes are held.
  add(table, maxBytes) {
    // A new poll of the same second, or a clock that was set back, replaces what it overlaps.
    this.#tables = this.#tables.filter((older) => older.header.time < table.header.time);
    this.#tables.push(table);
    let bytes = this.#tables.reduce((sum, each) => sum + each.buffer.byteLength, 0);
    while (this.#tables.length > MAX_SAMPLES || (bytes > maxBytes && this.#tables.length > 1)) {
      bytes -= this.#tables.shift().buffer.byteLength;
    }
  }

  // lines gives rates over time: {times, values}, with an array of values for each of the wanted
  // {key, column}; the key null means the total of all rows. A rate holds for its whole interval, so
  // each sample has two points; where no sample is known a point of NaN breaks the lines. A row that
  // a file leaves out is 0. After a sample that could not be kept the next interval begins before the
  // last one ended; what was drawn stays. What the recorder has kept (past, or null) of the time before
  // the first sample stands in front.
  lines(wanted, past = null) {
    const keys = [...new Set(wanted.map(({ key }) => key))].filter((key) => key !== null);
    const times = [], values = wanted.map(() => []);
    const add = (time, point) => {
      times.push(time);
      values.forEach((line, at) => line.push(point(wanted[at])));
    };
    let end = null;
    const first = this.#tables.length > 0 ? beginOf(this.#tables[0].header) : Infinity;
    for (let at = 0; at < (past?.count ?? 0) && past.begin + at * past.step < first; at++) {
      const begin = past.begin + at * past.step;
      end = Math.min(begin + past.step, first);
      for (const time of [begin, end]) add(time, ({ key, column }) => past.value(key, column, at));
    }
    for (const table of this.#tables) {
      const { time } = table.header;
      let begin = Math.max(beginOf(table.header), end ?? -Infinity);
      if (end !== null && begin > end && begin - end < BRIDGED) begin = end;
      if (end !== null && begin > end) add(begin, () => NaN);
      const places = this.#find(table, keys);
      const rate = ({ key, column }) => {
        if (key === null) return this.total(table, column);
        return places.get(key) < 0 ? 0 : table.number(places.get(key), column);
      };
      add(begin, rate);
      add(time, rate);
      end = time;
    }
    return { times, values };
  }

  // keyOf finds the key of a row by its label, in the newest table that has it; null if none has.
  keyOf(label) {
    for (const table of this.#tables.toReversed()) {
      for (let row = 0; row < table.count; row++) if (table.label(row) === label) return table.key(row);
    }
    return null;
  }

  titleOf(key) {
    for (const table of this.#tables.toReversed()) {
      const row = this.#find(table, [key]).get(key);
      if (row >= 0) return table.title(row);
    }
    return "";
  }

  // total sums up a column, or reads it from the row that holds the total already.
  total(table, column) {
    if (!this.#totals.has(table)) this.#totals.set(table, new Map());
    const known = this.#totals.get(table);
    if (!known.has(column)) known.set(column, totalOf(table, column));
    return known.get(column);
  }

  // find gives the place of each key in a table, -1 where it has none. What was found is remembered:
  // after a sample only the newest table has to be searched.
  #find(table, keys) {
    if (!this.#places.has(table)) this.#places.set(table, new Map());
    const places = this.#places.get(table);
    const unknown = keys.filter((key) => !places.has(key));
    if (unknown.length === 0) return places;
    for (const key of unknown) places.set(key, -1);
    const octets = unknown.map((key) => Uint8Array.from(key, (letter) => letter.charCodeAt(0)));
    for (let row = 0; row < table.count; row++) {
      const start = table.start(row);
      for (let wanted = 0; wanted < octets.length; wanted++) {
        // From the end: the beginnings of keys are alike.
        let byte = octets[wanted].length - 1;
        while (byte >= 0 && table.bytes[start + byte] === octets[wanted][byte]) byte--;
        if (byte < 0) places.set(unknown[wanted], row);
      }
    }
    return places;
  }
}

const beginOf = ({ time, interval }) => time - Math.max(interval, 1);

function totalOf(table, column) {
  let sum = 0;
  for (let row = 0; row < table.count; row++) {
    const value = table.number(row, column);
    if (table.isTotal(row)) return value;
    sum += value;
  }
  return table.layout.totals ? 0 : sum;
}
