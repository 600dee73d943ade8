// What the records of each collection type hold: the columns of tallyctl, and what follows from them.
//
// Columns stand in the order of the record, without a gap; all numbers are little-endian. `name` is that
// of the MIB object (RFC 2819, 4502, 2613, 3287, 2863), `heading` is in people's words, with what text.js
// shows the values in. `kind` is one of
//   number   u32
//   total    u32; TOTAL marks the row that sums up the others
//   length   u32, how many bytes of the next column count; not shown
//   mac      6 bytes
//   address  16 bytes, of which as many count as the u32 before it says
//   name     16 bytes of text, likewise
//   rate     double, change per second
//   percent  double, 0 to 100
// The columns before the first rate are the key of a row.
import { TYPES } from "./columns.js";

export { HEADER_SIZE, TOTAL } from "./columns.js";

function layoutOf(type) {
  const columns = type.columns.map((column) => ({ ...column,
    isRate: column.kind === "rate" || column.kind === "percent", isAddress: column.kind === "mac" || column.kind === "address" }));
  const shown = type.people.map((number) => columns[number]);
  return {
    ...type, columns, shown,
    keys: shown.filter((column) => !column.isRate),
    rates: shown.filter((column) => column.isRate),
    percents: columns.filter((column) => column.kind === "percent"),
    totals: columns.find((column) => column.kind === "total"),  // its row replaces a sum
    rank: columns.find((column) => column.name === type.rank),
  };
}

// Layouts by stem, in the order of the codes.
export const LAYOUTS = new Map(TYPES.map((type) => [type.stem, layoutOf(type)]));
