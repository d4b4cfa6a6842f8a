# SPDX-License-Identifier: LicenseRef-KT6120
"""The unit: its real program, unmodified, the programs that it calls, its hardware and its files."""

import math
import os
from collections.abc import Callable
from time import monotonic

from bench import Failure, State, number, places, span, to_bytes
from bench.machine import Machine
from bench.watch import History
from bench.world import Act, Clock, Process

LAST_WORDS = 0.5  # s, in which all output of an ended program arrives
RECORDER = f"{places.BENCH}/recorder"
FAST_TIME = f"{places.BENCH}/fasttime.so"  # LD_PRELOAD ends at a blank of the tree's path
MARK = "BENCH_UNIT"  # in the environment of the program and of all that it starts
# Its components live until the process ends, which is no leak; and the address sanitizer otherwise
# insists on being preloaded first.
SANITIZER = ":detect_leaks=0:fast_unwind_on_malloc=1:verify_asan_link_order=0"

# Programs whose calls are recorded (bench/recorder): at fixed places, where scripts of the tree run
# behind their stand-ins, and on the search path those that would reach for hardware or for the desk.
SCRIPTS = """gstreamer usb_monitor gpio_write gpio_read sonde_en_write shutdown stream_start
    stream_stop bb_read"""
FIXED = {f"KT6120_{name}.sh": places.INSTALL for name in SCRIPTS.split()}
FIXED |= {"vcgencmd": "/opt/vc/bin", "pngview": "/home/pi/raspidmx/pngview"}
SEARCHED = "killall logrotate gpioset gpioget gpioinfo i2cget systemctl logger".split()

# The converter's channels: number, a healthy unit's reading.
CHANNELS = {
    "Boost": ("0x12", "0x70"),
    "LED": ("0x15", "0x62"),
    "Inter": ("0x11", "0x49"),
    "Encoder": ("0x1", "0x2f"),
    "Camera": ("0x13", "0x70"),
    "Sonde": ("0x14", "0x70"),
    "LedOut": ("0x7", "0x0"),
    "LedInter": ("0x10", "0x40"),
    "LedTallwick": ("0x16", "0x0"),
}
FAULT_LINE = "KT6120_gpio_read.sh 26"
# What a reply holds, by its verb.
TRAITS = {"prints": "output", "takes": "delay", "holds": "hold", "fails": "status"}


class Unit:
    """The program as it is started, ended and asked about, wherever it runs."""

    start: Callable[[], None]
    stop: Callable[[], None]
    signal: Callable[[int], None]
    id: Callable[[], int]  # of its process; 0 while none runs

    def __init__(self, clock: Clock) -> None:
        self._clock = clock
        # How the last run ended: "3", "signal 9", "restarted" if something started it again; empty while it
        # runs or before the first start. `unasked`: no verb ended it, and no expect has asked about it.
        self.ending, self.unasked = "", False
        self._ended_at = math.inf

    def lost(self) -> bool:
        """Ended unasked, so long ago that all its output has arrived."""
        return self.unasked and monotonic() - self._ended_at > LAST_WORDS

    def do_unit(self, verb: str, signal: str = "") -> None:
        """start|stop|restart|signal N - the program, which does not run before its start
        check - fails if the program has ended and no verb or expect is the reason"""
        if verb == "check" and self.unasked:
            raise Failure(f"the program has ended: exit {self.ending}")
        if verb == "signal":
            self.signal(int(number(signal)))
        if verb in ("stop", "restart"):
            self.stop()
        if verb in ("start", "restart"):
            self.start()
        if verb not in ("start", "stop", "restart", "check", "signal"):
            raise Failure("unit start, stop, restart, check or signal N?")

    def do_wait(self, time: str) -> None:
        """SECONDS|A..B - waits, in the unit's time; a random time between A and B"""
        from random import uniform  # takes its time to load

        seconds = uniform(*span(time))
        end = self._clock.seconds() + seconds
        # Without a program no time is skipped.
        bound = seconds if self.id() else seconds / self._clock.speed
        self._clock.until(lambda: self._clock.seconds() >= end, bound, self.lost)

    def expect_exit(self, *status: str) -> State:
        """STATUS - the program has ended: 3, or "signal 9\" """

        def fits(ending: str) -> bool:
            is_so = ending == " ".join(status)
            self.unasked = self.unasked and not is_so
            return is_so

        return State(lambda: self.ending or "none: it runs", fits)


class Program(Unit):
    """As a child of the bench."""

    def __init__(self, clock: Clock, history: History, machine: Machine, build: str) -> None:
        super().__init__(clock)
        self._history, self._machine = history, machine
        self._process: Process | None = None
        self._stopping = False
        machine.link(f"{build}/bin/libfasttime.so", FAST_TIME)
        self.when_ended: Act = lambda: None

    def start(self) -> None:
        if self.id():
            raise Failure("the unit is running")
        self._machine.end_all(MARK)
        self.ending, self.unasked, self._stopping = "", False, False
        self._process = Process(
            self._clock.loop,
            [places.PROGRAM],
            stdout=lambda text: self._history.note("stdout", text),
            stderr=lambda text: self._history.note("stderr", text),
            ended=self._finished,
            env={
                **os.environ,
                "LANGUAGE": "cs",  # in which ifconfig prints other words
                "PATH": f"{places.PROGRAMS}:/usr/sbin:/usr/bin:/sbin:/bin",
                "ASAN_OPTIONS": os.environ.get("ASAN_OPTIONS", "") + SANITIZER,
                MARK: "1",
                **self._clock.environment(FAST_TIME),
            },
            cwd="/",
        )
        self._history.note("bench", "unit started\n")

    def stop(self) -> None:
        """Kills all that it has started too, as the service manager does with its control group."""
        self._stopping = True
        if self._process:
            self._process.stop()
        self._machine.end_all(MARK)

    def signal(self, number: int) -> None:
        if not self.id():
            raise Failure("the unit is not running")
        os.kill(self.id(), number)

    def id(self) -> int:
        return self._process.id if self._process else 0

    def _finished(self, status: int) -> None:
        self._ended_at, self.unasked = monotonic(), not self._stopping
        self.ending = f"signal {-status}" if status < 0 else str(status)
        self._history.note("bench", f"unit ended: exit {self.ending}\n")
        self.when_ended()


