"use strict";
// Frames that the page's video shows, for two seconds.
window.framesPerSecond = () => new Promise((done) => {
  const video = document.getElementById("video");
  const begin = performance.now();
  let count = 0;
  let going = true;
  video.requestVideoFrameCallback(function onFrame() {
    count += 1;
    if (going) video.requestVideoFrameCallback(onFrame);
  });
  setTimeout(() => {
    going = false;
    done(count * 1000 / (performance.now() - begin));
  }, 2000);
});
