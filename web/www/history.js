"use strict";
/* global byId, element, offer, readings, timeText, unitTime */ // from page.js
// The chart: the rows of the status CSV, or what was read since the page was opened.

const frame = { left: 52, right: 630, top: 10, bottom: 214 };
const gap = 3600; // seconds; rows come every half hour
const sampling = 5000; // ms
const mostSamples = 720; // an hour
const validity = 15 * 60 * 1000; // ms
const pauseAfterFailure = 10000; // ms
let due = 0; // when the history is loaded again
let missing = ""; // what could not be loaded
let past = { columns: [], rows: [] };
let since = { columns: [], rows: [] }; // the page was opened

// Units of the CSV, and of the table with the factor. A temperature that was not read is -99.99.
const units = { mV: ["V", 0.001], mA: ["A", 0.001], "Deg C": ["°C", 1] };
const unread = -99.99;

function inUnits({ columns, rows: given }) {
  const found = columns.map((name) => {
    const [, what, unit] = name.match(/^(.*) \[(.*)\]$/) || [];
    return unit in units ? [`${what} [${units[unit][0]}]`, units[unit][1]] : [name, 1];
  });
  return {
    columns: found.map(([name]) => name),
    rows: given.map(([time, ...values]) => [time, ...values.map((value, at) => (
      value === null || value === unread ? null : Number((value * found[at][1]).toPrecision(12))))]),
  };
}

// Until the unit has written rows, the readings since the page was opened.
const shown = () => (past.rows.length > 0 ? past : since);

function sample() {
  const row = [Math.round(unitTime() / 1000)];
  if (document.hidden || document.body.matches(".stale") || isNaN(row[0])) return;
  for (const { label, text } of readings.values()) {
    const [number, unitName] = text.split(" ");
    if (number === "" || !isFinite(number)) continue;
    const column = unitName ? `${label} [${unitName}]` : label;
    if (!since.columns.includes(column)) since.columns.push(column);
    row[since.columns.indexOf(column) + 1] = Number(number);
  }
  if (since.rows.some(([time]) => time > row[0])) since = { columns: since.columns, rows: [] }; // a clock set back
  since.rows = [...since.rows, row].slice(-mostSamples);
  if (shown() === since) showColumns();
}

// The unit's time, whatever the browser's zone.
function when(seconds) {
  const text = timeText(seconds * 1000);
  return { date: text.slice(0, 5), time: text.slice(11, 16), exact: text.slice(11), full: text.slice(0, 16) };
}
const round = (value) => String(Number(value.toPrecision(4)));

// Four equal parts.
const ticks = (low, high) => [0, 1, 2, 3, 4].map((part) => low + (high - low) * part / 4);

function draw() {
  const at = byId("column").selectedIndex;
  const { columns, rows } = shown();
  const points = rows.map((row) => [row[0], row[at + 1] ?? null]).filter((point) => point[1] !== null);
  const chart = byId("chart");
  chart.replaceChildren();
  byId("points").replaceChildren();
  if (points.length === 0) {
    byId("caption").textContent = `${missing}no readings yet`;
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

  for (const value of ticks(low, high)) {
    chart.append(element("line", undefined,
      { class: "grid", x1: frame.left, x2: frame.right, y1: y(value), y2: y(value) }));
    chart.append(element("text", round(value), { x: frame.left - 6, y: y(value) + 4, "text-anchor": "end" }));
  }
  const days = end - begin > 86400;
  for (const time of end === begin ? [begin] : ticks(begin, end)) {
    const label = days ? when(time).date : end - begin < 600 ? when(time).exact : when(time).time;
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
    row.append(element("td", when(point[0]).full), element("td", String(point[1])));
    byId("points").append(row);
  });
  chart.append(element("path", undefined, { class: "line", d: path }));
  for (const point of points) {
    const dot = element("circle", undefined,
      { cx: x(point[0]), cy: y(point[1]), r: points.length > 100 ? 1 : 3 });
    dot.append(element("title", `${when(point[0]).full}: ${point[1]}`));
    chart.append(dot);
  }
  byId("caption").textContent = `${missing}${columns[at]}: ${points.length} `
    + `${rows === past.rows ? "rows" : "readings since the page was opened,"} from ${when(begin).full} to `
    + `${when(end).full}, lowest ${round(least)}, highest ${round(most)}, last ${round(values[values.length - 1])}`;
}

function showColumns() {
  const { columns } = shown();
  offer(byId("column"), columns.map((name) => [name, name]), columns[0]);
  draw();
}

async function loadHistory() {
  const range = byId("range").value;
  due = performance.now() + validity;
  const found = await fetch(`api/history?range=${range}`)
    .then((reply) => reply.ok && reply.json()).catch(() => false);
  if (range !== byId("range").value) return; // another one is asked for
  missing = found ? "" : `the ${range} could not be loaded; before: `;
  if (found) past = inUnits(found);
  else due = performance.now() + pauseAfterFailure;
  showColumns();
}

byId("history").addEventListener("submit", (event) => event.preventDefault());
byId("column").addEventListener("change", draw);
byId("range").addEventListener("change", loadHistory);
setInterval(() => {
  sample();
  if (!document.hidden && performance.now() >= due) loadHistory();
}, sampling);
loadHistory();
