"use strict";
/* global makeStream */ // from stream.js
/* exported timeText, offer, byId, element */ // for history.js and record.js

// Under an address with user and password, fetch() throws. The browser has them by now.
const address = new URL(document.URL);
if (address.username) {
  address.username = address.password = "";
  location.replace(address);
}

const byId = (id) => document.getElementById(id);

function element(name, text, attributes = {}) {
  const made = ["circle", "line", "path", "text", "title"].includes(name)
    ? document.createElementNS("http://www.w3.org/2000/svg", name) : document.createElement(name);
  for (const [key, value] of Object.entries(attributes)) made.setAttribute(key, value);
  if (text !== undefined) made.textContent = text;
  return made;
}

// Readings -------------------------------------------------------------------------------------

const readings = new Map(); // by key, with their rows in the table
const second = 1000; // ms
let unit = { name: "KT6120", started: NaN, lampLevels: [], reelModels: [] };
let clock = { time: "", zone: "" }; // the unit's clock at the last heartbeat

// Milliseconds from the unit's time, as if it were UTC.
function parseTime(text) {
  const [day, month, year, hours, minutes, seconds] = text.split(/[-: ]/).map(Number);
  return Date.UTC(year, month - 1, day, hours, minutes, seconds);
}

// The unit's time now; NaN before its first heartbeat.
const unitTime = () => clock.at + performance.now() - clock.heard;

// As the unit writes it: 26-11-2026 03:00:01.
function timeText(time) {
  const [year, month, day, clockTime] = new Date(time).toISOString().split(/[-T.]/);
  return `${day}-${month}-${year} ${clockTime}`;
}

// A value as the store has it.
const stored = (key) => readings.get(key)?.stored;

// The text and the state to show: a missing reading is no fault while the program has just started.
function shownAs({ text, level, due }) {
  const age = unitTime() - unit.started;
  if (text === "no reading" && age >= 0 && age < due * second)
    return ["waiting for the first reading", "waiting"];
  return [text, level];
}

// In its group, in the unit's order; what needs attention stands first.
function place(reading) {
  const group = ["warning", "fault"].includes(reading.row.className) ? "Attention" : reading.group;
  const body = [...byId("readings").tBodies].find((one) => one.rows[0].textContent === group);
  if (reading.row.parentNode === body) return;
  const keys = [...readings.keys()];
  const next = [...body.rows].slice(1)
    .find((row) => keys.indexOf(row.dataset.key) > keys.indexOf(reading.key));
  body.insertBefore(reading.row, next || null);
  const [attention] = byId("readings").tBodies;
  attention.hidden = attention.rows.length === 1;
}

function render(reading) {
  const { key, row } = reading;
  const [text, level] = shownAs(reading);
  row.className = level;
  row.children[1].textContent = text;
  row.children[2].textContent = level;
  place(reading);
  for (const shown of document.querySelectorAll(`dd[data-key="${key}"]`)) {
    shown.textContent = text;
    shown.className = level;
  }
}

function take(reading) {
  let { row } = readings.get(reading.key) || {};
  if (!row) {
    row = element("tr", undefined, { "data-key": reading.key });
    row.append(element("th", reading.label, { scope: "row" }), element("td"), element("td"));
  }
  readings.set(reading.key, { ...reading, row });
  if (reading.key === "Tallwick/Detected") byId("locked").hidden = reading.text !== "attached";
}

// What somebody chose in a list stays until the unit has another value.
function offer(list, options, chosen) {
  const before = list.value;
  const values = options.map(([, value]) => String(value));
  if (list.dataset.values !== values.join("\n")) {
    list.replaceChildren(...options.map(([text, value]) => element("option", text, { value })));
    list.dataset.values = values.join("\n");
    list.value = values.includes(before) ? before : chosen;
  }
  if (list.dataset.chosen !== String(chosen)) list.value = chosen;
  list.dataset.chosen = chosen;
}

