# SPDX-License-Identifier: LicenseRef-KT6120
"""Measures the real program beside a floor, in the sandbox, and prints one table.

Usage: python3 -m bench.measure.measure BUILD ROUNDS. The floor is a bare process of the same libraries
(floor.cpp), measured in turn with the program. A row shows the median of each over the rounds, half of their
range, and the median of the ratios round by round, which holds when the machine's speed drifts. One round
before these fills the caches and does not count. The pauses that the unit prescribes at start are subtracted.
"""

import os
import shutil
import socket
import statistics
import subprocess
import sys
import time
from collections.abc import Callable, Iterator
from contextlib import contextmanager
from functools import partial
from pathlib import Path
from typing import Any

from bench import places
from bench.machine import Machine
from bench.mcu import Line, Mcu, pseudo_terminal
from bench.phone import PLUG
from bench.video import PORTS, listen
from bench.watch import History
from bench.world import Clock, Loop, run

BUILD, ROUNDS = sys.argv[1], int(sys.argv[2])
FLOOR_STORE, FLOOR_LINE = f"{places.INSTALL}/floor.ini", f"{places.BENCH}/serial"
LAST_RELEASE = Path(__file__).with_name("pollcycle.txt")
SAMPLES = 1000
P50, P99 = SAMPLES // 2, SAMPLES * 99 // 100
SETTLED = 3  # s, in which all that the program starts has come up
DRAINED = 0.2  # s, in which all arrives that an ended process had sent
SHARE_TIME = 60  # s
PATIENCE = 60  # s
ANNOUNCEMENTS = 5 * 400  # ms: a pause after each announcement to the microcontroller
CYCLE, CYCLES = 14, 5  # queries
CALLGRIND = (
    "valgrind --tool=callgrind --callgrind-out-file=/tmp/callgrind.out --collect-atstart=no "
    "--toggle-collect=commsInternal::commsInternalProcessRequest() "
    "--toggle-collect=commsInternal::serialPortProcessData()"
).split()
PIPELINE = (
    "gst-launch-1.0 -q v4l2src device=/dev/video0 ! queue ! videoconvert ! video/x-raw,width=720,"
    "height=576,framerate=25/1 ! queue ! omxh264enc target-bitrate=4000000 control-rate=1 ! "
    f"rtph264pay ! udpsink host=127.0.0.1 port={PORTS['pal']} sync=false"
).split()

os.environ |= places.stand_ins(BUILD)
loop = Loop()
gauges = Machine(loop).gauges
pairs: dict[tuple[str, str], list[tuple[float, float]]] = {}  # (figure, unit): (program, floor)


def note(name: str, unit: str, program: float, floor: float) -> None:
    pairs.setdefault((name, unit), []).append((program, floor))


def wait(condition: Callable[[], bool], what: str) -> None:
    if not loop.until(condition, PATIENCE):
        sys.exit(f"no {what}")


def milliseconds(since: float) -> float:
    return (time.perf_counter() - since) * 1e3


def set_camera(state: str) -> None:
    Path(places.BENCH, "camera").write_text(state + "\n")


@contextmanager
def microcontroller() -> Iterator[Any]:
    """It answers at the serial line; what it has heard."""
    history = History()
    mcu = Mcu(Clock(loop), history, partial(pseudo_terminal, loop, places.SERIAL), str)
    yield history.of("serial")
    mcu.do_mcu("gone")


@contextmanager
def started(*command: str, stdout: int = subprocess.DEVNULL) -> Iterator[Any]:
    with subprocess.Popen(command, stdout=stdout, stderr=subprocess.DEVNULL) as process:
        try:
            yield process
        finally:
            process.kill()


@contextmanager
def floor_started(*words: str) -> Iterator[Any]:
    with started(f"{BUILD}/bin/floor", *words, stdout=subprocess.PIPE) as process:
        process.stdout.read(1)  # it is ready
        yield process


def memory(process: Any) -> tuple[float, float, int]:
    """Resident and written MiB, mapped shared objects."""
    lines = Path(f"/proc/{process.pid}/smaps_rollup").read_text().splitlines()[1:]
    sizes = {line.split(":")[0]: int(line.split()[1]) / 1024 for line in lines}
    maps = Path(f"/proc/{process.pid}/maps").read_text().splitlines()
    return sizes["Rss"], sizes["Private_Dirty"], len({m.split()[-1] for m in maps if ".so" in m})


def processor_share(*command: str) -> float:
    """A command's processor time in percent of one core."""
    with microcontroller(), started(*command) as process:
        loop.rest(SETTLED)
        before = gauges(process.pid)["cpu"]
        loop.rest(SHARE_TIME)
        return 100 * (gauges(process.pid)["cpu"] - before) / SHARE_TIME


def in_turn(*acts: Callable[[], object]) -> list[list[float]]:
    """Sorted microseconds that each act takes; in turn, so that the machine's load is the same for all."""
    taken: list[list[float]] = [[] for _ in acts]
    for _ in range(SAMPLES):
        for act, times in zip(acts, taken):
            begin = time.perf_counter()
            act()
            times.append(milliseconds(begin) * 1e3)
            loop.rest(0.002)
    return [sorted(times) for times in taken]


