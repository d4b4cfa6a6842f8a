# SPDX-License-Identifier: LicenseRef-KT6120
"""One more panel of the unit's page: pictures, serial line, and a button for what can go wrong."""

import json
import time
from collections.abc import Callable
from contextlib import suppress
from http.server import BaseHTTPRequestHandler
from queue import SimpleQueue
from socketserver import ThreadingUnixStreamServer
from threading import Thread
from typing import Any

from bench import Failure
from bench.video import PORTS, Video
from bench.watch import History, printable
from bench.world import Loop

# A button each, and the line of the bench's language that it stands for.
FAULTS = """
Plug the phone in = usb up; Unplug the phone = usb down
Battery low = mcu BAT:V 1500; Battery full = mcu BAT:V 2400
Current too high = mcu PWR:I 1800; Current as usual = mcu PWR:I 620
Compute module hot = mcu TEMP 7500; Compute module cool = mcu TEMP 3150
Turn the reel = mcu COILER:VALUE 80; USB fault = usbfault on
Attach a Tallwick probe = mcu TWK 1; Detach the probe = mcu TWK 0
MCU falls silent = mcu silent; MCU talks again = mcu talk
Camera is lost = camera lost; Camera is back = camera back
Kill the program = unit stop; Start the program = unit start"""
LINES = dict(fault.split(" = ") for fault in FAULTS.strip().replace("\n", "; ").split("; "))
IMAGES = (
    "videorate drop-only=true max-rate=8 ! videoconvert ! videoscale ! video/x-raw,width=360,"
    "height=288 ! jpegenc ! multipartmux boundary=image ! fdsink"
).split()


def start(
    loop: Loop, history: History, video: Video, run: Callable[[str], None], place: str
) -> None:
    """Answers at the socket from now on; `run` carries out a line."""
    serial: list[str] = []
    orders: SimpleQueue[Callable[[], object]] = SimpleQueue()
    taps = {name: video.tap(PORTS[name]) for name in ("pal", "phone")}

    def hear(kind: str, text: bytes) -> None:
        if kind in ("serial", "mcu"):
            serial.append((">" if kind == "serial" else "<") + f" {printable(text)}")

    def in_loop(work: Callable[[], Any]) -> Any:
        done: SimpleQueue[Any] = SimpleQueue()
        orders.put(lambda: done.put(work()))
        return done.get()

    def attempt(line: str) -> str:
        try:
            run(line)
        except Failure as failure:
            return f"{line}: {failure}"
        return line

    class Handler(BaseHTTPRequestHandler):
        def do_GET(self) -> None:
            name = self.path.removeprefix("/bench/")
            with suppress(OSError):  # the viewer has gone
                self.show(PORTS[name]) if name in taps else self.tell()

        def do_POST(self) -> None:
            line = LINES.get(self.rfile.read(int(self.headers["Content-Length"])).decode(), "")
            own = line and self.headers["Origin"] == f"http://{self.headers['Host']}"
            self.begin("text/plain", in_loop(lambda: attempt(line)) if own else "no such fault")

        def log_message(self, *_: object) -> None:
            ...

        def begin(self, kind: str, body: str = "") -> None:
            self.wfile.write(f"HTTP/1.0 200 OK\r\nContent-Type: {kind}\r\n\r\n{body}".encode())

        def show(self, port: int) -> None:
            self.begin("multipart/x-mixed-replace; boundary=image")
            images: SimpleQueue[bytes] = SimpleQueue()
            decoder = in_loop(lambda: video.decode(port, IMAGES, images.put))
            try:
                while True:
                    self.wfile.write(images.get())
            finally:
                in_loop(decoder.stop)

        def tell(self) -> None:
            self.begin("text/event-stream")
            seen = 0
            while True:
                lines, seen = serial[seen:][-200:], len(serial)
                rates = {name: tap.rate() for name, tap in taps.items()}
                news = json.dumps({"serial": lines, "rates": rates, "faults": list(LINES)})
                self.wfile.write(f"data: {news}\n\n".encode())
                time.sleep(0.2)

    history.listeners.append(hear)
    loop.timer(lambda: orders.empty() or orders.get()()).every(0.02)
    server = ThreadingUnixStreamServer(place, Handler)
    server.daemon_threads = True  # they end with the bench
    Thread(target=server.serve_forever, daemon=True).start()
