// What is on show, as the address says it: "#" is the overview, "#host/3" a collection, and
// "#host/3?row=..." a row of it. Sort, search, chart and columns stand behind it, so that a view can
// be shared.
import { LAYOUTS } from "./layouts.js";

const FIELDS = ["row", "sort", "q", "chart", "columns"];

// idOf names a collection: "host/3", "ifstats".
export const idOf = ({ stem, index }) => (LAYOUTS.get(stem).supervisor ? stem : `${stem}/${index}`);

export const titleOf = (collection) => idOf(collection).replace("/", " ");

// read gives {stem, index, row, sort, q, chart, columns} of a hash, fields that are not there empty;
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

export function write(place) {
  const fields = new URLSearchParams(FIELDS.filter((field) => place[field]).map((field) => [field, place[field]]));
  return `#${idOf(place)}${fields.size ? `?${fields}` : ""}`;
}
