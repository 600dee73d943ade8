// How values are written for people.

const hex = (bytes, between = "") => Array.from(bytes, (byte) => byte.toString(16).padStart(2, "0")).join(between);

export const mac = (bytes) => hex(bytes, ":");

// address reads as many bytes as count. A length that leaves out bytes that are not zero is not
// believed: then all are shown, in hex, so that no two keys look alike.
export function address(bytes, length) {
  if (length > bytes.length || bytes.subarray(length).some((byte) => byte !== 0)) return hex(bytes);
  if (length === 4) return Array.from(bytes.subarray(0, 4)).join(".");
  // A browser writes IPv6 addresses as RFC 5952 says.
  if (length === 16) return new URL(`http://[${hex(bytes).replace(/....(?!$)/g, "$&:")}]`).hostname.slice(1, -1);
  return length === 0 ? "-" : hex(bytes.subarray(0, length));
}

// name shows what is not printable ASCII as \xNN: names come from the network.
export function name(bytes, length) {
  const text = Array.from(bytes.subarray(0, Math.min(length, bytes.length)), (byte) =>
    byte >= 0x20 && byte < 0x7f && byte !== 0x5c ? String.fromCharCode(byte) : `\\x${hex([byte])}`);
  return text.join("") || "-";
}

// Each unit: what values are in as people read them, and what the columns of it are about.
export const UNITS = {
  octets: { text: "bit/s", title: "Traffic" },
  percent: { text: "%", title: "Utilisation" },
  packets: { text: "pkt/s", title: "Packets" },
  events: { text: "/s", title: "Packets by kind and errors" },
};
const PREFIXES = ["", "k", "M", "G", "T", "P", "E"];
const BITS = 8;  // people read octets per second as bits per second
const SIZES = /Pkts(\d+)(?:to(\d+))?Octets$/;

// Three digits, as tallyctl writes them.
const digits = (size, whole) => size.toFixed(whole || Math.abs(size) >= 99.95 ? 0 : Math.abs(size) >= 9.995 ? 1 : 2);

// scaled writes a rate with a decimal prefix: ["21.6", "M"].
function scaled(value) {
  if (value > 0 && value < 0.001) return ["<0.001", ""];
  let size = value, prefix = 0;
  for (; Math.abs(size) >= 999.5 && prefix + 1 < PREFIXES.length; prefix++) size /= 1000;
  const usual = Math.abs(size) >= 0.9995 && Math.abs(size) < 999.5;
  return [usual ? digits(size, prefix === 0 && Number.isInteger(size)) : String(Number(size.toPrecision(3))), PREFIXES[prefix]];
}

// percent: three digits, of which at most two are decimals.
export const percent = (value) => (value > 0 && value < 0.01 ? "<0.01 %" : `${digits(value, Number.isInteger(value))} %`);

// shownIn turns a value of a column into what its heading says that it is in.
export const shownIn = (column, value) => (column.unit === "octets" ? value * BITS : value);

// parts writes a value as the file has it in the unit of its column: ["21.6", "M"], ["12.5", "%"].
export const parts = (column, value) => (column.kind === "percent" ? percent(value).split(" ") : scaled(shownIn(column, value)));

// quantity writes a value with its unit: "21.6 Mbit/s".
export function quantity(column, value) {
  const [figures, prefix] = parts(column, value);
  return `${figures} ${prefix}${column.kind === "percent" ? "" : UNITS[column.unit].text}`;
}

// exact writes a value as the file has it.
export const exact = (column, value) => `${value} ${column.kind === "percent" ? "%" : `${column.unit} per second`}`;

// tick writes a round value on an axis, which is in people's unit already.
export function tick(column, value) {
  const [figures, prefix] = scaled(value);
  return value === 0 ? "0" : `${Number(figures)} ${prefix}${UNITS[column.unit].text}`;
}

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

// grouped: a number of rows, with commas between the thousands.
export const grouped = (number) => number.toLocaleString("en");

export const day = (seconds) => new Date(seconds * 1000).toLocaleDateString("en-GB", { weekday: "short", day: "numeric", month: "short" });
export const clock = (seconds) => new Date(seconds * 1000).toLocaleTimeString("en-GB");

// moment: ISO 8601 with the zone of whoever looks, "2026-08-01 12:00:00 +02:00".
export const moment = (seconds) => new Date(seconds * 1000).toLocaleString("sv-SE", { timeZoneName: "longOffset" })
  .replace("\u2212", "-").replace("GMT", "").replace(/ $/, " +00:00");

export function duration(seconds) {
  const whole = Math.round(Math.abs(seconds));
  if (whole < 120) return `${whole} s`;
  return whole < 7200 ? `${Math.round(whole / 60)} min` : `${Math.round(whole / 3600)} h`;
}

export const count = (number, noun) => `${grouped(number)} ${noun}${number === 1 ? "" : "s"}`;
