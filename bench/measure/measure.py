#!/usr/bin/python3
# SPDX-License-Identifier: LicenseRef-KT6120
"""Measures the real program beside its floor, in the sandbox, and prints one table.

Usage: measure.py BUILD ROUNDS. Each row sets a figure of the program beside that of a bare process of
the same libraries (bench/measure/floor.cpp) taken in turn: medians over the rounds, half of how far
these lie apart, and the median of the ratios pair by pair, which holds when the machine's speed drifts.
A round before them, with nothing in the machine's caches, is not counted, nor are the pauses that the
system prescribes at start. The instructions of a poll cycle stand beside the last release's.
"""

import os
import pathlib
import shutil
import socket
import statistics
import subprocess
import sys
import time
from collections.abc import Callable, Iterator
from contextlib import contextmanager
from functools import partial
from typing import Any

sys.path.insert(0, str(pathlib.Path(__file__).parents[2]))

from bench import places
from bench.mcu import Line, Mcu, pseudo_terminal
from bench.phone import PLUG
from bench.video import PORTS, Tap, listen
from bench.watch import History
from bench.world import Loop, run

BUILD, ROUNDS = sys.argv[1], int(sys.argv[2])
FLOOR = f"{BUILD}/bin/floor"
FLOOR_STORE = f"{places.INSTALL}/floor.ini"
FLOOR_LINE = f"{places.BENCH}/serial"
CAMERA = pathlib.Path(places.BENCH, "camera")
LAST_RELEASE = pathlib.Path(__file__).with_name("pollcycle.txt")
SAMPLES = 1000
SETTLED = 3  # seconds after which everything that is started beside the program has come up
ANNOUNCEMENTS = 5 * 400  # ms: a pause after each line that greets the microcontroller
CYCLE, CYCLES = 14, 5  # queries, and how often they are asked
DRAINED = 0.2  # s, in which all has come that an ended process had sent
PATIENCE = 60  # s
PIPELINE = (
    "gst-launch-1.0 -q v4l2src device=/dev/video0 ! queue ! videoconvert ! video/x-raw,width=720,"
    "height=576,framerate=25/1 ! queue ! omxh264enc target-bitrate=4000000 control-rate=1 ! "
    f"rtph264pay ! udpsink host=127.0.0.1 port={PORTS['pal']} sync=false"
)
os.environ |= places.stand_ins(BUILD)
SIZES = (("resident memory", "MiB"), ("written memory", "MiB"), ("mapped shared objects", ""))
P50, P99 = SAMPLES // 2, SAMPLES * 99 // 100
loop = Loop()
# What is measured, by its unit; a pair a round: the program's figure and the floor's.
pairs: dict[tuple[str, str], list[tuple[float, float]]] = {}


def note(name: str, unit: str, ours: float, floor: float) -> None:
    pairs.setdefault((name, unit), []).append((ours, floor))


def wait(condition: Callable[[], bool], what: str, limit: float = PATIENCE) -> None:
    if not loop.until(condition, limit):
        sys.exit(f"no {what}")


def rest(seconds: float) -> None:
    loop.until(lambda: False, seconds)


@contextmanager
def microcontroller() -> Iterator[Any]:
    """At the end of the line; the queries that it has heard."""
    history = History()
    mcu = Mcu(loop, lambda: 1, history, partial(pseudo_terminal, loop, places.SERIAL), str)
    yield history.of("serial")
    mcu.command(["gone"])


@contextmanager
def started(*command: str, stdout: int = subprocess.DEVNULL) -> Iterator[Any]:
    """A process, killed at the end."""
    process = subprocess.Popen(command, stdout=stdout, stderr=subprocess.DEVNULL)
    try:
        yield process
    finally:
        process.kill()
        process.wait()


def milliseconds(since: float) -> float:
    return (time.perf_counter() - since) * 1e3


