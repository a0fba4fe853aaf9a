// Everything that can be done to a unit and to the world around it.
//
//   const controls = createControls(host, send);   // send(control, values, what)
//   controls.update(message);                      // states as the server tells them
//   controls.setEnabled(connected);

import { element, setText } from "./dom.js";

// A row has either `choices` (buttons, the pressed one is the state), or `fields` and a button.
// `state` finds the current value in what the simulators say.
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

export function createControls(host, send) {
  const updaters = [];
  const shortcuts = new Map();
  const fieldsets = [];
  const inputs = {};
  let serial = 0;

  function addShortcut(key, button) {
    if (key) {
      button.setAttribute("aria-keyshortcuts", key);
      button.title = `Key ${key}`;
      shortcuts.set(key, () => button.click());
    }
  }

  function addButton(place, text, act) {
    const button = element("button", "", text);
    button.type = "button";
    button.addEventListener("click", act);
    place.append(button);
    return button;
  }

  function addButtons(place, row) {
    for (const spec of row.buttons) {
      const button = addButton(place, spec.text,
        () => send(spec.control, [spec.value], `service: ${spec.text.toLowerCase()}`));
      addShortcut(spec.key, button);
      updaters.push((unit) => {
        button.disabled = !spec.enabled(unit);
      });
    }
  }

  function addChoices(place, row, title) {
    const group = element("div", "choices");
    group.setAttribute("role", "group");
    group.setAttribute("aria-label", `${title}: ${row.label}`);
    const buttons = row.choices.map((choice) =>
      addButton(group, choice, () => send(row.control, [choice], `${row.label} ${choice}`)));
    place.append(element("span", "label", row.label), group);
    let current;
    updaters.push((unit) => {
      current = row.state(unit);
      buttons.forEach((button, i) => {
        button.setAttribute("aria-pressed", String(row.choices[i] === current));
      });
    });
    if (row.key) {
      buttons[0].setAttribute("aria-keyshortcuts", row.key);
      shortcuts.set(row.key, () => buttons[current === row.choices[0] ? 1 : 0].click());
    }
  }

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

  // Fills another field of the group; nothing is sent.
  function addPresets(place, row) {
    const label = element("label", "label", row.label);
    const select = element("select", "wide");
    select.id = `control-${++serial}`;
    label.htmlFor = select.id;
    place.append(label, select);
    let shown = "";
    updaters.push((unit) => {
      const names = row.presets(unit);
      if (shown !== names.join()) {
        shown = names.join();
        select.replaceChildren(element("option", "", "choose …"),
          ...names.map((name) => element("option", "", name)));
      }
    });
    select.addEventListener("change", () => {
      const field = inputs[row.fills];
      if (select.selectedIndex > 0) {
        field.value = select.value;
        field.dispatchEvent(new Event("input"));
        select.selectedIndex = 0;
        field.focus();
      }
    });
  }

  // Shows the current value, except while the user writes another one.
  function followState(input, row) {
    let known = null;
    const mark = () => input.classList.toggle("edited", known !== null && input.value !== known);
    input.addEventListener("input", mark);
    input.addEventListener("keydown", (event) => {
      if (event.key === "Escape") {
        input.value = known ?? "";
        mark();
      }
    });
    updaters.push((unit) => {
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

  function addField(place, row, title) {
    const label = element("label", "label", row.label);
    const input = makeInput(row);
    input.id = `control-${++serial}`;
    label.htmlFor = input.id;
    inputs[row.name] = input;
    place.append(label, input);
    if (!row.control) {
      input.className = "wide";
    }
    if (row.state) {
      followState(input, row);
    }
    if (!row.control) {
      return;
    }
    const act = () => {
      const values = (row.with || []).map((name) => inputs[name].value);
      send(row.control, row.with ? values : [input.value], row.with
        ? `${title}: ${values.join(" ")}` : `${title}: ${row.label} ${input.value}`);
    };
    const button = addButton(place, row.action || "Set", act);
    button.setAttribute("aria-label", `${row.action || "Set"} ${title}: ${row.label}`);
    addShortcut(row.key, button);
    input.addEventListener("keydown", (event) => {
      if (event.key === "Enter") {
        act();
      }
    });
  }

  for (const group of GROUPS) {
    const fieldset = element("fieldset");
    const legend = element("legend", "", group.title);
    fieldset.append(legend);
    fieldset.dataset.group = group.title;
    if (group.note) {
      const note = element("span", "note-text");
      legend.append(note);
      updaters.push((unit) => setText(note, group.note(unit)));
    }
    for (const row of group.rows) {
      const place = element("div", row.buttons ? "row buttons" : "row");
      if (row.buttons) {
        addButtons(place, row);
      } else if (row.choices) {
        addChoices(place, row, group.title);
      } else if (row.presets) {
        addPresets(place, row);
      } else {
        addField(place, row, group.title);
      }
      fieldset.append(place);
    }
    fieldsets.push(fieldset);
  }

  const keys = element("details", "keys");
  const list = element("dl");
  for (const [key, what] of KEYS) {
    list.append(element("dt", "", key), element("dd", "", what));
  }
  keys.append(element("summary", "", "Keys"), list);
  host.append(...fieldsets, keys);

  return {
    update(unit) {
      for (const updater of updaters) {
        updater(unit);
      }
    },
    setEnabled(enabled) {
      for (const fieldset of fieldsets) {
        fieldset.disabled = !enabled;
      }
    },
    shortcuts,
  };
}
