# SPDX-License-Identifier: LicenseRef-KT6120
"""What a real browser keeps of the page's picture, and who may watch it.

Usage, in the sandbox with an installed tree: python3 -m tests.web.browser BUILD. The browser saves the
files; ffmpeg reads them. The first failure ends it.
"""

import csv
import json
import os
import re
import signal
import socket
import struct
import subprocess
import sys
import time
from functools import partial
from pathlib import Path

from bench.desk import Desk
from bench.page import SAVED

ASKS = (
    "(e => (dispatchEvent(e), e.defaultPrevented))(new Event('beforeunload', {cancelable: true}))"
)
# While the picture is there: a busy machine may miss two seconds of it.
PRESS = (
    "expect script \"byId('video').videoWidth > 0 && byId('video-state').textContent === ''"
    " && (byId('{}').click(), true)\""
)
PAL, USB = 8083, 49152
# Three more windows beside the page.
OPEN = "window.all = [window]; for (let n = 0; n < 3; ++n) all.push(open('/', '', 'popup'))"
VIDEOS = "all.map((one) => one.document.getElementById('video'))"
FRAMES = f"return {VIDEOS}.map((one) => one?.getVideoPlaybackQuality().totalVideoFrames ?? 0)"
MIDDLE = """
const { x, y, width, height } = document.getElementById("zero").getBoundingClientRect();
return [x + width / 2, y + height / 2];
"""


def run(*command):
    return subprocess.run(command, check=True, capture_output=True).stdout


def saved(desk, ending, count):
    def files():
        return sorted(Path(SAVED).glob(f"*.{ending}"), key=os.path.getmtime)

    assert desk.loop.until(lambda: len(files()) == count, 60), f"saved: {files()}"
    return files()[-1]


def keep_still(desk, count, counter, distance):
    """The bright pixels in the corner where the distance is drawn."""
    desk.run(f"mcu COILER:VALUE {counter}")
    desk.run(f'expect page "Distance {distance} m"')
    desk.run(PRESS.format("still"))
    still = saved(desk, "png", count)
    name = rf"\d{{4}}-\d\d-\d\d_\d\d-\d\d-\d\d_{re.escape(distance)}m(_2)?\.png"
    assert re.fullmatch(name, still.name), still.name
    grey = run("ffmpeg", "-v", "error", "-i", still, "-f", "rawvideo", "-pix_fmt", "gray", "-")
    assert len(grey) == 720 * 576, f"{still.name}: {len(grey)} pixels"
    assert len(set(grey[72000:72720])) > 5, "no picture"
    return [pixel > 128 for row in range(530, 576) for pixel in grey[row * 720 : row * 720 + 90]]


def unlike(one, other):
    return sum(a != b for a, b in zip(one, other))


def record(desk):
    """With the picture scrolled out of sight, where a browser may stop it."""
    desk.run(PRESS.format("record"))
    began = time.monotonic()
    desk.run('expect script "(scrollTo(0, 1e5), video.getBoundingClientRect().bottom < 0)"')
    desk.run(
        "expect script \"/^recording \\\\d+:(0[4-9]|[1-9]\\\\d), [1-9]/.test(byId('recording').textContent) || byId('recording').textContent + byId('answer').textContent\""
    )
    desk.run(f'expect script "{ASKS}"')
    desk.run("page press r")
    took = time.monotonic() - began
    desk.run('expect script "(scrollTo(0, 0), true)"')
    recording = saved(desk, "mp4", 1)
    unlike_last = "-vf crop=720:400:0:0,mpdecimate,scale=8:8 -fps_mode passthrough".split()
    command = ["ffmpeg", "-v", "error", "-xerror", "-i", recording, *unlike_last]
    moves = len(run(*command, "-f", "rawvideo", "-pix_fmt", "gray", "-")) // 64
    seen = json.loads(run("ffprobe", "-v", "error", "-of", "json", "-show_format", recording))
    length = float(seen["format"]["duration"])
    assert abs(length - took) < 1 + took / 3, f"{length} s of {took} s"
    assert moves > 4 * length, f"{moves} different frames in {length} s"


