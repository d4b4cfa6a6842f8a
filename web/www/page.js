"use strict";
/* global makeStream */ // from stream.js

const byId = (id) => document.getElementById(id);

function element(name, text, attributes = {}) {
  const made = name === "circle" || name === "line" || name === "path" || name === "text" || name === "title"
    ? document.createElementNS("http://www.w3.org/2000/svg", name) : document.createElement(name);
  for (const [key, value] of Object.entries(attributes)) made.setAttribute(key, value);
  if (text !== undefined) made.textContent = text;
  return made;
}

// Readings -------------------------------------------------------------------------------------

const rows = new Map();

function showReading(reading) {
  let row = rows.get(reading.key);
  if (!row) {
    row = element("tr");
    row.append(element("th", reading.label, { scope: "row" }), element("td"), element("td"));
    rows.set(reading.key, row);
    byId("readings").append(row);
  }
  row.className = reading.level;
  row.children[1].textContent = reading.text;
  row.children[2].textContent = reading.level;
  for (const output of document.querySelectorAll(`output[data-key="${reading.key}"]`))
    output.textContent = reading.text;
  if (reading.key === "Coiler/Model" && document.activeElement !== byId("model-name"))
    byId("model-name").value = reading.text;
  if (reading.key === "Tallwick/Detected") byId("locked").hidden = reading.text !== "attached";
}

let unit = { time: "", zone: "" }; // its clock at the last heartbeat

// `since`: the unit's time of the last readings, if they are old.
function showUnit(text, since) {
  if (byId("unit").textContent !== text) byId("unit").textContent = text; // a screen reader reads each change
  byId("unit").className = since === undefined ? "normal" : "fault";
  document.body.classList.toggle("stale", since !== undefined);
  const [date, time] = (since || "").split(" ");
  byId("old").textContent = time ? `as of ${time}` : "";
  byId("as-of").textContent = time ? `as of ${time} on ${date}, ${unit.zone}` : "";
}

function showState(state) {
  state.readings.forEach(showReading);
  byId("picture").textContent = state.picture;
  if (state.silent) showUnit("the unit is silent", state.since);
  else showUnit("live");
}

// Log ------------------------------------------------------------------------------------------

const mostLines = 100;
const levels = { 1: "warning", 2: "fault" };

function showLine(line) {
  const row = element("tr", undefined, { class: levels[line.type] || "normal" });
  const meaning = [line.meaning, line.remedy].filter(Boolean).join("; ");
  const kind = line.type === 1 ? "Warning: " : line.type === 2 ? "Critical: " : "";
  row.append(element("td", line.time), element("td", kind + line.text), element("td", meaning));
  byId("log").prepend(row); // the newest first
  while (byId("log").children.length > mostLines) byId("log").lastChild.remove();
}

// Stream ---------------------------------------------------------------------------------------

const silence = 6000; // ms; heartbeats come every two seconds
let heard = 0;

function showClock(beat) {
  unit = beat;
  for (const zone of document.querySelectorAll(".zone")) zone.textContent = unit.zone;
}

const hearers = {
  open: () => byId("log").replaceChildren(),
  lost: () => showUnit("no connection to the unit", unit.time),
  beat: showClock,
  state: showState,
  log: ({ lines }) => lines.forEach(showLine),
  displaced: () => {
    heard = Infinity; // until the tab comes into view again
    showUnit("eight newer viewers: reload the page to connect again", unit.time);
  },
};

function hear(type, data) {
  if (type !== "lost") heard = performance.now();
  if (!document.hidden) hearers[type](data);
}

function connect() {
  if (!window.SharedWorker) return makeStream(hear);
  const { port } = new SharedWorker("stream.js");
  port.onmessage = ({ data: { type, data } }) => hear(type, data);
  return (looks) => port.postMessage(looks);
}

let look = connect();

// Hidden tabs close their stream.
function follow() {
  showUnit("connecting", unit.time);
  heard = performance.now();
  look(!document.hidden);
}

// A dead TCP connection looks open for minutes, and the browser may have ended the worker: reconnect.
function watch() {
  if (document.hidden || performance.now() - heard < silence) return;
  hearers.lost();
  look(false);
  look = connect();
  heard = performance.now();
  look(true);
}

// Commands -------------------------------------------------------------------------------------

const longest = 45000; // ms; the API answers sooner
const pause = 250; // ms before a retry after 429 or 503
let taps = []; // waiting for the command before them
let working = false;

function say(text, level) {
  byId("answer").className = level;
  byId("answer").textContent = text;
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
    // Not JSON: lighttpd answers while kt6120-web restarts.
    return { status: reply.status, ...await reply.json() };
  } catch (error) {
    return { error: error instanceof SyntaxError ? "the unit's page is restarting"
      : "no connection to the unit" };
  } finally {
    clearTimeout(limit);
  }
}

// Sends a command; false if the unit does not answer.
async function command({ name, argument }) {
  say(`${name}: waiting for the unit`, "normal");
  let said = await ask({ command: name, argument });
  while (said.status === 429 || said.status === 503) {
    await new Promise((resolve) => { setTimeout(resolve, pause); });
    said = await ask({ command: name, argument });
  }
  if (said.error) {
    say(`${name}: ${said.error}`, "fault");
    return said.status === 409; // the unit runs
  }
  const shown = Object.entries(said.store).map(([key, value]) => `${key} is ${value}`).join(", ");
  say(`${said.line}: done in ${said.seconds.toFixed(2)} s${shown && "; "}${shown}`, "normal");
  return true;
}

