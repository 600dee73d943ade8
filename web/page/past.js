// The past of a collection, or of one of its rows, as the recorder has kept it.
import { Table } from "./delta.js";
import { HEADER_SIZE } from "./layouts.js";

// Past: rates by key and column, in equal steps. Its rows are a table without rates, of which keys,
// labels and titles are read as of any other.
export class Past {
  #table; #rates = new Map(); #total;

  constructor({ wanted, begin, step, rows, total, names }, layout) {
    const buffer = new ArrayBuffer(HEADER_SIZE + rows.length * layout.size);
    const bytes = new Uint8Array(buffer);
    rows.forEach(({ key }, row) => bytes.set(key.match(/../g).map((octet) => parseInt(octet, 16)), HEADER_SIZE + row * layout.size));
    this.#table = new Table(buffer, layout, {}, { names });
    rows.forEach(({ rates }, row) => this.#rates.set(this.#table.key(row), rates));
    this.#total = total;
    Object.assign(this, { wanted, begin, step, count: total.length || Object.values(rows[0]?.rates ?? {})[0]?.length || 0 });
  }

  rows() {
    return Array.from({ length: this.#table.count }, (_, row) => this.#table.who(row));
  }

  // value gives a rate of one step, or of all rows for the key null. While others were recorded, a row
  // that was not had next to nothing: 0, as in a file that leaves it out. NaN: nothing is known.
  value(key, column, at) {
    const total = this.#total[at] ?? NaN;
    if (key === null) return total;
    return this.#rates.get(key)?.[column.name]?.[at] ?? (Number.isNaN(total) ? NaN : 0);
  }
}
