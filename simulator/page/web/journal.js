// What the backend was asked, what it answered, and how long that took; newest first.

import { byId, element } from "./dom.js";

const MAX_ROWS = 500;

function row(entry) {
  const line = element("tr", entry.status === 200 ? "" : "bad");
  const asked = element("td");
  asked.append(`${entry.method} ${entry.target}`);
  const details = [
    entry.activation_reason === null ? "" : `reason ${entry.activation_reason}`,
    entry.operationTypeId, entry.vin, entry.diagnostic_address && `ECU ${entry.diagnostic_address}`,
    entry.sw_version && `SW ${entry.sw_version}`, entry.hw_version && `HW ${entry.hw_version}`,
    entry.part_number && `part ${entry.part_number}`,
  ].filter(Boolean).join(", ");
  asked.append(element("span", "quiet", details));
  const answered = element("td");
  answered.append(entry.status ? `${entry.status} ${entry.outcome}` : entry.outcome);
  const why = [entry.reason, entry.scenario && `scenario ${entry.scenario}`];
  answered.append(element("span", "quiet", why.filter(Boolean).join("; ")));
  const took = entry.duration_ms === null ? "–" : `${entry.duration_ms.toFixed(1)} ms`;
  line.append(element("td", "clock", String(entry.time).slice(11, 19)), asked, answered,
    element("td", "took", took));
  line.firstChild.title = entry.time;
  return line;
}

export class Journal {
  #body = byId("journal");

  load(entries) {
    this.#body.replaceChildren(...entries.map(row).reverse());
  }

  append(entries) {
    this.#body.prepend(...entries.map(row).reverse());
    while (this.#body.childElementCount > MAX_ROWS) {
      this.#body.lastChild.remove();
    }
  }
}
