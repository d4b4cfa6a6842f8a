# SPDX-License-Identifier: LicenseRef-KT6120
"""Programs whose calls are recorded: bench/recorder stands in for what a desk does not have."""

import os

from bench import Failure, Verb, number, to_bytes

from . import places
from .machine import Machine

# At fixed places; real scripts of the tree run behind their stand-ins.
FIXED = {
    os.path.basename(path): path
    for path in (
        *(
            f"{places.INSTALL}/KT6120_{name}.sh"
            for name in ("gstreamer", "usb_monitor", "gpio_write", "gpio_read", "sonde_en_write")
            + ("shutdown", "stream_start", "stream_stop", "bb_read")
        ),
        "/opt/vc/bin/vcgencmd",
        "/home/pi/raspidmx/pngview/pngview",
    )
}
# Of the search path, such as would reach for hardware or for the desk itself.
SEARCHED = "killall logrotate gpioset gpioget gpioinfo i2cget systemctl logger".split()

VERBS = "prints takes holds fails missing idle real".split()


def place_of(name: str) -> str:
    return FIXED.get(name, f"{places.PROGRAMS}/{name}")


class Recorded:
    def __init__(self, machine: Machine, recorder: str) -> None:
        self._machine = machine
        self._recorder = recorder
        self.verbs = [
            Verb(
                "call",
                "NAME [ARGUMENT...] prints TEXT",
                "what a recorded program answers, for these arguments or for all",
                self._call,
                2,
            ),
            Verb(
                "call",
                "NAME [ARGUMENT...] takes SECONDS|holds|fails [STATUS]",
                "how it answers; what holds does not end before it is real again",
            ),
            Verb(
                "call",
                "NAME missing|idle|real",
                "it is not installed; does nothing, quickly and without record; as at the start",
            ),
        ]

    def arrange(self, real: list[str]) -> None:
        """Puts the stand-ins in place; the programs of the search path that are listed run behind."""
        self._machine.mkdir(f"{places.BENCH}/real")
        self._machine.mkdir(places.PROGRAMS)
        for name, path in FIXED.items():
            self._install(path)
            if self._machine.exists(places.TREE + path):
                self.set_real(name, places.TREE + path)
        for name in SEARCHED:
            self._install(place_of(name))
        for name in real:
            self.set_real(name, self._machine.which(name))
        self.set_reply("vcgencmd", "output", "temp=48.3'C\n")
        self.set_reply("pngview", "delay", "3600\n")  # shows its image until it is killed

    def _install(self, path: str) -> None:
        name = os.path.basename(path)
        self._machine.install(self._recorder, path, f"{places.BENCH}/real/{name}")

    def set_real(self, name: str, program: str | None) -> None:
        if program:
            self._machine.link(program, f"{places.BENCH}/real/{name}")

    def set_reply(self, key: str, trait: str, value: str = "") -> None:
        """One trait of a reply, the others as they are; never seen half written."""
        place = f"{places.BENCH}/replies/{key}"
        self._machine.mkdir(place)
        self._machine.write(f"{place}/{trait}", to_bytes(value), "replace")

    def clear_reply(self, key: str) -> None:
        self._machine.remove(f"{places.BENCH}/replies/{key}")

    def record(self, name: str) -> None:
        """Programs of the search path are taken up when first asked for."""
        path = place_of(name)
        if self._machine.exists(path):
            return
        self._install(path)
        if name not in FIXED:
            self.set_real(name, self._machine.which(name))

    def _call(self, words: list[str]) -> None:
        at = next((at for at, word in enumerate(words) if at > 0 and word in VERBS), None)
        if at is None:
            raise Failure(
                "call NAME [ARGUMENT...] prints TEXT, takes SECONDS, holds, fails [STATUS], missing, "
                "idle or real"
            )
        name, key, verb, value = (
            words[0],
            " ".join(words[:at]),
            words[at],
            " ".join(words[at + 1 :]),
        )
        if verb in ("missing", "idle", "real"):
            self._machine.remove(place_of(name))  # it may be something else by now
        if verb == "idle":
            self._machine.link("/bin/true", place_of(name))
        if verb in ("missing", "idle"):
            return
        self.record(name)
        if verb == "prints":
            self.set_reply(key, "output", value)
        elif verb == "takes":
            self.set_reply(key, "delay", f"{number(value):g}\n")
        elif verb == "holds":
            self.set_reply(key, "hold")
        elif verb == "fails":
            self.set_reply(key, "status", f"{int(number(value or '1'))}\n")
        else:
            self.clear_reply(key)
