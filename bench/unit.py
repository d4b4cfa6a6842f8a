# SPDX-License-Identifier: LicenseRef-KT6120
"""The unit: its real program, unmodified, the programs that it calls, its hardware and its files."""

import os
from collections.abc import Callable
from time import monotonic

from bench import Failure, State, number, places, table, to_bytes, to_text
from bench.machine import Machine
from bench.watch import History, parse
from bench.world import Act, Clock, Loop, Process

LAST_WORDS = 0.5  # s, in which all has been heard that an ended program had to tell
MARK = "BENCH_UNIT"  # in the environment of the program and of all that it starts
TEXT_SHOWN = 2000  # bytes

# Programs whose calls are recorded: bench/recorder stands in for what a desk does not have. At fixed
# places, where real scripts of the tree run behind their stand-ins; and of the search path, such as
# would reach for hardware or for the desk itself.
SCRIPTS = (
    "gstreamer usb_monitor gpio_write gpio_read sonde_en_write shutdown stream_start stream_stop"
)
FIXED = {f"KT6120_{name}.sh": places.INSTALL for name in [*SCRIPTS.split(), "bb_read"]}
FIXED |= {"vcgencmd": "/opt/vc/bin", "pngview": "/home/pi/raspidmx/pngview"}
SEARCHED = "killall logrotate gpioset gpioget gpioinfo i2cget systemctl logger".split()

# The converter's channels by what they measure: number, a healthy unit's reading.
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
# What is told of a part, and what the stand-in element reads of it.
CAMERA = {"missing": "missing", "back": "ok", "lost": "lost"}
ENCODER = {"fails": "fails", "works": "ok"}
FAULT = {"on": "1", "off": "0"}


class Unit:
    """The program as it is started, ended and asked about, wherever it runs."""

    def __init__(self, clock: Clock) -> None:
        self._clock = clock
        # How the last run ended: "3", "signal 9", "restarted" where something started it again; empty
        # while it runs or before the first start. `unasked`: by itself, and nobody has asked about it.
        self.ending, self.unasked = "", False
        self.when_ended: list[Act] = []
        self.verbs = table(
            """
            unit start|stop|restart|signal N  the program, which does not run before its start
            unit check    fails where it ended by itself
            wait SECONDS  lets the unit's time pass
            """,
            unit=self._unit,
            wait=self._wait,
        )
        self.expects = table(
            'exit STATUS  the program has ended: 3, or "signal 9"', exit=self._exit
        )

    def start(self) -> None:
        raise NotImplementedError

    def stop(self) -> None:
        raise NotImplementedError

    def signal(self, number: int) -> None:
        raise NotImplementedError

    def id(self) -> int:
        """Of its process; 0 while none runs."""
        raise NotImplementedError

    def lost(self) -> bool:
        """Ended by itself, unasked, and so long ago that all it had to tell has been heard."""
        return False

    def has_ended(self, how: str) -> None:
        self.ending = how
        for act in self.when_ended:
            act()

    def _unit(self, words: list[str]) -> None:
        verb = words[0]
        if verb not in ("start", "stop", "restart", "check", "signal"):
            raise Failure("unit start, stop, restart, check or signal N?")
        if verb in ("stop", "restart"):
            self.stop()
        if verb in ("start", "restart"):
            self.start()
        if verb == "signal":
            self.signal(int(number(words[1] if words[1:] else "")))
        if verb == "check" and self.unasked:
            raise Failure(f"the program ended by itself: exit {self.ending}")

    def _wait(self, words: list[str]) -> None:
        seconds = number(words[0])
        end = self._clock.seconds() + seconds
        bound = seconds if self.id() else seconds / self._clock.speed  # none that rests skips time
        self._clock.until(lambda: self._clock.seconds() >= end or self.lost(), bound)

    def _exit(self, words: list[str]) -> State:
        def met() -> bool:
            is_so = self.ending == " ".join(words)
            self.unasked = self.unasked and not is_so
            return is_so

        return State(met, lambda: f"it was {self.ending}" if self.ending else "the unit runs")


