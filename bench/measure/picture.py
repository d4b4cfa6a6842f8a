# SPDX-License-Identifier: LicenseRef-KT6120
"""Measures the delay from the camera to PAL receiver, phone and page, in the sandbox, and prints tables.

Usage: python3 -m bench.measure.picture BUILD SECONDS. Each frame shows when it left the camera. The PAL
output and the phone's stream are decoded as the unit's receiver does it; the page is open in a browser at
the same time. Two measurements of the delay and two of the cost take SECONDS each.
"""

import statistics
import subprocess
import sys
import time
from functools import partial
from pathlib import Path

from bench.desk import Desk
from bench.video import DECODER, PORTS
from bench.world import Process, run

BITS, SIDE, WIDTH = 24, 16, 720  # of the time in the picture (bench/standins.cpp)
SETTLED = 8  # s
# Rows 0 to 15 of each frame, as grey.
TO_ROWS = f"videocrop bottom={576 - SIDE} ! videoconvert ! video/x-raw,format=GRAY8 ! fdsink"
WATCH = f"""
const video = document.getElementById("video");
const context = new OffscreenCanvas({BITS * SIDE}, 1).getContext("2d", {{ willReadFrequently: true }});
window.measured = [];
video.requestVideoFrameCallback(function onFrame() {{
  const now = Date.now();
  context.drawImage(video, 0, {SIDE // 2}, {BITS * SIDE}, 1, 0, 0, {BITS * SIDE}, 1);
  const {{ data }} = context.getImageData(0, 0, {BITS * SIDE}, 1);
  measured.push([now, [...Array({BITS}).keys()].map((bit) => data[4 * (bit * {SIDE} + {SIDE // 2}) + 1])]);
  video.requestVideoFrameCallback(onFrame);
}});
"""
# Three more windows beside it.
MORE = "for (let count = 0; count < 3; ++count) open('/', '', 'popup')"


def delay(now: float, squares: list[int]) -> float:
    """Milliseconds since the frame left the camera."""
    left = sum((value > 127) << bit for bit, value in enumerate(reversed(squares)))
    return float((int(now) - left) % 2**BITS)


class Receiver:
    """Decodes what passes at a port."""

    def __init__(self, desk: Desk, port: int) -> None:
        self.delays: list[float] = []
        self._rest = b""
        command = (DECODER + TO_ROWS).split()
        decoder = Process(desk.loop, command, stdout=self._take, stdin=subprocess.PIPE)
        desk.video.tap(port).listeners.append(decoder.child.stdin.write)

    def _take(self, content: bytes) -> None:
        now, self._rest = time.time() * 1000, self._rest + content
        while len(self._rest) >= WIDTH * SIDE:
            row = self._rest[WIDTH * SIDE // 2 :]
            self.delays.append(delay(now, list(row[SIDE // 2 : BITS * SIDE : SIDE])))
            self._rest = self._rest[WIDTH * SIDE :]


def dropped(port: int) -> int:
    """Packets for which the receiver at the port was too slow."""
    lines = [line.split() for line in Path("/proc/net/udp").read_text().splitlines()]
    return sum(int(line[-1]) for line in lines if line[1].endswith(f":{port:04X}"))


def main() -> None:
    seconds = float(sys.argv[2])
    with Desk(sys.argv[1]) as desk:

        def on_page(script: str) -> list[tuple[float, list[int]]]:
            value = desk.loop.apart(partial(desk.page.driver.execute_script, script))
            return value or []

        def ways(name: str, receiver: Receiver) -> None:
            desk.loop.rest(SETTLED)
            receiver.delays.clear()
            on_page("measured.length = 0")
            desk.loop.rest(seconds)
            page = [delay(*frame) for frame in on_page("return measured")]
            for way, delays in ((name, receiver.delays), ("the page", page)):
                ordered = sorted(delays)
                middle, late = statistics.median(ordered), ordered[len(ordered) * 99 // 100]
                print(f"{way:<28}{middle:>8.0f}{late:>8.0f}{len(ordered) / seconds:>12.1f}")

        def gap(verb: str) -> None:
            """The longest time between two frames on the page."""
            on_page("measured.length = 0")
            desk.run(verb)
            desk.loop.rest(2 * SETTLED)
            times = [now for now, _ in on_page("return measured")]
            longest = max(after - before for before, after in zip(times, times[1:]))
            print(f"{verb:<28}{longest / 1000:>8.1f}")

        def costs(viewers: str) -> None:
            desk.loop.rest(SETTLED)
            gauges = partial(desk.machine.gauges, int(run("pidof", "kt6120-picture")))
            before, lost = gauges()["cpu"], dropped(PORTS["pal"])
            desk.loop.rest(seconds)
            used, lost = gauges()["cpu"] - before, dropped(PORTS["pal"]) - lost
            share = 100 * used / seconds
            print(f"{viewers:<28}{share:>8.1f}{gauges()['rss']:>8.1f}{lost:>12}")

        desk.run("file /run/bench/camera timed")
        desk.run("unit start")
        desk.run("page open")
        desk.run(
            "expect script \"document.getElementById('video').getVideoPlaybackQuality().totalVideoFrames > 0\""
        )
        on_page(WATCH)
        print("camera to picture, ms         median   99 %    frames/s")
        ways("the PAL receiver", Receiver(desk, PORTS["pal"]))
        desk.run("usb up")
        desk.run("expect rtp 49152 rate 20..30")
        ways("the phone", Receiver(desk, PORTS["phone"]))
        print("longest time without a frame on the page, s")
        for verb in ("usb down", "usb up", "usb down", "unit restart"):
            gap(verb)
        print("kt6120-picture                 CPU, %    MiB   PAL packets lost")
        costs("one viewer")
        on_page(MORE)
        costs("four viewers")


main()