def memory(process: subprocess.Popen[bytes]) -> tuple[float, float, int]:
    """Resident memory and what of it was written to, in MiB, and mapped shared objects."""
    text = pathlib.Path(f"/proc/{process.pid}/smaps_rollup").read_text()
    resident, written = (
        int(text.split(f"\n{key}:")[1].split()[0]) / 1024 for key in ("Rss", "Private_Dirty")
    )
    maps = pathlib.Path(f"/proc/{process.pid}/maps").read_text().split("\n")
    return resident, written, len({m.split()[-1] for m in maps if ".so" in m})


def processor(process: subprocess.Popen[bytes], seconds: float) -> float:
    """Share of one core over a while, in percent."""

    def ticks() -> int:
        fields = pathlib.Path(f"/proc/{process.pid}/stat").read_text().rsplit(")")[1].split()
        return int(fields[11]) + int(fields[12])

    before = ticks()
    rest(seconds)
    return 100 * (ticks() - before) / os.sysconf("SC_CLK_TCK") / seconds


def in_turn(*acts: Callable[[], object]) -> list[list[float]]:
    """Sorted microseconds that each takes, over many samples; all meet the same moods of the machine."""
    taken: list[list[float]] = [[] for _ in acts]
    for _ in range(SAMPLES):
        for act, times in zip(acts, taken):
            begin = time.perf_counter()
            act()
            times.append(milliseconds(begin) * 1e3)
            rest(0.002)
    return [sorted(times) for times in taken]


def store(line: Line, file: str) -> Callable[[], None]:
    """From the last byte of a line to the renamed file."""
    values = 0

    def act() -> None:
        nonlocal values
        inode = os.stat(file).st_ino
        values += 1
        line.send(b"BAT:STATE %d\n" % (values % 200))
        end = time.perf_counter() + 1
        while os.stat(file).st_ino == inode and time.perf_counter() < end:
            pass

    return act


def trip(connection: socket.socket, request: bytes) -> Callable[[], None]:
    def act() -> None:
        connection.sendall(request)
        connection.recv(4096)

    return act


def without_picture(listener: socket.socket) -> None:
    """One round: starts, sizes, a line's way to the store, a request's way back."""
    heard = bytearray()
    line = pseudo_terminal(loop, places.SERIAL, heard.extend)
    floor_line = pseudo_terminal(loop, FLOOR_LINE, len)
    begin = time.perf_counter()
    with started(FLOOR, "bare", stdout=subprocess.PIPE) as bare:
        bare.stdout.read(1)
        bare_start, begin = milliseconds(begin), time.perf_counter()
        with started(places.PROGRAM) as unit:
            wait(lambda: b"BOOT:READY" in heard, "first byte")
            note("start to first serial byte", "ms", milliseconds(begin), bare_start)
            wait(lambda: b"COILER:VALUE?" in heard, "query")
            rest(SETTLED)
            for (name, kind), ours, floor in zip(SIZES, memory(unit), memory(bare)):
                note(f"{name}, idle", kind, ours, floor)
            bare.kill()
            times_on_the_way(line, floor_line, listener)
    line.close()
    floor_line.close()


def times_on_the_way(line: Line, floor_line: Line, listener: socket.socket) -> None:
    shutil.copy(places.STORE, FLOOR_STORE)
    with started(FLOOR, "store", FLOOR_LINE, FLOOR_STORE, stdout=subprocess.PIPE) as floor:
        floor.stdout.read(1)
        times = in_turn(store(line, places.STORE), store(floor_line, FLOOR_STORE))
        note("wire to store", "us", times[0][P50], times[1][P50])
    # A phone is there; the app's address is local, like the floor's peer.
    run(PLUG, "usb0", "192.168.42.10/24", "192.168.42.1")
    connection = listener.accept()[0]
    connection.recv(4096)
    with started(FLOOR, "echo"):
        echo = listener.accept()[0]
        requests = ((connection, b"LampValue?\r\n"), (connection, b"Port 1\r\n"), (echo, b"x\r\n"))
        answers, acknowledgements, echoes = in_turn(*(trip(*request) for request in requests))
    note("request to answer, p50", "us", answers[P50], echoes[P50])
    note("request to answer, p99", "us", answers[P99], echoes[P99])
    note("request to acknowledgement, p50", "us", acknowledgements[P50], echoes[P50])
    connection.close()
    echo.close()
    run("ip", "link", "del", "usb0")
    run("ip", "addr", "del", "192.168.42.1/32", "dev", "lo")