function showLists() {
  const level = Math.max(0, stored("Camera/Lamp") || 0);
  const levels = [...new Set([0, level, ...unit.lampLevels])].sort((one, other) => one - other);
  offer(byId("level"), levels.map((one) => [one ? `${one} %` : "off", one]), level);
  const models = unit.reelModels.map((one) => [one, one]);
  offer(byId("models"), [...models, ["another", ""]], stored("Coiler/Model"));
  showOther();
}

// Resets the list of levels to the lamp's level, whatever was chosen in it.
function showLevel() {
  delete byId("level").dataset.chosen;
  showLists();
}

// The field for a reel model that is not in the list.
function showOther() {
  byId("other").hidden = byId("models").value !== "";
  byId("model-name").disabled = byId("other").hidden;
}

// `since`: the unit's time of the last readings, if they are old.
function showUnit(text, since) {
  if (byId("unit").textContent !== text) byId("unit").textContent = text; // a screen reader reads each change
  byId("unit").className = since === undefined ? "normal" : "fault";
  if (since !== undefined) byId("picture").textContent = "unknown";
  document.body.classList.toggle("stale", since !== undefined);
  const [date, time] = (since || "").split(" ");
  byId("old").textContent = time ? `as of ${since}` : "";
  byId("as-of").textContent = time ? `as of ${time} on ${date}, ${clock.zone}` : "";
}

function showState(state) {
  unit = { ...state, name: state.unit, started: parseTime(state.started) };
  state.readings.forEach(take);
  readings.forEach(render); // all: what is waited for depends on the program's start
  byId("picture").textContent = state.picture;
  byId("name").textContent = unit.name;
  document.title = `${unit.name}: KT6120`;
  showLists();
  if (state.silent) showUnit("the unit is silent", state.since);
  else showUnit("live");
}

// Log ------------------------------------------------------------------------------------------

const mostLines = 100;
const kinds = { 1: ["warning", "Warning: "], 2: ["fault", "Critical: "] };

function showLine(line) {
  const [level, kind] = kinds[line.type] || ["normal", ""];
  const row = element("tr", undefined, { class: level });
  const meaning = [line.meaning, line.remedy].filter(Boolean).join("; ");
  row.append(element("td", line.time), element("td", kind + line.text), element("td", meaning));
  byId("log").prepend(row); // the newest first
  while (byId("log").children.length > mostLines) byId("log").lastChild.remove();
}

// Stream ---------------------------------------------------------------------------------------

const silence = 6000; // ms; heartbeats come every two seconds
let heard = 0;

function showClock(beat) {
  clock = { ...beat, at: parseTime(beat.time), heard: performance.now() };
  for (const zone of document.querySelectorAll(".zone")) zone.textContent = clock.zone;
}

const hearers = {
  open: () => byId("log").replaceChildren(),
  lost: () => showUnit("no connection to the unit", clock.time),
  beat: showClock,
  state: showState,
  log: ({ lines }) => lines.forEach(showLine),
  displaced: () => {
    heard = Infinity; // until the tab comes into view again
    showUnit("eight newer viewers: reload the page to connect again", clock.time);
  },
};

function hear(type, data) {
  if (type !== "lost") heard = performance.now();
  if (!document.hidden) hearers[type](data);
}

let workerRuns = false; // it has answered
let shares = true; // false: the next stream is the tab's own

// The stream's worker; none in a browser that has no shared workers or blocks the site's data.
function startWorker() {
  try {
    const worker = new SharedWorker("stream.js");
    worker.onerror = () => { shares = false; }; // watch() connects again
    return worker;
  } catch (error) {
    return undefined;
  }
}

function connect() {
  const worker = shares ? startWorker() : undefined;
  shares = true;
  if (!worker) return makeStream(hear);
  const { port } = worker;
  port.onmessage = ({ data: { type, data } }) => {
    if (type === "here") workerRuns = true;
    else hear(type, data);
  };
  return (looks) => {
    port.postMessage(looks);
    if (looks === null) port.close();
  };
}

let look = connect(); // true starts the stream anew, false ends it, null also closes the worker's port

