// What the two samples tell of the rates between them, row by row.

const WRAP = 2 ** 63;  // a counter that fell from above it is taken to have wrapped, else to be reset

// marksOf looks up each row of a delta table in the samples that it was made of:
//   marks  row: what is to be known of it
//   raw    rows in which a whole count stands in place of a rate, since the counter was reset
//   fresh  rows that the sample before had not: their rate is the whole count over the interval
export function marksOf(delta, prev, last) {
  const { rates } = delta.layout;
  const before = rowsByKey(prev);
  const after = rowsByKey(last);
  const found = { marks: new Map(), raw: 0, fresh: 0 };
  for (let row = 0; row < delta.count; row++) {
    const key = keyOf(delta, row);
    const old = before.get(key);
    const now = after.get(key);
    if (now === undefined) continue;  // not of these samples after all
    if (old === undefined) {
      found.fresh++;
      found.marks.set(row, "new");
      continue;
    }
    const reset = rates.filter((column) => {
      const count = last.number(now, column);
      const fell = count < prev.number(old, column) && prev.number(old, column) <= WRAP;
      return column.kind === "rate" && fell && delta.number(row, column) === count;
    });
    if (reset.length > 0) {
      found.raw++;
      found.marks.set(row, `raw count: ${reset.map(({ name }) => name).join(", ")}`);
    }
  }
  return found;
}

const keyOf = (table, row) => {
  const at = table.start(row);
  return String.fromCharCode(...table.bytes.subarray(at, at + table.layout.keySize));
};

const rowsByKey = (table) =>
  new Map(Array.from({ length: table.count }, (_, row) => [keyOf(table, row), row]));
