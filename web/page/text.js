// How values are written for people.

export const mac = (bytes) => Array.from(bytes, (byte) => byte.toString(16).padStart(2, "0")).join(":");

const hex = (bytes) => Array.from(bytes, (byte) => byte.toString(16).padStart(2, "0")).join("");

// RFC 5952: lower case, no leading zeros, the first longest run of two or more zero groups as "::".
function ipv6(bytes) {
  const groups = [];
  for (let at = 0; at < 16; at += 2) groups.push(((bytes[at] << 8) | bytes[at + 1]).toString(16));
  let best = { at: -1, length: 1 };
  for (let at = 0; at < 8; at++) {
    let end = at;
    while (end < 8 && groups[end] === "0") end++;
    if (end - at > best.length) best = { at, length: end - at };
  }
  if (best.at < 0) return groups.join(":");
  const tail = groups.slice(best.at + best.length);
  return `${groups.slice(0, best.at).join(":")}::${tail.join(":")}`;
}

// address reads as many bytes as count. A length that leaves out bytes that are not zero is not
// believed: then all are shown, in hex, so that no two keys look alike.
export function address(bytes, length) {
  if (length > bytes.length || bytes.subarray(length).some((byte) => byte !== 0)) return hex(bytes);
  if (length === 4) return Array.from(bytes.subarray(0, 4)).join(".");
  if (length === 16) return ipv6(bytes);
  return length === 0 ? "-" : hex(bytes.subarray(0, length));
}

// name shows what is not printable ASCII as \xNN: names come from the network.
export function name(bytes, length) {
  const text = Array.from(bytes.subarray(0, Math.min(length, bytes.length)), (byte) =>
    byte >= 0x20 && byte < 0x7f && byte !== 0x5c ? String.fromCharCode(byte) : `\\x${hex([byte])}`);
  return text.join("") || "-";
}

const PREFIXES = ["", "k", "M", "G", "T", "P", "E"];
const BITS = 8;  // people read octets per second as bits per second

// rate: three digits and a decimal prefix, as tallyctl writes it; the exact value is String(value).
export function rate(value) {
  if (value > 0 && value < 0.001) return "<0.001";
  let scaled = value, prefix = 0;
  while (Math.abs(scaled) >= 999.5 && prefix + 1 < PREFIXES.length) {
    scaled /= 1000;
    prefix++;
  }
  const size = Math.abs(scaled);
  if (!(size >= 0.9995 && size < 999.5)) return String(Number(value.toPrecision(3)));
  const whole = prefix === 0 && Number.isInteger(scaled);
  return scaled.toFixed(whole || size >= 99.95 ? 0 : size >= 9.995 ? 1 : 2) + PREFIXES[prefix];
}

// percent: three digits, of which at most two are decimals.
export function percent(value) {
  if (value > 0 && value < 0.01) return "<0.01 %";
  return `${value.toFixed(Number.isInteger(value) || value >= 99.95 ? 0 : value >= 9.995 ? 1 : 2)} %`;
}

// shownIn turns a value of a column into what its heading says that it is in.
export const shownIn = (column, value) => (column.unit === "octets" ? value * BITS : value);

// amount writes what shownIn gives.
export const amount = (column, value) => (column.kind === "percent" ? percent(value) : rate(value));

// grouped: a number of rows, with commas between the thousands.
export const grouped = (number) => number.toLocaleString("en");

export const day = (seconds) => new Date(seconds * 1000).toLocaleDateString("en-GB", { weekday: "short", day: "numeric", month: "short" });
export const clock = (seconds) => new Date(seconds * 1000).toLocaleTimeString("en-GB");

// moment: ISO 8601 with the zone of whoever looks, "2026-08-01 12:00:00 +02:00".
export function moment(seconds) {
  const date = new Date(seconds * 1000);
  const ahead = -date.getTimezoneOffset();
  const two = (number) => String(Math.floor(number)).padStart(2, "0");
  const zone = `${ahead < 0 ? "-" : "+"}${two(Math.abs(ahead) / 60)}:${two(Math.abs(ahead) % 60)}`;
  return `${date.toLocaleString("sv-SE")} ${zone}`;
}

export function duration(seconds) {
  const whole = Math.round(Math.abs(seconds));
  if (whole < 120) return `${whole} s`;
  return whole < 7200 ? `${Math.round(whole / 60)} min` : `${Math.round(whole / 3600)} h`;
}

export const count = (number, noun) => `${grouped(number)} ${noun}${number === 1 ? "" : "s"}`;