def to_store(line: Line, file: str) -> Callable[[], None]:
    """From the last byte of a line to the renamed file."""
    state = 0

    def act() -> None:
        nonlocal state
        inode, end, state = os.stat(file).st_ino, time.perf_counter() + 1, (state + 1) % 200
        line.send(b"BAT:STATE %d\n" % state)
        while os.stat(file).st_ino == inode and time.perf_counter() < end:
            pass

    return act


def trip(connection: socket.socket, request: bytes) -> Callable[[], None]:
    def act() -> None:
        connection.sendall(request)
        connection.recv(4096)

    return act


def measure_without_picture(listener: socket.socket) -> None:
    """Start, sizes, a line's way to the store, a request's way back."""
    heard = bytearray()
    line = pseudo_terminal(loop, places.SERIAL, heard.extend)
    floor_line = pseudo_terminal(loop, FLOOR_LINE, len)
    begin = time.perf_counter()
    with floor_started("bare") as floor:
        floor_start, begin = milliseconds(begin), time.perf_counter()
        with started(places.PROGRAM) as unit:
            wait(lambda: b"BOOT:READY" in heard, "first byte")
            note("start to first serial byte", "ms", milliseconds(begin), floor_start)
            wait(lambda: b"COILER:VALUE?" in heard, "query")
            loop.rest(SETTLED)
            names = ("resident memory", "written memory", "mapped shared objects")
            for name, size, *sizes in zip(names, ("MiB", "MiB", ""), memory(unit), memory(floor)):
                note(f"{name}, idle", size, *sizes)
            shutil.copy(places.STORE, FLOOR_STORE)
            with floor_started("store", FLOOR_LINE, FLOOR_STORE):
                acts = to_store(line, places.STORE), to_store(floor_line, FLOOR_STORE)
                program_times, floor_times = in_turn(*acts)
            note("wire to store", "us", program_times[P50], floor_times[P50])
            measure_trips(listener)
    line.close()
    floor_line.close()


def measure_trips(listener: socket.socket) -> None:
    """A phone comes. The app's address is local, like the floor's peer."""
    run(PLUG, "usb0", "192.168.42.10/24", "192.168.42.1")
    with listener.accept()[0] as unit, floor_started("echo"), listener.accept()[0] as echo:
        unit.recv(4096)
        answers, acknowledgements, echoes = in_turn(
            trip(unit, b"LampValue?\r\n"), trip(unit, b"Port 1\r\n"), trip(echo, b"x\r\n")
        )
    note("request to answer, p50", "us", answers[P50], echoes[P50])
    note("request to answer, p99", "us", answers[P99], echoes[P99])
    note("request to acknowledgement, p50", "us", acknowledgements[P50], echoes[P50])
    run("ip", "link", "del", "usb0")
    run("ip", "addr", "del", "192.168.42.1/32", "dev", "lo")


def measure_with_picture(packets: list[bytes]) -> None:
    """The PAL output beside gst-launch with the same pipeline."""
    figures = []
    for command, pause in (([places.PROGRAM], ANNOUNCEMENTS), (PIPELINE, 0)):
        with microcontroller():
            loop.rest(DRAINED)
            packets.clear()
            begin = time.perf_counter()
            with started(*command) as process:
                wait(lambda: bool(packets), "picture")
                first = milliseconds(begin) - pause
                loop.rest(SETTLED)
                figures.append((first, memory(process)[0]))
    firsts, memories = zip(*figures)
    note("start to first RTP packet, beside gst-launch", "ms", *firsts)
    note("resident memory, PAL on, beside gst-launch", "MiB", *memories)


def instructions_per_cycle() -> float:
    """Of the program's code and what it calls, to send a cycle of queries and handle the answers."""
    with microcontroller() as serial:

        def queries() -> int:
            return int(serial.content.count(b"?"))

        with started(*CALLGRIND, places.PROGRAM) as unit:
            loop.until(lambda: queries() >= CYCLE * CYCLES, 10 * PATIENCE)
            unit.terminate()
            unit.wait()
        loop.rest(DRAINED)
        total = Path("/tmp/callgrind.out").read_text().split("\ntotals: ")[1].split()[0]
        return int(total) * CYCLE / queries()


def show() -> None:
    print(f"{'figure':<54}{'program':>11}{'+-':>8}{'floor':>11}{'+-':>8}{'ratio':>8}")
    for (name, unit), rounds in pairs.items():
        columns = ""
        for values in zip(*rounds):
            columns += f"{statistics.median(values):>11.1f}{(max(values) - min(values)) / 2:>8.1f}"
        ratio = statistics.median(program / floor for program, floor in rounds)
        print(f"{name:<54}{columns}{ratio:>8.2f}  {unit}")


set_camera("missing")
cycle = instructions_per_cycle()  # first: each write costs more in a longer store
socket.setdefaulttimeout(PATIENCE)
phone = socket.create_server(("", 8082))
packets: list[bytes] = []
listen(loop, PORTS["pal"]).listeners.append(packets.append)
for number in range(ROUNDS + 1):
    set_camera("missing")
    measure_without_picture(phone)
    set_camera("ok")
    measure_with_picture(packets)
    if number == 0:
        pairs.clear()
note("processor share, PAL on", "%", processor_share(places.PROGRAM), processor_share(*PIPELINE))
last_cycle = int(LAST_RELEASE.read_text().split()[-1])
note("instructions per poll cycle, beside the last release", "", cycle, last_cycle)
show()
print(f"medians over {ROUNDS} rounds of {SAMPLES} samples, and half of their range")
