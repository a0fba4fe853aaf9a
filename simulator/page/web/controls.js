// Everything that can be done to a unit and to the world around it.
//
//   const controls = new Controls(host, send);   // send(control, values, what)
//   controls.update(unit);                       // states as the server reports them
//   controls.setEnabled(connected);

import { element, setText } from "./dom.js";

// A row has either `choices` (buttons, the pressed one is the state), or `fields` and a button.
// `state` finds the current value in what the simulators report.
const GROUPS = [
  {
    title: "Service",
    note: (unit) => unit.service.state,
    rows: [{
      buttons: [
        { text: "Start", control: "service", value: "start", key: "s",
          enabled: (unit) => !unit.service.running },
        { text: "Stop", control: "service", value: "stop", key: "x",
          enabled: (unit) => unit.service.state === "running" },
        { text: "Start with -reset", control: "service", value: "reset",
          enabled: (unit) => unit.service.state !== "stopping" },
      ],
    }],
  },
  {
    title: "Ignition",
    rows: [{ label: "Clamp 15", control: "clamp", choices: ["on", "off"], key: "i",
      state: (unit) => unit.vehicle.clamp }],
  },
  {
    title: "TLS alert",
    note: (unit) => `${unit.vehicle.alertSubscribers ?? 0} listening`,
    rows: [
      { label: "Operation", name: "oid", initial: "QUBA-TokenManagement.COTokenRequest" },
      { label: "Code", name: "code", type: "number", initial: "44", action: "Send", key: "a",
        control: "alert", with: ["oid", "code"] },
    ],
  },
  {
    title: "Immobilizer",
    rows: [
      { label: "Service", control: "immobilizer", choices: ["up", "down"],
        state: (unit) => unit.vehicle.immobilizer },
      { label: "VIN", control: "vin", state: (unit) => unit.vehicle.vin },
    ],
  },
  {
    title: "Connector",
    rows: [
      { label: "Session", control: "session", options: ["idle", "starting", "started", "rejected"],
        state: (unit) => unit.vehicle.connector?.session },
      { label: "Activation", control: "activation", choices: ["on", "off"],
        state: (unit) => unit.vehicle.connector?.activation },
      { label: "Connection", control: "connection",
        options: ["notAvailable", "disconnected", "onDemand", "connected"],
        state: (unit) => unit.vehicle.connector?.connection },
      { label: "URL", control: "url", state: (unit) => unit.vehicle.connector?.url },
    ],
  },
  {
    title: "ECU",
    rows: [
      { label: "Service", control: "ecu", choices: ["up", "down"],
        state: (unit) => unit.vehicle.ecu?.service },
      { label: "Software", control: "ecuSw", state: (unit) => unit.vehicle.ecu?.sw },
      { label: "Hardware", control: "ecuHw", state: (unit) => unit.vehicle.ecu?.hw },
      { label: "Part", control: "ecuPart", state: (unit) => unit.vehicle.ecu?.part },
    ],
  },
  {
    title: "Backend",
    rows: [
      { label: "Scenario", name: "scenario", control: "scenario",
        state: (unit) => unit.backend?.scenario },
      { label: "Known", fills: "scenario", presets: (unit) => (unit.backend?.known ?? [])
        .map((name) => name.replace("STATUS", "403").replace("DAYS", "100")) },
    ],
  },
];

const KEYS = [
  ["i", "ignition on or off"], ["a", "send the TLS alert"], ["s", "start the service"],
  ["x", "stop the service"], ["t", "to the lanes"], ["l", "to the log"], ["f", "to its filter"],
  ["1 … 9", "choose a unit"], ["+ − 0", "in the lanes: zoom, fit"],
  ["← →", "in the lanes: step"], ["↑ ↓", "in the log: step, lanes follow"],
];

function makeInput(row) {
  if (row.options) {
    const select = element("select");
    select.append(...row.options.map((option) => element("option", "", option)));
    return select;
  }
  const input = element("input");
  input.type = row.type || "text";
  input.value = row.initial || "";
  input.maxLength = 256;
  input.spellcheck = false;
  input.autocomplete = "off";
  if (row.type === "number") {
    input.min = 0;
    input.max = 255;
  }
  return input;
}

function makeKeys() {
  const keys = element("details", "keys");
  const list = element("dl");
  for (const [key, what] of KEYS) {
    list.append(element("dt", "", key), element("dd", "", what));
  }
  keys.append(element("summary", "", "Keys"), list);
  return keys;
}

function addButton(place, text, act) {
  const button = element("button", "", text);
  button.type = "button";
  button.addEventListener("click", act);
  place.append(button);
  return button;
}

export class Controls {
  // What a key does.
  shortcuts = new Map();

  #send;
  #updaters = [];
  #fieldsets;
  #inputs = {};
  #serial = 0;

