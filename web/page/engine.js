// The worker that holds the data of the collections: whatever takes time with the size of a table
// happens here and not on the page's own thread.
//
//   page -> engine  {sample: {id, stem, number, delta, samples, names}}  a whole delta file, with or without
//                     rows, and null or the files {prev, last} that it was made of
//                   {query: {id, column, descending, search, metric, row, past}}   names of columns; row
//                     is the label of one, or "", past names what of the past is wanted, or "". null:
//                     nothing but summaries is wanted
//                   {past: {wanted, stem, ...}}   what the server tells of the past
//                   {forget: id}   the collection is gone
//   engine -> page  {summary: {id, number, total, busiest, spark, tiles}}  after each sample; of the column
//                     that the type is ranked by: total of all rows or null, {title, label, value}, the
//                     course of the total or else of the busiest, [{title, label, values}] of interfaces
//                   {answer: {id, search, past, number, order, top, chart, findings, row, title, charts}}  the sample's number;
//                     rows as the query wants them and their largest metric, the lines of the
//                     metric, what countFlaws and marksOf found; row is the place of the wanted one
//                     or -1, title its name, charts its rates, one for each unit
import { decode } from "./delta.js";
import { LAYOUTS } from "./layouts.js";
import { Past } from "./past.js";
import { marksOf, NO_MARKS } from "./samples.js";
import { History } from "./series.js";
import { UNITS, sizeOf } from "./text.js";

const CHARTED = 8;
const CANDIDATES = 20;      // rows that are busy now, of which those are charted that were so all the time
const ROUNDING = 1e-9;      // of a total, which is no other row
const SPARKS = 80;          // points of a sparkline
const MAX_BYTES = 96 << 20; // of all histories
const ROWS_TILED = 256;

const collections = new Map();  // id: {layout, table, history, findings, number, charted}
let query = null, past = null;

onmessage = ({ data }) => {
  if (data.sample) take(data.sample);
  else if (data.past) past = new Past(data.past, LAYOUTS.get(data.past.stem));
  else if (data.forget) collections.delete(data.forget);
  else query = data.query;
  const known = collections.get(query?.id);
  if (known && (!data.sample || data.sample.id === query.id)) answer(known);
};

function take({ id, stem, number, delta, samples, names }) {
  const layout = LAYOUTS.get(stem);
  if (!collections.has(id)) collections.set(id, { layout, history: new History(), naming: {} });
  const known = collections.get(id);
  known.naming.names = names;
  const { table } = decode(delta, layout, known.naming);
  known.history.add(table, MAX_BYTES / collections.size);
  Object.assign(known, { table, number, findings: { ...countFlaws(table), ...marks(table, samples) } });
  postMessage({ summary: { id, number, ...summaryOf(known) } });
}

const columnOf = (layout, name) => layout.columns.find((column) => column.name === name) ?? layout.rank;

function summaryOf({ layout, table, history }) {
  const { rank, percents } = layout;
  const [row] = busiest(table, allRows(table), rank, 1);
  const total = layout.total !== "none";
  const drawn = total || row === undefined ? null : table.key(row);
  const { times, values: [values] } = history.lines([{ key: drawn, column: rank }]);
  return {
    rows: table.count,
    total: total ? history.total(table, rank) : null,
    busiest: row === undefined ? null : { ...table.who(row), value: table.number(row, rank) },
    spark: times.map((time, at) => [time, values[at]]).slice(-SPARKS),
    tiles: percents.length === 0 ? [] : [...allRows(table).subarray(0, ROWS_TILED)].map((row) =>
      ({ ...table.who(row), values: percents.map((column) => table.number(row, column)) })),
  };
}

function answer(known) {
  const { layout, table, number, findings } = known;
  const metric = columnOf(layout, query.metric);
  const found = foundRows(table);
  const order = sorted(table, found, columnOf(layout, query.column));
  const most = busiest(table, found, metric, 1)[0];
  const before = past?.wanted === query.past ? past : null;
  const kept = before?.rows() ?? [];
  const wanted = kept.find(({ label }) => label === query.row);
  const key = query.row === "" ? null : wanted?.key ?? known.history.keyOf(query.row);
  postMessage({ answer: {
    id: query.id, search: query.search, past: before ? `${before.wanted} ${before.begin}` : "", number, findings,
    title: key === null ? query.row : wanted?.title ?? known.history.titleOf(key),
    row: key === null ? -1 : allRows(table).findIndex((row) => table.key(row) === key),
    top: most === undefined ? 0 : table.number(most, metric),
    chart: query.row === "" ? chartOf(known, found, metric, before, kept) : null,
    charts: key === null ? [] : chartsOf(known, key, before),
    order,
  } }, [order.buffer]);
}

