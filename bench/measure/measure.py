#!/usr/bin/env python3
"""Measures the real program beside its floor, in the sandbox, and prints one table.

Usage: measure.py BIN_FOLDER ROUNDS. Each row sets a figure of the program beside the same figure
of a bare process of the same libraries (bench/measure/floor.cpp) taken in turn in the same run:
medians over the rounds and the median of the ratios pair by pair, which holds when the machine's
speed drifts. The waits that the system prescribes at start are not counted.
"""

import os
import pathlib
import select
import signal
import socket
import statistics
import subprocess
import sys
import time
import tty

BIN, ROUNDS = pathlib.Path(sys.argv[1]), int(sys.argv[2])
UNIT, FLOOR = "/home/pi/KT6120/bin/KT6120", str(BIN / "floor")
STORE = "/home/pi/KT6120/bin/KT6120.ini"
SAMPLES = 300
rows = []


class Line:
    """The far end of the serial line."""

    def __init__(self):
        self.master, slave = os.openpty()
        tty.setraw(self.master)
        pathlib.Path("/dev/serial0").unlink(missing_ok=True)
        os.symlink(os.ttyname(slave), "/dev/serial0")
        os.close(slave)

    def wait(self, text, limit=10):
        heard, end = b"", time.monotonic() + limit
        while text not in heard:
            if time.monotonic() > end:
                sys.exit(f"nothing like {text} on the serial line")
            if select.select([self.master], [], [], 0.1)[0]:
                try:
                    heard += os.read(self.master, 4096)
                except OSError:  # nobody has opened the other end yet
                    time.sleep(0.0005)

    def drain(self):
        while select.select([self.master], [], [], 0)[0]:
            os.read(self.master, 4096)


def start(*command, **options):
    environment = dict(os.environ, GST_PLUGIN_PATH=str(BIN.parent / "standins"),
                       GST_REGISTRY="/tmp/registry")
    return subprocess.Popen(command, env=environment, stderr=subprocess.DEVNULL,
                            **{"stdout": subprocess.DEVNULL, **options})


def stop(process):
    process.send_signal(signal.SIGKILL)
    process.wait()


def memory(process):
    """Resident bytes that are the process's share, and mapped shared objects."""
    text = pathlib.Path(f"/proc/{process.pid}/smaps_rollup").read_text()
    resident = int(text.split("\nRss:")[1].split()[0]) / 1024
    maps = pathlib.Path(f"/proc/{process.pid}/maps").read_text().split("\n")
    return resident, len({m.split()[-1] for m in maps if ".so" in m})


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


def wire_to_store(line, offset):
    """Microseconds from the last byte of a line to the renamed store, one sample a line."""
    taken = []
    for i in range(SAMPLES):
        line.drain()
        inode = os.stat(STORE).st_ino
        begin = time.perf_counter()
        os.write(line.master, b"BAT:STATE %d\n" % ((i + offset) % 200))
        while os.stat(STORE).st_ino == inode:
            if time.perf_counter() - begin > 1:
                break
        taken.append((time.perf_counter() - begin) * 1e6)
        time.sleep(0.002)
    return statistics.median(taken)


