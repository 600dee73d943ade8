// What there is to be collected, as the server tells it when it is asked: it asks the agent in turn.
import { sources } from "./server.js";

let told = { agent: null, disabled: [] }, asked = -Infinity;

// refresh asks unless it has within so many milliseconds.
export async function refresh(age) {
  if (performance.now() - asked < age) return;
  asked = performance.now();
  told = await sources().catch(() => ({ agent: null, disabled: [] }));
}

// rowsOf gives the agent's control rows of a type, {index, owner}; undefined: it does not answer.
export const rowsOf = (stem) => told.agent?.[stem];

// isDisabled tells whether the settings switch a kind of the supervisor's off.
export const isDisabled = (stem) => told.disabled.includes(stem);
