// Rates over time, drawn by dygraphs, with a legend that is also their text.
import { drawing, element, say } from "./dom.js";
import { clock, day, duration, percent, quantity, shownIn, tick } from "./text.js";

const MIN_SPAN = 900;   // seconds that the chart shows at least, when there is history
const INTERVALS = 40;   // or as many of the newest interval
const DAY = 86400;      // seconds; in longer charts a time has its date
const FIRST_SPAN = 60;  // seconds that it shows when there is hardly any
const COLOURS = 12;     // of style.css
const DASHES = [null, [7, 3], [2, 3]];  // what tells rows apart that have the same colour
const JUST_AFTER = 1;   // milliseconds between the end of an interval and the next: dygraphs stacks by time

// The library comes with the first chart, not with the page; `library` says whether it is there.
let loading = null;
function library() {
  loading ??= Promise.all([
    new Promise((resolve, reject) => document.head.append(element("script", { src: "chart/dygraph.min.js", onload: resolve, onerror: reject }))),
    new Promise((resolve) => document.head.append(element("link", { rel: "stylesheet", href: "chart/dygraph.min.css", onload: resolve, onerror: resolve }))),
  ]).then(() => {
    // Its legend sets styles in a way that the page's Content-Security-Policy forbids.
    Dygraph.PLUGINS = Dygraph.PLUGINS.filter((plugin) => plugin !== Dygraph.Plugins.Legend);
    return true;
  }, () => false);
  return loading;
}

// A row keeps its style for as long as the page is open; styles are given in turn. Lines that have a
// style of their own keep that.
const styles = new Map();  // by owner, the id of a collection: Map of label to number
function styleOf(line, owner, colours) {
  if (line.others) return { color: colours("--others"), strokePattern: null };
  if (!styles.has(owner)) styles.set(owner, new Map());
  const given = styles.get(owner);
  if (line.style === undefined && !given.has(line.label)) given.set(line.label, given.size);
  const number = line.style ?? given.get(line.label);
  return { color: colours(`--line-${number % COLOURS}`), strokePattern: DASHES[Math.floor(number / COLOURS) % DASHES.length] };
}

export class Chart {
  #box; #graph = null; #last = null; #at = null; #items = [];
  #plot = element("div", { className: "plot", tabIndex: 0, role: "group", ariaRoleDescription: "chart" });
  #cursor = element("div", { className: "cursor", hidden: true });
  #note = element("p", { className: "moment", ariaLive: "polite" });
  #legend = element("ol", { className: "legend" });