def round_trips(connection, request):
    """Microseconds from request to answer: median and 99th percentile."""
    taken = []
    for _ in range(SAMPLES):
        begin = time.perf_counter()
        connection.sendall(request)
        connection.recv(4096)
        taken.append((time.perf_counter() - begin) * 1e6)
        time.sleep(0.001)
    taken.sort()
    return taken[len(taken) // 2], taken[len(taken) * 99 // 100]


def accept(listener):
    connection, _ = listener.accept()
    connection.settimeout(20)
    connection.setsockopt(socket.IPPROTO_TCP, socket.TCP_NODELAY, 1)
    return connection


def sh(line):
    subprocess.run(["sh", "-euc", line], check=True)


def main():
    sh("ip link add usb0 type veth peer name phone; ip link set usb0 up; ip link set phone up")
    sh("ip addr add 192.168.42.1/32 dev lo")
    pathlib.Path("/run/bench").mkdir(exist_ok=True)
    pathlib.Path("/run/bench/camera").write_text("missing\n")
    listener = socket.create_server(("192.168.42.1", 8082))
    listener.settimeout(20)
    started, bare_started, resident, bare_resident, objects, bare_objects = ([] for _ in range(6))
    stored, bare_stored, p50, echo50, p99, echo99, acknowledged = ([] for _ in range(7))

    for _ in range(ROUNDS):
        line = Line()
        begin = time.perf_counter()
        bare = start(FLOOR, "bare", stdout=subprocess.PIPE)
        bare.stdout.read(1)
        bare_started.append((time.perf_counter() - begin) * 1e3)
        begin = time.perf_counter()
        unit = start(UNIT)
        line.wait(b"BOOT:READY")
        started.append((time.perf_counter() - begin) * 1e3)
        line.wait(b"COILER:VALUE?")
        for process, sizes, counts in ((unit, resident, objects), (bare, bare_resident, bare_objects)):
            size, count = memory(process)
            sizes.append(size)
            counts.append(count)
        stop(bare)
        stored.append(wire_to_store(line, 0))

        # The phone's network is there; the app's address is local, like the floor's peer.
        sh("ip addr add 192.168.42.10/24 brd + dev usb0; ip addr del 192.168.42.1/32 dev lo;"
           "ip route add default via 192.168.42.1; ip addr add 192.168.42.1/32 dev lo")
        connection = accept(listener)
        connection.recv(4096)
        median, late = round_trips(connection, b"LampValue?\r\n")
        p50.append(median)
        p99.append(late)
        acknowledged.append(round_trips(connection, b"Port 1\r\n")[0])
        stop(unit)
        connection.close()
        sh("ip addr del 192.168.42.10/24 dev usb0")

        line = Line()  # the old one stays exclusive to the program that opened it
        floor = start(FLOOR, "store", stdout=subprocess.PIPE)
        floor.stdout.read(1)
        bare_stored.append(wire_to_store(line, 1))
        stop(floor)
        floor = start(FLOOR, "echo")
        connection = accept(listener)
        median, late = round_trips(connection, b"LampValue?\r\n")
        echo50.append(median)
        echo99.append(late)
        stop(floor)
        connection.close()

    row("start to first serial byte", "ms", started, bare_started)
    row("resident memory, idle", "MiB", resident, bare_resident)
    row("mapped shared objects, idle", "", objects, bare_objects)
    row("wire to store", "us", stored, bare_stored)
    row("request to answer, p50", "us", p50, echo50)
    row("request to answer, p99", "us", p99, echo99)
    row("request to acknowledgement, p50", "us", acknowledged, echo50)

    line = Line()
    unit = start(UNIT)
    line.wait(b"COILER:VALUE?")
    off = processor(unit, 20)
    stop(unit)
    pathlib.Path("/run/bench/camera").write_text("ok\n")
    line = Line()
    unit = start(UNIT)
    line.wait(b"COILER:VALUE?")
    on, size = processor(unit, 20), memory(unit)[0]
    stop(unit)
    pipeline = ("v4l2src device=/dev/video0 ! queue ! videoconvert ! "
                "video/x-raw,width=720,height=576,framerate=25/1 ! queue ! omxh264enc "
                "target-bitrate=4000000 control-rate=1 ! rtph264pay ! "
                "udpsink host=127.0.0.1 port=8083 sync=false").split()
    launch = start("gst-launch-1.0", "-q", *pipeline)
    time.sleep(2)
    row("resident memory, PAL on, beside gst-launch", "MiB", [size], [memory(launch)[0]])
    row("processor share, PAL on, beside gst-launch", "%", [on], [processor(launch, 20)])
    stop(launch)

    print(f"{'figure':<44}{'program':>10}{'floor':>10}{'ratio':>8}")
    for name, unit_name, ours, floor, ratio in rows:
        print(f"{name:<44}{ours:>10.1f}{floor:>10.1f}{ratio:>8.2f}  {unit_name}")
    print(f"{'processor share, PAL off':<44}{off:>10.1f}{'':>10}{'':>8}  %")
    print(f"medians over {ROUNDS} rounds of {SAMPLES} samples")


main()
