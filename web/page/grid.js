// A table of any number of rows, of which only those in sight are in the document.
//
// It is a real table: headers with aria-sort and a button each, aria-rowcount for all of it and
// aria-rowindex on the rows that are there. The region around it scrolls by the keyboard as every
// scrolling region does. Roles are set all the same, because a narrow screen gets each row as a card
// (style.css), and a browser takes what is not laid out as a table for none.
import { element, perFrame, say } from "./dom.js";
import { exact, parts } from "./text.js";

const SPARE = 10;                // rows kept above and below those in sight
const MAX_HEIGHT = 30_000_000;   // pixels; browsers know no taller boxes

const ON_CARD = 4;               // rates of a row where the screen is too narrow for a table

export class Grid {
  #region; #onSort;
  #head = element("tr");
  #above = element("tr", { className: "pad", ariaHidden: "true" });  // stand for the rows out of sight
  #below = element("tr", { className: "pad", ariaHidden: "true" });
  #table = element("table", { role: "table" }, element("caption"), element("thead", {}, this.#head), element("tbody", {}, this.#above, this.#below));
  #rows = [];       // the <tr> in use, from the first in sight on
  #shown = [];      // columns
  #named = 0;       // which of them names a row best, and leads to its own page
  #linkOf = null;
  #view = { order: [], sort: {} };  // what show() was given

  // onSort(column, descending) is called when the reader asks for another order.
  constructor(region, onSort) {
    this.#region = region;
    this.#onSort = onSort;
    region.replaceChildren(this.#table);
    region.addEventListener("scroll", () => this.#draw(), { passive: true });
    region.addEventListener("mouseover", ({ target }) => this.#tell(target.closest("td")));
    new ResizeObserver(() => {
      this.#freeze();
      this.#draw();
    }).observe(region);
  }

  // open empties the table and gives it these columns of another type. linkOf(label) is the address
  // of a row's own page.
  open(shown, caption, linkOf) {
    this.#shown = shown;
    this.#linkOf = linkOf;
    this.#named = Math.max(0, shown.findIndex(({ kind, isAddress }) => kind === "name" || isAddress));
    this.#table.classList.toggle("paired", shown.filter(({ isAddress }) => isAddress).length > 1);
    this.#table.classList.toggle("short", shown.filter(({ isRate }) => isRate).length <= 2);
    say(this.#table.caption, caption);
    this.#head.replaceChildren(...shown.map(({ name, heading, kind, isRate }) => {
      // The label is without the arrow.
      const button = element("button", { type: "button", title: name, ariaLabel: heading,
        onclick: () => this.#onSort(name, this.#view.sort.column === name ? !this.#view.sort.descending : isRate) }, heading);
      return element("th", { scope: "col", role: "columnheader", className: kind }, button);
    }));
    for (const row of this.#rows.splice(0)) row.remove();
    this.#freeze();
    this.#region.scrollTo(0, 0);
    this.show({ ...this.#view, order: [] });
  }

  // freeze keeps the key at the left: each of its columns stays where it is.
  #freeze() {
    let left = 0;
    this.#shown.forEach(({ isRate }, at) => {
      if (isRate) return;
      this.#table.style.setProperty(`--left-${at}`, `${left}px`);
      left += this.#head.cells[at].offsetWidth;
    });
  }

  // show puts rows in sight: {data, order, sort, metric, top, notes}, a delta Table, which of its rows, sorted
  // already, by which column {column, descending}; the column that gets bars, and its largest value, which has
  // the longest; and texts for rows that need one.
  show(view) {
    this.#view = view;
    const { order, sort } = view;
    this.#table.ariaRowCount = order.length + 1;
    this.#shown.forEach(({ name }, at) => {
      this.#head.cells[at].ariaSort = name !== sort.column ? null : sort.descending ? "descending" : "ascending";
    });
    this.#draw();
  }

  // Scrolling and new data meet in one drawing.
  #draw = perFrame(() => {
    const height = parseFloat(getComputedStyle(this.#table).getPropertyValue("--row"));
    const count = Math.min(this.#view.order.length, Math.floor(MAX_HEIGHT / height));
    const { scrollTop, clientHeight } = this.#region;
    const room = Math.ceil(clientHeight / height) + 2 * SPARE;
    const first = Math.max(0, Math.min(Math.floor(scrollTop / height) - SPARE, count - room));
    const used = Math.min(room, count - first);
    while (this.#rows.length < used) this.#rows.push(this.#newRow());
    while (this.#rows.length > used) this.#rows.pop().remove();
    this.#rows.forEach((row, at) => this.#fill(row, first + at));
    this.#above.style.height = `${first * height}px`;
    this.#below.style.height = `${(count - first - used) * height}px`;
  });

  #fill(line, place) {
    const { data, order, notes } = this.#view;
    const row = order[place], note = notes.get(row);
    line.ariaRowIndex = place + 2;
    line.classList.toggle("noted", note !== undefined);
    line.title = note ?? "";
    this.#shown.forEach((column, at) => {
      if (column.isRate) this.#fillRate(line.cells[at], row, column);
      else this.#fillKey(line.cells[at], row, column);
    });
    const [link, mark] = line.cells[this.#named].childNodes;
    if (!data.isTotal(row)) link.href = this.#linkOf(data.label(row));
    else link.removeAttribute("href");
    say(mark, note ? ` (${note.split(":")[0]})` : "");
  }

  // A value of the key has its name; what stands in the file is in the tooltip.
  #fillKey(cell, row, column) {
    const { data } = this.#view;
    const text = data.text(row, column), name = data.named(row, column);
    say(cell.firstChild, name);
    if (name !== text) cell.title = text;
    else cell.removeAttribute("title");
  }

  // A rate has its digits, aligned on the point, and its prefix.
  #fillRate(cell, row, column) {
    const { data, metric, top } = this.#view;
    const value = data.number(row, column);
    const [digits, prefix] = parts(column, value);
    [digits, roomBehind(digits), prefix].forEach((text, at) => say(cell.childNodes[at], text));
    cell.classList.toggle("bar", column === metric);
    if (column !== metric) return;
    const part = data.isTotal(row) ? 0 : value / top || 0;
    cell.style.setProperty("--part", `${Math.max(0, Math.min(100, part * 100))}%`);
  }

  // tell gives a cell under the pointer its exact value: one attribute less for each cell of a frame.
  #tell(cell) {
    const column = this.#shown[cell?.cellIndex];
    if (!column?.isRate) return;
    const { data, order } = this.#view;
    cell.title = exact(column, data.number(order[cell.parentNode.ariaRowIndex - 2], column));
  }

  #newRow() {
    let rates = 0;
    const row = element("tr", { role: "row" }, ...this.#shown.map(({ kind, heading, isRate }, at) => {
      const cell = at === this.#named ?
        element("th", { scope: "row", role: "rowheader" }, element("a"), element("span", { className: "mark" })) :
        element("td", { role: "cell" }, element("span"), ...(isRate ? [element("span", { className: "room" }), element("i")] : []));
      cell.className = kind;
      cell.dataset.heading = heading;
      if (isRate) cell.classList.toggle("more", ++rates > ON_CARD);
      else cell.style.left = `var(--left-${at})`;
      return cell;
    }));
    this.#below.before(row);
    return row;
  }
}

// roomBehind gives spaces as wide as the point and the figures that a number lacks to three behind it.
function roomBehind(digits) {
  const point = digits.indexOf(".");
  const figures = point < 0 ? 0 : digits.length - 1 - point;
  return (point < 0 ? "\u2008" : "") + "\u2007".repeat(Math.max(0, 3 - figures));
}
