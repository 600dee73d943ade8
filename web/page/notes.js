// What is to be known about a sample besides its numbers: what the files can really tell, and where
// they cannot.
import { HEADER_SIZE, LAYOUTS } from "./layouts.js";
import { count, duration, moment } from "./text.js";
import { MAX_SAMPLES } from "./watcher.js";

// How much older than its interval a sample may be before it is late: half the interval, for polls
// take their time, and a few seconds.
const late = (interval) => interval * 1.5 + 5;

// How often a sample is expected. The planned interval is not in the files; before the usual one is
// known, it is taken to be no shorter than tallyd's own default.
const DEFAULT_INTERVAL = 60;
const expected = ({ usual, header }) => usual || Math.max(header.interval, DEFAULT_INTERVAL);

// isLate tells whether a newer sample should be there by now, isOff whether none is to be expected.
const isOld = (facts) => facts.header !== undefined && facts.now - facts.header.time > late(expected(facts));
export const isLate = (facts) => isOld(facts) && !facts.disabled;
export const isOff = (facts) => isOld(facts) && facts.disabled;

// isEmpty tells whether the agent has given nothing to a collection of its own.
export const isEmpty = (facts) => !facts.table?.count && facts.last?.size === HEADER_SIZE && LAYOUTS.get(facts.stem).code <= 10;

// A table may well grow by a few rows at its end; by so many at once it hardly does.
const MANY_NEW = 10;

