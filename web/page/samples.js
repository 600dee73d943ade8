// What the two samples tell of the rates between them, row by row.

const WRAP = 2 ** 63;  // a counter that fell from above it is taken to have wrapped, else to be reset

export const NO_MARKS = { marks: new Map(), raw: 0, fresh: 0, behind: 0, missing: 0, lost: 0, vanished: 0 };

// marksOf goes through a delta table and the samples that it was made of side by side, in the order
// of the files, and matches rows as the daemon does: rows of the older sample that sort before the
// one that is looked for are passed over.
//   marks     row: what is to be known of it
//   raw       rows in which a whole count stands in place of a rate, since the counter was reset
//   fresh     rows that the daemon did not find in the sample before: their rate is the whole count
//             over the interval
//   behind    those of them that sort behind the whole of the sample before
//   missing   rows of the last sample that changed and come behind the last row of the delta table
//   lost      rows that are not in the last sample
//   vanished  rows of the sample before that are not in the last one
export function marksOf(delta, prev, last) {
  const found = { ...NO_MARKS, marks: new Map() };
  let row = 0, old = 0;
  for (let now = 0; now < last.count; now++) {
    while (old < prev.count && prev.compare(old, last, now) < 0) {
      old++;
      found.vanished++;
    }
    const known = old < prev.count && prev.compare(old, last, now) === 0;
    if (row < delta.count && delta.compare(row, last, now) === 0) {
      if (known) {
        markReset(found, delta, row, prev, old, last, now);
      } else {
        found.fresh++;
        if (old === prev.count) found.behind++;
        found.marks.set(row, "new");
      }
      row++;
    } else if (row === delta.count && hasRate(prev, known ? old : -1, last, now)) {
      found.missing++;
    }
    if (known) old++;
  }
  found.lost = delta.count - row;
  found.vanished += prev.count - old;
  return found;
}

const counters = (table) => table.layout.rates.filter(({ kind }) => kind === "rate");

function markReset(found, delta, row, prev, old, last, now) {
  const reset = counters(delta).filter((column) => {
    const count = last.number(now, column);
    const before = prev.number(old, column);
    return count < before && before <= WRAP && delta.number(row, column) === count;
  });
  if (reset.length === 0) return;
  found.raw++;
  found.marks.set(row, `raw count: ${reset.map(({ heading }) => heading).join(", ")}`);
}

// hasRate tells whether the daemon finds a rate other than 0; old is -1 for a new row. A counter
// that was reset to 0 has that 0 for its "rate".
const hasRate = (prev, old, last, now) => counters(last).some((column) => {
  const count = last.number(now, column);
  return count !== 0 && count !== (old < 0 ? 0 : prev.number(old, column));
});
