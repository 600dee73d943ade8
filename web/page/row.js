// One row on show: its rates over time, all of its counters, and packet sizes where there are any.
import { SPANS, pastOf } from "./address.js";
import { Chart } from "./chart.js";
import { $, element, say } from "./dom.js";
import { UNITS, exact, percent, quantity, sizeOf, wordsOf } from "./text.js";

export class RowView {
  #place = null; #known = null; #charts = new Map();  // by the name of their unit

  open(place, known) {
    const anew = this.#known !== known || this.#place.row !== place.row;
    this.#place = place;
    this.#known = known;
    if (anew) {
      this.#charts.clear();
      $("row-charts").replaceChildren();
      $("counters").replaceChildren();
      $("sizes-section").hidden = true;
      say("row-state", "");
    }
    if (known.answer) this.show();
  }

  query() {
    const { rank } = this.#known.layout;
    return { id: this.#known.id, column: rank.name, descending: true, search: "", metric: rank.name, row: this.#place.row,
      past: pastOf({ ...this.#place, column: "" }) };
  }

  show() {
    const { answer, shown, layout } = this.#known;
    if (answer.chart) return;  // of the whole collection, asked for before
    const { row, charts, title } = answer;
    say("title", title);
    const idle = row < 0 ? "Not in the newest sample: idle, or gone." : "";
    say("row-state", charts.length === 0 ? "This row was in no sample since the page was opened." : idle);
    const [, seconds] = (answer.past && SPANS.get(this.#place.span)) || [];
    const columnOf = (name) => layout.columns.find((column) => column.name === name);
    for (const chart of charts) {
      const column = columnOf(chart.column);
      const { title } = UNITS[column.unit];
      if (!this.#charts.has(title)) {
        const box = element("div", { className: "chart small-chart" });
        $("row-charts").append(element("section", {}, element("h3", {}, title), box));
        this.#charts.set(title, new Chart(box));
      }
      const lines = chart.lines.map((line, style) => ({ ...line, style, title: wordsOf(columnOf(line.column)) }));
      this.#charts.get(title).show({ ...chart, lines, seconds }, column, shown.header.interval, () => null);
    }
    const value = (column) => (row < 0 ? 0 : shown.number(row, column));
    $("counters").replaceChildren(...layout.rates.map((column) => element("div", { title: column.name },
      element("dt", {}, wordsOf(column)),
      element("dd", { title: exact(column, value(column)) }, quantity(column, value(column))))));
    this.#showSizes(layout.rates.filter((column) => sizeOf(column)), value);
  }

  #showSizes(columns, value) {
    const sum = columns.reduce((all, column) => all + value(column), 0);
    const top = Math.max(...columns.map(value)) || 1;
    $("sizes-section").hidden = sum === 0;
    $("sizes").replaceChildren(...columns.map((column) => {
      const bar = element("span", { className: "size-bar" });
      bar.style.setProperty("--part", `${value(column) / top * 100}%`);
      return element("li", {}, element("span", {}, sizeOf(column)), bar,
        element("span", {}, percent(sum > 0 ? value(column) / sum * 100 : 0)),
        element("span", {}, quantity(column, value(column))));
    }));
  }
}
