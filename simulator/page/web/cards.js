// The unit's certificates: whose they are, how long they last, and whether they hold.
//
//   const card = createCard(element, "Stored certificate");
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

export function createCard(host, title) {
  const badge = element("span", "badge");
  const head = element("h2", "", title);
  head.append(badge);

  const list = element("dl");
  const values = {};
  for (const name of ["Subject", "Issuer"]) {
    values[name] = element("dd", "", "–");
    list.append(element("dt", "", name), values[name]);
  }

  const bar = element("div", "validity");
  bar.setAttribute("role", "img");
  const used = element("div", "used");
  const year = element("div", "year-line");
  const today = element("div", "today-line");
  bar.append(used, year, today);
  const ends = element("div", "ends");
  const begin = element("span", "", "–");
  const end = element("span", "", "–");
  ends.append(begin, end);
  const legend = element("div", "legend");
  const daysLeft = element("span", "today", "–");
  const lastYear = element("span", "year", "–");
  legend.append(daysLeft, lastYear);

  const checks = element("ul", "checks");
  const marks = {};
  for (const [key, text] of [["keyOpens", "key opens"], ["keyFits", "key fits"],
    ["pathGood", "path good"]]) {
    const item = element("li");
    marks[key] = element("b", "", "–");
    item.append(`${text}: `, marks[key]);
    checks.append(item);
  }
  const remark = element("p", "remark", "");
  host.append(head, list, bar, ends, legend, checks, remark);

  function showValidity(certificate) {
    const from = Date.parse(certificate.notBefore);
    const to = Date.parse(certificate.notAfter);
    const now = Date.now();
    used.style.width = percent(now, from, to);
    today.style.left = percent(now, from, to);
    year.style.left = percent(to - YEAR, from, to);
    bar.className = now > to || now < from ? "validity over" : "validity";
    const left = certificate.daysLeft < 0 ? "expired" : `${certificate.daysLeft} days left`;
    const line = dateOf(new Date(to - YEAR).toISOString());
    setText(begin, dateOf(certificate.notBefore));
    setText(daysLeft, `today: ${left}`);
    setText(lastYear, `last year begins ${line}`);
    setText(end, dateOf(certificate.notAfter));
    bar.setAttribute("aria-label", `Valid from ${certificate.notBefore} to ` +
      `${certificate.notAfter}, ${left}; the last year begins on ${line}`);
  }

  return {
    show(facts) {
      const { certificate } = facts;
      setText(badge, facts.badge);
      badge.className = `badge ${facts.tone}`;
      setText(values.Subject, certificate?.subject ?? "none");
      setText(values.Issuer, certificate?.issuer ?? "–");
      for (const [key, mark] of Object.entries(marks)) {
        mark.textContent = yesOrNo(facts[key]);
        mark.className = facts[key] === false ? "bad" : facts[key] ? "good" : "";
      }
      setText(remark, facts.remark);
      host.classList.toggle("empty", !certificate);
      if (certificate) {
        showValidity(certificate);
      } else {
        for (const text of [begin, end, daysLeft, lastYear]) {
          setText(text, "–");
        }
        bar.setAttribute("aria-label", "No certificate");
      }
    },
  };
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
