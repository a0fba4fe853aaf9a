// What the service does at this moment: the client machine's state, the pass, the activation
// reason, and how long it still waits.

import { byId, setText } from "./dom.js";

const CLIENT = "VintrelClientFsm";
const REASON = "Activation reason";
// States whose business is the wait that was announced before.
const WAITING_STATES = new Set(["FsmRetryProcedure", "FsmStateCheckAndStoreTiv"]);
const ANNOUNCE_AFTER = 600;
const TICK = matchMedia("(prefers-reduced-motion: reduce)").matches ? 1000 : 100;

export function createNow() {
  const state = byId("now-state");
  const pass = byId("now-pass");
  const reason = byId("now-reason");
  const wait = byId("now-wait");
  const left = byId("now-left");
  const progress = byId("now-progress");
  let waiting = null;
  let timer = 0;

  function announce() {
    clearTimeout(timer);
    timer = setTimeout(() => {
      byId("announce").textContent = `Client machine: ${state.textContent}. ` +
        (waiting ? `${waiting.text}.` : pass.textContent);
    }, ANNOUNCE_AFTER);
  }

  function endWait() {
    waiting = null;
    setText(wait, "–");
    setText(left, "");
    progress.value = 0;
  }

  function tick() {
    if (!waiting || Number.isNaN(waiting.ends)) {
      return;
    }
    const rest = Math.max(0, waiting.ends - performance.now());
    left.textContent = `${(rest / 1000).toFixed(1)} s left`;
    progress.value = 1 - rest / waiting.length;
  }
  setInterval(tick, TICK);

  function onState(event) {
    if (event.lane === REASON && event.text !== "") {
      setText(reason, event.text);
    } else if (event.lane === CLIENT) {
      setText(state, event.text.replace(/^Fsm(State)?(?=[A-Z])/, "") || "not running");
      if (!WAITING_STATES.has(event.text)) {
        endWait();
      }
    }
  }

  // `time` is what the server's clock showed when it told.
  function apply(event, time) {
    if (event.kind === "state") {
      onState(event);
    } else if (event.kind === "wait") {
      const ends = performance.now() + Date.parse(event.clock) + event.length - time;
      waiting = { text: event.text, length: event.length, ends };
      setText(wait, event.text);
      tick();
    } else if (event.kind === "passBegin") {
      setText(pass, `${event.text} under way`);
      setText(reason, "–");
    } else if (event.kind === "passEnd") {
      endWait();
      setText(pass, `${event.pass.number}: ${event.pass.trigger} – ${event.pass.text}`);
      setText(reason, event.pass.decision || "–");
    }
  }

  return {
    load(timeline, time) {
      endWait();
      setText(state, "not running");
      setText(pass, "none yet");
      setText(reason, "–");
      for (const section of timeline.sections.filter((one) => one.events)) {
        for (const [lane, text] of Object.entries(section.states)) {
          onState({ lane, text });
        }
        section.events.forEach((event) => apply(event, time));
      }
    },
    append(events, time) {
      events.forEach((event) => apply(event, time));
      announce();
    },
  };
}
