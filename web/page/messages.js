// What the reader may ask of the daemon: to create a collection, and to destroy one.
import { titleOf } from "./address.js";
import { $, element, say } from "./dom.js";
import { LAYOUTS } from "./layouts.js";
import { refreshSources, rowsOf, send } from "./server.js";

const FRESH = 10000;  // milliseconds for which what the agent has told counts

// fault shows an error, or clears it (null).
export function fault(id, error) {
  say(id, error?.message ?? "");
  $(id).hidden = error === null;
}

async function confirmed(text, yes) {
  say("confirm-text", text);
  say("confirm-yes", yes);
  $("confirm").returnValue = "no";
  $("confirm").showModal();
  await new Promise((resolve) => $("confirm").addEventListener("close", resolve, { once: true }));
  return $("confirm").returnValue === "yes";
}

// order tells whether the message was taken.
async function order(message, collection, done) {
  const error = await send(message, collection).then(() => null, (error) => error);
  fault("message-trouble", error);
  if (error === null) say("message", `${done} tallyd's log says what became of it.`);
  return error === null;
}

const types = [...LAYOUTS.values()].filter(({ creatable }) => creatable);
const options = types.map(({ stem, title }) => element("option", { value: stem }, `${title} (${stem})`));
const chosen = () => LAYOUTS.get($("create-type").value);
$("create-type").replaceChildren(...options);
$("create-type").onchange = offer;
$("create").addEventListener("focusin", refresh);

// offer has the form show what the agent is known to have.
function offer() {
  for (const option of options) option.disabled = rowsOf(option.value)?.length === 0;
  if ($("create-type").selectedOptions[0]?.disabled) $("create-type").value = options.find(({ disabled }) => !disabled).value;
  const { stem, supervisor } = chosen();
  const rows = rowsOf(stem);
  const before = $("create-row").value;
  $("create-row").replaceChildren(...(rows ?? []).map(({ index, owner }) => element("option",
    { value: index, selected: String(index) === before }, `${index} (${owner})`)));
  for (const [id, shown] of [["create-row", rows], ["create-index", !rows]]) {
    $(id).disabled = supervisor || !shown;
    $(id).parentNode.hidden = $(id).disabled;
  }
  const missing = options.filter(({ disabled }) => disabled).length;
  say("offer", supervisor || rows ? (missing ? `Of ${missing} types the agent has no row.` : "") : "The agent does not answer: what it has cannot be told.");
}

// refresh asks anew what there is to be offered.
export function refresh() {
  return refreshSources(FRESH).then(offer);
}

// setUp has the form create: exists(collection) tells whether there is one, created(collection) is
// called when the daemon was asked for it.
export function setUp(exists, created) {
  $("create").onsubmit = async (event) => {
    event.preventDefault();
    const { stem, supervisor } = chosen();
    const wanted = { stem, index: supervisor ? 0 : Number((rowsOf(stem) ? $("create-row") : $("create-index")).value) };
    const title = titleOf(wanted);
    if (exists(wanted) && !supervisor &&
        !await confirmed(`${title} exists. Creating it again removes its files, and it starts anew.`, "Start anew")) return;
    if (await order("create", wanted, `Asked for ${title}.`)) created(wanted);
  };
}

// destroy asks, and tells whether the daemon was asked to; leave() comes before the message.
export async function destroy(collection, leave) {
  if (!await confirmed(`Destroy ${titleOf(collection)}? Its files are removed, for everybody.`, "Destroy")) return null;
  leave();
  return order("destroy", collection, `Asked to destroy ${titleOf(collection)}.`);
}
