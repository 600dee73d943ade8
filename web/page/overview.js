// The overview: a card for each collection, and the interfaces of the switch as tiles.
import { idOf, titleOf, write } from "./address.js";
import { $, element, say } from "./dom.js";
import { spark } from "./spark.js";
import { count, duration, percent } from "./text.js";
import * as tiles from "./tiles.js";
import { quantity, wordsOf } from "./units.js";

const cards = new Map();  // id: {card, parts, drawn}

// show brings the cards up to date; all is a list of what is known of each collection, now the
// server's clock.
export function show(all, listing, now) {
  for (const each of all) if (!cards.has(each.id)) cards.set(each.id, make(each));
  const wanted = all.map(({ id }) => cards.get(id).item);
  const list = $("cards");
  if (wanted.length !== list.children.length || wanted.some((item, at) => item !== list.children[at])) list.replaceChildren(...wanted);
  for (const each of all) fill(cards.get(each.id), each, listing, now);
  const ports = all.filter(({ summary }) => summary?.tiles.length);
  $("ports").hidden = ports.length === 0;
  const drawn = ports.map(({ id, number }) => `${id} ${number}`).join();
  if ($("ports").dataset.drawn === drawn) return;
  $("ports").dataset.drawn = drawn;
  // Where a switch has both kinds of statistics, the one that tells in from out.
  const best = ports.toSorted((a, b) => b.layout.percents.length - a.layout.percents.length)[0];
  if (best) tiles.show($("port-list"), best.collection, best);
}

function make({ collection, layout }) {
  const parts = Object.fromEntries(["pill", "big", "unit", "graph", "busiest", "foot"].map((name) =>
    [name, element("span", { className: name })]));
  const item = element("li", {}, element("a", { className: "card", href: write(collection) },
    element("span", { className: "head" }, element("b", { textContent: layout.title }), parts.pill),
    element("small", { textContent: titleOf(collection) }),
    element("span", { className: "figure" }, parts.big, parts.unit), parts.graph, parts.busiest, parts.foot));
  return { item, parts, drawn: null };
}

function fill(card, known, listing, now) {
  const { parts } = card;
  const { state, word, notes } = known.condition(listing, now);
  const { sample, summary, layout } = known;
  say(parts.pill, word);
  parts.pill.dataset.state = state;
  const time = sample?.header?.time;
  say(parts.foot, time ? `${count(summary?.rows ?? 0, "row")}, ${duration(now - time)} old` : notes[0]?.text ?? "");
  if (!summary || card.drawn === known.number) return;
  card.drawn = known.number;
  const { busiest, total } = summary;
  const [digits, unit] = quantity(layout.rank, total ?? busiest?.value ?? 0).split(" ");
  const words = wordsOf(layout.rank).toLowerCase();
  say(parts.big, digits);
  say(parts.unit, `${unit}${words === "traffic" ? "" : ` ${words},`} ${total === null ? "of the busiest row" : "in total"}`);
  parts.graph.replaceChildren(spark(summary.spark));
  parts.busiest.replaceChildren(...(busiest ? [element("small", { textContent: "Busiest" }),
    element("span", { className: "who", textContent: busiest.title, title: busiest.title }), element("span", { textContent: `${quantity(layout.rank, busiest.value)}${share(busiest.value, total)}` })] : ["No row had traffic."]));
}

const share = (value, total) => (total > 0 && value <= total ? `, ${percent(value / total * 100)}` : "");

// forget lets go of the card of a collection that is gone.
export const forget = (collection) => cards.delete(idOf(collection));
