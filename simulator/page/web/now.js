// What the service does at this moment: the client machine's state, the pass, the activation
// reason, and how long it still waits.

import { byId, setText } from "./dom.js";

const CLIENT = "VintrelClientFsm";
const REASON = "Activation reason";
// States whose business is the wait that was announced before.
const WAITING_STATES = new Set(["FsmRetryProcedure", "FsmStateCheckAndStoreTiv"]);
const ANNOUNCE_AFTER = 600;
const TICK = matchMedia("(prefers-reduced-motion: reduce)").matches ? 1000 : 100;

export class Now {
  #state = byId("now-state");
  #pass = byId("now-pass");
  #reason = byId("now-reason");
  #wait = byId("now-wait");
  #left = byId("now-left");
  #progress = byId("now-progress");
  #waiting = null;
  #timer = 0;

  constructor() {
    setInterval(() => this.#tick(), TICK);
  }

  // `time` is what the server's clock showed when it sent this.
  load(timeline, time) {
    this.#endWait();
    setText(this.#state, "not running");
    setText(this.#pass, "none yet");
    setText(this.#reason, "–");
    for (const section of timeline.sections.filter((one) => one.events)) {
      for (const [lane, text] of Object.entries(section.states)) {
        this.#onState({ lane, text });
      }
      section.events.forEach((event) => this.#apply(event, time));
    }
  }

  append(events, time) {
    events.forEach((event) => this.#apply(event, time));
    this.#announce();
  }

  #announce() {
    clearTimeout(this.#timer);
    this.#timer = setTimeout(() => {
      byId("announce").textContent = `Client machine: ${this.#state.textContent}. ` +
        (this.#waiting ? `${this.#waiting.text}.` : this.#pass.textContent);
    }, ANNOUNCE_AFTER);
  }

  #endWait() {
    this.#waiting = null;
    setText(this.#wait, "–");
    setText(this.#left, "");
    this.#progress.value = 0;
  }

  #tick() {
    if (!this.#waiting || Number.isNaN(this.#waiting.ends)) {
      return;
    }
    const rest = Math.max(0, this.#waiting.ends - performance.now());
    this.#left.textContent = `${(rest / 1000).toFixed(1)} s left`;
    this.#progress.value = 1 - rest / this.#waiting.length;
  }

  #onState(event) {
    if (event.lane === REASON && event.text !== "") {
      setText(this.#reason, event.text);
    } else if (event.lane === CLIENT) {
      setText(this.#state, event.text.replace(/^Fsm(State)?(?=[A-Z])/, "") || "not running");
      if (!WAITING_STATES.has(event.text)) {
        this.#endWait();
      }
    }
  }

  #apply(event, time) {
    if (event.kind === "state") {
      this.#onState(event);
    } else if (event.kind === "wait") {
      const ends = performance.now() + Date.parse(event.clock) + event.length - time;
      this.#waiting = { text: event.text, length: event.length, ends };
      setText(this.#wait, event.text);
      this.#tick();
    } else if (event.kind === "passBegin") {
      setText(this.#pass, `${event.text} under way`);
      setText(this.#reason, "–");
    } else if (event.kind === "passEnd") {
      this.#endWait();
      setText(this.#pass, `${event.pass.number}: ${event.pass.trigger} – ${event.pass.text}`);
      setText(this.#reason, event.pass.decision || "–");
    }
  }
}
