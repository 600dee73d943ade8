// The overview: a card for each collection, and the interfaces of the switch as tiles.
import { idOf, titleOf, write } from "./address.js";
import { $, drawing, element, say } from "./dom.js";
import { count, duration, percent, quantity, wordsOf } from "./text.js";

const HIGH = 85, WARM = 60;  // percent from which a meter changes its colour
const WIDTH = 240, HEIGHT = 44;  // of a sparkline

const cards = new Map();  // id: {item, parts, drawn}

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
  $("port-list").replaceChildren(...(best?.summary.tiles ?? []).map((each) => tile(best, each)));
}

function make({ collection, layout }) {
  const parts = Object.fromEntries(["pill", "big", "unit", "graph", "busiest", "foot"].map((name) =>
    [name, element("span", { className: name })]));
  const item = element("li", {}, element("a", { className: "card", href: write(collection) },
    element("span", { className: "head" }, element("b", {}, layout.title), parts.pill),
    element("small", {}, titleOf(collection)),
    element("span", { className: "figure" }, parts.big, parts.unit), parts.graph, parts.busiest, parts.foot));
  return { item, parts, drawn: null };
}

function fill(card, known, listing, now) {
  const { parts } = card;
  const { state, word, notes } = known.condition(listing, now);
  const { sample, summary, layout: { rank } } = known;
  say(parts.pill, word);
  parts.pill.dataset.state = state;
  const time = sample?.header?.time;
  say(parts.foot, time ? `${count(summary?.rows ?? 0, "row")}, ${duration(now - time)} old` : notes[0]?.text ?? "");
  if (!summary || card.drawn === known.number) return;
  card.drawn = known.number;
  const { busiest, total } = summary;
  const [digits, unit] = quantity(rank, total ?? busiest?.value ?? 0).split(" ");
  const words = wordsOf(rank).toLowerCase();
  say(parts.big, digits);
  say(parts.unit, `${unit}${words === "traffic" ? "" : ` ${words},`} ${total === null ? "of the busiest row" : "in total"}`);
  parts.graph.replaceChildren(spark(summary.spark));
  const share = total > 0 && busiest?.value <= total ? `, ${percent(busiest.value / total * 100)}` : "";
  parts.busiest.replaceChildren(...(busiest ? [element("small", {}, "Busiest"),
    element("span", { className: "who", title: busiest.title }, busiest.title), element("span", {}, `${quantity(rank, busiest.value)}${share}`)] : ["No row had traffic."]));
}

// forget lets go of the card of a collection that is gone.
export const forget = (collection) => cards.delete(idOf(collection));

// spark draws points [time, value] as a line without axes; a value that is not a number breaks it. Nothing
// but the shape is told: whoever cannot see it finds the figures beside it.
function spark(points) {
  const known = points.filter(([, value]) => value >= 0);
  const from = known[0]?.[0] ?? 0, span = (known.at(-1)?.[0] ?? 1) - from || 1;
  const top = Math.max(...known.map(([, value]) => value), 0) || 1;
  const runs = [[]];
  for (const [time, value] of points) {
    if (value >= 0) runs.at(-1).push(`${((time - from) / span * WIDTH).toFixed(1)} ${(HEIGHT - 2 - value / top * (HEIGHT - 4)).toFixed(1)}`);
    else runs.push([]);
  }
  const lines = runs.filter((run) => run.length > 1).map((run) => `M${run.join("L")}`);
  const areas = lines.map((line) => `${line}V${HEIGHT}H${parseFloat(line.slice(1))}Z`);
  return drawing("svg", { class: "spark", viewBox: `0 0 ${WIDTH} ${HEIGHT}`, preserveAspectRatio: "none", "aria-hidden": "true" },
    drawing("path", { class: "area", d: areas.join("") }), drawing("path", { class: "line", d: lines.join("") }));
}

// tile shows the utilisation of an interface, in and out, and leads to its row.
function tile({ collection, layout }, { title, label, values }) {
  const meters = values.map((value, at) => {
    const word = { inUtilisationPercent: "in", outUtilisationPercent: "out" }[layout.percents[at].name] ?? "use";
    return element("span", { className: "use" }, word,
      element("meter", { ariaLabel: `${title} ${word}`, min: 0, max: 100, low: WARM, high: HIGH, optimum: 0, value: value || 0 }),
      element("span", {}, percent(value)));
  });
  return element("li", {}, element("a", { href: write({ ...collection, row: label }), className: "tile" }, element("b", {}, title), ...meters));
}
