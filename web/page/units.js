// What columns are measured in, and values with their units.
import { amount, rate, shownIn } from "./text.js";

// Each unit: what values are in as people read them, and what the columns of it are about.
export const UNITS = {
  octets: { text: "bit/s", title: "Traffic" },
  percent: { text: "%", title: "Utilisation" },
  packets: { text: "pkt/s", title: "Packets" },
  events: { text: "/s", title: "Packets by kind and errors" },
};
const SIZES = /Pkts(\d+)(?:to(\d+))?Octets$/;

// sizeOf gives the range of packet sizes that a column counts, "65\u2013127"; null for all others.
export function sizeOf({ name }) {
  const [, from, to] = SIZES.exec(name) ?? [];
  return from ? (to ? `${from}\u2013${to}` : from) : null;
}

// wordsOf says what a column is, without its unit: "Out", "Out broadcast"; "Traffic" where there is no more to say.
export function wordsOf({ heading, unit }) {
  const words = heading.split(/, (?=[^,]*$)/)[0];
  return words === UNITS[unit]?.text ? UNITS[unit].title : words;
}

// parts writes a value as the file has it in the unit of its column: ["21.6", "M"], ["12.5", "%"].
export function parts(column, value) {
  const [, digits, rest] = /^(\S+?) ?([kMGTPE%]?)$/.exec(amount(column, shownIn(column, value)));
  return [digits, rest];
}

// quantity writes a value with its unit: "21.6 Mbit/s".
export function quantity(column, value) {
  const [digits, prefix] = parts(column, value);
  return column.kind === "percent" ? `${digits} %` : `${digits} ${prefix}${UNITS[column.unit].text}`;
}

// tick writes a round value on an axis, which is in people's unit already.
export function tick(column, value) {
  const [, digits, prefix] = /^(\S+?)([kMGTPE]?)$/.exec(rate(value));
  return value === 0 ? "0" : `${Number(digits)} ${prefix}${UNITS[column.unit].text}`;
}
