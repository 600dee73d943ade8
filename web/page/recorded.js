// Asks the server for the past of what is on show.
import { pastOf } from "./address.js";
import { past } from "./server.js";

const AGAIN = 60000;  // milliseconds between two questions for the same; live samples fill the time between

let wanted = "", timer;

// want turns to {stem, index, span, column, row}; null: nothing. take(told, error) gets the server's
// answer, with what was wanted, or else an error; and again and again.
export function want(asked, take) {
  const now = asked ? pastOf(asked) : "";
  if (now === wanted) return;
  wanted = now;
  clearInterval(timer);
  const answer = (told, error) => now === wanted && take(told && { wanted, stem: asked.stem, ...told }, error);
  const ask = () => past(asked).then((told) => answer(told, null), (error) => answer(null, error));
  if (!asked) return;
  timer = setInterval(ask, AGAIN);
  ask();
}
