// A table of any number of rows, of which only those in sight are in the document.
//
// It is a real table: headers with aria-sort and a button each, aria-rowcount for all of it and
// aria-rowindex on the rows that are there. The region around it scrolls by the keyboard as every
// scrolling region does.

const SPARE = 10;                // rows kept above and below those in sight
const MAX_HEIGHT = 30_000_000;   // pixels; browsers know no taller boxes

const element = (name, properties) => Object.assign(document.createElement(name), properties);

export class Grid {
  #region; #table; #head; #body; #above; #below;
  #rows = [];       // the <tr> in use, from the first in sight on
  #data = null;     // a delta Table
  #order = [];      // its rows, as they are to be shown
  #layout = null;
  #sort = { column: "", descending: true };
  #metric = null;   // the column whose cells have a bar
  #top = 0;         // its largest value, which has the longest bar
  #notes = new Map();
  #onSort;
  #due = false;

  // onSort(column, descending) is called when the reader asks for another order.
  constructor(region, onSort) {
    this.#region = region;
    this.#onSort = onSort;
    this.#table = element("table");
    this.#head = this.#table.createTHead().insertRow();
    this.#body = this.#table.createTBody();
    this.#above = this.#pad();
    this.#below = this.#pad();
    region.replaceChildren(this.#table);
    region.addEventListener("scroll", () => this.#draw(), { passive: true });
    region.addEventListener("mouseover", ({ target }) => this.#tell(target.closest("td")));
    new ResizeObserver(() => this.#draw()).observe(region);
  }

  // open empties the table and gives it the columns of another type.
  open(layout, caption) {
    this.#layout = layout;
    this.#table.caption?.remove();
    this.#table.createCaption().textContent = caption;
    this.#head.replaceChildren(...layout.shown.map((column) => {
      const cell = element("th", { scope: "col", className: column.kind });
      const button = element("button", { type: "button", textContent: column.heading, title: column.name });
      button.setAttribute("aria-label", column.heading);  // without the arrow
      button.addEventListener("click", () => {
        const again = this.#sort.column === column.name;
        this.#onSort(column.name, again ? !this.#sort.descending : column.isRate);
      });
      cell.append(button);
      return cell;
    }));
    this.#rows.forEach((row) => row.remove());
    this.#rows = [];
    this.#region.scrollTo(0, 0);
    this.show(null, [], this.#sort, null, 0, new Map());
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
    this.#layout.shown.forEach((column, at) => {
      const chosen = column.name === sort.column;
      const order = sort.descending ? "descending" : "ascending";
      if (chosen) this.#head.cells[at].setAttribute("aria-sort", order);
      else this.#head.cells[at].removeAttribute("aria-sort");
    });
    this.#draw();
  }

  // Scrolling and new data meet in one drawing for each frame.
  #draw() {
    if (this.#due) return;
    this.#due = true;
    requestAnimationFrame(() => {
      this.#due = false;
      this.#drawNow();
    });
  }

  #drawNow() {
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
  }

  #fill(line, place) {
    const row = this.#order[place];
    const note = this.#notes.get(row);
    line.setAttribute("aria-rowindex", place + 2);
    line.classList.toggle("noted", note !== undefined);
    line.title = note ?? "";
    this.#layout.shown.forEach((column, at) => {
      const cell = line.cells[at];
      const text = this.#data.text(row, column);
      if (cell.textContent !== text) cell.textContent = text;
      if (column === this.#metric) {
        const part = this.#data.isTotal(row) ? 0 : this.#data.number(row, column) / this.#top || 0;
        cell.style.setProperty("--part", `${Math.max(0, Math.min(100, part * 100))}%`);
      }
      cell.classList.toggle("bar", column === this.#metric);
    });
    if (note) line.cells[0].append(element("span", { className: "mark", textContent: ` (${note.split(":")[0]})` }));
  }

  // tell gives a cell under the pointer its exact value, as the file has it: one attribute less for each
  // cell of a frame.
  #tell(cell) {
    const column = this.#layout.shown[cell?.cellIndex];
    if (!column?.isRate) return;
    const value = this.#data.number(this.#order[cell.parentNode.ariaRowIndex - 2], column);
    cell.title = column.kind === "percent" ? `${value} %` : `${value} ${column.unit} per second`;
  }

  #newRow() {
    const row = element("tr");
    this.#layout.shown.forEach((column, at) => {
      row.append(at === 0 ? element("th", { scope: "row", className: column.kind })
        : element("td", { className: column.kind }));
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
