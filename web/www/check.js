"use strict";
/* global byId, element */ // from page.js

// What kt6120-check has found, which the unit runs every ten minutes.
async function loadCheck() {
  const reply = await fetch("api/check");
  if (!reply.ok) return;
  const { time, lines } = await reply.json();
  byId("checked").textContent = time ? `at ${time}` : "not done yet";
  byId("check").replaceChildren(...(lines || []).map((line) => {
    const row = element("tr", undefined, { class: line.state === "ok" ? "normal" : line.state });
    const found = [line.text, line.remedy].filter(Boolean).join(". ");
    row.append(element("th", line.name, { scope: "row" }), element("td", line.state), element("td", found));
    return row;
  }));
}

setInterval(() => { if (!document.hidden) loadCheck().catch(() => {}); }, 60 * 1000);
loadCheck().catch(() => {});
