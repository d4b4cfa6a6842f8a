# SPDX-License-Identifier: LicenseRef-KT6120
"""The video at its ports: listened in on without taking a packet from its receiver."""

import os
import socket
import subprocess
from collections import deque
from collections.abc import Callable
from contextlib import nullcontext, suppress
from queue import SimpleQueue
from struct import pack, unpack_from
from threading import Thread
from time import monotonic

from bench import Failure, State, number, places, to_text
from bench.phone import Network
from bench.watch import History
from bench.world import Clock, Loop, Process

PORTS = {"pal": 8083, "phone": 49152, "ethernet": 8001}
ETH_P_IP = 0x0800
WINDOW = 2.0  # s
STAMPS_PER_SECOND = 90000
UDP_HEADER, RTP_HEADER = 8, 12
SEQUENCE_PARAMETERS, AGGREGATE = 7, 24  # types of packets; the first leads a key frame
MARKER = 0x80  # the last packet of a frame
PATIENCE = 60  # s

# Takes packets that are each led by their length in two bytes.
DECODE = (
    "gst-launch-1.0 -q fdsrc ! application/x-rtp-stream,media=video,clock-rate=90000,"
    "encoding-name=H264 ! rtpstreamdepay ! rtph264depay ! h264parse ! avdec_h264 !"
).split()
# A slow decoder's last picture: what the queue passes over is older.
TO_PNG = "queue leaky=downstream max-size-buffers=1 ! videoconvert ! pngenc ! multifilesink".split()


class Tap:
    """The packets of one port."""

    def __init__(self, port: int) -> None:
        self._port = port
        self._frames: deque[tuple[float, int]] = deque()  # arrival, s, and time in the picture
        self.kept: list[bytes] = []  # since the last key frame, each led by its length
        self.listeners: list[Callable[[bytes], object]] = []

    def take(self, packet: bytes) -> None:
        """An IP packet that passes."""
        header = (packet[0] & 0x0F) * 4
        rtp = packet[header + UDP_HEADER :]
        if (
            packet[9] != socket.IPPROTO_UDP
            or unpack_from(">H", packet, header + 2)[0] != self._port
            or len(rtp) < RTP_HEADER + 4
        ):
            return
        framed = pack(">H", len(rtp)) + rtp
        kinds = [rtp[at] & 0x1F for at in (RTP_HEADER, RTP_HEADER + 3)]
        if kinds[0] == SEQUENCE_PARAMETERS or kinds == [AGGREGATE, SEQUENCE_PARAMETERS]:
            self.kept = [framed]
        elif self.kept:
            self.kept.append(framed)
        if rtp[1] & MARKER:
            self._frames.append((monotonic(), unpack_from(">I", rtp, 4)[0]))
            while self._frames[0][0] < self._frames[-1][0] - WINDOW:
                self._frames.popleft()
        for listener in list(self.listeners):
            listener(framed)

    def rate(self) -> float:
        """Frames a second by the picture's own clock, of those of the last two seconds; 0 of one."""
        frames = self._frames
        if not frames or frames[-1][0] < monotonic() - WINDOW:
            return 0
        span = (frames[-1][1] - frames[0][1]) % 2**32
        return (len(frames) - 1) * STAMPS_PER_SECOND / span if span else 0


def listen(loop: Loop, tap: Tap) -> None:
    """To all that passes in this network namespace."""
    wire = socket.socket(socket.AF_PACKET, socket.SOCK_DGRAM, socket.htons(ETH_P_IP))

    def read() -> None:
        packet, (_, _, kind, *_) = wire.recvfrom(65536)
        if kind != socket.PACKET_OUTGOING:  # the loopback shows each packet twice
            tap.take(packet)

    loop.reads(wire.fileno(), read)


class Video:
    def __init__(self, loop: Loop, clock: Clock, history: History, network: Network | None) -> None:
        self._loop, self._clock, self._history, self._network = loop, clock, history, network
        self._taps: dict[int, Tap] = {}

    def tap(self, port: int) -> Tap:
        """Listens in from its first use on."""
        if port not in self._taps:
            self._taps[port] = Tap(port)
            self._open(port, self._taps[port])
        return self._taps[port]

    def _open(self, port: int, tap: Tap) -> None:
        """On the wire at the phone, or, for the PAL picture, in the unit's world."""
        here = port == PORTS["pal"] or not self._network
        with nullcontext() if here else self._network.in_phone():  # type: ignore[union-attr]
            listen(self._loop, tap)

    def decode(self, port: int, elements: list[str], heard: Callable[[bytes], object]) -> Process:
        """gst-launch with these elements behind the decoder, from the last key frame on."""
        tap, packets = self.tap(port), SimpleQueue[bytes]()
        decoder = Process(self._loop, DECODE + elements, stdout=heard, stdin=subprocess.PIPE)
        packets.put(b"".join(tap.kept))
        tap.listeners.append(packets.put)

        def feed() -> None:  # which waits for a decoder that is slow
            with suppress(OSError), decoder.child.stdin as pipe:
                while True:  # until it has ended
                    pipe.write(packets.get())
                    pipe.flush()
            tap.listeners.remove(packets.put)

        Thread(target=feed, daemon=True).start()
        return decoder

    def expect_rtp(self, port: str, what: str, rates: str) -> State:
        """PORT rate A..B - frames a second: 8083, 49152, 8001"""
        least, found, most = rates.partition("..")
        if what != "rate" or not found:
            raise Failure("rtp PORT rate A..B")
        tap = self.tap(int(number(port)))
        return State(
            lambda: number(least) <= tap.rate() <= number(most),
            lambda: f"{tap.rate()} frames a second",
        )

    def do_snapshot(self, name: str, file: str) -> None:
        """pal|phone|ethernet FILE.png - a picture of it"""
        self.snapshot([name, file])

    def snapshot(self, words: list[str]) -> None:
        if words[0] not in PORTS:
            raise Failure("snapshot pal, phone or ethernet?")
        tap, picture = self.tap(PORTS[words[0]]), places.of_caller(words[1])
        if not self._clock.until(lambda: tap.rate() > 0 and len(tap.kept) > 0, PATIENCE):
            raise Failure(f"nothing comes at port {PORTS[words[0]]}")
        command = [*DECODE, *TO_PNG, f"location={picture}"]
        stream = b"".join(tap.kept)
        done = self._loop.apart(
            lambda: subprocess.run(command, input=stream, capture_output=True, timeout=PATIENCE)
        )
        if done.returncode != 0 or not os.path.getsize(picture):
            raise Failure(to_text(done.stdout + done.stderr))
        self._history.note("bench", f"picture written to {words[1]}\n")
