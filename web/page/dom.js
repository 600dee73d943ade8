// Small helpers for the document. Texts become text nodes only: what comes from files is never markup.

export const $ = (id) => document.getElementById(id);

// say changes a text only where it differs, so that a screen reader is not told the same twice.
export function say(where, text) {
  const target = typeof where === "string" ? $(where) : where;
  if (target.textContent !== text) target.textContent = text;
}

// element makes one with these properties and children; a null child is left out.
export function element(name, properties = {}, ...children) {
  const made = Object.assign(document.createElement(name), properties);
  made.append(...children.filter((child) => child !== null));
  return made;
}

// perFrame makes a drawing of which any number of calls meet in one for each frame.
export function perFrame(draw) {
  let due = false;
  return () => {
    if (due) return;
    due = true;
    requestAnimationFrame(() => {
      due = false;
      draw();
    });
  };
}

// drawing makes an SVG element with these attributes.
export function drawing(name, attributes, ...children) {
  const made = document.createElementNS("http://www.w3.org/2000/svg", name);
  for (const [key, value] of Object.entries(attributes)) made.setAttribute(key, value);
  made.append(...children);
  return made;
}
