"use strict";
// Frames that the page's video shows, for two seconds.
window.framesPerSecond = async () => {
  const shown = () => document.getElementById("video").getVideoPlaybackQuality().totalVideoFrames;
  const begin = performance.now();
  const before = shown();
  await new Promise((done) => setTimeout(done, 2000));
  return (shown() - before) * 1000 / (performance.now() - begin);
};
