// What is on show, as the address says it: "#" is the overview, "#host/3" a collection, and
// "#host/3?row=..." a row of it. Span of time, sort, search, chart and columns stand behind it, so
// that a view can be shared.
import { LAYOUTS } from "./layouts.js";

const FIELDS = ["row", "span", "sort", "q", "chart", "columns"];

// What a reader may look back on: by the word in the address, what it is called, and seconds.
export const SPANS = new Map([["hour", ["Hour", 3600]], ["day", ["Day", 86400]], ["week", ["Week", 604800]], ["year", ["Year", 31536000]]]);

// idOf names a collection: "host/3", "ifstats".
export const idOf = ({ stem, index }) => (LAYOUTS.get(stem).supervisor ? stem : `${stem}/${index}`);

export const titleOf = (collection) => idOf(collection).replace("/", " ");

// pastOf names what of the past {stem, index, span, column, row} stands for; "" where that is nothing.
export const pastOf = ({ span, column, row, ...collection }) => (SPANS.has(span) ? [idOf(collection), span, row || column].join(" ") : "");

// read gives {stem, index, row, span, sort, q, chart, columns} of a hash, fields that are not there empty;
// null for the overview and for what names no collection.
export function read(hash) {
  const [path, query] = hash.slice(1).split(/\?(.*)/s);
  const [, stem, index] = /^([a-z]+)(?:\/(\d{1,10}))?$/.exec(path) ?? [];
  const layout = LAYOUTS.get(stem);
  if (!layout || layout.supervisor !== (index === undefined)) return null;
  const given = new URLSearchParams(query);
  const fields = FIELDS.map((field) => [field, given.get(field) ?? ""]);
  return { stem, index: Number(index ?? 0), ...Object.fromEntries(fields) };
}

// linkTo gives the address of a row's own page, which shows the same span of time.
export const linkTo = ({ stem, index, span }, label) => write({ stem, index, span, row: label });

export function write(place) {
  const fields = new URLSearchParams(FIELDS.filter((field) => place[field]).map((field) => [field, place[field]]));
  return `#${idOf(place)}${fields.size ? `?${fields}` : ""}`;
}
