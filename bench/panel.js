"use strict";
// One more panel of the unit's page, on the bench only: pictures, serial line, faults.
{
  const make = (name, text, attributes = {}) => {
    const made = document.createElement(name);
    for (const [key, value] of Object.entries(attributes)) made.setAttribute(key, value);
    if (text) made.textContent = text;
    return made;
  };

  const panel = make("section", "", { "aria-labelledby": "bench-title", class: "bench" });
  panel.append(make("h2", "Bench", { id: "bench-title" }));
  document.querySelector("main").append(panel);

  const captions = {};
  const pictures = make("div", "", { class: "groups" });
  for (const [name, label] of [["pal", "PAL"], ["phone", "Phone"]]) {
    const figure = make("figure");
    captions[name] = make("figcaption", label, { "data-label": label });
    const image = make("img", "", { width: 360, height: 288, alt: `live picture of ${label}` });
    // A picture that never ends would keep the page from being loaded.
    addEventListener("load", () => { image.src = `bench/${name}.mjpeg`; });
    figure.append(image, captions[name]);
    pictures.append(figure);
  }
  panel.append(pictures);

  const said = make("p", "", { role: "status", id: "bench-said" });
  const buttons = make("div", "", { class: "groups" });
  panel.append(buttons, said);
  fetch("bench/faults").then((reply) => reply.json()).then(({ faults }) => faults.forEach((fault) => {
    const button = make("button", fault);
    button.addEventListener("click", async () => {
      const reply = await fetch("bench/faults", { method: "POST",
        headers: { "Content-Type": "application/json" }, body: JSON.stringify({ fault }) });
      said.textContent = `bench: ${(await reply.json()).said}`;
    });
    buttons.append(button);
  }));

  const serial = make("pre", "", { tabindex: "0", role: "region", "aria-label": "Serial line", class: "scroll" });
  panel.append(make("h3", "Serial line"), serial);
  const lines = [];
  new EventSource("bench/events").addEventListener("message", (event) => {
    const news = JSON.parse(event.data);
    for (const [name, rate] of Object.entries(news.rates)) {
      captions[name].textContent = captions[name].dataset.label
        + (rate > 0 ? `: ${rate.toFixed(0)} frames a second` : ": no picture");
      captions[name].previousSibling.style.opacity = rate > 0 ? 1 : 0.25;
    }
    if (news.serial.length === 0) return;
    lines.push(...news.serial);
    lines.splice(0, lines.length - 200);
    serial.textContent = lines.slice().reverse().join("\n");
  });
}
