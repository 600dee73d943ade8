// Utilisation of interfaces: one meter for each percent column of each row.
import { percent } from "./text.js";

// show fills a list with the rows of a table.
export function show(list, table, rows) {
  list.replaceChildren(...rows.map((row) => {
    const item = document.createElement("li");
    const title = document.createElement("b");
    title.textContent = interfaceName(table, row);
    item.append(title);
    for (const column of table.layout.percents) item.append(gauge(table, row, column, title.textContent));
    return item;
  }));
}

export function interfaceName(table, row) {
  const column = table.layout.columns.find(({ kind }) => kind === "name");
  const name = table.text(row, column);
  return name === "-" ? `ifIndex ${table.number(row, table.layout.columns[0])}` : name;
}

function gauge(table, row, column, name) {
  const value = table.number(row, column);
  const label = document.createElement("label");
  const meter = document.createElement("meter");
  const what = column.heading;
  Object.assign(meter, { min: 0, max: 100, low: 60, high: 85, optimum: 0, value: value || 0 });
  meter.setAttribute("aria-label", `${name} ${what}`);
  label.append(what, meter, percent(value));
  return label;
}
