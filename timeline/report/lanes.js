// Draws the life of the service as lanes over time: a lane per state machine with its states as
// bars, marks for what happened, waits, activation reasons and passes.
//
//   const lanes = createLanes(element);
//   lanes.load(data);          // what a written timeline holds
//   lanes.append(events);      // further events, as they come
//   lanes.showMoment(axis);    // milliseconds on the timeline's axis
//
// Texts come from a log and are never taken for markup.

const SVG = "http://www.w3.org/2000/svg";
const ROW = 30;
const BAR = 20;
const AXIS = 34;
const SUM_WIDTH = 150;
const END_WIDTH = 60;
const LETTER = 7;
const TICK_DISTANCE = 150;
const ZOOM_STEP = 1.4;

const CLIENT = "VintrelClientFsm";
const PASSES = "Passes";
const EVENTS = "Events";
const WAITING = "Waiting";

// Lanes have their place before anything happens on them, so nothing moves when it does.
const LANES = [
  PASSES, EVENTS, CLIENT, WAITING, "Activation reason", "ZemConnectorFsm",
  "BackendRequestHandler", "FsmStreamCommunicator", "EventDispatcher/AsyncEventQueue",
  "Clamp 15", "Connection", "Immobilizer",
];

// States whose whole business is the wait that was announced right before.
const WAITING_STATES = new Set(["FsmRetryProcedure", "FsmStateCheckAndStoreTiv"]);

// What a state means to the eye.
const STATE_KINDS = new Map([
  ["FsmStateWaitTrigger", "idle"], ["FsmStateNotStarted", "idle"],
  ["FsmStateTerminated", "ended"], ["StateDispatchEvents", "idle"], ["FsmStateIdle", "idle"],
  ["off", "idle"], ["NotAvailable", "idle"], ["Disconnected", "idle"],
  ["FsmStateDownloadCertificate", "exchange"], ["FsmStateCheckAndStoreTiv", "check"],
  ["FsmRetryProcedure", "retry"],
]);

function svg(name, attributes, text) {
  const element = document.createElementNS(SVG, name);
  for (const [key, value] of Object.entries(attributes)) {
    element.setAttribute(key, value);
  }
  if (text !== undefined) {
    element.textContent = text;
  }
  return element;
}

function html(name, className, text) {
  const element = document.createElement(name);
  if (className) {
    element.className = className;
  }
  if (text !== undefined) {
    element.textContent = text;
  }
  return element;
}

export function durationText(milliseconds) {
  const seconds = Math.floor(milliseconds / 1000);
  if (seconds < 60) {
    return (milliseconds / 1000).toFixed(3) + " s";
  }
  if (seconds < 3600) {
    return Math.floor(seconds / 60) + " min " + seconds % 60 + " s";
  }
  if (seconds < 86400) {
    return Math.floor(seconds / 3600) + " h " + Math.floor(seconds % 3600 / 60) + " min";
  }
  return Math.floor(seconds / 86400) + " d " + Math.floor(seconds % 86400 / 3600) + " h";
}

// Bars, marks and the stretched axis. Every event has a column of its own, so that a state is seen
// that lasted less than a millisecond beside one that lasted a day: a column is as wide as the
// logarithm of the time since the event before.
class Model {
  constructor() {
    this.columns = [];
    this.bars = new Map(LANES.map((lane) => [lane, []]));
    this.passes = [];
    this.width = 0;
  }

  load(data) {
    for (const section of data.sections) {
      if (section.sums) {
        this.addSums(section);
        continue;
      }
      for (const [lane, text] of Object.entries(section.states)) {
        const open = this.openBar(lane);
        if (text !== "" && !(open && open.text === text)) {
          this.addBar(lane, text, { at: section.begin.axis, clock: section.begin.clock });
        }
      }
      this.append(section.events);
    }
  }

  append(events) {
    for (const event of events) {
      this.add(event);
    }
  }