// chartOf draws those that were busiest on the average, of the rows that are busy now and those that
// were drawn before, so that lines do not come and go with each sample. Shares of a total are stacked,
// with all other rows on top. Of the past those are drawn that the server has found to be the busiest.
function chartOf(known, rows, metric, past, kept) {
  const { table, history, layout } = known;
  const rule = metric.kind === "percent" ? "none" : layout.total;
  const wanted = `${metric.name} ${query.search}`;
  const before = known.charted?.wanted === wanted ? known.charted.rows : [];
  const candidates = past ? kept : [...before, ...busiest(table, rows, metric, CANDIDATES).map((row) => table.who(row))];
  const names = new Map(candidates.map((who) => [who.key, who]));
  const { times, values } = history.lines([...names.keys(), null].map((key) => ({ key, column: metric })), past);
  const total = values.pop();
  const lines = [...names.values()].map((who, at) => ({ ...who, values: values[at], mean: mean(values[at]) }))
    .filter((line, at) => line.mean > 0 || at === 0).sort((a, b) => b.mean - a.mean).slice(0, CHARTED);
  if (!past) known.charted = { wanted, rows: lines.map(({ key, title, label }) => ({ key, title, label })) };
  const stacked = rule === "sum";
  if (stacked && (past || query.search === "")) {
    const rest = total.map((all, at) => Math.max(0, lines.reduce((left, line) => left - line.values[at], all)));
    if (rest.some((value, at) => value > total[at] * ROUNDING)) lines.push({ title: "Others", values: rest, others: true });
  }
  if (rule === "row" && (past || query.search === "")) lines.push({ title: "Total", values: total, others: true });
  return { column: metric.name, since: past?.begin, times, lines, stacked, total: rule === "none" ? null : total };
}

// chartsOf draws all rates of one row, one chart for each unit; events only where there were any.
function chartsOf({ history, layout }, key, past) {
  return Object.keys(UNITS).flatMap((unit) => {
    const columns = layout.rates.filter((column) => column.unit === unit && !sizeOf(column));
    const { times, values } = history.lines(columns.map((column) => ({ key, column })), past);
    const lines = columns.map(({ name }, at) => ({ label: name, column: name, values: values[at] }))
      .filter((line) => unit !== "events" || line.values.some((value) => value > 0)).slice(0, CHARTED);
    return lines.length === 0 ? [] : [{ column: lines[0].column, since: past?.begin, times, stacked: false, total: null, lines }];
  });
}

function mean(values) {
  const known = values.filter((value) => !Number.isNaN(value));
  return known.reduce((sum, value) => sum + value, 0) / known.length;
}

function marks(table, samples) {
  const prev = samples && decode(samples.prev, table.layout).table;
  const last = samples && decode(samples.last, table.layout).table;
  return prev && last ? marksOf(table, prev, last) : NO_MARKS;
}

// countFlaws counts the rows that stand at 100 %, and those with a rate that is negative or not a
// number.
function countFlaws(table) {
  const { rates, percents } = table.layout;
  let full = 0, odd = 0;
  for (let row = 0; row < table.count; row++) {
    if (percents.some((column) => table.number(row, column) === 100)) full++;
    if (rates.some((column) => !(table.number(row, column) >= 0))) odd++;
  }
  return { full, odd };
}

const allRows = (table) => Uint32Array.from({ length: table.count }, (_, row) => row);

function sorted(table, rows, column) {
  const keys = table.keys(column);
  const sign = query.descending ? -1 : 1;
  return rows.sort((a, b) => (keys[a] < keys[b] ? -sign : keys[a] > keys[b] ? sign : a - b));
}

// A row is found when each word of the search stands in its key or its name.
function foundRows(table) {
  const words = query.search.toLowerCase().split(/\s+/).filter((word) => word !== "");
  if (words.length === 0) return allRows(table);
  return allRows(table).filter((row) => {
    const text = `${table.label(row)} ${table.title(row)}`.toLowerCase();
    return words.every((word) => text.includes(word));
  });
}

// busiest gives the rows with the largest values of a column, totals left out.
function busiest(table, rows, column, count) {
  const best = [];
  for (const row of rows) {
    const value = table.number(row, column);
    if (table.isTotal(row) || !(value >= 0)) continue;
    if (best.length === count && value <= best[count - 1].value) continue;
    const at = best.findIndex((other) => other.value < value);
    best.splice(at < 0 ? best.length : at, 0, { row, value });
    best.length = Math.min(best.length, count);
  }
  return best.map(({ row }) => row);
}
