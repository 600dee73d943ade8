// A table of any number of rows, of which only those in sight are in the document.
//
// It is a real table: headers with aria-sort and a button each, aria-rowcount for all of it and
// aria-rowindex on the rows that are there. The region around it scrolls by the keyboard as every
// scrolling region does. Roles are set all the same, because a narrow screen gets each row as a card
// (style.css), and a browser takes what is not laid out as a table for none.
import { element, perFrame } from "./dom.js";
import { parts } from "./units.js";

const SPARE = 10;                // rows kept above and below those in sight
const MAX_HEIGHT = 30_000_000;   // pixels; browsers know no taller boxes

const ON_CARD = 4;               // rates of a row where the screen is too narrow for a table

export class Grid {
  #region; #table; #head; #body; #above; #below;
  #rows = [];       // the <tr> in use, from the first in sight on
  #data = null;     // a delta Table
  #order = [];      // its rows, as they are to be shown
  #shown = [];      // columns
  #named = 0;       // which of them names a row best, and leads to its own page
  #linkOf = null;
  #sort = { column: "", descending: true };
  #metric = null;   // the column whose cells have a bar
  #top = 0;         // its largest value, which has the longest bar
  #notes = new Map();
  #onSort;

  // onSort(column, descending) is called when the reader asks for another order.
  constructor(region, onSort) {
    this.#region = region;
    this.#onSort = onSort;
    this.#table = element("table");
    this.#table.setAttribute("role", "table");
    this.#head = this.#table.createTHead().insertRow();
    this.#body = this.#table.createTBody();
    this.#above = this.#pad();
    this.#below = this.#pad();
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
  open(layout, shown, caption, linkOf) {
    this.#shown = shown;
    this.#linkOf = linkOf;
    this.#named = Math.max(0, shown.findIndex(({ kind }) => kind === "name" || kind === "mac" || kind === "address"));
    this.#table.classList.toggle("paired", shown.filter(({ kind }) => kind === "mac" || kind === "address").length > 1);
    this.#table.classList.toggle("short", shown.filter(({ isRate }) => isRate).length <= 2);
    this.#table.caption?.remove();
    this.#table.createCaption().textContent = caption;
    this.#head.replaceChildren(...shown.map((column) => {
      const button = element("button", { type: "button", textContent: column.heading, title: column.name });
      button.setAttribute("aria-label", column.heading);  // without the arrow
      button.addEventListener("click", () => {
        const again = this.#sort.column === column.name;
        this.#onSort(column.name, again ? !this.#sort.descending : column.isRate);
      });
      const cell = element("th", { scope: "col", className: column.kind }, button);
      cell.setAttribute("role", "columnheader");
      return cell;
    }));
    this.#rows.forEach((row) => row.remove());
    this.#rows = [];
    this.#freeze();
    this.#region.scrollTo(0, 0);
    this.show(null, [], this.#sort, null, 0, new Map());
  }

  // freeze keeps the key at the left: each of its columns stays where it is.
  #freeze() {
    let left = 0;
    this.#shown.forEach((column, at) => {
      if (column.isRate) return;
      this.#table.style.setProperty(`--left-${at}`, `${left}px`);
      left += this.#head.cells[at].offsetWidth;
    });
  }

  // show puts these rows of a table in sight, sorted already; metric is the column that gets bars,
  // top its largest value; `notes` has texts for rows that need one.
  show(data, order, sort, metric, top, notes) {
    this.#data = data;
    this.#order = order;
    this.#sort = sort;
    this.#metric = metric;
    this.#notes = notes;
    this.#top = top;
    this.#table.setAttribute("aria-rowcount", order.length + 1);
    this.#shown.forEach((column, at) => {
      const chosen = column.name === sort.column;
      const order = sort.descending ? "descending" : "ascending";
      if (chosen) this.#head.cells[at].setAttribute("aria-sort", order);
      else this.#head.cells[at].removeAttribute("aria-sort");
    });
    this.#draw();
  }

  // Scrolling and new data meet in one drawing.
  #draw = perFrame(() => {
    const height = parseFloat(getComputedStyle(this.#table).getPropertyValue("--row"));
    const count = Math.min(this.#order.length, Math.floor(MAX_HEIGHT / height));
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
    const row = this.#order[place];
    const note = this.#notes.get(row);
    line.setAttribute("aria-rowindex", place + 2);
    line.classList.toggle("noted", note !== undefined);
    line.title = note ?? "";
    this.#shown.forEach((column, at) => {
      const cell = line.cells[at];
      if (column.isRate) this.#fillRate(cell, row, column);
      else this.#fillKey(cell, row, column);
    });
    const key = line.cells[this.#named];
    if (!this.#data.isTotal(row)) key.firstChild.href = this.#linkOf(this.#data.label(row));
    else key.firstChild.removeAttribute("href");
    setText(key.lastChild, note ? ` (${note.split(":")[0]})` : "");
  }

  // A value of the key has its name; what stands in the file is in the tooltip.
  #fillKey(cell, row, column) {
    const text = this.#data.text(row, column), name = this.#data.named(row, column);
    setText(cell.firstChild, name);
    if (name !== text) cell.title = text;
    else cell.removeAttribute("title");
  }

  // A rate has its digits, aligned on the point, and its prefix.
  #fillRate(cell, row, column) {
    const value = this.#data.number(row, column);
    const [digits, prefix] = parts(column, value);
    setText(cell.firstChild, digits);
    setText(cell.childNodes[1], roomBehind(digits));
    setText(cell.lastChild, prefix);
    cell.classList.toggle("bar", column === this.#metric);
    if (column !== this.#metric) return;
    const part = this.#data.isTotal(row) ? 0 : value / this.#top || 0;
    cell.style.setProperty("--part", `${Math.max(0, Math.min(100, part * 100))}%`);
  }

  // tell gives a cell under the pointer its exact value: one attribute less for each cell of a frame.
  #tell(cell) {
    const column = this.#shown[cell?.cellIndex];
    if (!column?.isRate) return;
    cell.title = exact(column, this.#data.number(this.#order[cell.parentNode.ariaRowIndex - 2], column));
  }

  #newRow() {
    const row = element("tr");
    row.setAttribute("role", "row");
    let rates = 0;
    this.#shown.forEach((column, at) => {
      const cell = element(at === this.#named ? "th" : "td", { className: column.kind });
      cell.setAttribute("role", at === this.#named ? "rowheader" : "cell");
      cell.dataset.heading = column.heading;
      if (at === this.#named) {
        cell.scope = "row";
        cell.append(element("a"), element("span", { className: "mark" }));
      } else if (column.isRate) {
        cell.append(element("span"), element("span", { className: "room" }), element("i"));
        cell.classList.toggle("more", ++rates > ON_CARD);
      } else {
        cell.append(element("span"));
      }
      if (!column.isRate) cell.style.left = `var(--left-${at})`;
      row.append(cell);
    });
    this.#below.before(row);
    return row;
  }

  // pad makes a row without content that stands for those out of sight.
  #pad() {
    const row = this.#body.insertRow();
    row.setAttribute("aria-hidden", "true");
    row.className = "pad";
    return row;
  }
}

// exact writes a value as the file has it.
export const exact = (column, value) => (column.kind === "percent" ? `${value} %` : `${value} ${column.unit} per second`);

// roomBehind gives spaces as wide as the point and the figures that a number lacks to three behind it.
function roomBehind(digits) {
  const point = digits.indexOf(".");
  const figures = point < 0 ? 0 : digits.length - 1 - point;
  return (point < 0 ? "\u2008" : "") + "\u2007".repeat(Math.max(0, 3 - figures));
}

function setText(node, text) {
  if (node.textContent !== text) node.textContent = text;
}