  addSums(section) {
    const begin = { at: section.begin.axis, clock: section.begin.clock, kind: "sum" };
    for (const lane of this.bars.keys()) {
      this.closeBar(lane, begin);
    }
    this.addColumn(begin, "");
    this.width += SUM_WIDTH;
    const end = { at: section.end.axis, clock: section.end.clock, kind: "sum" };
    const sums = section.sums;
    const text = `${sums.passes} passes summed up, ${sums.badPasses} of them failed`;
    this.addColumn(end, text);
    const last = this.columns.length - 1;
    this.bars.get(PASSES).push({
      from: last - 1, to: last, text, kind: "sum", clock: begin.clock,
      length: end.at - begin.at,
    });
  }

  addColumn(event, text) {
    const last = this.columns[this.columns.length - 1];
    const passed = last ? Math.max(0, event.at - last.at) : 0;
    this.width += 6 + 16 * Math.log10(1 + passed);
    this.columns.push({ at: event.at, clock: event.clock, x: this.width, text, event });
    return this.columns.length - 1;
  }

  lane(name) {
    if (!this.bars.has(name)) {
      this.bars.set(name, []);
    }
    return this.bars.get(name);
  }

  openBar(lane) {
    const bars = this.lane(lane);
    const last = bars[bars.length - 1];
    return last && last.to === null ? last : undefined;
  }

  addBar(lane, text, event, kind) {
    const column = Math.max(0, this.columns.length - 1);
    this.closeBar(lane, event);
    const bar = {
      from: column, to: null, text, kind: kind || STATE_KINDS.get(text) || "work",
      at: event.at, clock: event.clock,
    };
    this.lane(lane).push(bar);
    return bar;
  }

  closeBar(lane, event) {
    const open = this.openBar(lane);
    if (open) {
      open.to = Math.max(0, this.columns.length - 1);
      open.length = event.at - open.at;
    }
    return open;
  }

  add(event) {
    const texts = {
      state: `${event.lane}: ${event.text || "ends"}`,
      passBegin: `${event.text} begins`,
      passEnd: `pass ends: ${event.text}`,
      wait: `waits: ${event.text}`,
    };
    const text = texts[event.kind] || event.text;
    const column = this.addColumn(event, text);
    if (event.kind === "state") {
      this.addState(event);
    } else if (event.kind === "wait") {
      const bar = this.addBar(WAITING, event.text, event, "retry");
      bar.planned = event.at + event.length;
    } else if (event.kind === "passBegin") {
      this.addBar(PASSES, event.text, event, "running");
    } else if (event.kind === "passEnd") {
      this.endPass(event);
    } else {
      this.lane(EVENTS).push({
        from: column, to: column, text, mark: true, clock: event.clock,
        kind: event.kind === "mark" ? event.tone : event.kind, length: 0,
      });
    }
  }

  addState(event) {
    if (event.lane === CLIENT && !WAITING_STATES.has(event.text)) {
      this.closeBar(WAITING, event);
    }
    if (event.text === "") {
      this.closeBar(event.lane, event);
    } else {
      this.addBar(event.lane, event.text, event,
        event.lane === "Activation reason" ? "reason" : undefined);
    }
  }

  endPass(event) {
    this.closeBar(WAITING, event);
    const bar = this.closeBar(PASSES, event);
    const pass = event.pass;
    if (bar) {
      bar.kind = "pass-" + pass.outcome;
      bar.text = `${pass.number}: ${pass.trigger} \u2013 ${pass.text}`;
    }
    this.passes.push({ ...pass, column: bar ? bar.from : this.columns.length - 1 });
  }

  // The last column at or before a moment.
  columnAt(axis) {
    let low = 0;
    let high = this.columns.length - 1;
    while (low < high) {
      const middle = Math.ceil((low + high) / 2);
      if (this.columns[middle].at <= axis) {
        low = middle;
      } else {
        high = middle - 1;
      }
    }
    return low;
  }

  xAt(axis) {
    const column = this.columnAt(axis);
    const here = this.columns[column];
    const next = this.columns[column + 1];
    if (!next || next.at <= here.at) {
      return here.x;
    }
    return here.x + (next.x - here.x) * (axis - here.at) / (next.at - here.at);
  }

  fromX(bar) {
    return this.columns[bar.from] ? this.columns[bar.from].x : 0;
  }

  toX(bar) {
    const to = bar.to === null ? this.width + END_WIDTH : this.columns[bar.to].x;
    if (bar.planned === undefined) {
      return to;
    }
    const last = this.columns[this.columns.length - 1];
    return last && bar.planned <= last.at ? Math.min(to, this.xAt(bar.planned)) : to;
  }

