"use strict";
// The unit's server-sent events. A browser opens at most six connections to a server, so its visible
// tabs share one stream in a shared worker.

// Returns a function that restarts the stream or, with false, ends it. Calls tell(type, data) for "open",
// "lost" and the unit's events.
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
      if (looks) tab.postMessage({ type: "here" });
      // A new tab needs all readings, and only a new stream sends them.
      if (looks || looking.size === 0) stream(looks);
    };
  });
}
