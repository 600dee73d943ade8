// What takes longest, begun as soon as this module is there and not with the last of the others.
import { list } from "./server.js";

export const engine = new Worker(new URL("engine.js", import.meta.url), { type: "module" });

// The first list; what becomes of it is for whoever waits for it.
export const firstList = list();
firstList.catch(() => {});