// Sends commands one after the other. Lamp off is sent at once and cancels the waiting lamp steps.
async function tap(name, argument) {
  if (name === "LAMPOFF") {
    taps = taps.filter((waiting) => !waiting.name.startsWith("LAMP"));
    showTaps();
    await command({ name });
    return;
  }
  taps.push({ name, argument });
  showTaps();
  if (working) return;
  working = true;
  while (taps.length > 0) {
    const next = taps.shift();
    showTaps();
    if (!await command(next) && taps.length > 0) {
      byId("answer").textContent += `; not sent: ${taps.map((waiting) => waiting.name).join(", ")}`;
      taps.splice(0);
      showTaps();
    }
  }
  working = false;
}

// History --------------------------------------------------------------------------------------

const frame = { left: 52, right: 630, top: 10, bottom: 214 };
const gap = 3600; // seconds; rows come every half hour
let past = { columns: [], rows: [] };

// Units of the CSV, and of the table with the factor.
const units = { mV: ["V", 0.001], mA: ["A", 0.001], "Deg C": ["°C", 1] };

function inUnits({ columns, rows: given }) {
  const found = columns.map((name) => {
    const [, what, unit] = name.match(/^(.*) \[(.*)\]$/) || [];
    return unit in units ? [`${what} [${units[unit][0]}]`, units[unit][1]] : [name, 1];
  });
  return {
    columns: found.map(([name]) => name),
    rows: given.map(([time, ...values]) => [time, ...values.map((value, at) => (
      value === null ? null : Number((value * found[at][1]).toPrecision(12))))]),
  };
}

// The unit's time, whatever the browser's zone.
function clock(seconds) {
  const [, year, month, day, time] = new Date(seconds * 1000).toISOString()
    .match(/^(\d+)-(\d+)-(\d+)T(\d+:\d+)/);
  return { date: `${day}-${month}`, time, full: `${day}-${month}-${year} ${time}` };
}
const round = (value) => String(Number(value.toPrecision(4)));

function ticks(low, high, count) {
  return Array.from({ length: count + 1 }, (_, at) => low + (high - low) * at / count);
}

function draw() {
  const at = byId("column").selectedIndex;
  const points = past.rows.map((row) => [row[0], row[at + 1]]).filter((point) => point[1] !== null);
  const chart = byId("chart");
  chart.replaceChildren();
  byId("points").replaceChildren();
  if (points.length === 0) {
    byId("caption").textContent = "no rows yet: the unit writes one every half hour";
    return;
  }
  const values = points.map((point) => point[1]);
  const [least, most] = [Math.min(...values), Math.max(...values)];
  const margin = (most - least) * 0.05 || Math.abs(most) * 0.05 || 1;
  const [low, high] = [least - margin, most + margin];
  const [begin, end] = [points[0][0], points[points.length - 1][0]];
  const x = (time) => end === begin ? (frame.left + frame.right) / 2
    : frame.left + (frame.right - frame.left) * (time - begin) / (end - begin);
  const y = (value) => frame.bottom - (frame.bottom - frame.top) * (value - low) / (high - low);

  for (const value of ticks(low, high, 4)) {
    chart.append(element("line", undefined,
      { class: "grid", x1: frame.left, x2: frame.right, y1: y(value), y2: y(value) }));
    chart.append(element("text", round(value), { x: frame.left - 6, y: y(value) + 4, "text-anchor": "end" }));
  }
  const days = end - begin > 86400;
  for (const time of end === begin ? [begin] : ticks(begin, end, 4)) {
    const label = days ? clock(time).date : clock(time).time;
    chart.append(element("text", label, {
      x: x(time), y: 234,
      "text-anchor": time === begin && end > begin ? "start" : time === end && end > begin ? "end" : "middle",
    }));
  }
  let path = "";
  points.forEach((point, index) => {
    const joined = index > 0 && point[0] - points[index - 1][0] <= gap;
    path += `${joined ? "L" : "M"}${x(point[0]).toFixed(1)} ${y(point[1]).toFixed(1)}`;
    const row = element("tr");
    row.append(element("td", clock(point[0]).full), element("td", String(point[1])));
    byId("points").append(row);
  });
  chart.append(element("path", undefined, { class: "line", d: path }));
  for (const point of points) {
    const dot = element("circle", undefined,
      { cx: x(point[0]), cy: y(point[1]), r: points.length > 100 ? 1 : 3, "data-value": point[1] });
    dot.append(element("title", `${clock(point[0]).full}: ${point[1]}`));
    chart.append(dot);
  }
  byId("caption").textContent = `${past.columns[at]}: ${points.length} rows from ${clock(begin).full} to `
    + `${clock(end).full}, lowest ${round(least)}, highest ${round(most)}, last ${round(values[values.length - 1])}`;
}

async function loadHistory() {
  const reply = await fetch(`api/history?range=${byId("range").value}`);
  if (!reply.ok) return;
  past = inUnits(await reply.json());
  const chosen = byId("column").value;
  byId("column").replaceChildren(...past.columns.map((name) => element("option", name)));
  if (past.columns.includes(chosen)) byId("column").value = chosen;
  draw();
}

// ----------------------------------------------------------------------------------------------

for (const button of document.querySelectorAll("button[data-command]"))
  button.addEventListener("click", () => tap(button.dataset.command, button.dataset.argument));
byId("model").addEventListener("submit", (event) => {
  event.preventDefault();
  tap("MODEL", byId("model-name").value);
});
byId("history").addEventListener("submit", (event) => event.preventDefault());
byId("column").addEventListener("change", draw);
byId("range").addEventListener("change", loadHistory);
setInterval(() => { if (!document.hidden) loadHistory().catch(() => {}); }, 15 * 60 * 1000);
loadHistory().catch(() => {});
document.addEventListener("visibilitychange", follow);
setInterval(watch, 1000);
follow();
