// The service's log, filtered by level and text. A chosen line shows its moment in the lanes.

import { byId, element } from "./dom.js";

const MAX_LINES = 4000;
const LEVELS = ["fatal", "error", "warn", "info", "debug", "verbose"];

function row(line) {
  const made = element("div", `line ${line.level}`);
  made.setAttribute("role", "option");
  made.id = `line-${line.number}`;
  made.dataset.at = line.at;
  made.append(element("span", "clock", line.clock.slice(11, 23)),
    element("span", "level", line.level), element("span", "text", line.text));
  return made;
}

export class LogView {
  #list = byId("log");
  #level = byId("log-level");
  #text = byId("log-text");
  #count = byId("log-count");
  #showMoment;
  #lines = [];
  #serial = 0;
  #chosen = null;

  constructor(showMoment) {
    this.#showMoment = showMoment;
    this.#level.addEventListener("change", () => this.#redraw());
    this.#text.addEventListener("input", () => this.#redraw());
    this.#list.addEventListener("click", (event) => this.#choose(event.target.closest(".line")));
    this.#list.addEventListener("keydown", (event) => this.#onKey(event));
  }

  load(all) {
    this.#lines = this.#number(all);
    this.#redraw();
  }

  // Stays at the end if the end was in sight.
  append(added) {
    const list = this.#list;
    const follows = list.scrollTop + list.clientHeight >= list.scrollHeight - 40;
    const numbered = this.#number(added);
    this.#lines.push(...numbered);
    this.#lines = this.#lines.slice(-MAX_LINES);
    list.append(...numbered.filter((line) => this.#passes(line)).map(row));
    while (list.childElementCount > MAX_LINES) {
      list.firstElementChild.remove();
    }
    if (follows) {
      list.scrollTop = list.scrollHeight;
    }
    this.#showCount();
  }

  #number(added) {
    return added.map((line) => ({ ...line, number: ++this.#serial }));
  }

  #passes(line) {
    const wanted = this.#text.value.toLowerCase();
    return LEVELS.indexOf(line.level) <= LEVELS.indexOf(this.#level.value) &&
      (wanted === "" || line.text.toLowerCase().includes(wanted));
  }

  #redraw() {
    this.#chosen = null;
    this.#list.removeAttribute("aria-activedescendant");
    this.#list.replaceChildren(...this.#lines.filter((line) => this.#passes(line)).map(row));
    this.#list.scrollTop = this.#list.scrollHeight;
    this.#showCount();
  }

  #showCount() {
    this.#count.textContent = `${this.#list.childElementCount} of ${this.#lines.length} lines`;
  }

  #onKey(event) {
    const steps = {
      ArrowDown: (chosen) => (chosen ? chosen.nextElementSibling : this.#list.firstElementChild),
      ArrowUp: (chosen) => (chosen ? chosen.previousElementSibling : this.#list.lastElementChild),
      Home: () => this.#list.firstElementChild,
      End: () => this.#list.lastElementChild,
    };
    if (Object.hasOwn(steps, event.key)) {
      event.preventDefault();
      this.#choose(steps[event.key](this.#chosen));
    }
  }

  #choose(next) {
    if (!next) {
      return;
    }
    this.#chosen?.setAttribute("aria-selected", "false");
    this.#chosen = next;
    next.setAttribute("aria-selected", "true");
    next.scrollIntoView({ block: "nearest" });
    this.#list.setAttribute("aria-activedescendant", next.id);
    this.#showMoment(Number(next.dataset.at));
  }
}
