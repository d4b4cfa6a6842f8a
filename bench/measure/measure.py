#!/usr/bin/env python3
# SPDX-License-Identifier: LicenseRef-KT6120
"""Measures the real program beside its floor, in the sandbox, and prints one table.

Usage: measure.py BIN_FOLDER ROUNDS. Each row sets a figure of the program beside the same figure
of a bare process of the same libraries (bench/measure/floor.cpp) taken in turn in the same run:
medians over the rounds and the median of the ratios pair by pair, which holds when the machine's
speed drifts. The pauses that the system prescribes at start are not counted. The instructions of a
poll cycle stand beside those of the last release (bench/measure/pollcycle.txt).
"""

import os
import pathlib
import select
import shutil
import signal
import socket
import statistics
import subprocess
import sys
import time

BIN, ROUNDS = pathlib.Path(sys.argv[1]), int(sys.argv[2])
UNIT, FLOOR = "/home/pi/KT6120/bin/KT6120", str(BIN / "floor")
STORE = "/home/pi/KT6120/bin/KT6120.ini"
FLOOR_STORE = "/home/pi/KT6120/bin/floor.ini"
FLOOR_LINE = "/run/bench/serial"
PLUG = pathlib.Path(__file__).parents[1] / "plug"
LAST_RELEASE = pathlib.Path(__file__).with_name("pollcycle.txt")
SAMPLES = 1000
SETTLED = 3  # seconds after which everything that is started beside the program has come up
ANNOUNCEMENTS = 5 * 0.4  # seconds: a pause after each line that greets the microcontroller
CYCLE = 14  # queries
PAL_PORT = 8083
PIPELINE = (
    "v4l2src device=/dev/video0 ! queue ! videoconvert ! "
    "video/x-raw,width=720,height=576,framerate=25/1 ! queue ! omxh264enc "
    "target-bitrate=4000000 control-rate=1 ! rtph264pay ! "
    f"udpsink host=127.0.0.1 port={PAL_PORT} sync=false"
).split()
rows = []


class FarEnd:
    """One of the bench's far ends (bench/farend.cpp): "serial", "mcu" or "tap"."""

    def __init__(self, *arguments):
        self.process = subprocess.Popen(
            [BIN / "farend", *arguments], bufsize=0, stdin=subprocess.PIPE, stdout=subprocess.PIPE
        )
        self.heard = b""
        self.wait(b"ready\n")

    def listen(self, seconds):
        while select.select([self.process.stdout], [], [], seconds)[0]:
            self.heard += os.read(self.process.stdout.fileno(), 65536)
            seconds = 0

    def wait(self, text, limit=30):
        end = time.monotonic() + limit
        while text not in self.heard:
            if time.monotonic() > end:
                sys.exit(f"nothing like {text} from the far end")
            self.listen(0.1)
        self.heard = self.heard.split(text, 1)[1]

    def send(self, line):
        self.process.stdin.write(line)

    def stop(self):
        self.process.terminate()
        self.process.wait()


def start(*command, **options):
    environment = dict(
        os.environ,
        GST_PLUGIN_PATH=f"{BIN.parent}/gstreamer-1.0:{BIN.parent}/standins",
        GST_REGISTRY=str(BIN.parent / "gstreamer-registry"),
    )
    return subprocess.Popen(
        command,
        env=environment,
        stderr=subprocess.DEVNULL,
        **{"stdout": subprocess.DEVNULL, **options},
    )


def stop(process):
    process.send_signal(signal.SIGKILL)
    process.wait()


def memory(process):
    """Resident memory and what of it was written to, in MiB, and mapped shared objects."""
    text = pathlib.Path(f"/proc/{process.pid}/smaps_rollup").read_text()
    resident, written = (
        int(text.split(f"\n{key}:")[1].split()[0]) / 1024 for key in ("Rss", "Private_Dirty")
    )
    maps = pathlib.Path(f"/proc/{process.pid}/maps").read_text().split("\n")
    return resident, written, len({m.split()[-1] for m in maps if ".so" in m})


