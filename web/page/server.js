// What the page asks of the web server: the list of collections, their files, and messages.

const { files, control } = document.documentElement.dataset;

const TIMEOUT = 8000;  // milliseconds, for a server that neither answers nor refuses

// ask gives the JSON of an answer, or throws an Error with the server's own words.
async function ask(options, query = "") {
  const answer = await fetch(control + query, { cache: "no-store", signal: AbortSignal.timeout(TIMEOUT), ...options })
    .catch((error) => { throw new Error(`The web server does not answer (${error.message}).`); });
  const json = await answer.json().catch(() => ({}));
  if (answer.ok && Array.isArray(json.collections ?? [])) return json;
  throw new Error(json.error ?? `The web server says ${answer.status} ${answer.statusText}: is tally-cgi installed?`);
}

export const list = () => ask({});

// namesOf gives what people call the keys of collections, named "host/3" or "ifstats/0": by column, and
// there by what stands in the file. None where the server cannot tell, which is not worth a word.
export const namesOf = (collections) =>
  ask({}, `?names=${collections}`).then((json) => json.names ?? {}).catch(() => ({}));

// past gives the rates that the recorder has kept: see cgi/answers.h.
export const past = ({ stem, index, ...rest }) =>
  ask({}, `?${new URLSearchParams({ history: `${stem}/${index}`, ...rest })}`);

// What there is to be collected, as it was told last: see cgi/answers.h.
let sources = { agent: null, disabled: [] }, asked = -Infinity;

// refreshSources asks for it, unless it has within so many milliseconds.
export async function refreshSources(age) {
  if (performance.now() - asked < age) return;
  asked = performance.now();
  sources = await ask({ headers: { "X-Tally-Control": "1" } }, "?sources").catch(() => ({ agent: null, disabled: [] }));
}

// rowsOf gives the agent's control rows of a type, {index, owner}; undefined: it does not answer.
export const rowsOf = (stem) => sources.agent?.[stem];

// isDisabled tells whether the settings switch a kind of the supervisor's off.
export const isDisabled = (stem) => sources.disabled.includes(stem);

// send puts a message for one collection into the daemon's pipe. Nobody answers it.
export const send = (message, { stem, index }) => ask({
  method: "POST",
  headers: { "Content-Type": "application/json", "X-Tally-Control": "1" },
  body: JSON.stringify({ message, type: stem, index }),
});

// read fetches a collection file: its bytes, or null when there is none.
export async function read(name) {
  const answer = await fetch(files + name, { cache: "no-store", signal: AbortSignal.timeout(TIMEOUT * 4) });
  if (answer.status === 404) return null;
  if (!answer.ok) throw new Error(`${name}: ${answer.status} ${answer.statusText}`);
  return answer.arrayBuffer();
}