def place_of(name: str) -> str:
    return f"{FIXED.get(name, places.PROGRAMS)}/{name}"


class Surroundings:
    """The programs that the unit calls, what its hardware reads, and its files."""

    recorder = os.path.join(os.path.dirname(__file__), "recorder")
    real = ["killall"]  # of SEARCHED; behind the stand-ins of the others nothing runs
    healthy = {
        "vcgencmd": ("output", "temp=48.3'C\n"),
        "pngview": ("delay", "3600\n"),  # shows its image until it is killed
        FAULT_LINE: ("output", "0\n"),
    }

    def __init__(self, machine: Machine, history: History) -> None:
        """As with a healthy unit."""
        self._machine, self._history = machine, history
        machine.run("cp", self.recorder, RECORDER)
        for name in [*FIXED, *SEARCHED]:
            self._install(name, name in self.real)
        for key in self.healthy:
            self.set_reply(key, *self.healthy[key])
        for place, healthy in CHANNELS.values():
            self.set_channel(place, healthy)
        machine.write(places.COMMANDS, b"")

    def set_reply(self, key: str, trait: str, value: str) -> None:
        """One trait of a reply, the others as they are; never seen half written."""
        path = f"{places.BENCH}/replies/{key}/{trait}"
        self._machine.write(path, to_bytes(value), "replace")

    def clear_reply(self, key: str) -> None:
        self._machine.run("rm", "-rf", f"{places.BENCH}/replies/{key}")

    def set_channel(self, number: str, reading: str) -> None:
        self.set_reply(f"KT6120_bb_read.sh {number}", "output", reading + "\n")

    def _install(self, name: str, runs: bool = True) -> None:
        """`runs`: the program of the search path runs behind its stand-in, if there is one."""
        self._machine.link(RECORDER, place_of(name))
        if runs and (program := self._machine.which(name)):
            self._machine.link(program, f"{places.BENCH}/real/{name}")

    def do_call(self, *words: str) -> None:
        """NAME [ARGUMENT...] prints TEXT - what a recorded program answers, for these arguments or all
        NAME [ARGUMENT...] takes SECONDS|holds|fails [STATUS] - it answers late, not before "real", with STATUS
        NAME missing|real - removes the program; resets its answers to those at the start"""
        verbs = (*TRAITS, "missing", "real")
        at = next((at for at, word in enumerate(words) if at and word in verbs), None)
        if at is None:
            raise Failure(f"call NAME [ARGUMENT...] {', '.join(verbs)}?")
        name, verb, place = words[0], words[at], place_of(words[0])
        key, value = " ".join(words[:at]), " ".join(words[at + 1 :])
        if verb == "missing" and name in FIXED:
            self._machine.run("rm", "-f", place)
        elif verb == "missing":  # the desk's own remains on the search path
            self._install(name)
            self.clear_reply(key)
            self.set_reply(key, "status", "127\n")
        elif verb == "real":
            self._install(name)
            self.clear_reply(key)
            if key in self.healthy:
                self.set_reply(key, *self.healthy[key])
        else:
            # Programs of the search path are taken up when first asked for.
            if self._machine.read(place) is None:
                self._install(name)
            text = value if verb == "prints" else f"{number(value or '1'):g}\n"
            self.set_reply(key, TRAITS[verb], text)

    def do_adc(self, channel: str, *reading: str) -> None:
        """CHANNEL READING - what the converter reads: adc Inter 0x64"""
        if channel not in CHANNELS:
            raise Failure(f"the converter has no channel {channel}: {' '.join(CHANNELS)}")
        self.set_channel(CHANNELS[channel][0], " ".join(reading))

    def do_camera(self, state: str) -> None:
        """missing|back|lost - the camera"""
        if state not in ("missing", "back", "lost"):
            raise Failure("camera missing, back or lost?")
        self.set_camera(state)

    def set_camera(self, state: str) -> None:
        self._machine.write(f"{places.BENCH}/camera", state.encode())

    def do_web(self, *words: str) -> None:
        """KEYWORD [ARGUMENT] - the page writes into the commands file"""
        self._machine.write(places.COMMANDS, to_bytes(" ".join(words) + "\n"), "overwrite")

    def do_file(self, path: str, *words: str) -> None:
        """PATH TEXT - makes a file with that content"""
        self._machine.write(path, to_bytes(" ".join(words)))

    def do_run(self, program: str, *arguments: str) -> None:
        """COMMAND [ARGUMENT...] - runs a command on the unit: run mount -o bind,ro FOLDER FOLDER"""
        if said := self._machine.run(program, *arguments):
            self._history.note("bench", said + "\n")

    def expect_file(self, path: str, word: str, *words: str) -> State:
        """PATH TEXT - the file holds the text"""
        text = to_bytes(" ".join((word, *words)))
        return State(lambda: self._machine.read(path), lambda content: text in (content or b""))
