// Asks the server for the past of what is on show.
import { pastOf } from "./address.js";
import { past } from "./server.js";

const AGAIN = 60000;  // milliseconds between two questions for the same; live samples fill the time between

export class Recorded {
  #wanted = ""; #timer; #take;

  // take(told, error) gets what wanted() has asked for and the server's answer, or else an error.
  constructor(take) {
    this.#take = take;
  }

  // want turns to {stem, index, span, column, row}; null: nothing.
  want(asked) {
    const wanted = asked ? pastOf(asked) : "";
    if (wanted === this.#wanted) return;
    this.#wanted = wanted;
    clearInterval(this.#timer);
    if (!asked) return;
    const ask = async () => {
      try {
        const told = { wanted, stem: asked.stem, ...await past(asked) };
        if (wanted === this.#wanted) this.#take(told, null);
      } catch (error) {
        if (wanted === this.#wanted) this.#take(null, error);
      }
    };
    this.#timer = setInterval(ask, AGAIN);
    ask();
  }
}
