# SPDX-License-Identifier: LicenseRef-KT6120
"""The unit as a board has it: its program, its hardware, its picture."""

from typing import Any

from bench import places
from bench.unit import FAULT_LINE, Hardware, Unit
from bench.video import PORTS, Tap, Video
from bench.watch import History
from bench.world import Clock

from .remote import Remote

SERVICE = "kt6120.service"
JOURNAL = ["journalctl", "--follow", "--lines=0", "--output=cat", f"--unit={SERVICE}"]
RESTART = b"Scheduled restart job"
PICTURE = "/tmp/picture.png"


class Service(Unit):
    """A service; what the system's journal holds of it is its standard output."""

    def __init__(self, clock: Clock, history: History, board: Remote) -> None:
        super().__init__(clock)
        self._history, self._board = history, board
        board.spawn(JOURNAL, self._hear)

    def start(self) -> None:
        """Returns at once, as the program's start does elsewhere."""
        self.ending, self.unasked = "", False
        self._board.run("systemctl", "start", "--no-block", SERVICE)
        self._history.note("bench", "unit started\n")

    def stop(self) -> None:
        self._board.run("systemctl", "stop", SERVICE)

    def signal(self, number: int) -> None:
        self._board.run("systemctl", "kill", "--kill-whom=main", f"--signal={number}", SERVICE)

    def id(self) -> int:
        if not self._board.emulator.running:
            return 0
        return int(self._board.run("systemctl", "show", "--property=MainPID", "--value", SERVICE))

    def _hear(self, said: bytes) -> None:
        self._history.note("stdout", said)
        if RESTART in said:
            self.unasked = True
            self.has_ended("restarted")


class BoardHardware(Hardware):
    """The converter holds bytes; USB fault line and camera are the kernel's."""

    def set_channel(self, number: str, reading: str) -> None:
        """Any answer that is no byte is a stand-in's."""
        if not reading.startswith("0x"):
            return super().set_channel(number, reading)
        self._recorded.clear_reply(f"KT6120_bb_read.sh {number}")
        self._machine.run("i2cset", "-y", "1", "0x48", number, reading, "b")

    def set_fault(self, level: str) -> None:
        if level == "0":
            return self._recorded.clear_reply(FAULT_LINE)  # the line itself reads so
        super().set_fault(level)

    def set_camera(self, state: str) -> None:
        self._machine.run("modprobe", *([] if state == "ok" else ["--remove"]), "vivid")


class PalTap(Tap):
    """The PAL picture passes on the board itself, where the agent looks at it."""

    def __init__(self, board: Remote) -> None:
        super().__init__(PORTS["pal"])
        self._board = board

    def rate(self) -> float:
        return float(self._board.rate(PORTS["pal"]))


class BoardVideo(Video):
    def __init__(self, board: Remote, *parts: Any) -> None:
        super().__init__(*parts)
        self._board = board
        self._taps[PORTS["pal"]] = PalTap(board)

    def snapshot(self, words: list[str]) -> None:
        if words[0] != "pal":
            return super().snapshot(words)
        self._board.snapshot("pal", PICTURE)
        with open(places.of_caller(words[1]), "wb") as file:
            file.write(self._board.read(PICTURE))