function lookAgain() {
  heard = performance.now();
  workerRuns = false;
  look(!document.hidden);
}

// Hidden tabs close their stream.
function follow() {
  showUnit("connecting", clock.time);
  lookAgain();
}

// Readings that do not come in time are missing.
function remind() {
  for (const reading of readings.values()) {
    if (reading.row.className === "waiting") render(reading);
  }
}

// A dead TCP connection looks open for minutes: reconnect. The browser may have ended the worker. Only then a
// new one: what each costs, the browser keeps until the page is closed.
function watch() {
  if (document.hidden || performance.now() - heard < silence) return;
  hearers.lost();
  if (!workerRuns) {
    look(null);
    look = connect();
  }
  lookAgain();
}

// Commands -------------------------------------------------------------------------------------

const longest = 75000; // ms; a Lamp off that waits for another's command is answered sooner
const pause = 250; // ms before a retry after 429 or 503
const patience = 5000; // ms of retries; for Lamp off it is `longest`
const fadeTime = 10000; // ms
const mostSteps = 20; // of the lamp to a level; the whole way down and up takes fourteen
let taps = []; // waiting for the command before them
let working = false;
let fading; // timer of the answer
let wish = null; // the level that the lamp steps to
let dark = false; // lamp off was sent
const offs = new Set(); // promises of each lamp off that is not answered yet

const highestLevel = () => unit.lampLevels[unit.lampLevels.length - 1];
const lampIs = (store) => (store["Camera/Lamp"] > 0 ? `Lamp ${store["Camera/Lamp"]} %` : "Lamp off");

// What a command is called, and what it did.
const vocabulary = {
  LAMPUP: [() => "Lamp up", lampIs],
  LAMPDOWN: [() => "Lamp down", lampIs],
  LAMPOFF: [() => "Lamp off", lampIs],
  LEVEL: [(level) => `Lamp to ${level} %`],
  SONDE: [(on) => `Sonde ${{ 0: "off", 1: "on" }[on] || "on or off"}`,
    (store) => `The sonde is ${store["Sonde/Enabled"] === "1" ? "on" : "off"}`],
  RESET: [() => "Zero the reel", () => "The reel is at zero"],
  MODEL: [(model) => `Reel model ${model}`, (store) => `The reel model is ${store["Coiler/Model"]}`],
  LOGRST: [() => "Reset MCU log", () => "The reset of the MCU log is sent"],
};
const called = ({ name, argument }) => vocabulary[name][0](argument);

const unchanged = "the unit read it, but no reading changed"; // the API's words

// What was done is soon no longer what is: others control the unit, too.
function say(text, level = "normal") {
  clearTimeout(fading);
  byId("answer").className = level;
  byId("answer").textContent = text;
  if (text && level === "normal") fading = setTimeout(say, fadeTime, "");
}

// Each once, with its number.
function listed(names) {
  const counts = new Map();
  for (const name of names) counts.set(name, (counts.get(name) || 0) + 1);
  return [...counts].map(([name, count]) => (count > 1 ? `${name} (${count})` : name)).join(", ");
}

function showTaps() {
  byId("taps").textContent = taps.length === 0 ? ""
    : taps.length === 1 ? "1 more tap waits" : `${taps.length} more taps wait`;
}

async function ask(body) {
  const abort = new AbortController();
  const limit = setTimeout(() => abort.abort(), longest);
  try {
    const reply = await fetch("api/commands", {
      method: "POST",
      headers: { "Content-Type": "application/json" },
      body: JSON.stringify(body),
      signal: abort.signal,
    });
    if (reply.status === 401) return { error: "the password has changed: reload the page" };
    // Not JSON: lighttpd answers while kt6120-web restarts.
    return { status: reply.status, ...await reply.json() };
  } catch (error) {
    return { error: error instanceof SyntaxError ? "the unit's page is restarting"
      : "no connection to the unit" };
  } finally {
    clearTimeout(limit);
  }
}

