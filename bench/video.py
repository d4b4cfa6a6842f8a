# SPDX-License-Identifier: LicenseRef-KT6120
"""The video at its ports: listened in on without taking a packet from its receiver."""

import os
import socket
from collections import deque
from collections.abc import Callable
from contextlib import nullcontext
from functools import partial
from struct import pack, unpack_from
from time import monotonic

from bench import Failure, State, number, span
from bench.phone import Network
from bench.watch import History
from bench.world import PATIENCE, Clock, Loop, run

PORTS = {"pal": 8083, "phone": 49152, "ethernet": 8001}
ETH_P_IP = 0x0800
WINDOW = 2.0  # s
STAMPS_PER_SECOND = 90000
PORT, RTP = 22, 28  # where a UDP packet of IPv4 holds its port and its content
TIME, PAYLOAD = 4, 12  # where RTP holds its time and what it carries
SEQUENCE_PARAMETERS, AGGREGATE = 7, 24  # types of packets; the first leads a key frame
MARKER = 0x80  # the last packet of a frame

# Takes packets that are each led by their length in two bytes.
DECODER = (
    "gst-launch-1.0 -q fdsrc ! application/x-rtp-stream,media=video,clock-rate=90000,"
    "encoding-name=H264 ! rtpstreamdepay ! rtph264depay ! h264parse ! avdec_h264 ! "
)
# A slow decoder writes its last picture: the queue drops older ones.
TO_PNG = "queue leaky=downstream max-size-buffers=1 ! videoconvert ! pngenc ! multifilesink"


class Tap:
    """The packets of one port."""

    def __init__(self, port: int) -> None:
        self._port = port
        self._frames: deque[tuple[float, int]] = deque()  # arrival, s, and time in the picture
        self.kept: list[bytes] = []  # since the last key frame, each led by its length
        self.listeners: list[Callable[[bytes], object]] = []

    def take(self, packet: bytes) -> None:
        """An IP packet that passes."""
        rtp = packet[RTP:]
        udp = packet[9] == socket.IPPROTO_UDP
        if not udp or unpack_from(">H", packet, PORT)[0] != self._port or len(rtp) < PAYLOAD + 4:
            return
        framed = pack(">H", len(rtp)) + rtp
        kinds = [rtp[at] & 0x1F for at in (PAYLOAD, PAYLOAD + 3)]
        if kinds[0] == SEQUENCE_PARAMETERS or kinds == [AGGREGATE, SEQUENCE_PARAMETERS]:
            self.kept = [framed]
        elif self.kept:
            self.kept.append(framed)
        if rtp[1] & MARKER:
            self._frames.append((monotonic(), unpack_from(">I", rtp, TIME)[0]))
            while self._frames[0][0] < self._frames[-1][0] - WINDOW:
                self._frames.popleft()
        for listener in self.listeners:
            listener(framed)

    def rate(self) -> float:
        """Frames a second by the picture's own clock, of those of the last two seconds; 0 of one."""
        frames = self._frames
        if not frames or frames[-1][0] < monotonic() - WINDOW:
            return 0
        span = (frames[-1][1] - frames[0][1]) % 2**32
        return (len(frames) - 1) * STAMPS_PER_SECOND / span if span else 0

    def write_picture(self, clock: Clock, file: str) -> None:
        """The last picture as PNG, once there is one."""

        def is_there() -> bool:
            return self.rate() > 0 and any(packet[3] & MARKER for packet in self.kept)

        if not clock.until(is_there, PATIENCE):
            raise Failure(f"nothing comes at port {self._port}")
        command = [*(DECODER + TO_PNG).split(), f"location={file}"]
        said = clock.loop.apart(partial(run, *command, stdin=b"".join(self.kept)))
        if not os.path.getsize(file):
            raise Failure(said)


def listen(loop: Loop, port: int) -> Tap:
    """To what passes for that port in this network namespace."""
    tap = Tap(port)
    wire = socket.socket(socket.AF_PACKET, socket.SOCK_DGRAM, socket.htons(ETH_P_IP))

    def read() -> None:
        packet, (_, _, kind, *_) = wire.recvfrom(65536)
        if kind != socket.PACKET_OUTGOING:  # the loopback shows each packet twice
            tap.take(packet)

    loop.reads(wire.fileno(), read)
    return tap


class Video:
    def __init__(self, clock: Clock, history: History, network: Network) -> None:
        self._clock, self._history, self._network = clock, history, network
        self.taps: dict[int, Tap] = {}

    def tap(self, port: int) -> Tap:
        """Listens in from its first use on: at the phone, or for the PAL picture in the unit's world."""
        if port not in self.taps:
            with nullcontext() if port == PORTS["pal"] else self._network.in_phone():
                self.taps[port] = listen(self._clock.loop, port)
        return self.taps[port]

    def expect_rtp(self, port: str, _: str, rates: str) -> State:
        """PORT rate A..B - frames a second: 8083, 49152, 8001"""
        tap = self.tap(int(number(port)))
        least, most = span(rates)
        if least == 0 and tap.rate() == 0:  # it may have begun to listen just now
            self._clock.loop.rest(WINDOW)
        return State(tap.rate, lambda rate: least <= rate <= most)

    def do_snapshot(self, name: str, file: str) -> None:
        """pal|phone|ethernet FILE.png - a picture of it"""
        if name not in PORTS:
            raise Failure("snapshot pal, phone or ethernet?")
        tap = self.tap(PORTS[name])
        tap.write_picture(self._clock, file)
        self._history.note("bench", f"picture written to {file}\n")