  // What each lane shows at a column.
  statesAt(column) {
    const states = [];
    for (const [lane, bars] of this.bars) {
      const found = bars[firstEndingBehind(bars, column)];
      if (found && !found.mark && found.from <= column) {
        states.push([lane, found.text]);
      }
    }
    return states;
  }
}

// Index of the first bar that reaches behind a column; bars of a lane follow each other.
function firstEndingBehind(bars, column) {
  let low = 0;
  let high = bars.length;
  while (low < high) {
    const middle = Math.floor((low + high) / 2);
    const to = bars[middle].to;
    if (to === null || to > column) {
      high = middle;
    } else {
      low = middle + 1;
    }
  }
  return low;
}

function shortText(text, width) {
  const short = text.replace(/^Fsm(State)?(?=[A-Z])/, "");
  const room = Math.floor((width - 8) / LETTER);
  if (short.length <= room) {
    return short;
  }
  return room >= 4 ? short.slice(0, room - 1) + "\u2026" : "";
}

export function createLanes(host) {
  const model = new Model();
  let zoom = 1;
  let selected = -1;
  let drawing = 0;

  host.classList.add("lanes");
  const bar = html("div", "lanes-tools");
  const frame = html("div", "lanes-frame");
  const names = html("div", "lanes-names");
  const scroller = html("div", "lanes-scroller");
  const spacer = html("div", "lanes-spacer");
  const canvas = svg("svg", { class: "lanes-canvas", "aria-hidden": "true" });
  const detail = html("div", "lanes-detail");
  scroller.tabIndex = 0;
  scroller.setAttribute("role", "application");
  scroller.setAttribute("aria-label",
    "Lanes over time. Arrow keys step through the events, page keys through the passes.");
  detail.setAttribute("aria-live", "polite");
  scroller.append(canvas, spacer);
  frame.append(names, scroller);
  host.append(bar, frame, detail);

  function button(text, label, action) {
    const element = html("button", "", text);
    element.type = "button";
    element.title = label;
    element.setAttribute("aria-label", label);
    element.addEventListener("click", action);
    bar.append(element);
  }
  button("\u2212", "Zoom out", () => setZoom(zoom / ZOOM_STEP));
  button("+", "Zoom in", () => setZoom(zoom * ZOOM_STEP));
  button("Fit", "Show everything", fit);
  button("\u25c0 Pass", "Previous pass", () => stepPass(-1));
  button("Pass \u25b6", "Next pass", () => stepPass(1));
  bar.append(html("span", "lanes-hint",
    "The axis is stretched: every event has room, and lengths grow with the logarithm of time."));

  function contentWidth() {
    return Math.ceil((model.width + END_WIDTH) * zoom);
  }

  function drawNames() {
    if (names.childElementCount === model.bars.size + 1) {
      return;
    }
    const height = AXIS + model.bars.size * ROW;
    names.replaceChildren(html("div", "lanes-name lanes-axis-name"));
    for (const lane of model.bars.keys()) {
      const name = html("div", "lanes-name", lane);
      name.title = lane;
      names.append(name);
    }
    frame.style.height = `${height + 18}px`;
    canvas.setAttribute("height", height);
  }

  function drawBar(parts, item, left, top) {
    const x = model.fromX(item) * zoom - left;
    const title = `${item.text}\n${item.clock}` +
      (item.length ? `, ${durationText(item.length)}` : "");
    const group = svg("g", { class: `lanes-item ${item.mark ? "mark" : "bar"} ${item.kind}` });
    group.append(svg("title", {}, title));
    const middle = top + ROW / 2;
    if (item.mark) {
      group.append(svg("path", { d: `M${x} ${middle - 8}l6 8l-6 8l-6 -8z` }));
    } else {
      const width = Math.max(2, model.toX(item) * zoom - left - x);
      group.append(svg("rect", { x, y: middle - BAR / 2, width, height: BAR, rx: 3 }));
      // The words stay in sight as long as the bar is.
      const from = Math.max(x, 0);
      const text = shortText(item.text, x + width - from);
      if (text) {
        group.append(svg("text", { x: from + 4, y: middle + 4 }, text));
      }
    }
    parts.append(group);
  }

  function drawAxis(parts, left, width, first, last) {
    let nextX = -Infinity;
    let day = "";
    for (let i = first; i <= last; i++) {
      const column = model.columns[i];
      const x = column.x * zoom - left;
      if (column.event.kind === "jump") {
        parts.append(svg("line",
          { class: "lanes-jump", x1: x, x2: x, y1: 0, y2: AXIS + model.bars.size * ROW }));
      }
      if (x < Math.max(0, nextX) || x > width) {
        continue;
      }
      nextX = x + TICK_DISTANCE;
      const [date, clock] = column.clock.includes("T") ? column.clock.split("T") : ["", column.clock];
      parts.append(svg("line",
        { class: "lanes-tick", x1: x, x2: x, y1: AXIS - 6, y2: AXIS + model.bars.size * ROW }));
      parts.append(svg("text", { class: "lanes-clock", x: x + 3, y: AXIS - 6 }, clock));
      if (date !== day) {
        parts.append(svg("text", { class: "lanes-date", x: x + 3, y: AXIS - 20 }, date));
        day = date;
      }
    }
  }

  function draw() {
    drawing = 0;
    drawNames();
    spacer.style.width = `${contentWidth()}px`;
    const left = scroller.scrollLeft;
    const width = scroller.clientWidth;
    canvas.setAttribute("width", width);
    const parts = document.createDocumentFragment();
    if (model.columns.length > 0) {
      const first = columnAtX(left / zoom);
      const last = Math.min(model.columns.length - 1, columnAtX((left + width) / zoom) + 1);
      drawAxis(parts, left, width, first, last);
      let top = AXIS;
      for (const [lane, bars] of model.bars) {
        parts.append(svg("line", { class: "lanes-row", x1: 0, x2: width, y1: top, y2: top }));
        let drawnTo = -Infinity;
        for (let i = firstEndingBehind(bars, first - 1); i < bars.length; i++) {
          if (bars[i].from > last) {
            break;
          }
          // Where many share a pixel, one is drawn.
          const end = model.toX(bars[i]) * zoom;
          if (end >= drawnTo + 1) {
            drawBar(parts, bars[i], left, top);
            drawnTo = end;
          }
        }
        top += ROW;
      }
      if (selected >= 0) {
        const x = model.columns[selected].x * zoom - left;
        parts.append(svg("line", { class: "lanes-cursor", x1: x, x2: x, y1: 0, y2: top }));
      }
    }
    canvas.replaceChildren(parts);
  }

  function redraw() {
    if (drawing === 0) {
      drawing = requestAnimationFrame(draw);
    }
  }

  function columnAtX(x) {
    let low = 0;
    let high = model.columns.length - 1;
    while (low < high) {
      const middle = Math.ceil((low + high) / 2);
      if (model.columns[middle].x <= x) {
        low = middle;
      } else {
        high = middle - 1;
      }
    }
    return low;
  }

  function setZoom(value) {
    const middle = (scroller.scrollLeft + scroller.clientWidth / 2) / zoom;
    zoom = Math.min(20, Math.max(0.02, value));
    spacer.style.width = `${contentWidth()}px`;
    scroller.scrollLeft = middle * zoom - scroller.clientWidth / 2;
    redraw();
  }

  function fit() {
    setZoom(scroller.clientWidth / (model.width + END_WIDTH));
  }

  function select(column) {
    if (model.columns.length === 0) {
      return;
    }
    selected = Math.min(model.columns.length - 1, Math.max(0, column));
    const here = model.columns[selected];
    const x = here.x * zoom;
    const margin = Math.min(120, scroller.clientWidth / 4);
    if (x < scroller.scrollLeft + margin ||
        x > scroller.scrollLeft + scroller.clientWidth - margin) {
      scroller.scrollLeft = x - scroller.clientWidth / 3;
    }
    const head = html("p", "lanes-moment");
    head.append(html("time", "", here.clock), ` ${here.text}`);
    const states = html("dl", "lanes-states");
    for (const [lane, text] of model.statesAt(selected)) {
      const value = html("dd", "", text);
      value.title = text;
      states.append(html("dt", "", lane), value);
    }
    detail.replaceChildren(head, states);
    redraw();
  }

  function stepPass(direction) {
    const columns = model.passes.map((pass) => pass.column);
    const next = direction > 0
      ? columns.find((column) => column > selected)
      : columns.reverse().find((column) => column < selected);
    if (next !== undefined) {
      select(next);
    }
  }

  const keys = {
    ArrowRight: () => select(selected + 1),
    ArrowLeft: () => select(selected - 1),
    PageDown: () => stepPass(1),
    PageUp: () => stepPass(-1),
    Home: () => select(0),
    End: () => select(model.columns.length - 1),
    "+": () => setZoom(zoom * ZOOM_STEP),
    "-": () => setZoom(zoom / ZOOM_STEP),
    0: fit,
  };
  scroller.addEventListener("keydown", (event) => {
    if (Object.hasOwn(keys, event.key) && !event.ctrlKey && !event.altKey && !event.metaKey) {
      event.preventDefault();
      keys[event.key]();
    }
  });
  scroller.addEventListener("scroll", redraw, { passive: true });
  canvas.addEventListener("click", (event) => {
    const x = event.clientX - canvas.getBoundingClientRect().left + scroller.scrollLeft;
    select(columnAtX(x / zoom));
  });
  new ResizeObserver(redraw).observe(scroller);
  draw();

  return {
    load(data) {
      model.load(data);
      draw();
    },
    // Stays at the end if the end was in sight.
    append(events) {
      const end = contentWidth() - scroller.clientWidth;
      const follows = scroller.scrollLeft >= end - 2 * END_WIDTH;
      model.append(events);
      if (follows) {
        spacer.style.width = `${contentWidth()}px`;
        scroller.scrollLeft = contentWidth();
      }
      redraw();
    },
    showMoment(axis) {
      select(model.columnAt(axis));
    },
    showEnd() {
      spacer.style.width = `${contentWidth()}px`;
      scroller.scrollLeft = contentWidth();
      redraw();
    },
    // Whether a pass is drawn, or only summed up.
    showsPass(number) {
      return model.passes.some((pass) => pass.number === number);
    },
    showPass(number) {
      const pass = model.passes.find((candidate) => candidate.number === number);
      if (pass) {
        select(pass.column);
      }
    },
    focus() {
      scroller.focus({ preventScroll: true });
    },
    fit,
  };
}

