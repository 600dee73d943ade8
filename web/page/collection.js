// One collection on show: its state, its chart and its rows.
import { SPANS, linkTo, pastOf, titleOf } from "./address.js";
import { Chart, covered } from "./chart.js";
import { $, element, say } from "./dom.js";
import { Grid } from "./grid.js";
import { count, grouped } from "./text.js";

const TYPING = 150;  // milliseconds without a key before a search begins

export class CollectionView {
  #place = null; #known = null; #drawn = ""; #changed; #grid;
  #chart = new Chart($("chart"));

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
    $("show-all").onclick = () => {
      $("search").value = "";
      this.#changed({ q: "" });
      $("search").focus();
    };
    $("columns").onchange = () => {
      const boxes = [...$("columns").querySelectorAll("input")];
      const chosen = boxes.filter(({ checked }) => checked).map(({ value }) => value);
      this.#changed({ columns: chosen.length === boxes.length ? "" : chosen.join() || this.#known.layout.rank.name });
    };
  }

  // open turns to a collection, or to another sort, search, chart or columns of the same.
  open(place, known) {
    const anew = this.#known !== known;
    const columns = anew || this.#place.columns !== place.columns;
    this.#place = place;
    this.#known = known;
    const { shown, rates } = known.layout;
    $("grid").hidden = false;
    if (columns) {
      const wanted = place.columns.split(",");
      const chosen = shown.filter(({ isRate, name }) => !isRate || !place.columns || wanted.includes(name));
      this.#grid.open(chosen, `Rates of ${titleOf(place)}`, (label) => linkTo(this.#place, label));
      $("columns").replaceChildren(...rates.map((column) => element("label", {},
        element("input", { type: "checkbox", value: column.name, checked: chosen.includes(column) }), column.heading)));
    }
    if (anew) {
      this.#chart.clear();
      this.#drawn = "";
      say("chart-note", "");
      say("found", "");
      $("no-hit").hidden = true;
      $("metric").replaceChildren(...rates.map(({ name, heading }) => element("option", { value: name, title: name }, heading)));
      $("order").replaceChildren(...shown.map(({ name, heading, isRate }) => element("option", { value: sortText(name, isRate) }, heading)));
    }
    const query = this.query();
    if (document.activeElement !== $("search")) $("search").value = place.q;
    $("metric").value = query.metric;
    $("order").value = sortText(query.column, query.descending);
    if (known.answer) this.show();
  }

  // query is what the engine is to be asked.
  query() {
    const { sort, q, chart } = this.#place;
    const { columns, rates, rank } = this.#known.layout;
    const named = (name, of) => of.find((column) => column.name === name)?.name;
    const column = named(sort.replace(/^-/, ""), columns);
    const metric = named(chart, rates) ?? rank.name;
    return { id: this.#known.id, column: column ?? rank.name, descending: column === undefined || sort.startsWith("-"),
      search: q, metric, row: "", past: pastOf({ ...this.#place, column: metric }) };
  }

  // show shows the engine's newest answer.
  show() {
    const { shown, answer: { chart, order, top, search, past }, marks, number, layout, id } = this.#known;
    if (!chart) return;
    const query = this.query();
    const metric = layout.columns.find(({ name }) => name === query.metric);
    this.#grid.show({ data: shown, order, sort: query, metric, top, notes: marks });
    $("no-hit").hidden = order.length > 0;
    $("grid").hidden = !$("no-hit").hidden;
    $("show-all").hidden = query.search === "";
    say("no-hit-text", query.search === "" ? "No row has rates in this sample." : "No row matches the search.");
    say("found", query.search ? `${grouped(order.length)} of ${count(shown.count, "row")}` : "");
    const drawn = [number, query.metric, query.search, query.past, past].join();
    if (chart.column !== query.metric || search !== query.search) return;  // of the query before
    if (drawn === this.#drawn) return;  // another order changes nothing below
    this.#drawn = drawn;
    const [word, seconds] = (past && SPANS.get(this.#place.span)) || ["", 0];
    this.#chart.show({ ...chart, owner: id, seconds }, metric, shown.header.interval,
      ({ label }) => (label === undefined ? null : linkTo(this.#place, label)));
    const what = chart.stacked ? "Shares of the total" : "The busiest rows";
    const when = word ? `${word.toLowerCase()}: as the recorder has kept it` : `${covered(chart)}: as long as this page has watched`;
    say("chart-note", chart.lines.length === 0 ? "There is nothing to draw." : `${what}, the last ${when}.`);
  }
}

const sortText = (column, descending) => `${descending ? "-" : ""}${column}`;
