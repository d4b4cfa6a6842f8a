"use strict";
/* global byId, element, say, stored, timeText, unit, unitTime */ // from page.js
// Stills and recordings of the picture, made in the browser: nothing is written to the unit's card.

const video = byId("video");
const rate = 4e6; // bit/s, of a recording
const frameTime = 40; // ms
const containers = ["video/mp4;codecs=avc1.42E01F", "video/mp4", "video/webm"]; // the best first
const kept = []; // what the list downloads
let unsaved = false; // the list has changed since its last download
let recorder = null;

// Where the picture is, and when: what the overlay, a name and the list say.
function here() {
  const old = document.body.matches(".stale");
  const metres = old ? undefined : stored("Reel/Distance");
  return {
    distance: metres || "",
    time: isNaN(unitTime()) ? "" : timeText(unitTime()),
    model: stored("Coiler/Model") || "",
  };
}

function drawPicture(canvas) {
  const context = canvas.getContext("2d");
  const { width, height } = canvas;
  const size = Math.round(height / 20);
  const { distance, time, model } = here();
  context.drawImage(video, 0, 0, width, height);
  context.fillStyle = "rgb(0 0 0 / 65%)";
  context.fillRect(0, height - 1.6 * size, width, 1.6 * size);
  context.fillStyle = "#fff";
  context.font = `${size}px sans-serif`;
  const [fault] = byId("video-state").textContent.split(";"); // without the remedy
  const texts = [distance ? `${distance} m` : "distance unknown", time, model, fault];
  context.fillText(texts.join("   "), size / 2, height - size / 2, width - size);
}

function makeCanvas() {
  if (video.videoWidth && byId("video-state").textContent === "")
    return Object.assign(document.createElement("canvas"),
      { width: video.videoWidth, height: video.videoHeight });
  say("There is no picture to keep", "warning");
  return null;
}

function save(blob, name) {
  const link = element("a", name, { href: URL.createObjectURL(blob), download: name });
  link.click();
  return link;
}

// 2026-11-26_03-00-01_12.5m.png; a second one of the same second has a number.
function keep(blob, { distance, time, model }, type) {
  const [day, month, year, clockTime = ""] = time.split(/[- ]/);
  const when = time ? `${year}-${month}-${day}_${clockTime.replace(/:/g, "-")}` : "time-unknown";
  const base = `${when}_${distance || "unknown"}m`;
  const others = kept.filter((one) => one.base === base && one.type === type).length;
  const name = `${base}${others ? `_${others + 1}` : ""}.${type}`;
  const entry = { base, type, name, distance, time, model, note: "" };
  const note = element("input", undefined, { "aria-label": `Note to ${name}`, maxlength: 200 });
  note.addEventListener("input", () => {
    entry.note = note.value;
    unsaved = true;
  });
  const row = byId("kept").tBodies[0].insertRow(0); // the newest first
  for (const content of [distance ? `${distance} m` : "unknown", time, save(blob, name), note])
    row.insertCell().append(content);
  kept.push(entry);
  unsaved = true;
  byId("kept").hidden = false;
  byId("list").disabled = false;
  say(`Saved ${name}`);
}

function still() {
  const canvas = makeCanvas();
  if (!canvas) return;
  const where = here();
  drawPicture(canvas);
  canvas.toBlob((blob) => keep(blob, where, "png"), "image/png");
}

function showRecording({ began, size }) {
  const seconds = Math.floor((performance.now() - began) / 1000);
  const time = `${Math.floor(seconds / 60)}:${String(seconds % 60).padStart(2, "0")}`;
  const amount = size < 1e6 ? `${Math.round(size / 1e3)} kB` : `${(size / 1e6).toFixed(1)} MB`;
  byId("recording").textContent = `recording ${time}, ${amount}`;
}

function startRecording() {
  const canvas = makeCanvas();
  if (!canvas) return;
  const where = here();
  const mimeType = containers.find((type) => MediaRecorder.isTypeSupported(type));
  // Key frames begin the parts of an MP4: without their interval a slow browser has none for a minute.
  const options = { mimeType, videoBitsPerSecond: rate, videoKeyFrameIntervalDuration: 1000 };
  const media = new MediaRecorder(canvas.captureStream(), options);
  const parts = [];
  const own = { media, began: performance.now(), size: 0 };
  recorder = own;
  const next = window.HTMLVideoElement.prototype.requestVideoFrameCallback
    ? (act) => video.requestVideoFrameCallback(act) : requestAnimationFrame;
  let drawn = 0;
  const draw = () => {
    if (recorder !== own) return;
    drawPicture(canvas);
    drawn = performance.now();
    next(draw);
  };
  const shows = setInterval(() => {
    if (media.state !== "recording") return;
    // Time goes on where no callback comes: without a picture, and in some browsers out of sight.
    if (performance.now() - drawn > 2 * frameTime) drawPicture(canvas);
    showRecording(own);
  }, frameTime);
  media.addEventListener("dataavailable", ({ data }) => {
    parts.push(data);
    own.size += data.size;
  });
  media.addEventListener("error", ({ error }) => { own.error = error.message; });
  media.addEventListener("stop", () => {
    clearInterval(shows);
    recorder = null;
    delete document.body.dataset.recording;
    byId("recording").textContent = "";
    byId("record").textContent = "Record";
    if (own.size > 0) keep(new Blob(parts, { type: mimeType }), where, mimeType.includes("mp4") ? "mp4" : "webm");
    if (own.error) say(`The recording broke off: ${own.error}`, "fault");
  });
  draw();
  media.start(1000);
  document.body.dataset.recording = "yes";
  byId("record").textContent = "Stop";
  showRecording(own);
  say("Recording");
}

// A hidden tab gets neither frames nor readings.
function pauseRecording() {
  if (!recorder || recorder.media.state === "inactive") return;
  const { media } = recorder;
  if (document.hidden) {
    recorder.paused = performance.now();
    media.pause();
  } else if (media.state === "paused") {
    recorder.began += performance.now() - recorder.paused;
    media.resume();
  }
}

// Quotes a text. An apostrophe before it keeps a spreadsheet from evaluating it as a formula.
function cell(text) {
  const safe = /^[=+@-]/.test(text) && isNaN(text) ? `'${text}` : text;
  return `"${safe.replace(/"/g, '""')}"`;
}

function saveList() {
  const rows = kept.map(({ name, distance, time, model, note }) => [name, distance, time, model, note]);
  const lines = [["file", "distance [m]", "time", "reel model", "note"], ...rows]
    .map((row) => `${row.map(cell).join(",")}\r\n`);
  save(new Blob(["\ufeff", ...lines], { type: "text/csv" }), `${unit.name}_${here().time.slice(0, 10)}.csv`);
  unsaved = false;
}

byId("still").addEventListener("click", still);
byId("record").addEventListener("click", () => {
  if (!recorder) startRecording();
  else if (recorder.media.state !== "inactive") recorder.media.stop();
});
byId("list").addEventListener("click", saveList);
document.addEventListener("visibilitychange", pauseRecording);
// A closed tab loses a running recording and the list.
addEventListener("beforeunload", (event) => {
  if (!recorder && !unsaved) return;
  event.preventDefault();
  event.returnValue = ""; // older browsers
});