def processor(process, seconds):
    """Share of one core over a while, in percent."""

    def ticks():
        fields = pathlib.Path(f"/proc/{process.pid}/stat").read_text().rsplit(")")[1].split()
        return int(fields[11]) + int(fields[12])

    before = ticks()
    time.sleep(seconds)
    return 100 * (ticks() - before) / os.sysconf("SC_CLK_TCK") / seconds


def row(name, unit, ours, floor):
    ratio = statistics.median(a / b for a, b in zip(ours, floor))
    rows.append((name, unit, statistics.median(ours), statistics.median(floor), ratio))


def wire_to_store(*ends):
    """Microseconds from the last byte of a line to the renamed file, medians for each (line, file).
    Written in turn, so that all meet the same moods of the machine."""
    taken = [[] for _ in ends]
    for i in range(SAMPLES):
        for (line, file), times in zip(ends, taken):
            line.listen(0)
            inode = os.stat(file).st_ino
            begin = time.perf_counter()
            line.send(b"BAT:STATE %d\n" % (i % 200))
            while os.stat(file).st_ino == inode:
                if time.perf_counter() - begin > 1:
                    break
            times.append((time.perf_counter() - begin) * 1e6)
            time.sleep(0.002)
    return [statistics.median(times) for times in taken]


def round_trips(*requests):
    """Microseconds from request to answer for each (connection, request), sorted. They are asked in
    turn, so that all meet the same moods of the machine."""
    taken = [[] for _ in requests]
    for _ in range(SAMPLES):
        for (connection, request), times in zip(requests, taken):
            begin = time.perf_counter()
            connection.sendall(request)
            connection.recv(4096)
            times.append((time.perf_counter() - begin) * 1e6)
            time.sleep(0.001)
    return [sorted(times) for times in taken]


def first_packet(*command, **options):
    """A process, and the seconds from its start to the first packet at the PAL port."""
    tap = FarEnd("tap", str(PAL_PORT))
    begin = time.perf_counter()
    process = start(*command, **options)
    tap.wait(b".")
    seconds = time.perf_counter() - begin
    tap.stop()
    return process, seconds


def poll_cycle(cycles=5):
    """Instructions of the program's own code and what it calls, for a cycle of queries: sending
    them, taking up the answers, and all that follows from these."""
    counted = "/tmp/callgrind.out"
    mcu = FarEnd("mcu")
    unit = start(
        "valgrind",
        "--tool=callgrind",
        f"--callgrind-out-file={counted}",
        "--collect-atstart=no",
        "--toggle-collect=commsInternal::commsInternalProcessRequest()",
        "--toggle-collect=commsInternal::serialPortProcessData()",
        UNIT,
    )
    while mcu.heard.count(b"?") < CYCLE * cycles:
        mcu.listen(0.1)
    unit.terminate()
    unit.wait()
    mcu.stop()
    text = pathlib.Path(counted).read_text()
    return int(text.split("\ntotals: ")[1].split()[0]) / cycles


def accept(listener):
    connection, _ = listener.accept()
    connection.settimeout(20)
    connection.setsockopt(socket.IPPROTO_TCP, socket.TCP_NODELAY, 1)
    return connection


def sh(line):
    subprocess.run(["sh", "-euc", line], check=True)


