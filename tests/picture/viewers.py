#!/usr/bin/python3
# SPDX-License-Identifier: LicenseRef-KT6120
"""Four viewers of the picture in a real browser: whose packets they see, and how they vanish.

Usage, in the sandbox with an installed tree: viewers.py BUILD. The first failure ends it.
"""

import http.client
import os
import signal
import socket
import subprocess
import sys
import time
from functools import partial
from pathlib import Path

sys.path.insert(0, str(Path(__file__).resolve().parents[2]))

from bench.desk import Desk

FORGOTTEN = 20  # s: ten, on a machine that is busy
PAL, USB = 8083, 49152
OWN = {"Host": "127.0.0.1", "Origin": "http://127.0.0.1", "Content-Type": "application/sdp"}
# Adds three viewers to the page's own, and returns an offer of a fifth.
OPEN = """
window.videos = [document.getElementById("video")];
const offer = async () => {
  const connection = new RTCPeerConnection();
  const { receiver } = connection.addTransceiver("video", { direction: "recvonly" });
  await connection.setLocalDescription();
  return { connection, receiver, sdp: connection.localDescription.sdp };
};
const watch = async () => {
  const { connection, receiver, sdp: body } = await offer();
  const headers = { "Content-Type": "application/sdp" };
  const answer = await fetch("api/picture", { method: "POST", headers, body });
  await connection.setRemoteDescription({ type: "answer", sdp: await answer.text() });
  const video = document.body.appendChild(document.createElement("video"));
  Object.assign(video, { muted: true, autoplay: true, srcObject: new MediaStream([receiver.track]) });
  videos.push(video);
};
const done = arguments[0];
Promise.all([watch(), watch(), watch()]).then(offer).then(({ sdp }) => done(sdp), (e) => done(`${e}`));
"""
FRAMES = "return videos.map((video) => video.getVideoPlaybackQuality().totalVideoFrames)"


def post(offer):
    line = http.client.HTTPConnection("127.0.0.1", timeout=60)
    line.request("POST", "/api/picture", offer, OWN)
    return line.getresponse().status


def send(packets, stream):
    """To the port of the phone's picture, as a stream of that number."""
    with socket.socket(type=socket.SOCK_DGRAM) as end:
        for packet in packets:
            end.sendto(packet[2:10] + stream + packet[14:], ("192.168.42.10", USB))


def main():
    with Desk(sys.argv[1]) as desk:

        def until(condition, what, seconds=60):
            assert desk.loop.until(condition, seconds), what

        def ask(offer):
            return desk.loop.apart(partial(post, offer))

        desk.run("unit start")
        desk.run("expect rtp 8083 rate 20..30")
        desk.run("page open")
        desk.run("expect script \"document.getElementById('video').currentTime > 0\"")
        browser = desk.page._driver
        offer = desk.loop.apart(partial(browser.execute_async_script, OPEN))
        frames = partial(desk.loop.apart, partial(browser.execute_script, FRAMES))
        until(lambda: min(frames()) > 50, "not all four see it")
        assert ask(offer) == 503, "a fifth viewer"

        # Only the unit's own packets are shown.
        desk.run("camera lost")
        desk.run("usb up")
        desk.run("expect call KT6120_stream_start.sh 192.168.42.255 49152")
        before, packets = frames(), list(desk.video.tap(PAL).kept)
        with desk.network.in_phone():
            send(packets, b"1111")
        assert not desk.loop.until(lambda: frames() != before, 2), "another sender's are shown"
        send(packets, b"2222")
        until(lambda: frames() != before, "the unit's own are not shown")

        for one in subprocess.check_output(["pidof", "chromium"]).split():
            os.kill(int(one), signal.SIGKILL)
        began = time.monotonic()
        until(lambda: ask(offer) == 201, "no place is free again")
        assert time.monotonic() - began < FORGOTTEN, f"only after {time.monotonic() - began:.0f} s"
        until(lambda: not desk.page.picture.running, "its program does not end")


main()