// Each note: its weight ("bad" is wrong, "warn" changes what the rates mean, "info"), when it holds,
// and its text. All get the same facts:
//   file, last, prev   of the listing, undefined when there is none; files is the number of them
//   state, header, extra   what decode() made of the delta file
//   now                the server's clock
//   usual              the median of the intervals that this page has seen of the collection; 0
//                      while there are too few
//   offers             the agent's control rows of the type; undefined: not known
//   disabled           the settings switch the kind off
//   unsettled          the file went on changing while it was read
//   kept               rows of an earlier sample are on show
//   full               rows with a utilisation of 100
//   odd                rows with a rate that is negative or not a number
//   raw, fresh, behind, missing, lost, vanished   numbers of rows: see samples.js
//   silent             rows of the last sample that have no rates
const NOTES = [
  ["bad", (f) => f.file?.error, (f) => `${f.file.name} cannot be read: ${f.file.error}.`],
  ["info", (f) => f.state === "absent" && f.files === 0,
    () => "No file yet. A collection that was asked for a moment ago is polled at once; if nothing comes, the agent or the supervisor has no such table, or nobody asked for it."],
  ["warn", isEmpty, (f) => (!f.offers || f.offers.some(({ index }) => index === f.index) ? "The agent has no row for it yet." :
    `The agent has no control row ${f.index} of this type, ${f.offers.length > 0 ? `only ${f.offers.map(({ index }) => index).join(", ")}` : "nor any other"}: nothing can come.`)],
  ["info", (f) => f.state === "absent" && f.files > 0 && !isEmpty(f),
    () => "One sample so far: rates come with the second."],
  ["warn", (f) => f.state === "empty",
    () => "The file is empty: it is about to be written, or the samples that it is made of could not be read."],
  ["bad", (f) => f.state === "half" && !f.header,
    (f) => `Half written: ${f.extra} of the 16 bytes of the header.`],
  ["bad", (f) => f.state === "half" && f.header,
    (f) => `Half written: ${f.extra} bytes behind the last whole record.`],
  ["bad", (f) => f.state === "unfinished",
    () => "Not finished: a full disk or the daemon's end broke it off. The next poll makes it anew."],
  ["bad", (f) => f.state === "foreign",
    (f) => `The header says type ${f.header.code} (${stemOf(f.header.code)}), which the name of the file does not: not shown.`],
  ["info", (f) => f.file?.writing, () => "tallyd is writing the file at this moment."],
  ["warn", (f) => f.unsettled, () => "The file went on changing while it was read."],
  ["warn", (f) => f.kept, () => "The rows below are those of the sample before."],
  ["info", (f) => f.state === "header-only" && !isEmpty(f),
    () => "No rates: no counter changed in the interval."],
  ["bad", isLate,
    (f) => `Late: the sample is ${duration(f.now - f.header.time)} old, and ${f.usual ? "usually one comes" : "one is expected"} every ${duration(expected(f))}. Is tallyd running, does the agent answer?`],
  ["info", isOff,
    (f) => `Switched off: the settings disable this kind, so these rates stay as they are. "Create" switches it on until tallyd is started again; "Destroy" removes the files.`],
  ["warn", (f) => f.header && f.header.time > f.now + 2,
    (f) => `The sample lies ${duration(f.header.time - f.now)} ahead of the server's clock: the clock was set back.`],
  ["warn", (f) => f.header?.interval < 0,
    () => "The clock was set back between the samples: these rates are almost 0 and mean nothing."],
  ["warn", (f) => f.header?.interval === 0, () => "Both samples were taken in the same second, which counts as a whole one."],
  ["warn", (f) => f.usual && f.header?.interval > 1.5 * f.usual + 1,
    (f) => `The interval is ${duration(f.header.interval)} instead of the usual ${duration(f.usual)}: the rates are means over the longer time.`],
  ["info", (f) => f.header?.interval >= 600 && !(f.usual && f.header.interval > 1.5 * f.usual + 1),
    (f) => `The rates are means over ${duration(f.header.interval)}: collections that nobody looks at are polled once an hour.`],
  ["warn", (f) => restarted(f),
    () => "The agent was restarted between the samples: its counters began anew, and where one fell the whole count stands in place of the rate."],
  ["info", (f) => f.last?.header && f.prev?.header && LAYOUTS.get(f.stem).code <= 10 && !restarted(f) &&
      (f.last.header.up_time === 0 || f.prev.header.up_time === 0),
    () => "The agent's up-time is not known: whether it was restarted between the samples cannot be told."],
  ["info", (f) => f.header && f.last?.header && f.last.header.time > f.header.time && !f.file?.writing,
    (f) => `There is a newer sample, of ${moment(f.last.header.time)}, without rates: the poll is still going on, or its rates could not be written.`],
  ["bad", (f) => f.missing > 0,
    (f) => `Cut short: ${count(f.missing, "row")} behind the last one changed and should be here. tallyd was killed while it wrote; the next poll makes the file anew.`],
  ["bad", (f) => f.lost > 0,
    (f) => `The last sample is cut short, or in another order: ${count(f.lost, "row")} of these are not in it.`],
  ["bad", (f) => f.vanished > 0 && !f.lost && LAYOUTS.get(f.stem).code <= 10,
    (f) => `The last sample is cut short: ${count(f.vanished, "row")} of the sample before are not in it.`],
  ["warn", (f) => f.behind >= MANY_NEW && f.behind === f.fresh,
    () => "All new rows lie behind the end of the sample before: it may have been cut short, and their rates are whole counts."],
  ["warn", (f) => f.full > 0,
    (f) => `${count(f.full, "row")} at 100 %, where utilisation is cut off: the true one may have been more than the line is said to carry.`],
  ["warn", (f) => f.raw > 0,
    (f) => `${count(f.raw, "row")} with a whole count in place of a rate: a counter fell, so it was reset. They are marked.`],
  ["info", (f) => f.fresh > 0,
    (f) => `${count(f.fresh, "row")} not in the sample before, or not in their place there: the rate is the whole count over the interval. They are marked.`],
  ["info", (f) => f.prev?.size + f.last?.size > MAX_SAMPLES,
    () => "The samples are too large to be fetched with every poll: which rows are new or were reset is not looked at."],
  ["info", (f) => f.silent > 0,
    (f) => `${count(f.silent, "row")} without rates besides these: idle, or carried forward because the agent left them out. The files cannot tell which.`],
  ["warn", (f) => f.odd > 0, (f) => `${count(f.odd, "row")} with a rate that is negative or not a number.`],
];

const restarted = ({ last, prev }) =>
  last?.header && prev?.header && last.header.up_time !== 0 && last.header.up_time < prev.header.up_time;

const stemOf = (code) =>
  [...LAYOUTS.values()].find((layout) => layout.code === code)?.stem ?? "none that is known";

// notesOf gives the notes that hold: [{level, text}].
export const notesOf = (facts) =>
  NOTES.filter(([, holds]) => holds(facts)).map(([level, , text]) => ({ level, text: text(facts) }));

// health says in a word what the worst of them means.
export function health(notes) {
  if (notes.some(({ level }) => level === "bad")) return "bad";
  return notes.some(({ level }) => level === "warn") ? "warn" : "good";
}
