"use strict";
// The live picture: WebRTC, begun by a POST of an offer and ended by a DELETE (WHEP).
{
  const video = document.getElementById("video");
  const state = document.getElementById("video-state");
  const interval = 250; // ms
  const frameLimit = 2000; // ms without a frame, until the page says so
  const remedyLimit = 20000; // ms without a frame: longer than a restart of the program
  const answerLimit = 10000; // ms
  const pause = 1000; // ms before the next attempt
  const longPause = 5000; // ms: after a refusal

  let viewing; // { connection, path, connected }: the present attempt
  let frames = 0; // counted at the last look
  let framed; // when the last one came
  let due = 0; // the next attempt

  function show(text) {
    if (state.textContent !== text) state.textContent = text; // a screen reader reads each change
  }

  function leave({ connection, path }) {
    connection.close();
    if (path) fetch(path, { method: "DELETE", keepalive: true }).catch(() => {});
  }

  function end(text, wait) {
    if (!viewing) return;
    leave(viewing);
    viewing = undefined;
    due = performance.now() + wait;
    show(text);
  }

  // Returns why the unit refuses, if it does.
  async function ask(mine) {
    const { connection } = mine;
    const { receiver } = connection.addTransceiver("video", { direction: "recvonly" });
    receiver.jitterBufferTarget = receiver.playoutDelayHint = 0;
    video.srcObject = new MediaStream([receiver.track]);
    video.play().catch(() => {}); // by the attribute alone, Chromium pauses it while it is out of sight
    await connection.setLocalDescription();
    const abort = new AbortController(); // iOS 15 has no AbortSignal.timeout()
    setTimeout(() => abort.abort(), answerLimit);
    const response = await fetch("api/picture", {
      method: "POST",
      headers: { "Content-Type": "application/sdp" },
      body: connection.localDescription.sdp,
      signal: abort.signal,
    });
    if (response.status === 401) return "the password has changed: reload the page";
    if (response.status !== 201)
      return (await response.json().catch(() => ({ error: "the picture's program does not run" }))).error;
    Object.assign(mine, { path: response.headers.get("Location") });
    if (mine === viewing) await connection.setRemoteDescription({ type: "answer", sdp: await response.text() });
    else leave(mine); // in the meantime
    return "";
  }

  async function begin() {
    const mine = viewing = { connection: new RTCPeerConnection() };
    let refusal;
    try {
      refusal = await ask(mine);
    } catch (error) {
      refusal = "no connection to the unit";
    }
    if (refusal && mine === viewing) end(`no picture: ${refusal}`, longPause);
  }

  function reason(silence) {
    const unit = document.getElementById("unit").textContent;
    if (unit !== "live") return unit;
    if (video.paused) return "the browser has stopped it; tap it"; // to save power
    // The unit opens the camera once for the local output; its stream to the phone tries again.
    const local = document.getElementById("picture").textContent === "PAL";
    return `nothing comes from the camera${local && silence > remedyLimit ? "; when it is connected, restart the unit" : ""}`;
  }

  // Without a frame the connection stays: the picture comes back by itself.
  function look() {
    if (document.hidden) return;
    const now = performance.now();
    const count = video.getVideoPlaybackQuality().totalVideoFrames;
    const connection = viewing ? viewing.connection.connectionState : "";
    if (connection === "connected") {
      if (!viewing.connected) framed = now;
      viewing.connected = true;
      if (count > frames) {
        framed = now;
        show("");
      } else if (now - framed > frameLimit) {
        show(`no picture: ${reason(now - framed)}`);
      }
    }
    frames = count; // a new connection resets the count; the end of one adds a black frame
    if (connection === "failed" && !viewing.connected)
      end("no picture: the browser does not reach UDP ports 8090 to 8097 of the unit", longPause);
    else if (/^(failed|disconnected|closed)$/.test(connection)) end("no picture: the connection is lost", pause);
    else if (!viewing && now > due) begin();
  }

  if (window.RTCPeerConnection) {
    show("connecting to the picture");
    setInterval(look, interval);
    addEventListener("pagehide", () => end("", 0));
    video.parentElement.addEventListener("click", () => { if (video.paused) video.play().catch(() => {}); });
    // Hidden tabs leave their place to others.
    document.addEventListener("visibilitychange", () => { if (document.hidden) end("connecting to the picture", 0); });
  } else {
    show("no picture: this browser lacks WebRTC");
  }
}
