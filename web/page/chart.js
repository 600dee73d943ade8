// Lines over time, drawn by Chart.js, and their legend, which is also their text.
import { amount, clock, duration } from "./text.js";

const MIN_SPAN = 900;   // seconds that the chart shows at least, when there is history
const INTERVALS = 40;   // or as many of the newest interval

export class LineChart {
  #canvas; #legend; #chart = null; #last = null;

  // The canvas and a list that becomes the legend. Without the library nothing is drawn.
  constructor(canvas, legend) {
    this.#canvas = canvas;
    this.#legend = legend;
    matchMedia("(prefers-color-scheme: dark)").addEventListener("change", () => this.#last && this.show(...this.#last));
  }

  static get available() {
    return typeof Chart !== "undefined";
  }

  clear() {
    this.#chart?.destroy();
    this.#chart = this.#last = null;
    this.#legend.replaceChildren();
  }

  // show draws the lines of one column, up to a sample that covers `interval` seconds.
  show(series, column, interval) {
    this.#last = [series, column, interval];
    const style = getComputedStyle(this.#canvas);
    const colour = (name) => style.getPropertyValue(name).trim();
    this.#legend.replaceChildren(...series.map(({ label, points }, at) => {
      const item = document.createElement("li");
      const swatch = document.createElement("span");
      swatch.className = "swatch";
      swatch.style.background = colour(`--line-${at}`);
      item.append(swatch, `${label}: ${amount(column, points.at(-1)?.y ?? NaN)}`);
      return item;
    }));
    this.#canvas.setAttribute("aria-label",
      `${column.heading} over time, ${series.length} lines; the list below has their newest values.`);
    if (!LineChart.available) return;
    const end = Math.max(...series.map(({ points }) => points.at(-1)?.x ?? 0));
    const begin = Math.min(...series.map(({ points }) => points[0]?.x ?? end));
    // All rows together would press the single ones to the ground: they have an axis of their own.
    const datasets = series.map(({ label, whole, points }, at) => ({
      label, data: points, yAxisID: whole ? "whole" : "y", borderColor: colour(`--line-${at}`), borderWidth: at === 0 ? 2.5 : 1.5,
      borderDash: at === 0 ? [] : [[], [6, 3], [2, 2], [8, 3, 2, 3], [3, 3], [12, 4]][at],
    }));
    const options = this.#options(colour("--text"), colour("--grid"), column);
    options.scales.x.min = Math.max(begin, end - Math.max(MIN_SPAN, INTERVALS * Math.max(interval, 1)));
    options.scales.x.max = end;
    options.scales.whole.display = series.some(({ whole }) => whole);
    options.scales.whole.title.text = series.find(({ whole }) => whole)?.label ?? "";
    if (this.#chart === null) {
      this.#chart = new Chart(this.#canvas, { type: "line", data: { datasets }, options });
    } else {
      this.#chart.data.datasets = datasets;
      this.#chart.options = options;
      this.#chart.update("none");
    }
  }

  #options(text, grid, column) {
    const axis = (title) => ({
      type: "linear", grid: { color: grid }, title: { display: true, text: title, color: text },
    });
    const values = { beginAtZero: true, ticks: { color: text, maxTicksLimit: 6, callback: (y) => amount(column, y) } };
    return {
      animation: false, parsing: false, normalized: true, spanGaps: false, maintainAspectRatio: false,
      interaction: { mode: "nearest", axis: "x", intersect: false },
      elements: { point: { radius: 0, hitRadius: 8 } },
      plugins: {
        legend: { display: false },
        tooltip: {
          callbacks: {
            title: ([item]) => (item ? clock(item.parsed.x) : ""),
            label: ({ dataset, parsed }) => `${dataset.label}: ${amount(column, parsed.y)}`,
          },
        },
      },
      scales: {
        x: { ...axis("time"), ticks: { color: text, maxRotation: 0, maxTicksLimit: 6, callback: (x) => clock(x) } },
        y: { ...axis(column.heading), ...values },
        whole: { ...axis(""), ...values, position: "right", grid: { display: false } },
      },
    };
  }
}

// span tells how much of the time the lines cover.
export function span(series) {
  const { points } = series[0] ?? { points: [] };
  if (points.length === 0) return "";
  return duration(points.at(-1).x - points[0].x);
}