def with_picture(packets: list[bytes], last: bool) -> None:
    """One round with the PAL output on, beside gst-launch with the same pipeline."""
    figures = []
    for command, pause in (([places.PROGRAM], ANNOUNCEMENTS), (PIPELINE.split(), 0)):
        with microcontroller():
            rest(DRAINED)
            packets.clear()
            begin = time.perf_counter()
            with started(*command) as process:
                wait(lambda: bool(packets), "picture")
                first = milliseconds(begin) - pause
                rest(SETTLED)
                share = processor(process, 60) if last else 0
                figures.append((first, memory(process)[0], share))
    (first, resident, share), (floor_first, floor_resident, floor_share) = figures
    note("start to first RTP packet, beside gst-launch", "ms", first, floor_first)
    note("resident memory, PAL on, beside gst-launch", "MiB", resident, floor_resident)
    if last:
        note("processor share, PAL on", "%", share, floor_share)


def poll_cycle() -> float:
    """Instructions of the program's own code and what it calls, for a cycle of queries: sending
    them, taking up the answers, and all that follows from these."""
    counted = pathlib.Path("/tmp/callgrind.out")
    tool = ["valgrind", "--tool=callgrind", f"--callgrind-out-file={counted}"]
    for name in ("commsInternalProcessRequest()", "serialPortProcessData()"):
        tool.append(f"--toggle-collect=commsInternal::{name}")
    with microcontroller() as serial:
        with started(*tool, "--collect-atstart=no", places.PROGRAM) as unit:
            wait(
                lambda: bool(serial.content.count(b"?") >= CYCLE * CYCLES), "queries", 10 * PATIENCE
            )
            unit.terminate()
            unit.wait()
        rest(DRAINED)
    total = int(counted.read_text().split("\ntotals: ")[1].split()[0])
    return total * CYCLE / float(serial.content.count(b"?"))


def show() -> None:
    print(f"{'figure':<54}{'program':>11}{'+-':>8}{'floor':>11}{'+-':>8}{'ratio':>8}")
    for (name, unit), rounds in pairs.items():
        columns = ""
        for values in zip(*rounds):
            columns += f"{statistics.median(values):>11.1f}{(max(values) - min(values)) / 2:>8.1f}"
        ratio = statistics.median(ours / floor for ours, floor in rounds)
        print(f"{name:<54}{columns}{ratio:>8.2f}  {unit}")


def main() -> None:
    CAMERA.write_text("missing\n")
    cycle = poll_cycle()  # first: the longer the store, the more each of its changes takes
    socket.setdefaulttimeout(PATIENCE)
    listener = socket.create_server(("", 8082))
    packets: list[bytes] = []
    tap = Tap(PORTS["pal"])
    tap.listeners.append(packets.append)
    listen(loop, tap)
    for number in range(-1, ROUNDS):
        CAMERA.write_text("missing\n")
        without_picture(listener)
        CAMERA.write_text("ok\n")
        with_picture(packets, number == ROUNDS - 1)
        if number < 0:
            pairs.clear()
    CAMERA.write_text("missing\n")
    release = int(LAST_RELEASE.read_text().split()[-1])
    note("instructions per poll cycle, beside the last release", "", cycle, release)
    with microcontroller(), started(places.PROGRAM) as unit:
        rest(SETTLED)
        off = processor(unit, 60)
    show()
    print(f"{'processor share, polling, PAL off':<54}{off:>11.1f}{'':>35}  %")
    print(f"medians over {ROUNDS} rounds of {SAMPLES} samples, and half of how far they lie apart")


main()
