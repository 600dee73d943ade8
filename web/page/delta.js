// Collection files, decoded where they lie: a table reads its values out of the file's own bytes.
import { HEADER_SIZE, TOTAL } from "./layouts.js";
import * as text from "./text.js";

// What the bytes of a file are. Only "rows" has any.
//   absent       there is no such file
//   empty        no byte: opened for writing, or given up
//   half         not a whole header, or not a whole number of records
//   unfinished   whoever wrote it did not get to the end: the time is written last
//   foreign      the header names another type than the file's name does
//   header-only  a header and no record
//   rows
// naming.names are those that people have for values of the key: by column, and there by text. All
// tables of a collection share it, so that a history holds them once, and the newest.
export function decode(buffer, layout, naming = { names: {} }) {
  if (buffer === null) return { state: "absent" };
  if (buffer.byteLength === 0) return { state: "empty" };
  if (buffer.byteLength < HEADER_SIZE) return { state: "half", extra: buffer.byteLength };
  const view = new DataView(buffer);
  const header = {
    interval: view.getInt32(0, true),
    upTime: view.getUint32(4, true),
    time: view.getInt32(8, true),
    code: view.getUint32(12, true),
  };
  if (header.code !== layout.code) return { state: "foreign", header };
  const extra = (buffer.byteLength - HEADER_SIZE) % layout.size;
  if (extra !== 0) return { state: "half", header, extra };
  if (header.time === 0) return { state: "unfinished" };
  const table = new Table(buffer, layout, header, naming);
  return { state: table.count === 0 ? "header-only" : "rows", header, table };
}

// Table: the rows of one file. Rows and columns are named by their numbers.
export class Table {
  constructor(buffer, layout, header, naming) {
    this.naming = naming;
    this.buffer = buffer;
    this.layout = layout;
    this.header = header;
    this.count = (buffer.byteLength - HEADER_SIZE) / layout.size;
    this.bytes = new Uint8Array(buffer);
    this.view = new DataView(buffer);
  }

  start(row) {
    return HEADER_SIZE + row * this.layout.size;
  }

  number(row, column) {
    const at = this.start(row) + column.offset;
    return column.isRate ? this.view.getFloat64(at, true) : this.view.getUint32(at, true);
  }

  octets(row, column, width) {
    const at = this.start(row) + column.offset;
    return this.bytes.subarray(at, at + width);
  }

  // compare orders a row and one of another table of the type as the daemon does: negative, 0 or
  // positive.
  compare(row, other, otherRow) {
    const here = this.start(row), there = other.start(otherRow);
    const { order, keySize } = this.layout;
    for (const offset of order) {
      const difference = this.view.getUint32(here + offset, true) - other.view.getUint32(there + offset, true);
      if (difference !== 0) return difference;
    }
    for (let at = 0; order.length === 0 && at < keySize; at++) {
      const difference = this.bytes[here + at] - other.bytes[there + at];
      if (difference !== 0) return difference;
    }
    return 0;
  }

  // text writes one value for people.
  text(row, column) {
    const before = () => this.view.getUint32(this.start(row) + column.offset - 4, true);
    switch (column.kind) {
      case "mac": return text.mac(this.octets(row, column, 6));
      case "address": return text.address(this.octets(row, column, 16), before());
      case "name": return text.name(this.octets(row, column, 16), before());
      case "total": return this.isTotal(row) ? "total" : String(this.number(row, column));
      case "number": return String(this.number(row, column));
      default: return text.parts(column, this.number(row, column)).join(column.kind === "percent" ? " " : "");
    }
  }

  // named writes one value of the key as people call it, or as it stands in the file.
  named(row, column) {
    const shown = this.text(row, column);
    return this.naming.names[column.name]?.[shown] ?? shown;
  }

  // label tells a row from all others, whatever names there are.
  label(row) {
    return this.layout.keys.map((column) => this.text(row, column)).join(" ");
  }

  // who tells a row from others: by its key, and for people.
  who(row) {
    return { key: this.key(row), title: this.title(row), label: this.label(row) };
  }

  // title names a row as people would: addresses, names, and numbers with what they count.
  title(row) {
    if (this.isTotal(row)) return "Total";
    const { keys } = this.layout;
    const name = keys.find(({ kind }) => kind === "name");
    if (name && this.text(row, name) !== "-") return this.text(row, name);
    const addresses = keys.filter(({ isAddress }) => isAddress);
    // Besides its address a host needs no protocol.
    const numbers = keys.filter(({ kind, name }) => (kind === "number" || kind === "total") &&
      !(addresses.length && name === "protocolDirLocalIndex"));
    return [...(addresses.length ? [addresses.map((column) => this.named(row, column)).join(" \u2192 ")] : []),
      ...numbers.map((column) => {
        const shown = this.text(row, column), name = this.named(row, column);
        return name === shown ? `${text.wordsOf(column)} ${shown}` : name;
      })].join(", ");
  }

  // key gives the octets of a row's key as a string.
  key(row) {
    const at = this.start(row);
    return String.fromCharCode(...this.bytes.subarray(at, at + this.layout.keySize));
  }

  isTotal(row) {
    return this.layout.totals !== undefined && this.number(row, this.layout.totals) === TOTAL;
  }

  // keys gives the values of a column by row in a form that "<" orders: numbers, or strings of the
  // bytes. NaN comes as -Infinity, behind all others when the largest come first.
  keys(column) {
    const width = { mac: 6, address: 16, name: 16 }[column.kind];
    if (width === undefined) {
      return Float64Array.from({ length: this.count }, (_, row) => {
        const value = this.number(row, column);
        return Number.isNaN(value) ? -Infinity : value;
      });
    }
    return Array.from({ length: this.count }, (_, row) =>
      String.fromCharCode(...this.octets(row, column, width)));
  }
}