  constructor(host, send) {
    this.#send = send;
    this.#fieldsets = GROUPS.map((group) => this.#makeGroup(group));
    host.append(...this.#fieldsets, makeKeys());
  }

  update(unit) {
    for (const updater of this.#updaters) {
      updater(unit);
    }
  }

  setEnabled(enabled) {
    for (const fieldset of this.#fieldsets) {
      fieldset.disabled = !enabled;
    }
  }

  #makeGroup(group) {
    const fieldset = element("fieldset");
    const legend = element("legend", "", group.title);
    fieldset.append(legend);
    fieldset.dataset.group = group.title;
    if (group.note) {
      const note = element("span", "note-text");
      legend.append(note);
      this.#updaters.push((unit) => setText(note, group.note(unit)));
    }
    for (const row of group.rows) {
      fieldset.append(this.#makeRow(row, group.title));
    }
    return fieldset;
  }

  #makeRow(row, title) {
    const place = element("div", row.buttons ? "row buttons" : "row");
    if (row.buttons) {
      this.#addButtons(place, row);
    } else if (row.choices) {
      this.#addChoices(place, row, title);
    } else if (row.presets) {
      this.#addPresets(place, row);
    } else {
      this.#addField(place, row, title);
    }
    return place;
  }

  #addShortcut(key, button) {
    if (key) {
      button.setAttribute("aria-keyshortcuts", key);
      button.title = `Key ${key}`;
      this.shortcuts.set(key, () => button.click());
    }
  }

  #addButtons(place, row) {
    for (const spec of row.buttons) {
      const button = addButton(place, spec.text,
        () => this.#send(spec.control, [spec.value], `service: ${spec.text.toLowerCase()}`));
      this.#addShortcut(spec.key, button);
      this.#updaters.push((unit) => {
        button.disabled = !spec.enabled(unit);
      });
    }
  }

  #addChoices(place, row, title) {
    const group = element("div", "choices");
    group.setAttribute("role", "group");
    group.setAttribute("aria-label", `${title}: ${row.label}`);
    const buttons = row.choices.map((choice) => addButton(group, choice,
      () => this.#send(row.control, [choice], `${row.label} ${choice}`)));
    place.append(element("span", "label", row.label), group);
    let current;
    this.#updaters.push((unit) => {
      current = row.state(unit);
      buttons.forEach((button, i) => {
        button.setAttribute("aria-pressed", String(row.choices[i] === current));
      });
    });
    if (row.key) {
      buttons[0].setAttribute("aria-keyshortcuts", row.key);
      this.shortcuts.set(row.key, () => buttons[current === row.choices[0] ? 1 : 0].click());
    }
  }

  #addLabelled(place, text, input) {
    const label = element("label", "label", text);
    input.id = `control-${++this.#serial}`;
    label.htmlFor = input.id;
    place.append(label, input);
  }

  // Fills another field of the group; nothing is sent.
  #addPresets(place, row) {
    const select = element("select", "wide");
    this.#addLabelled(place, row.label, select);
    let shown = "";
    this.#updaters.push((unit) => {
      const names = row.presets(unit);
      if (shown !== names.join()) {
        shown = names.join();
        select.replaceChildren(element("option", "", "choose …"),
          ...names.map((name) => element("option", "", name)));
      }
    });
    select.addEventListener("change", () => {
      const field = this.#inputs[row.fills];
      if (select.selectedIndex > 0) {
        field.value = select.value;
        field.dispatchEvent(new Event("input"));
        select.selectedIndex = 0;
        field.focus();
      }
    });
  }

  // Shows the current value, except while the user writes another one.
  #followState(input, row) {
    let known = null;
    const mark = () => input.classList.toggle("edited", known !== null && input.value !== known);
    input.addEventListener("input", mark);
    input.addEventListener("keydown", (event) => {
      if (event.key === "Escape") {
        input.value = known ?? "";
        mark();
      }
    });
    this.#updaters.push((unit) => {
      const value = row.state(unit);
      if (value !== undefined && value !== known) {
        if (known === null || input.value === known) {
          input.value = value;
        }
        known = value;
      }
      mark();
    });
  }

  #addField(place, row, title) {
    const input = makeInput(row);
    this.#addLabelled(place, row.label, input);
    this.#inputs[row.name] = input;
    if (row.state) {
      this.#followState(input, row);
    }
    if (row.control) {
      this.#addAction(place, row, title, input);
    } else {
      input.className = "wide";
    }
  }

  // The button that sends a field's value, or those of the fields that the row names.
  #addAction(place, row, title, input) {
    const act = () => {
      const values = (row.with || []).map((name) => this.#inputs[name].value);
      this.#send(row.control, row.with ? values : [input.value], row.with
        ? `${title}: ${values.join(" ")}` : `${title}: ${row.label} ${input.value}`);
    };
    const button = addButton(place, row.action || "Set", act);
    button.setAttribute("aria-label", `${row.action || "Set"} ${title}: ${row.label}`);
    this.#addShortcut(row.key, button);
    input.addEventListener("keydown", (event) => {
      if (event.key === "Enter") {
        act();
      }
    });
  }
}
