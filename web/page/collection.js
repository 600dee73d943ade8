// One collection on show: its state, its chart and its rows.
import { SPANS, linkTo, pastOf, titleOf } from "./address.js";
import { Chart, covered } from "./chart.js";
import { $, element, say } from "./dom.js";
import { Grid } from "./grid.js";
import { count, grouped } from "./text.js";

const TYPING = 150;  // milliseconds without a key before a search begins

export class CollectionView {
  #place = null; #layout = null; #known = null; #drawn = "";
  #chart = new Chart($("chart"));
  #grid;
  #changed;

  // changed(place) is called when the reader wants something else of the same collection.
  constructor(changed) {
    this.#changed = (change) => changed({ ...this.#place, ...change });
    this.#grid = new Grid($("grid"), (column, descending) => this.#changed({ sort: sortText(column, descending) }));
    $("metric").onchange = () => this.#changed({ chart: $("metric").value });
    $("order").onchange = () => this.#changed({ sort: $("order").value });
    let typing;
    $("search").oninput = () => {
      clearTimeout(typing);
      typing = setTimeout(() => this.#changed({ q: $("search").value }), TYPING);
    };
    $("no-hit").querySelector("button").onclick = () => {
      $("search").value = "";
      this.#changed({ q: "" });
      $("search").focus();
    };
    $("columns").onchange = () => {
      const boxes = [...$("columns").querySelectorAll("input")];
      const chosen = boxes.filter(({ checked }) => checked).map(({ value }) => value);
      this.#changed({ columns: chosen.length === boxes.length ? "" : chosen.join() || this.#layout.rank.name });
    };
  }

  // open turns to a collection, or to another sort, search, chart or columns of the same.
  open(place, known) {
    const anew = this.#known !== known;
    const columns = anew || this.#place.columns !== place.columns;
    this.#place = place;
    this.#known = known;
    this.#layout = known.layout;
    const query = this.query();
    $("grid").hidden = false;
    if (columns) {
      const wanted = place.columns.split(",");
      const shown = this.#layout.shown.filter(({ isRate, name }) => !isRate || !place.columns || wanted.includes(name));
      this.#grid.open(known.layout, shown, `Rates of ${titleOf(place)}`, (label) => linkTo(this.#place, label));
      $("columns").replaceChildren(...this.#layout.rates.map((column) => element("label", {},
        element("input", { type: "checkbox", value: column.name, checked: shown.includes(column) }), column.heading)));
    }
    if (anew) {
      this.#chart.clear();
      this.#drawn = "";
      say("chart-note", "");
      $("no-hit").hidden = true;
      const options = (columns) => columns.map((column) => element("option", { value: column.name, textContent: column.heading, title: column.name }));
      $("metric").replaceChildren(...options(this.#layout.rates));
      $("order").replaceChildren(...this.#layout.shown.map((column) =>
        element("option", { value: sortText(column.name, column.isRate), textContent: column.heading })));
      say("found", "");
    }
    if (document.activeElement !== $("search")) $("search").value = place.q;
    $("metric").value = query.metric;
    $("order").value = sortText(query.column, query.descending);
    if (known.answer) this.show();
  }

  // query is what the engine is to be asked.
  query() {
    const { sort, q, chart } = this.#place;
    const { columns, rates, rank } = this.#layout;
    const named = (name, of) => of.find((column) => column.name === name)?.name;
    const column = named(sort.replace(/^-/, ""), columns);
    const metric = named(chart, rates) ?? rank.name;
    return { id: this.#known.id, column: column ?? rank.name, descending: column === undefined || sort.startsWith("-"),
      search: q, metric, row: "", past: pastOf({ ...this.#place, column: metric }) };
  }

  // show shows the engine's newest answer.
  show() {
    const { shown, answer, marks, number, layout } = this.#known;
    if (!answer.chart) return;
    const query = this.query();
    const metric = layout.columns.find(({ name }) => name === query.metric);
    this.#grid.show(shown, answer.order, query, metric, answer.top, marks);
    $("no-hit").hidden = answer.order.length > 0;
    $("grid").hidden = !$("no-hit").hidden;
    $("no-hit").querySelector("button").hidden = query.search === "";
    say("no-hit-text", query.search === "" ? "No row has rates in this sample." : "No row matches the search.");
    say("found", query.search ? `${grouped(answer.order.length)} of ${count(shown.count, "row")}` : "");
    const drawn = [number, query.metric, query.search, query.past, answer.past].join();
    if (answer.chart.column !== query.metric || answer.search !== query.search) return;  // of the query before
    if (drawn === this.#drawn) return;  // another order changes nothing below
    this.#drawn = drawn;
    const [word, seconds] = (answer.past && SPANS.get(this.#place.span)) || ["", 0];
    this.#chart.show({ ...answer.chart, owner: this.#known.id, seconds }, metric, shown.header.interval,
      ({ label }) => (label === undefined ? null : linkTo(this.#place, label)));
    const what = answer.chart.stacked ? "Shares of the total" : "The busiest rows";
    const when = word ? `${word.toLowerCase()}: as the recorder has kept it` : `${covered(answer.chart)}: as long as this page has watched`;
    say("chart-note", answer.chart.lines.length === 0 ? "There is nothing to draw." : `${what}, the last ${when}.`);
  }
}

const sortText = (column, descending) => `${descending ? "-" : ""}${column}`;
