// The interfaces of the switch as tiles: utilisation of each, in and out.
import { write } from "./address.js";
import { element } from "./dom.js";
import { percent } from "./text.js";

const HIGH = 85, WARM = 60;  // percent from which a meter changes its colour

// show fills a list with tiles of an engine's summary; each leads to its row.
export function show(list, collection, { layout, summary }) {
  list.replaceChildren(...summary.tiles.map(({ title, label, values }) =>
    element("li", {}, element("a", { href: write({ ...collection, row: label }), className: "tile" },
      element("b", { textContent: title }),
      ...values.map((value, at) => meter(value, wordOf(layout.percents[at]), title))))));
}

const wordOf = ({ name }) => ({ inUtilisationPercent: "in", outUtilisationPercent: "out" }[name] ?? "use");

function meter(value, word, title) {
  const bar = element("meter", { min: 0, max: 100, low: WARM, high: HIGH, optimum: 0, value: value || 0 });
  bar.setAttribute("aria-label", `${title} ${word}`);
  return element("span", { className: "use" }, word, bar, element("span", { textContent: percent(value) }));
}
