// Follows collections: looks at the list every two seconds, fetches the files that changed, and keeps
// the collections viewed.
//
// A web server takes no lock, so a file may be seen while it is written. Bytes are believed only
// when the list says the same of the file before and after they were read - size, time of the last
// change to the nanosecond, and nobody writing. The two samples come along when they are wanted, are
// those that the rates were made of, and not too large to be fetched with every poll.
import { idOf } from "./address.js";
import { firstList } from "./begin.js";
import { list, namesOf, read, send } from "./server.js";

const LOOK = 2000;      // milliseconds between two looks at the list
const VIEWING = 10000;  // between two messages; the shortest interval of the daemon is 15 s
const APART = 1500;     // between the first two polls of a new collection, at least
export const MAX_SAMPLES = 16 << 20;  // bytes of both
const NAMING = 30000;   // between two questions for the names of a collection
const TRIES = 3;        // readings of a file that goes on changing, each look

export class Watcher {
  #followed = [];         // {stem, index, asked, samples}
  #stamps = new Map();    // by id: of the files as they were last given
  #viewed = new Map();    // by id: when
  #named = new Map();     // by id: {time, names}, as the server told them
  #sending = false;
  #begun = firstList;
  #json = null;           // the newest list
  #on;

  // on.list(json), on.file(collection, buffer or null, unsettled, samples, names), on.trouble(error or
  // null), on.messageTrouble(error or null); samples is null or {prev, last}, of buffers
  constructor(on) {
    this.#on = on;
  }

  // follow turns to other collections: {stem, index}, `asked` when this page created it, `samples`
  // when the samples are wanted too. What is followed anew is given anew.
  follow(collections) {
    const before = new Map(this.#followed.map((each) => [idOf(each), each]));
    for (const each of collections) {
      const old = before.get(idOf(each));
      if (!old || old.samples !== each.samples) this.#stamps.delete(idOf(each));
      // Not at once after a create: two polls in one second have no interval between them.
      if (!old && each.asked) this.#viewed.set(idOf(each), performance.now() - VIEWING + APART);
    }
    this.#followed = collections;
  }

  // run looks again and again; it resolves when it has for the first time.
  async run() {
    await this.#look();
    setTimeout(() => this.run(), LOOK);
  }

  async #look() {
    try {
      const asked = this.#begun ?? list();
      this.#begun = null;
      const json = await this.#list(asked);
      this.#on.trouble(null);
      const followed = this.#followed;
      const changed = followed.filter((each) => stampOf(json, each) !== this.#stamps.get(idOf(each)));
      // What is to be seen comes before what keeps it coming.
      await this.#fetch(json, changed).finally(() => { this.#keepViewed(followed); });
    } catch (error) {
      this.#on.trouble(error);
    }
  }

  async #list(asked) {
    this.#json = await asked;
    this.#on.list(this.#json);
    return this.#json;
  }

  // fetch reads the files of these collections until the list says the same before and after.
  async #fetch(json, pending) {
    for (let attempt = 1; pending.length > 0; attempt++) {
      const before = json;
      const named = this.#name(pending);
      const taken = await Promise.all(pending.map(async (each) => [each, await readFiles(find(before, each)?.files ?? {}, each.samples)]));
      await named;
      json = await this.#list(list());
      pending = [];
      for (const [each, { buffer, samples, whole }] of taken) {
        if (!this.#followed.includes(each)) continue;
        const stamp = stampOf(json, each);
        const settled = whole && stamp === stampOf(before, each) && !find(json, each)?.files.delta?.writing;
        if (!settled && attempt < TRIES) {
          pending.push(each);
          continue;
        }
        this.#stamps.set(idOf(each), settled ? stamp : null);
        this.#on.file(each, buffer, !settled, settled ? samples : null, this.#named.get(idOf(each)).names);
      }
    }
  }

  // name asks for the names of those that are not known, or were asked for long ago: all in one question.
  async #name(collections) {
    const time = performance.now();
    const old = collections.filter((each) => !(time - this.#named.get(idOf(each))?.time < NAMING));
    const told = old.length > 0 ? await namesOf(old.map(({ stem, index }) => `${stem}/${index}`)) : {};
    for (const each of old) this.#named.set(idOf(each), { time, names: told[`${each.stem}/${each.index}`] ?? {} });
  }

  // Only what exists is viewed: the daemon logs a warning for everything else. One message at a time,
  // and after one that failed the others wait for the next look.
  async #keepViewed(followed) {
    if (this.#sending) return;
    this.#sending = true;
    try {
      for (const each of followed) {
        if (!this.#followed.includes(each) || (!each.asked && !find(this.#json, each))) continue;
        if (performance.now() - (this.#viewed.get(idOf(each)) ?? -Infinity) < VIEWING) continue;
        await send("viewing", each);
        this.#viewed.set(idOf(each), performance.now());
        this.#on.messageTrouble(null);
      }
    } catch (error) {
      this.#on.messageTrouble(error);
    } finally {
      this.#sending = false;
    }
  }
}

export const find = (json, { stem, index }) =>
  json.collections.find((each) => each.type === stem && each.index === index);

// stampOf tells one state of a collection's files from another.
function stampOf(json, collection) {
  const { delta, prev, last } = find(json, collection)?.files ?? {};
  return [delta, prev, last].map((file) => `${file?.size} ${file?.mtime} ${file?.writing}`).join();
}

async function readFiles({ delta, prev, last }, wanted) {
  const whole = (buffer, file) => (buffer?.byteLength ?? 0) === (file?.size ?? 0);
  const buffer = delta && !delta.error ? await read(delta.name) : null;
  if (!wanted || !madeOf(delta, prev, last)) return { buffer, samples: null, whole: whole(buffer, delta) };
  const samples = { prev: await read(prev.name), last: await read(last.name) };
  return { buffer, samples, whole: whole(buffer, delta) && whole(samples.prev, prev) && whole(samples.last, last) };
}

function madeOf(delta, prev, last) {
  if (!delta?.header || !prev?.header || !last?.header) return false;
  const { time, interval } = delta.header;
  return last.header.time === time && prev.header.time + interval === time &&
    prev.size + last.size <= MAX_SAMPLES;
}