// Sends a command and says what it did; false if the unit does not answer. `label`: what it is for.
async function command({ name, argument, from, label = called({ name, argument }) }) {
  say(`${label}: waiting for the unit`, "waiting");
  const lamp = stored("Camera/Lamp");
  const end = performance.now() + (name === "LAMPOFF" ? longest : patience);
  let said = await ask({ command: name, argument, from });
  while ((said.status === 429 || said.status === 503) && performance.now() < end) {
    await new Promise((resolve) => { setTimeout(resolve, pause); });
    said = await ask({ command: name, argument, from });
  }
  if (said.error) {
    const locked = said.error === unchanged && name.startsWith("LAMP") && !byId("locked").hidden;
    const reason = locked ? "a Tallwick probe locks the lamp" : said.error;
    say(`${label}: ${reason}`, "fault");
    return said.status === 409; // the unit runs
  }
  for (const [key, value] of Object.entries(said.store)) {
    if (readings.has(key)) readings.get(key).stored = value;
  }
  const stays = (name === "LAMPUP" || name === "LAMPDOWN") && stored("Camera/Lamp") === lamp
    && [0, highestLevel()].includes(Number(lamp));
  say(vocabulary[name][1](said.store) + (stays ? ", as far as it goes" : ""));
  return true;
}

// The unit takes steps only, and the last one up may be shorter. So a level that is not a number of
// steps away is reached from 0. After lamp off the level is unknown, but a step down shows it.
async function setLevel(target) {
  wish = target;
  const lamp = () => Number(stored("Camera/Lamp"));
  const [step] = unit.lampLevels;
  for (let steps = 0; lamp() !== target && wish === target && steps < mostSteps; steps++) {
    const before = lamp();
    const up = before >= 0 && before < target
      && (target === highestLevel() || (target - before) % step === 0);
    // Not after somebody else's lamp off: a step would switch the lamp on again.
    const from = steps > 0 ? String(before) : undefined;
    const label = called({ name: "LEVEL", argument: target });
    if (from === "-1") {
      say(`${label}: lamp off came first`, "fault");
      return true;
    }
    if (!await command({ name: up ? "LAMPUP" : "LAMPDOWN", from, label })) return false;
    // Its limit. Before the first step the store may have the last run's level.
    if (up ? steps > 0 && lamp() < Math.min(before + step, target) : lamp() >= before && before >= 0) break;
  }
  if (wish === target && lamp() !== target && byId("answer").className !== "fault")
    say(`Lamp ${lamp()} %: it does not reach ${target} %`, "warning");
  return true;
}

const lights = ({ name }) => name.startsWith("LAMP") || name === "LEVEL";

// Sends commands one after the other. Lamp off is sent at once and cancels the waiting lamp steps. Later
// steps wait for its answer: the API withdraws a step while a Lamp off waits.
// An argument may be a function, called when its turn comes.
async function tap(name, argument) {
  if (name === "LAMPOFF" || name === "LEVEL") {
    wish = null;
    taps = taps.filter((waiting) => !lights(waiting));
    showTaps();
  }
  if (name === "LAMPOFF") {
    dark = true;
    const sent = command({ name });
    offs.add(sent);
    await sent;
    offs.delete(sent);
    showLevel();
    return;
  }
  taps.push({ name, argument });
  showTaps();
  if (working) return;
  working = true;
  while (taps.length > 0) {
    if (offs.size > 0 && lights(taps[0])) {
      await Promise.all(offs);
      continue; // it may have been tapped again
    }
    const next = taps.shift();
    if (typeof next.argument === "function") next.argument = next.argument();
    showTaps();
    const off = dark || stored("Camera/Lamp") === "-1";
    if (lights(next)) dark = false;
    const answered = next.name === "LEVEL" ? await setLevel(next.argument) : await command(next);
    // After lamp off at the highest level the unit has no step up to send: a step down and up lights it.
    if (answered && next.name === "LAMPUP" && off && !dark && Number(stored("Camera/Lamp")) === highestLevel())
      taps.unshift({ name: "LAMPDOWN" }, next);
    showLevel();
    if (!answered && taps.length > 0) {
      byId("answer").textContent += `; not sent: ${listed(taps.map(called))}`;
      taps.splice(0);
      showTaps();
    }
  }
  working = false;
}

