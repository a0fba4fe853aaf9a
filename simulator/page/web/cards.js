// The unit's certificates: whose they are, how long they last, and whether they hold.
//
//   const card = new Card(element, "Stored certificate");
//   card.show({ certificate, keyFits, pathGood, badge, tone, remark });

import { element, setText } from "./dom.js";

const DAY = 86400000;
const YEAR = 365 * DAY;

const STANDINGS = {
  inOrder: ["in order", "good"],
  due: ["renewal due", "warn"],
  missing: ["missing", "warn"],
  wrong: ["wrong", "bad"],
};

function standingOf(name) {
  return STANDINGS[name] || ["–", "plain"];
}

function yesOrNo(value) {
  return value === true ? "yes" : value === false ? "no" : "–";
}

function dateOf(text) {
  return text ? text.slice(0, 10) : "–";
}

function percent(time, from, to) {
  return `${Math.min(100, Math.max(0, 100 * (time - from) / (to - from)))}%`;
}

// When a certificate began, how much of its time is used, and where its last year begins.
class ValidityBar {
  #bar = element("div", "validity");
  #used = element("div", "used");
  #year = element("div", "year-line");
  #today = element("div", "today-line");
  #begin = element("span", "", "–");
  #end = element("span", "", "–");
  #daysLeft = element("span", "today", "–");
  #lastYear = element("span", "year", "–");

  constructor(host) {
    this.#bar.setAttribute("role", "img");
    this.#bar.append(this.#used, this.#year, this.#today);
    const ends = element("div", "ends");
    ends.append(this.#begin, this.#end);
    const legend = element("div", "legend");
    legend.append(this.#daysLeft, this.#lastYear);
    host.append(this.#bar, ends, legend);
  }

  show(certificate) {
    const from = Date.parse(certificate.notBefore);
    const to = Date.parse(certificate.notAfter);
    const now = Date.now();
    this.#used.style.width = percent(now, from, to);
    this.#today.style.left = percent(now, from, to);
    this.#year.style.left = percent(to - YEAR, from, to);
    this.#bar.className = now > to || now < from ? "validity over" : "validity";
    const left = certificate.daysLeft < 0 ? "expired" : `${certificate.daysLeft} days left`;
    const line = dateOf(new Date(to - YEAR).toISOString());
    setText(this.#begin, dateOf(certificate.notBefore));
    setText(this.#daysLeft, `today: ${left}`);
    setText(this.#lastYear, `last year begins ${line}`);
    setText(this.#end, dateOf(certificate.notAfter));
    this.#bar.setAttribute("aria-label", `Valid from ${certificate.notBefore} to ` +
      `${certificate.notAfter}, ${left}; the last year begins on ${line}`);
  }

  showNone() {
    for (const text of [this.#begin, this.#end, this.#daysLeft, this.#lastYear]) {
      setText(text, "–");
    }
    this.#bar.setAttribute("aria-label", "No certificate");
  }
}

export class Card {
  #host;
  #badge = element("span", "badge");
  #values = {};
  #validity;
  #marks = {};
  #remark = element("p", "remark", "");

  constructor(host, title) {
    this.#host = host;
    const head = element("h2", "", title);
    head.append(this.#badge);
    host.append(head, this.#makeNames());
    this.#validity = new ValidityBar(host);
    host.append(this.#makeChecks(), this.#remark);
  }

  show(facts) {
    const { certificate } = facts;
    setText(this.#badge, facts.badge);
    this.#badge.className = `badge ${facts.tone}`;
    setText(this.#values.Subject, certificate?.subject ?? "none");
    setText(this.#values.Issuer, certificate?.issuer ?? "–");
    for (const [key, mark] of Object.entries(this.#marks)) {
      mark.textContent = yesOrNo(facts[key]);
      mark.className = facts[key] === false ? "bad" : facts[key] ? "good" : "";
    }
    setText(this.#remark, facts.remark);
    this.#host.classList.toggle("empty", !certificate);
    if (certificate) {
      this.#validity.show(certificate);
    } else {
      this.#validity.showNone();
    }
  }

  #makeNames() {
    const list = element("dl");
    for (const name of ["Subject", "Issuer"]) {
      this.#values[name] = element("dd", "", "–");
      list.append(element("dt", "", name), this.#values[name]);
    }
    return list;
  }

  #makeChecks() {
    const checks = element("ul", "checks");
    for (const [key, text] of [["keyOpens", "key opens"], ["keyFits", "key fits"],
      ["pathGood", "path good"]]) {
      const item = element("li");
      this.#marks[key] = element("b", "", "–");
      item.append(`${text}: `, this.#marks[key]);
      checks.append(item);
    }
    return checks;
  }
}

const NEXT = {
  keeps: "keeps it",
  enrols: "gets a new one",
  deletesAndEnrols: "deletes it and gets a new one",
  endsEarly: "ends early",
};

// What "vintrel-provision status" says of the client certificate.
export function clientFacts(status) {
  if (status.fault !== undefined) {
    return { badge: "not known", tone: "plain", remark: status.fault };
  }
  const [badge, tone] = standingOf(status.standing);
  const next = `Next pass ${NEXT[status.nextPass] || "–"}` +
    (status.reason ? ` (${status.reason})` : "") + (status.obstacle ? `; ${status.obstacle}` : "");
  return { ...status, badge, tone, remark: next };
}

// What "vintrel-provision verify" says of the base certificate.
export function factoryFacts(verify) {
  if (verify.fault !== undefined) {
    return { badge: "not known", tone: "plain", remark: verify.fault };
  }
  const entry = verify.entries.find((one) => one.kind === "key" && one.id === "ECU_BASE_CERT");
  if (!entry) {
    return { badge: "missing", tone: "bad", remark: "No base key pair in the store" };
  }
  const [badge, tone] = standingOf(entry.standing);
  const root = verify.entries.find((one) => one.id === "PRODUCT_PKI_ROOT_CERT");
  const remark = entry.faults.length > 0 ? entry.faults.join("; ")
    : `Trusted root of the product: ${root?.certificate?.subject ?? "none"}`;
  return { ...entry, badge, tone, remark };
}
