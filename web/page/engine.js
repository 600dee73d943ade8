// The worker that holds the data of one collection: whatever takes time with the size of a table
// happens here and not on the page's own thread.
//
//   page -> engine  {open: stem}             begin anew, without any history
//                   {sample: {delta, samples}}  a whole delta file, with or without rows, and
//                                            null or the files {prev, last} that it was made of
//                   {query: {column, descending, search, metric}}   names of columns
//   engine -> page  {order: Uint32Array, top, series, gauges, findings, answered}  rows as the query
//                   wants them and their largest metric, the lines of the chart, [row] of the busiest
//                   interfaces, what countFlaws and marksOf found; `answered` is the number of samples
//                   taken, by which the page knows which table that is
import { decode } from "./delta.js";
import { LAYOUTS } from "./layouts.js";
import { marksOf, NO_MARKS } from "./samples.js";
import { History } from "./series.js";

const CHARTED = 5;
const GAUGED = 24;

let layout, table, history, query, findings;
let taken = 0;

onmessage = ({ data }) => {
  if (data.open) {
    layout = LAYOUTS.get(data.open);
    table = null;
    history = new History();
  } else if (data.sample) {
    const { delta, samples } = data.sample;
    table = decode(delta, layout).table;
    history.add(table);
    findings = { ...countFlaws(), ...marks(samples) };
    taken++;
  } else {
    query = data.query;
  }
  if (table && query && columnOf(query.column)) answer();
};

const columnOf = (name) => layout.columns.find((column) => column.name === name);

function answer() {
  const order = orderedRows();
  const metric = columnOf(query.metric);
  const charted = busiest(order, [metric], CHARTED);
  const series = history.series(metric, charted);
  const top = charted.length ? table.number(charted[0], metric) : 0;
  const gauges = layout.percents.length ? busiest(allRows(), layout.percents, GAUGED) : [];
  postMessage({ order, top, series, gauges, findings, answered: taken }, [order.buffer]);
}

function marks(samples) {
  const prev = samples && decode(samples.prev, layout).table;
  const last = samples && decode(samples.last, layout).table;
  return prev && last ? marksOf(table, prev, last) : NO_MARKS;
}

// countFlaws counts the rows that stand at 100 %, and those with a rate that is negative or not a
// number.
function countFlaws() {
  const { rates, percents } = layout;
  let full = 0, odd = 0;
  for (let row = 0; row < table.count; row++) {
    if (percents.some((column) => table.number(row, column) === 100)) full++;
    if (rates.some((column) => !(table.number(row, column) >= 0))) odd++;
  }
  return { full, odd };
}

const allRows = () => Uint32Array.from({ length: table.count }, (_, row) => row);

function orderedRows() {
  const keys = table.keys(columnOf(query.column));
  const sign = query.descending ? -1 : 1;
  return foundRows().sort((a, b) => (keys[a] < keys[b] ? -sign : keys[a] > keys[b] ? sign : a - b));
}

// A row is found when each word of the search stands in its key.
function foundRows() {
  const words = query.search.toLowerCase().split(/\s+/).filter((word) => word !== "");
  if (words.length === 0) return allRows();
  return allRows().filter((row) => {
    const label = table.label(row).toLowerCase();
    return words.every((word) => label.includes(word));
  });
}

// busiest gives the rows with the largest value in any of the columns, totals left out.
function busiest(rows, columns, count) {
  const best = [];
  for (const row of rows) {
    const value = Math.max(...columns.map((column) => table.number(row, column)));
    if (table.isTotal(row) || !(value >= 0)) continue;
    if (best.length === count && value <= best[count - 1].value) continue;
    const at = best.findIndex((other) => other.value < value);
    best.splice(at < 0 ? best.length : at, 0, { row, value });
    best.length = Math.min(best.length, count);
  }
  return best.map(({ row }) => row);
}