def try_kept(desk):
    """Stills and a recording, with the list of where they were taken."""
    record(desk)
    desk.run(f'expect script "{ASKS}"')
    first = keep_still(desk, 1, 100, "12.5")
    same = keep_still(desk, 2, 100, "12.5")
    other = keep_still(desk, 3, -84, "-10.5")
    seen = unlike(first, same), unlike(first, other)
    assert seen[0] * 2 < seen[1], f"the distance is not in the picture: {seen}"
    desk.run("expect script \"document.querySelectorAll('#kept input')[2].focus() === undefined\"")
    desk.run("page press =joint")
    desk.run('page click "Download the list"')
    desk.run(f'expect script "!{ASKS}"')
    with saved(desk, "csv", 1).open(encoding="utf-8-sig", newline="") as file:
        rows = list(csv.DictReader(file))
    assert [row["distance [m]"] for row in rows] == ["0", "12.5", "12.5", "-10.5"], rows
    assert [row["note"] for row in rows] == ["", "'=joint", "", ""], rows
    assert {row["file"] for row in rows} == {file.name for file in Path(SAVED).glob("2*")}, rows
    desk.run("expect console clean")
    desk.run("unit signal 19")
    desk.run("expect script \"byId('video-state').textContent !== ''\"")
    desk.run("page click Still")
    desk.run('expect page "There is no picture to keep"')
    desk.run("unit signal 18")


def try_touch(desk):
    """A finger that slides off the button does not zero the reel."""

    def touch(kind, *points):
        command = desk.page.driver.execute_cdp_cmd
        given = {"type": kind, "touchPoints": [{"x": x, "y": y} for x, y in points]}
        desk.loop.apart(partial(command, "Input.dispatchTouchEvent", given))

    x, y = desk.loop.apart(partial(desk.page.driver.execute_script, MIDDLE))
    desk.run("mark")
    touch("touchStart", (x, y))
    touch("touchMove", (x, y + 100))
    desk.run('expect page "Hold the button for a second"')
    desk.run('expect none serial "COILER:ZERO" for 1.5')
    touch("touchEnd")


def send(packets, stream):
    """To the port of the phone's picture, as a stream of that number."""
    with socket.socket(type=socket.SOCK_DGRAM) as end:
        for packet in packets:
            end.sendto(packet[2:10] + stream + packet[14:], ("192.168.42.10", USB))


def forge(packets, stream):
    """The same from the network's broadcast address, which the kernel accepts as a sender."""
    address = socket.inet_aton("192.168.42.255")
    with socket.socket(type=socket.SOCK_RAW, proto=socket.IPPROTO_RAW) as end:
        end.setsockopt(socket.SOL_SOCKET, socket.SO_BROADCAST, 1)
        for packet in packets:
            content = packet[2:10] + stream + packet[14:]
            header = struct.pack("!B7xBB2x4s4s", 0x45, 64, socket.IPPROTO_UDP, address, address)
            udp = struct.pack("!4H", USB, USB, 8 + len(content), 0)
            end.sendto(header + udp + content, ("192.168.42.255", USB))


def try_viewers(desk):
    """Four see it, and only the unit's own packets. Those that vanish are forgotten."""

    def until(condition, what):
        assert desk.loop.until(condition, 60), what

    def execute(script):
        return desk.loop.apart(partial(desk.page.driver.execute_script, script))

    def frames():
        return execute(FRAMES)

    execute(OPEN)
    until(lambda: all(count > 50 for count in frames()), "not all four see it")

    desk.run("camera lost")
    desk.run("usb up")
    desk.run("expect call KT6120_stream_start.sh 192.168.42.255 49152")
    before, packets = frames(), list(desk.video.tap(PAL).kept)
    with desk.network.in_phone():
        send(packets, b"1111")
        forge(packets, b"1111")
    assert not desk.loop.until(lambda: bool(frames() != before), 2), "another sender's are shown"
    send(packets, b"2222")
    until(lambda: frames() != before, "the unit's own are not shown")

    for one in subprocess.check_output(["pidof", "chromium"]).split():
        os.kill(int(one), signal.SIGKILL)
    began = time.monotonic()
    # It ends ten seconds after it has forgotten the last viewer.
    desk.run("expect processes kt6120-picture 0")
    assert time.monotonic() - began < 40, f"only after {time.monotonic() - began:.0f} s"


with Desk(sys.argv[1]) as desk_with_page:
    desk_with_page.run("unit start")
    desk_with_page.run("expect rtp 8083 rate 20..30")
    desk_with_page.run("page open")
    try_touch(desk_with_page)
    try_kept(desk_with_page)
    try_viewers(desk_with_page)
