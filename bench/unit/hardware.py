# SPDX-License-Identifier: LicenseRef-KT6120
"""What the unit's hardware reads: converter, USB fault line, camera, encoder."""

from bench import Failure, Verb

from . import places
from .machine import Machine
from .recorded import Recorded

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

# What is told of a part, and what its stand-in element reads of that.
CAMERA = {"missing": "missing", "back": "ok", "lost": "lost"}
ENCODER = {"fails": "fails", "works": "ok"}
ON_OFF = {"on": "1", "off": "0"}


def state(words: list[str], states: dict[str, str]) -> str:
    if words[0] not in states:
        raise Failure(" or ".join(states) + "?")
    return states[words[0]]


class Hardware:
    def __init__(self, machine: Machine, recorded: Recorded) -> None:
        self._machine = machine
        self._recorded = recorded
        self.verbs = [
            Verb("adc", "CHANNEL READING", " ".join(CHANNELS) + ": adc Inter 0x64", self._adc),
            Verb("adc", "healthy", "all channels as at the start"),
            Verb(
                "usbfault",
                "on|off",
                "the USB fault line",
                lambda words: self.set_fault(state(words, ON_OFF)),
            ),
            Verb(
                "camera",
                "missing|back|lost",
                "the camera",
                lambda words: self.set_camera(state(words, CAMERA)),
            ),
            Verb(
                "encoder",
                "fails|works",
                "the encoder",
                lambda words: self._tell("encoder", state(words, ENCODER)),
            ),
        ]

    def arrange(self) -> None:
        self.set_healthy()
        self.set_fault("0")
        self.set_camera("ok")
        self._tell("encoder", "ok")

    def set_healthy(self) -> None:
        for number, reading in CHANNELS.values():
            self.set_channel(number, reading)

    def set_channel(self, number: str, reading: str) -> None:
        self._recorded.set_reply(f"KT6120_bb_read.sh {number}", "output", reading + "\n")

    def set_fault(self, level: str) -> None:
        self._recorded.set_reply(FAULT_LINE, "output", level + "\n")

    def set_camera(self, state: str) -> None:
        self._tell("camera", state)

    def _tell(self, part: str, state: str) -> None:
        self._machine.write(f"{places.BENCH}/{part}", state.encode() + b"\n")

    def _adc(self, words: list[str]) -> None:
        if words[0] == "healthy":
            self.set_healthy()
        elif words[0] in CHANNELS:
            self.set_channel(CHANNELS[words[0]][0], words[1] if len(words) > 1 else "")
        else:
            raise Failure(f"the converter has no channel {words[0]}")
