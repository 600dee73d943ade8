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

const plain = new Intl.NumberFormat("en", { maximumSignificantDigits: 6 });
const compact = new Intl.NumberFormat("en", { notation: "compact", maximumSignificantDigits: 3 });

// rate: six digits, grouped by thousands; the exact value is String(value).
export const rate = (value) => (Number.isFinite(value) ? plain.format(value) : String(value));

// short: three digits and a prefix, for axes and legends.
export const short = (value) => (Number.isFinite(value) ? compact.format(value) : String(value));

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

export const count = (number, noun) => `${rate(number)} ${noun}${number === 1 ? "" : "s"}`;
