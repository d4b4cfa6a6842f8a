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
# Three more windows beside the page.
OPEN = "window.all = [window]; for (let n = 0; n < 3; ++n) all.push(open('/', '', 'popup'))"
FRAMES = """return all.map(({ document }) => {
  const video = document.getElementById("video");
  return video ? video.getVideoPlaybackQuality().totalVideoFrames : 0;
})"""
OFFER = """
const connection = new RTCPeerConnection();
connection.addTransceiver("video", { direction: "recvonly" });
connection.setLocalDescription().then(() => arguments[0](connection.localDescription.sdp));
"""


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

        def frames():
            return desk.loop.apart(partial(desk.page.driver.execute_script, FRAMES))

        desk.run("unit start")
        desk.run("expect rtp 8083 rate 20..30")
        desk.run("page open")
        desk.run(
            "expect script \"document.getElementById('video').getVideoPlaybackQuality().totalVideoFrames > 0\""
        )
        browser = desk.page.driver
        desk.loop.apart(partial(browser.execute_script, OPEN))
        offer = desk.loop.apart(partial(browser.execute_async_script, OFFER))
        until(lambda: all(count > 50 for count in frames()), "not all four see it")
        assert ask(offer) == 503, "a fifth viewer"

        # Only the unit's own packets are shown.
        desk.run("camera lost")
        desk.run("usb up")
        desk.run("expect call KT6120_stream_start.sh 192.168.42.255 49152")
        before, packets = frames(), list(desk.video.tap(PAL).kept)
        with desk.network.in_phone():
            send(packets, b"1111")
        assert not desk.loop.until(
            lambda: bool(frames() != before), 2
        ), "another sender's are shown"
        send(packets, b"2222")
        until(lambda: frames() != before, "the unit's own are not shown")

        for one in subprocess.check_output(["pidof", "chromium"]).split():
            os.kill(int(one), signal.SIGKILL)
        began = time.monotonic()
        until(lambda: ask(offer) == 201, "no place is free again")
        assert time.monotonic() - began < FORGOTTEN, f"only after {time.monotonic() - began:.0f} s"
        desk.run("expect processes kt6120-picture 0")


main()