class Program(Unit):
    """As a child of the bench."""

    def __init__(
        self, loop: Loop, clock: Clock, history: History, machine: Machine, build: str
    ) -> None:
        super().__init__(clock)
        self._loop, self._history, self._machine, self._build = loop, history, machine, build
        self._process: Process | None = None
        self._stopping, self._ended_at = False, 0.0

    def start(self) -> None:
        if self.id():
            raise Failure("the unit is running")
        self._machine.end_all(MARK)
        self.ending, self.unasked, self._stopping = "", False, False
        self._process = Process(
            self._loop,
            [places.PROGRAM],
            stdout=lambda text: self._history.note("stdout", text),
            stderr=lambda text: self._history.note("stderr", text),
            ended=self._finished,
            env=self._environment(),
            cwd="/",
        )
        self._history.note("bench", "unit started\n")

    def stop(self) -> None:
        """Ends all that it has started too, as the service manager does with its control group."""
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

    def lost(self) -> bool:
        return self.unasked and monotonic() - self._ended_at > LAST_WORDS

    def _environment(self) -> dict[str, str]:
        # Its components live until the process ends, which is no leak; and the address sanitizer
        # otherwise insists on being preloaded first.
        sanitizer = ":detect_leaks=0:fast_unwind_on_malloc=1:verify_asan_link_order=0"
        return {
            **os.environ,
            "PATH": f"{places.PROGRAMS}:/usr/sbin:/usr/bin:/sbin:/bin",
            "ASAN_OPTIONS": os.environ.get("ASAN_OPTIONS", "") + sanitizer,
            MARK: "1",
            **self._clock.environment(f"{self._build}/bin/libfasttime.so"),
        }

    def _finished(self, status: int) -> None:
        self._ended_at, self.unasked = monotonic(), not self._stopping
        how = f"signal {-status}" if status < 0 else str(status)
        self._history.note("bench", f"unit ended: exit {how}\n")
        self.has_ended(how)


def place_of(name: str) -> str:
    return f"{FIXED.get(name, places.PROGRAMS)}/{name}"


class Recorded:
    """The programs whose calls are recorded, and what they answer."""

    def __init__(self, machine: Machine, recorder: str) -> None:
        self._machine, self._recorder = machine, recorder
        self.verbs = table(
            """
            call NAME [ARGUMENT...] prints TEXT  what a recorded program answers, for these arguments or all
            call NAME [ARGUMENT...] takes SECONDS|holds|fails [STATUS]  how; it holds until it is real again
            call NAME missing|idle|real   not there; quick and without record; as at the start
            """,
            call=self._call,
        )

    def arrange(self, real: list[str]) -> None:
        """Puts the stand-ins in place; the programs of the search path that are listed run behind."""
        self._machine.mkdir(f"{places.BENCH}/real")
        for name in [*FIXED, *SEARCHED]:
            self._install(name)
            if self._machine.exists(places.TREE + place_of(name)):
                self._set_real(name, places.TREE + place_of(name))
        for name in real:
            self._set_real(name, self._machine.which(name))
        self.set_reply("vcgencmd", "output", "temp=48.3'C\n")
        self.set_reply("pngview", "delay", "3600\n")  # shows its image until it is killed

    def set_reply(self, key: str, trait: str, value: str = "") -> None:
        """One trait of a reply, the others as they are; never seen half written."""
        place = f"{places.BENCH}/replies/{key}"
        self._machine.mkdir(place)
        self._machine.write(f"{place}/{trait}", to_bytes(value), "replace")

    def clear_reply(self, key: str) -> None:
        self._machine.remove(f"{places.BENCH}/replies/{key}")

    def _install(self, name: str) -> None:
        self._machine.install(self._recorder, place_of(name), f"{places.BENCH}/real/{name}")

    def _set_real(self, name: str, program: str | None) -> None:
        if program:
            self._machine.link(program, f"{places.BENCH}/real/{name}")

    def _call(self, words: list[str]) -> None:
        name = words[0]
        acts: dict[str, Callable[[str, str], object]] = {
            "prints": lambda key, value: self.set_reply(key, "output", value),
            "takes": lambda key, value: self.set_reply(key, "delay", f"{number(value):g}\n"),
            "holds": lambda key, value: self.set_reply(key, "hold"),
            "fails": lambda key, value: self.set_reply(key, "status", f"{value or 1}\n"),
            "real": lambda key, value: self.clear_reply(key),
            "missing": lambda key, value: self._machine.remove(place_of(name)),
            "idle": lambda key, value: self._machine.link("/bin/true", place_of(name)),
        }
        at = next((at for at, word in enumerate(words) if at and word in acts), None)
        if at is None:
            raise Failure(f"call NAME [ARGUMENT...] {', '.join(acts)}?")
        if words[at] == "real":
            self._machine.remove(place_of(name))  # it may be something else by now
        # Programs of the search path are taken up when first asked for.
        if words[at] not in ("missing", "idle") and not self._machine.exists(place_of(name)):
            self._install(name)
            if name not in FIXED:
                self._set_real(name, self._machine.which(name))
        acts[words[at]](" ".join(words[:at]), " ".join(words[at + 1 :]))


def choice(words: list[str], choices: dict[str, str]) -> str:
    if words[0] not in choices:
        raise Failure(" or ".join(choices) + "?")
    return choices[words[0]]


