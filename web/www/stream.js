"use strict";
// The unit's events. All of a browser's tabs together have six connections to the unit, so the tabs in
// sight share one stream, in a worker.

// Gives a function that begins the stream anew or, with false, ends it; tell(type, data) hears it: "open",
// "lost", and what the unit sends.
function makeStream(tell) {
  let events;
  return (wanted) => {
    if (events) events.close();
    if (!wanted) return;
    events = new EventSource("api/events");
    events.addEventListener("open", () => tell("open"));
    events.addEventListener("error", () => tell("lost"));
    for (const type of ["state", "log", "beat", "displaced"])
      events.addEventListener(type, (event) => tell(type, JSON.parse(event.data)));
    events.addEventListener("displaced", ({ target }) => target.close());
  };
}

if (typeof SharedWorkerGlobalScope !== "undefined") {
  const looking = new Set();
  const stream = makeStream((type, data) => looking.forEach((tab) => tab.postMessage({ type, data })));
  addEventListener("connect", ({ ports: [tab] }) => {
    tab.onmessage = ({ data: looks }) => {
      if (looks) looking.add(tab);
      else looking.delete(tab);
      // Whoever comes needs all of it, which is what a stream begins with.
      if (looks || looking.size === 0) stream(looks);
    };
  });
}