  // box gets the chart and legend the newest values, or those under the cursor.
  constructor(box) {
    this.#box = box;
    box.classList.add("chart");
    box.replaceChildren(element("div", { className: "plot-box" }, this.#plot, this.#cursor), element("div", {}, this.#note, this.#legend));
    const again = () => {
      this.#graph?.resize();
      if (this.#last) this.show(...this.#last);
    };
    matchMedia("(prefers-color-scheme: dark)").addEventListener("change", again);
    // What is hidden has no size: it is drawn when it comes into sight.
    new ResizeObserver(again).observe(this.#plot);
    this.#plot.addEventListener("keydown", (event) => this.#key(event));
    this.#plot.addEventListener("blur", () => this.#leave());
  }

  clear() {
    this.#graph?.destroy();
    this.#graph = this.#last = this.#at = null;
    this.#legend.replaceChildren();
    say(this.#note, "");
  }

  // show draws what the engine's chartOf gives and whose it is (`owner`), of a layout's column, up to a sample that covers
  // `interval` seconds, and back as many `seconds` as the data says, if it does, of a past that begins at `since`. link(line) is the address of a line's
  // row, or null.
  async show(data, column, interval, link) {
    this.#last = [data, column, interval, link];
    const colour = (name) => {
      this.#cursor.style.color = `var(${name})`;  // which the browser turns into that of light or dark
      return getComputedStyle(this.#cursor).color;
    };
    this.#box.hidden = data.lines.length === 0;
    this.#drawLegend(data, link, colour);
    this.#plot.ariaLabel = `${data.lines.length} ${data.stacked ? "shares" : "lines"} over time; arrow keys lead from one moment to another`;
    const there = await library();
    this.#box.classList.toggle("undrawn", !there);
    if (!there || this.#last?.[0] !== data || this.#plot.clientWidth === 0) return;
    const end = Math.max(data.times.at(-1), data.seconds ? data.since + data.seconds : 0);
    const begin = data.seconds ? end - data.seconds :
      Math.max(data.times[0], end - Math.max(MIN_SPAN, INTERVALS * Math.max(interval, 1)));
    // dygraphs stacks the last series first: the busiest lies at the bottom.
    const drawn = data.lines.map((_, at) => at).reverse();
    const rows = data.times.map((time, point) => [
      new Date(time * 1000 + (point > 0 && data.times[point - 1] === time ? JUST_AFTER : 0)),
      ...drawn.map((at) => shownIn(column, data.lines[at].values[point]))]);
    const options = {
      labels: ["time", ...drawn.map(String)],
      strokeWidth: data.seconds ? 1 : 1.6,
      series: Object.fromEntries(drawn.map((at) => [String(at), styleOf(data.lines[at], data.owner, colour)])),
      stackedGraph: data.stacked, stackedGraphNaNFill: "none", fillAlpha: 0.55,
      dateWindow: [Math.min(begin, end - FIRST_SPAN) * 1000, end * 1000],
      highlightSeriesBackgroundColor: colour("--card"), axisLineColor: colour("--grid"), gridLineColor: colour("--grid"),
    };
    if (this.#graph) this.#graph.updateOptions({ file: rows, ...options });
    else this.#graph = new Dygraph(this.#plot, rows, { ...options, ...this.#fixed(column) });
    if (this.#at !== null) this.#select(this.#at);
  }

  #fixed(column) {
    return {
      legend: "never", includeZero: true, highlightCircleSize: 3, interactionModel: {},
      gridLineWidth: 1, axisLabelFontSize: 12, xRangePad: 0, rightGap: 8,
      highlightSeriesOpts: { strokeWidth: 2.6 }, highlightSeriesBackgroundAlpha: 0.45,
      axes: { x: { drawGrid: false, pixelsPerLabel: 90 }, y: { axisLabelWidth: 78, pixelsPerLabel: 42, axisLabelFormatter: (value) => tick(column, value) } },
      highlightCallback: (event, x, points, row, name) => this.#point(points[0].canvasx, row, name),
      unhighlightCallback: () => this.#leave(),
    };
  }

  #drawLegend({ lines, stacked, owner }, link, colour) {
    this.#items = lines.map((line, at) => {
      const { color, strokePattern } = styleOf(line, owner, colour);
      const attributes = stacked ? { "stroke-width": 10, "stroke-opacity": 0.75 } : { "stroke-width": 2.5, "stroke-dasharray": strokePattern?.join(" ") ?? "none" };
      const swatch = drawing("svg", { class: "swatch", viewBox: "0 0 22 10", "aria-hidden": "true" },
        drawing("line", { x1: 0, y1: 5, x2: 22, y2: 5, stroke: color, ...attributes }));
      const href = link(line);
      const name = element(href ? "a" : "span", { className: "who", textContent: line.title, title: line.title, ...(href && { href }) });
      const value = element("span", { className: "value" }), part = element("span", { className: "part" });
      const item = element("li", {}, swatch, name, value, part);
      item.addEventListener("mouseenter", () => this.#graph?.setSelection(this.#at ?? this.#final(), String(at)));
      item.addEventListener("mouseleave", () => this.#leave());
      return { item, value, part };
    });
    this.#legend.replaceChildren(...this.#items.map(({ item }) => item));
    this.#values(this.#final());
  }

  #final() {
    return this.#last[0].times.length - 1;
  }

  // values writes those of one point into the legend.
  #values(point) {
    const [{ lines, times, total, seconds }, column] = this.#last;
    this.#items.forEach(({ value, part }, at) => {
      const rate = lines[at].values[point];
      say(value, Number.isNaN(rate) ? "\u2013" : quantity(column, rate));
      say(part, total?.[point] > 0 && rate >= 0 ? percent(rate / total[point] * 100) : "");
    });
    const sum = total && !Number.isNaN(total[point]) ? `, total ${quantity(column, total[point])}` : "";
    say(this.#note, `${point === this.#final() ? "Newest sample" : "At"} ${seconds >= DAY && point !== this.#final() ? day(times[point]) : ""} ${clock(times[point])}${sum}`);
  }

  // point moves the cursor to a sample; name is that of the line under the pointer.
  #point(left, point, name) {
    this.#cursor.hidden = false;
    this.#cursor.style.left = `${left}px`;
    this.#values(point);
    this.#items.forEach(({ item }, at) => item.classList.toggle("chosen", String(at) === name));
  }

  #leave() {
    this.#at = null;
    this.#cursor.hidden = true;
    this.#graph?.clearSelection();
    this.#items.forEach(({ item }) => item.classList.remove("chosen"));
    if (this.#last) this.#values(this.#final());
  }

  // By keyboard from one sample to another; each has two points.
  #key(event) {
    const step = { ArrowLeft: -2, ArrowRight: 2, Home: -Infinity, End: Infinity }[event.key];
    if (!step || !this.#graph) return;
    event.preventDefault();
    const final = this.#final();
    this.#select(Math.max(0, Math.min(final, (this.#at ?? final) + step)));
  }

  #select(point) {
    this.#at = point;
    this.#graph.setSelection(point);
    const [left] = this.#graph.toDomCoords(this.#last[0].times[point] * 1000, 0);
    this.#point(left, point, null);
  }
}

// covered tells how much of the time a chart covers.
export const covered = ({ times }) => (times.length === 0 ? "" : duration(times.at(-1) - times[0]));