class Hardware:
    """What the unit's hardware reads."""

    def __init__(self, machine: Machine, recorded: Recorded) -> None:
        self._machine, self._recorded = machine, recorded
        self.verbs = table(
            f"""
            adc CHANNEL READING        {' '.join(CHANNELS)}: adc Inter 0x64
            adc healthy                all channels as at the start
            usbfault on|off            the USB fault line
            camera missing|back|lost   the camera
            encoder fails|works        the encoder
            """,
            adc=self._adc,
            usbfault=lambda words: self.set_fault(choice(words, FAULT)),
            camera=lambda words: self.set_camera(choice(words, CAMERA)),
            encoder=lambda words: self._tell("encoder", choice(words, ENCODER)),
        )

    def arrange(self) -> None:
        self._adc(["healthy"])
        self.set_fault("0")
        self.set_camera("ok")
        self._tell("encoder", "ok")

    def set_channel(self, number: str, reading: str) -> None:
        self._recorded.set_reply(f"KT6120_bb_read.sh {number}", "output", reading + "\n")

    def set_fault(self, level: str) -> None:
        self._recorded.set_reply(FAULT_LINE, "output", level + "\n")

    def set_camera(self, state: str) -> None:
        self._tell("camera", state)

    def _tell(self, part: str, state: str) -> None:
        self._machine.write(f"{places.BENCH}/{part}", state.encode() + b"\n")

    def _adc(self, words: list[str]) -> None:
        if words[0] != "healthy" and words[0] not in CHANNELS:
            raise Failure(f"the converter has no channel {words[0]}")
        for name, (channel, reading) in CHANNELS.items():
            if words[0] == "healthy":
                self.set_channel(channel, reading)
            elif words[0] == name:
                self.set_channel(channel, " ".join(words[1:]))


class Files:
    """Files of the unit, as others on it would leave them."""

    def __init__(self, machine: Machine) -> None:
        self._machine = machine
        self.verbs = table(
            """
            web KEYWORD [ARGUMENT]         the page writes into the commands file
            web replace KEYWORD|delete     it puts another file in its place; takes it away
            config KEY VALUE               writes the configuration file: config Lamp/MaxCurrent 30
            store KEY VALUE                writes the status store, as another program would
            file PATH TEXT                 makes a file with that content
            folder PATH                    makes a folder
            readonly PATH                  nothing can be written there
            writable PATH                  takes readonly back
            remove PATH                    removes a file or a folder with all it holds
            """,
            web=self._web,
            config=lambda words: self._set(places.CONFIGURATION, words),
            store=lambda words: self._set(places.STORE, words),
            file=lambda words: machine.write(words[0], to_bytes(" ".join(words[1:]))),
            folder=lambda words: machine.mkdir(words[0]),
            readonly=self._protect,
            writable=lambda words: machine.run("umount", "--lazy", words[0]),
            remove=lambda words: machine.remove(words[0]),
        )
        self.expects = table(
            """
            file PATH TEXT  the file holds the text
            nofile PATH     there is no such file
            """,
            file=self._holds,
            nofile=lambda words: State(
                lambda: not machine.exists(words[0]), lambda: f"{words[0]} is there"
            ),
        )

    def _content(self, path: str) -> bytes:
        return self._machine.read(path) or b""

    def _web(self, words: list[str]) -> None:
        how = "replace" if words[0] == "replace" else "overwrite"
        line = to_bytes(" ".join(words[how == "replace" :]) + "\n")
        if words[0] == "delete":
            self._machine.remove(places.COMMANDS)
        else:
            self._machine.write(places.COMMANDS, line, how)

    def _set(self, path: str, words: list[str]) -> None:
        """A key of an INI file, which is replaced as a whole."""
        key, value = words[0] if "/" in words[0] else "General/" + words[0], " ".join(words[1:])
        if set(',;"') & set(value):
            value = '"' + value.replace('"', '\\"') + '"'
        groups: dict[str, str] = {}
        for whole, text in {**parse(self._content(path)), key: value}.items():
            group, _, name = whole.partition("/")
            groups[group] = groups.get(group, f"[{group}]\n") + f"{name}={text}\n"
        self._machine.write(path, to_bytes("\n".join(groups.values())), "replace")

    def _protect(self, words: list[str]) -> None:
        self._machine.run("mount", "--bind", words[0], words[0])
        self._machine.run("mount", "-o", "remount,bind,ro", words[0])

    def _holds(self, words: list[str]) -> State:
        path, text = words[0], to_bytes(" ".join(words[1:]))
        return State(
            lambda: text in self._content(path),
            lambda: f"{path} holds:\n{to_text(self._content(path)[-TEXT_SHOWN:])}",
        )
