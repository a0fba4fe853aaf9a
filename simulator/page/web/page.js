import { Card, clientFacts, factoryFacts } from "./cards.js";
import { Controls } from "./controls.js";
import { byId, element, setText } from "./dom.js";
import { Journal } from "./journal.js";
import { createLanes } from "./lanes.js";
import { LogView } from "./log_view.js";
import { Now } from "./now.js";
import { openStream, sendCommand } from "./stream.js";

// After so many events the lanes are loaded again with what the server has kept.
const MAX_EVENTS = 20000;

let chosen = Math.max(1, Number(location.hash.slice(1)) || 1);
let stream = null;
let lanes = null;
let appended = 0;
// What is known of the chosen unit.
let unit = { service: {}, vehicle: {}, backend: {} };

const link = byId("link");
const said = byId("said");
const now = new Now();
const journal = new Journal();
const log = new LogView((axis) => lanes?.showMoment(axis));
const clientCard = new Card(byId("client-card"), "Stored certificate");
const factoryCard = new Card(byId("factory-card"), "Factory certificate");

const controls = new Controls(byId("controls"), async (control, values, what) => {
  const failure = await sendCommand(chosen, control, values);
  said.className = failure ? "said bad" : "said";
  setText(said, failure ? `Failed: ${failure} (${what})` : `Done: ${what}`);
});

function setLink(text, connected) {
  setText(link, text);
  link.className = connected ? "link" : "link lost";
  controls.setEnabled(connected);
}

function drawUnits(units) {
  const buttons = units.map((one, index) => {
    const number = index + 1;
    const item = element("li");
    const button = element("button");
    button.type = "button";
    button.setAttribute("aria-current", String(number === chosen));
    button.append(element("b", "", one.name), element("span", "vin", one.vin || "no VIN"),
      element("span", one.service ? "on" : "off", one.service ? "service runs" : "service stopped"),
      element("span", one.clamp === "on" ? "on" : "off", `ignition ${one.clamp || "?"}`));
    button.addEventListener("click", () => choose(number));
    item.append(button);
    return item;
  });
  const focused = [...byId("units").querySelectorAll("button")].indexOf(document.activeElement);
  byId("units").replaceChildren(...buttons);
  byId("units").querySelectorAll("button")[focused]?.focus();
}

function loadLanes(message) {
  byId("lanes-host").replaceChildren();
  const host = element("div");
  byId("lanes-host").append(host);
  lanes = createLanes(host);
  lanes.load(message.timeline);
  lanes.showEnd();
  appended = 0;
  now.load(message.timeline, message.time);
  log.load(message.log);
  journal.load(message.journal);
}

function appendNews(message) {
  if (message.events) {
    lanes.append(message.events);
    now.append(message.events, message.time);
    appended += message.events.length;
  }
  if (message.log) {
    log.append(message.log);
  }
  if (message.journal) {
    journal.append(message.journal);
  }
  if (appended > MAX_EVENTS) {
    stream.restart();
  }
}

function showStates(message) {
  for (const name of ["service", "vehicle", "backend"]) {
    if (message[name]) {
      unit[name] = message[name];
    }
  }
  controls.update(unit);
  if (message.certificates) {
    clientCard.show(clientFacts(message.certificates.status));
    factoryCard.show(factoryFacts(message.certificates.verify));
  }
  const faults = [["vehicle", unit.vehicle.fault], ["backend", unit.backend?.fault]]
    .filter(([, fault]) => fault).map(([who, fault]) => `${who}: ${fault}`);
  setLink(faults.length > 0 ? faults.join("; ") : "Connected", true);
  link.classList.toggle("lost", faults.length > 0);
}

function onMessage(message) {
  if (message.timeline) {
    document.title = `${message.name} – Virtual vehicle`;
    loadLanes(message);
  } else {
    appendNews(message);
  }
  showStates(message);
  if (message.units) {
    drawUnits(message.units);
  }
}

function choose(number) {
  chosen = number;
  history.replaceState(null, "", `#${number}`);
  unit = { service: {}, vehicle: {}, backend: {} };
  setText(said, "");
  stream?.close();
  stream = openStream(number, {
    onOpen: () => {},
    onMessage,
    onLost: () => setLink("Connection to the page’s server lost, trying again …", false),
  });
}

function focusOn(selector) {
  document.querySelector(selector)?.focus();
}

document.addEventListener("keydown", (event) => {
  const writes = event.target.closest("input, select, textarea");
  if (writes || event.ctrlKey || event.altKey || event.metaKey) {
    return;
  }
  const jumps = { t: ".lanes-scroller", l: "#log", f: "#log-text" };
  const button = byId("units").querySelectorAll("button")[Number(event.key) - 1];
  if (Object.hasOwn(jumps, event.key)) {
    event.preventDefault();
    focusOn(jumps[event.key]);
  } else if (controls.shortcuts.has(event.key)) {
    controls.shortcuts.get(event.key)();
  } else if (button) {
    button.click();
  }
});

controls.setEnabled(false);
choose(chosen);