def main():
    pathlib.Path("/run/bench").mkdir(exist_ok=True)
    pathlib.Path("/run/bench/camera").write_text("missing\n")
    listener = socket.create_server(("", 8082))
    listener.settimeout(20)
    started, bare_started, sizes, bare_sizes = ([] for _ in range(4))
    stored, bare_stored, p50, echo50, p99, echo99, acknowledged = ([] for _ in range(7))

    for _ in range(ROUNDS):
        line = FarEnd("serial")
        begin = time.perf_counter()
        bare = start(FLOOR, "bare", stdout=subprocess.PIPE)
        bare.stdout.read(1)
        bare_started.append((time.perf_counter() - begin) * 1e3)
        begin = time.perf_counter()
        unit = start(UNIT)
        line.wait(b"BOOT:READY")
        started.append((time.perf_counter() - begin) * 1e3)
        line.wait(b"COILER:VALUE?")
        time.sleep(SETTLED)
        sizes.append(memory(unit))
        bare_sizes.append(memory(bare))
        stop(bare)
        other = FarEnd("serial", FLOOR_LINE)
        shutil.copy(STORE, FLOOR_STORE)
        floor = start(FLOOR, "store", FLOOR_LINE, FLOOR_STORE, stdout=subprocess.PIPE)
        floor.stdout.read(1)
        ours, bare = wire_to_store((line, STORE), (other, FLOOR_STORE))
        stored.append(ours)
        bare_stored.append(bare)
        stop(floor)
        other.stop()

        # A phone is there; the app's address is local, like the floor's peer.
        sh(f"{PLUG} usb0 192.168.42.10/24 192.168.42.1")
        connection = accept(listener)
        connection.recv(4096)
        floor = start(FLOOR, "echo")
        echo = accept(listener)
        answers, acknowledgements, echoes = round_trips(
            (connection, b"LampValue?\r\n"), (connection, b"Port 1\r\n"), (echo, b"LampValue?\r\n")
        )
        for part, ours, bare in ((0.5, p50, echo50), (0.99, p99, echo99)):
            ours.append(answers[int(SAMPLES * part)])
            bare.append(echoes[int(SAMPLES * part)])
        acknowledged.append(acknowledgements[SAMPLES // 2])
        stop(unit)
        stop(floor)
        line.stop()
        connection.close()
        echo.close()
        sh("ip link del usb0; ip addr del 192.168.42.1/32 dev lo")

    row("start to first serial byte", "ms", started, bare_started)
    for name, unit_name, ours, floor in zip(
        ("resident memory, idle", "written memory, idle", "mapped shared objects, idle"),
        ("MiB", "MiB", ""),
        zip(*sizes),
        zip(*bare_sizes),
    ):
        row(name, unit_name, ours, floor)
    row("wire to store", "us", stored, bare_stored)
    row("request to answer, p50", "us", p50, echo50)
    row("request to answer, p99", "us", p99, echo99)
    row("request to acknowledgement, p50", "us", acknowledged, echo50)
    row(
        "instructions per poll cycle, beside the last release",
        "",
        [poll_cycle()],
        [int(LAST_RELEASE.read_text().split()[-1])],
    )

    mcu = FarEnd("mcu")
    unit = start(UNIT)
    time.sleep(SETTLED)
    off = processor(unit, 60)
    stop(unit)
    mcu.stop()
    with_picture()

    print(f"{'figure':<54}{'program':>10}{'floor':>10}{'ratio':>8}")
    for name, unit_name, ours, floor, ratio in rows:
        print(f"{name:<54}{ours:>10.1f}{floor:>10.1f}{ratio:>8.2f}  {unit_name}")
    print(f"{'processor share, polling, PAL off':<54}{off:>10.1f}{'':>10}{'':>8}  %")
    print(f"medians over {ROUNDS} rounds of {SAMPLES} samples; processor share over a minute")


def with_picture():
    """The rows with the PAL output on, beside gst-launch with the same pipeline."""
    pathlib.Path("/run/bench/camera").write_text("ok\n")
    packet, launch_packet, resident, launch_resident = ([] for _ in range(4))
    for i in range(ROUNDS):
        mcu = FarEnd("mcu")
        unit, seconds = first_packet(UNIT)
        packet.append((seconds - ANNOUNCEMENTS) * 1e3)
        time.sleep(SETTLED)
        resident.append(memory(unit)[0])
        if i == ROUNDS - 1:
            on = processor(unit, 60)
        stop(unit)
        mcu.stop()
        launch, seconds = first_packet("gst-launch-1.0", "-q", *PIPELINE)
        launch_packet.append(seconds * 1e3)
        time.sleep(SETTLED)
        launch_resident.append(memory(launch)[0])
        if i == ROUNDS - 1:
            row("processor share, PAL on", "%", [on], [processor(launch, 60)])
        stop(launch)
    row("start to first RTP packet, beside gst-launch", "ms", packet, launch_packet)
    row("resident memory, PAL on, beside gst-launch", "MiB", resident, launch_resident)


main()