// A table of the passes, newest first; a pass that is drawn can be shown in the lanes.
export function createPassTable(host, passes, lanes) {
  const table = html("table", "passes");
  const head = html("tr");
  for (const title of ["Pass", "Begin", "Trigger", "Decision", "Attempts", "Outcome", "Took"]) {
    const cell = html("th", "", title);
    cell.scope = "col";
    head.append(cell);
  }
  table.append(html("thead"), html("tbody"));
  table.tHead.append(head);
  for (const pass of [...passes].reverse()) {
    const row = html("tr", pass.bad ? "bad" : "");
    const number = html("td");
    if (lanes.showsPass(pass.number)) {
      const show = html("button", "", String(pass.number));
      show.type = "button";
      show.setAttribute("aria-label", `Show pass ${pass.number}`);
      show.addEventListener("click", () => {
        lanes.showPass(pass.number);
        lanes.focus();
      });
      number.append(show);
    } else {
      number.textContent = String(pass.number);
    }
    row.append(number);
    const counted = (kinds) => kinds.map(([kind, count]) => `${count} \u00d7 ${kind}`).join(", ");
    const more = [];
    if (pass.attempts > 1 && pass.causes.length > 0) {
      more.push("failed attempts: " + counted(pass.causes));
    }
    if (pass.waits.length > 0) {
      more.push("waited for: " + counted(pass.waits));
    }
    const outcome = [pass.text, ...more].join("; ");
    const took = (pass.beginSeen ? "" : "at least ") +
      durationText(pass.end.axis - pass.begin.axis) +
      (pass.clockJumped ? ", without the clock\u2019s jump" : "");
    for (const text of [pass.begin.clock, pass.trigger, pass.decision || "no decision",
      String(pass.attempts), outcome, took]) {
      row.append(html("td", "", text));
    }
    table.tBodies[0].append(row);
  }
  host.append(table);
}