// Zeroing the reel -----------------------------------------------------------------------------

// The button must be held, so that an accidental touch does not zero the reel. A screen reader
// activates it without a pointer or a key, and must do so twice.
const holding = 1000; // ms
const again = 5000; // ms
let held; // timer
let armed = -Infinity; // when a screen reader activated it

function hold() {
  letGo();
  byId("zero").className = "held";
  held = setTimeout(() => {
    letGo();
    tap("RESET");
  }, holding);
}

// True if it was held, but not for long enough.
function letGo() {
  const early = byId("zero").className === "held";
  clearTimeout(held);
  byId("zero").className = "";
  return early;
}

function explainHold() {
  if (letGo()) say("Hold the button for a second to zero the reel");
}

function activate(event) {
  if (event.detail > 0) return; // a pointer's
  if (performance.now() - armed < again) {
    armed = -Infinity;
    tap("RESET");
    return;
  }
  armed = performance.now();
  say("Activate once more to zero the reel");
}

// Keys -----------------------------------------------------------------------------------------

const withKeys = [...document.querySelectorAll("[aria-keyshortcuts]")];
const keyOf = (button) => button.getAttribute("aria-keyshortcuts");

function showKeys() {
  const keys = new Set(withKeys.map(keyOf));
  for (const key of keys) {
    const names = withKeys.filter((button) => keyOf(button) === key)
      .map((button) => button.textContent);
    byId("shortcuts").append(" ", element("kbd", key), ` ${names.join(" / ")}`);
  }
}

function press(event) {
  const typing = event.target.closest("input:not([type=checkbox]), select, textarea");
  const modified = event.ctrlKey || event.altKey || event.metaKey || event.shiftKey;
  const off = !byId("keys").checked || byId("keys").offsetParent === null; // its switch is not shown
  if (typing || modified || event.repeat || event.isComposing || off) return;
  const button = withKeys.find((one) => keyOf(one) === event.key.toUpperCase());
  if (!button) return;
  event.preventDefault();
  // The key switches over the state that the sonde has after the commands before this one.
  if (button.dataset.command === "SONDE") tap("SONDE", () => (stored("Sonde/Enabled") === "1" ? "0" : "1"));
  else button.click();
}

// ----------------------------------------------------------------------------------------------

for (const button of document.querySelectorAll("button[data-command]"))
  button.addEventListener("click", () => tap(button.dataset.command, button.dataset.argument));
byId("level").addEventListener("change", () => {
  const level = Number(byId("level").value);
  if (level > 0) tap("LEVEL", level);
  else tap("LAMPOFF");
});
byId("answer").addEventListener("click", () => say("")); // on a phone it may cover a button
byId("models").addEventListener("change", showOther);
byId("model").addEventListener("submit", (event) => {
  event.preventDefault();
  tap("MODEL", byId("models").value || byId("model-name").value);
});
const zero = {
  pointerdown: (event) => {
    event.target.releasePointerCapture(event.pointerId); // a finger's, which never leaves with it
    if (event.button === 0) hold();
  },
  pointerup: explainHold,
  pointerleave: explainHold,
  pointercancel: letGo,
  blur: letGo,
  click: activate,
  contextmenu: (event) => event.preventDefault(), // a touch screen's, after a long touch
  keydown: (event) => {
    if (event.key !== "Enter" && event.key !== " ") return;
    event.preventDefault(); // no click
    if (!event.repeat) hold();
  },
  keyup: (event) => {
    event.preventDefault();
    explainHold();
  },
};
for (const [type, act] of Object.entries(zero)) byId("zero").addEventListener(type, act);
showKeys();
document.addEventListener("keydown", press);
document.addEventListener("visibilitychange", follow);
setInterval(watch, 1000);
setInterval(remind, 1000);
follow();
