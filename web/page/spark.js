// A line of the last minutes, without axes.
import { drawing } from "./dom.js";

const WIDTH = 240, HEIGHT = 44;

// spark draws points [time, value]; a value that is not a number breaks the line. Nothing but the
// shape is told: whoever cannot see it finds the figures beside it.
export function spark(points) {
  const known = points.filter(([, value]) => value >= 0);
  const from = known[0]?.[0] ?? 0, span = (known.at(-1)?.[0] ?? 1) - from || 1;
  const top = Math.max(...known.map(([, value]) => value), 0) || 1;
  const place = ([time, value]) => `${((time - from) / span * WIDTH).toFixed(1)} ${(HEIGHT - 2 - value / top * (HEIGHT - 4)).toFixed(1)}`;
  const runs = [[]];
  for (const point of points) {
    if (point[1] >= 0) runs.at(-1).push(point);
    else if (runs.at(-1).length) runs.push([]);
  }
  const drawn = runs.filter((run) => run.length > 1);
  const line = drawn.map((run) => `M${run.map(place).join("L")}`).join("");
  const x = ([time]) => ((time - from) / span * WIDTH).toFixed(1);
  const area = drawn.map((run) => `M${x(run[0])} ${HEIGHT}L${run.map(place).join("L")}L${x(run.at(-1))} ${HEIGHT}Z`).join("");
  return drawing("svg", { class: "spark", viewBox: `0 0 ${WIDTH} ${HEIGHT}`, preserveAspectRatio: "none", "aria-hidden": "true" },
    drawing("path", { class: "area", d: area }), drawing("path", { class: "line", d: line }));
}
