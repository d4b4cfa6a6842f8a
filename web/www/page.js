"use strict";

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

function showUnit(text, level) {
  if (byId("unit").textContent === text) return;
  byId("unit").textContent = text;
  byId("unit").className = level;
}

function showState(state) {
  state.readings.forEach(showReading);
  byId("picture").textContent = state.picture;
  if (state.silent) showUnit("the unit is silent", "fault");
  else showUnit("live", "normal");
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

function follow() {
  const events = new EventSource("api/events");
  events.addEventListener("open", () => byId("log").replaceChildren());
  events.addEventListener("state", (event) => showState(JSON.parse(event.data)));
  events.addEventListener("log", (event) => JSON.parse(event.data).lines.forEach(showLine));
  events.addEventListener("error", () => {
    showUnit("no connection to the unit", "fault");
    // Ended for good, such as when too many look: the browser does not try again by itself.
    if (events.readyState === EventSource.CLOSED) setTimeout(follow, 5000);
  });
}

// Commands -------------------------------------------------------------------------------------

let waiting = false;

// The buttons stay focusable while the unit works, so that a keyboard's place is not lost.
function setWaiting(now) {
  waiting = now;
  for (const button of document.querySelectorAll("#controls button"))
    button.setAttribute("aria-disabled", String(now));
}

async function command(name, argument) {
  if (waiting) return;
  setWaiting(true);
  const answer = byId("answer");
  answer.className = "normal";
  answer.textContent = `${name}: waiting for the unit`;
  try {
    const reply = await fetch("api/commands", {
      method: "POST",
      headers: { "Content-Type": "application/json" },
      body: JSON.stringify(argument === undefined ? { command: name } : { command: name, argument }),
    });
    const said = await reply.json();
    if (!reply.ok) throw new Error(said.error);
    const shown = Object.entries(said.store).map(([key, value]) => `${key} is ${value}`).join(", ");
    answer.textContent = `${said.line}: done in ${said.seconds.toFixed(2)} s${shown && "; "}${shown}`;
  } catch (error) {
    answer.className = "fault";
    answer.textContent = `${name}: ${error.message}`;
  }
  setWaiting(false);
}

// History --------------------------------------------------------------------------------------

const frame = { left: 52, right: 630, top: 10, bottom: 214 };
const gap = 3600; // seconds; rows come every half hour
let past = { columns: [], rows: [] };

const clock = (seconds, withDate) => new Date(seconds * 1000).toLocaleString([],
  withDate ? { dateStyle: "short", timeStyle: "short" } : { hour: "2-digit", minute: "2-digit" });
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
    const label = days ? new Date(time * 1000).toLocaleDateString([], { day: "numeric", month: "short" }) : clock(time);
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
    row.append(element("td", clock(point[0], true)), element("td", String(point[1])));
    byId("points").append(row);
  });
  chart.append(element("path", undefined, { class: "line", d: path }));
  for (const point of points) {
    const dot = element("circle", undefined,
      { cx: x(point[0]), cy: y(point[1]), r: points.length > 100 ? 1 : 3, "data-value": point[1] });
    dot.append(element("title", `${clock(point[0], true)}: ${point[1]}`));
    chart.append(dot);
  }
  byId("caption").textContent = `${past.columns[at]}: ${points.length} rows from ${clock(begin, true)} to `
    + `${clock(end, true)}, lowest ${round(least)}, highest ${round(most)}, last ${round(values[values.length - 1])}`;
}

async function loadHistory() {
  const reply = await fetch(`api/history?range=${byId("range").value}`);
  if (!reply.ok) return;
  past = await reply.json();
  const chosen = byId("column").value;
  byId("column").replaceChildren(...past.columns.map((name) => element("option", name)));
  if (past.columns.includes(chosen)) byId("column").value = chosen;
  draw();
}

// ----------------------------------------------------------------------------------------------

for (const button of document.querySelectorAll("button[data-command]"))
  button.addEventListener("click", () => command(button.dataset.command, button.dataset.argument));
byId("model").addEventListener("submit", (event) => {
  event.preventDefault();
  command("MODEL", byId("model-name").value);
});
byId("history").addEventListener("submit", (event) => event.preventDefault());
byId("column").addEventListener("change", draw);
byId("range").addEventListener("change", loadHistory);
setInterval(() => { if (!document.hidden) loadHistory().catch(() => {}); }, 15 * 60 * 1000);
loadHistory().catch(() => {});
follow();
