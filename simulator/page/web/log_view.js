// The service's log, filtered by level and text. A chosen line shows its moment in the lanes.

import { byId, element } from "./dom.js";

const MAX_LINES = 4000;
const LEVELS = ["fatal", "error", "warn", "info", "debug", "verbose"];

export function createLog(showMoment) {
  const list = byId("log");
  const level = byId("log-level");
  const text = byId("log-text");
  const count = byId("log-count");
  let lines = [];
  let serial = 0;
  let chosen = null;

  function passes(line) {
    const wanted = text.value.toLowerCase();
    const rank = LEVELS.indexOf(line.level);
    return rank <= LEVELS.indexOf(level.value) &&
      (wanted === "" || line.text.toLowerCase().includes(wanted));
  }

  function row(line) {
    const made = element("div", `line ${line.level}`);
    made.setAttribute("role", "option");
    made.id = `line-${line.number}`;
    made.dataset.at = line.at;
    made.append(element("span", "clock", line.clock.slice(11, 23)),
      element("span", "level", line.level), element("span", "text", line.text));
    return made;
  }

  function choose(next) {
    if (!next) {
      return;
    }
    chosen?.setAttribute("aria-selected", "false");
    chosen = next;
    chosen.setAttribute("aria-selected", "true");
    chosen.scrollIntoView({ block: "nearest" });
    list.setAttribute("aria-activedescendant", chosen.id);
    showMoment(Number(chosen.dataset.at));
  }

  function showCount() {
    count.textContent = `${list.childElementCount} of ${lines.length} lines`;
  }

  function redraw() {
    chosen = null;
    list.removeAttribute("aria-activedescendant");
    list.replaceChildren(...lines.filter(passes).map(row));
    list.scrollTop = list.scrollHeight;
    showCount();
  }

  function number(added) {
    return added.map((line) => ({ ...line, number: ++serial }));
  }

  level.addEventListener("change", redraw);
  text.addEventListener("input", redraw);
  list.addEventListener("click", (event) => choose(event.target.closest(".line")));
  list.addEventListener("keydown", (event) => {
    const steps = {
      ArrowDown: () => (chosen ? chosen.nextElementSibling : list.firstElementChild),
      ArrowUp: () => (chosen ? chosen.previousElementSibling : list.lastElementChild),
      Home: () => list.firstElementChild,
      End: () => list.lastElementChild,
    };
    if (Object.hasOwn(steps, event.key)) {
      event.preventDefault();
      choose(steps[event.key]());
    }
  });

  return {
    load(all) {
      lines = number(all);
      redraw();
    },
    // Stays at the end if the end was in sight.
    append(added) {
      const follows = list.scrollTop + list.clientHeight >= list.scrollHeight - 40;
      const numbered = number(added);
      lines.push(...numbered);
      lines = lines.slice(-MAX_LINES);
      list.append(...numbered.filter(passes).map(row));
      while (list.childElementCount > MAX_LINES) {
        list.firstElementChild.remove();
      }
      if (follows) {
        list.scrollTop = list.scrollHeight;
      }
      showCount();
    },
  };
}
