// Follows one collection: looks at the list every two seconds, fetches the files when they
// changed, and keeps the collection viewed.
//
// A web server takes no lock, so a file may be seen while it is written. Bytes are believed only
// when the list says the same of the file before and after they were read - size, time of the last
// change to the nanosecond, and nobody writing. The two samples come along when they are those that
// the rates were made of, and not too large to be fetched with every poll.
import { list, read, send } from "./server.js";

const LOOK = 2000;      // milliseconds between two looks at the list
const VIEWING = 10000;  // between two messages; the shortest interval of the daemon is 15 s
const APART = 1500;     // between the first two polls of a new collection, at least
export const MAX_SAMPLES = 16 << 20;  // bytes of both
const TRIES = 3;        // readings of a file that goes on changing, each look

export class Watcher {
  #selected = null;   // {stem, index, asked}: asked when this page created it
  #stamp = null;      // of the file as it was last given
  #viewed = -Infinity;
  #on;

  // on.list(json), on.file(buffer or null, unsettled, samples), on.trouble(error or null),
  // on.messageTrouble(error or null); samples is null or {prev, last}, of buffers
  constructor(on) {
    this.#on = on;
    this.#run();
  }

  // select turns to another collection, or to none (null).
  select(collection) {
    this.#selected = collection;
    this.#stamp = null;
    // Not at once after a create: two polls in one second have no interval between them.
    this.#viewed = collection?.asked ? performance.now() - VIEWING + APART : -Infinity;
    this.look();
  }

  async #run() {
    for (;;) {
      await this.look();
      await new Promise((resolve) => setTimeout(resolve, LOOK));
    }
  }

  async look() {
    const selected = this.#selected;
    try {
      let json = await list();
      this.#on.trouble(null);
      this.#on.list(json);
      if (selected === null || selected !== this.#selected) return;
      this.#keepViewed(json);
      const before = stampOf(json, selected);
      if (before === this.#stamp) return;
      await this.#fetch(json, selected);
    } catch (error) {
      this.#on.trouble(error);
    }
  }

  async #fetch(json, selected) {
    let buffer, samples, settled;
    for (let attempt = 0; attempt < TRIES && !settled; attempt++) {
      const before = stampOf(json, selected);
      const { delta, prev, last } = find(json, selected)?.files ?? {};
      buffer = delta && !delta.error ? await read(delta.name) : null;
      samples = madeOf(delta, prev, last) ?
        { prev: await read(prev.name), last: await read(last.name) } : null;
      json = await list();
      if (selected !== this.#selected) return;
      settled = before === stampOf(json, selected) && !delta?.writing && whole(buffer, delta) &&
        (samples === null || (whole(samples.prev, prev) && whole(samples.last, last)));
    }
    this.#on.list(json);
    this.#stamp = settled ? stampOf(json, selected) : null;
    this.#on.file(buffer, !settled, settled ? samples : null);
  }

  // Only what exists is viewed: the daemon logs a warning for everything else.
  #keepViewed(json) {
    const selected = this.#selected;
    if (!selected.asked && !find(json, selected)) return;
    if (performance.now() - this.#viewed < VIEWING) return;
    this.#viewed = performance.now();
    send("viewing", selected).then(() => this.#on.messageTrouble(null), (error) => {
      this.#viewed = -Infinity;
      this.#on.messageTrouble(error);
    });
  }
}

export const find = (json, { stem, index }) =>
  json.collections.find((each) => each.type === stem && each.index === index);

const whole = (buffer, file) => (buffer?.byteLength ?? 0) === (file?.size ?? 0);

// stampOf tells one state of a collection's files from another.
function stampOf(json, selected) {
  const { delta, prev, last } = find(json, selected)?.files ?? {};
  return [delta, prev, last].map((file) => `${file?.size} ${file?.mtime} ${file?.writing}`).join();
}

function madeOf(delta, prev, last) {
  if (!delta?.header || !prev?.header || !last?.header) return false;
  const { time, interval } = delta.header;
  return last.header.time === time && prev.header.time + interval === time &&
    prev.size + last.size <= MAX_SAMPLES;
}
