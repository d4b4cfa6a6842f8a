"use strict";
// One more panel of the unit's page, on the bench only: pictures, serial line, faults.
{
  const names = { pal: "PAL", phone: "Phone" };
  const figures = Object.entries(names).map(([id, name]) =>
    `<figure id="bench-${id}"><img width="360" height="288" alt="live picture of ${name}"><figcaption></figcaption></figure>`);
  document.querySelector("main").insertAdjacentHTML("beforeend", `
    <section class="bench" aria-labelledby="bench-title"><h2 id="bench-title">Bench</h2>
    <div class="groups">${figures.join("")}</div><div class="groups"></div><p role="status"></p>
    <h3>Serial line</h3><pre tabindex="0" role="region" aria-label="Serial line" class="scroll"></pre></section>`);
  const find = (place) => document.querySelector(`.bench ${place}`);
  const [buttons, serial] = [find(".groups:empty"), find("pre")];
  const add = (fault) => {
    const button = buttons.appendChild(document.createElement("button"));
    button.textContent = fault;
    button.addEventListener("click", async () => {
      const reply = await fetch("bench/faults", { method: "POST", body: fault });
      find("p").textContent = `bench: ${await reply.text()}`;
    });
  };
  new EventSource("bench/events").addEventListener("message", (event) => {
    const news = JSON.parse(event.data);
    if (!buttons.children.length) news.faults.forEach(add);
    for (const [id, rate] of Object.entries(news.rates)) {
      find(`#bench-${id} figcaption`).textContent =
        names[id] + (rate > 0 ? `: ${rate.toFixed(0)} frames a second` : ": no picture");
    }
    serial.textContent = [...news.serial.reverse(), ...serial.textContent.split("\n")].slice(0, 200).join("\n");
  });
  // A picture that never ends would keep the page from being loaded.
  addEventListener("load", () => Object.keys(names).forEach((id) => { find(`#bench-${id} img`).src = `bench/${id}`; }));
}
