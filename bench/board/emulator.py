# SPDX-License-Identifier: LicenseRef-KT6120
"""The board's machine: a BCM2837 board, as QEMU has it, with its monitor, registers and console."""

import fcntl
import json
import os
import shutil
import sys
from collections import deque
from collections.abc import Callable
from contextlib import nullcontext
from pathlib import Path
from time import monotonic
from typing import ContextManager

from bench import Failure
from bench.mcu import Line, to_socket
from bench.world import Heard, Loop, Process

REPO = Path(__file__).parents[2]
MADE = REPO / "build/board"
ROOT = REPO / "build/roots/emulator"
# Its clock counts the instructions that its processor has carried out, and no word that its card has
# taken something is forgotten when it is killed.
TRUE = "-accel tcg,thread=single -icount shift=0", "cache.writeback=off"
# As fast as the desk can, by the desk's clock, on several processors; the card is whole at its end only.
FREE = "-accel tcg,thread=multi", "cache.no-flush=on"
PLACES = "--ro-bind {0}/usr /usr --ro-bind {0}/etc /etc --symlink usr/bin /bin --symlink usr/lib /lib \
--symlink usr/lib64 /lib64 --proc /proc --dev-bind /dev /dev --tmpfs /tmp --bind {1} {1}"
MACHINE = """qemu-system-aarch64 -M raspi3b -display none -monitor none -kernel {0}/kernel -initrd {0}/initrd -dtb {0}/board.dtb
-drive if=sd,format=qcow2,file={1},{2} -device at24c-eeprom,bus=i2c-bus.1,address=0x48,rom-size=256
-chardev socket,id=mcu,path={3}/mcu,server=on,wait=off -serial chardev:mcu
-chardev socket,id=console,path={3}/console,server=on,wait=off -serial chardev:console
-qmp unix:{3}/qmp,server=on,wait=off -qtest unix:{3}/qtest,server=on,wait=off -qtest-log /dev/null"""
KERNEL = "root=/dev/mmcblk0 rw console=ttyS1,115200 loglevel=4 systemd.show_status=false TERM=dumb"
PATIENCE = 60  # s, for an answer of the machine
ATTEMPT = 0.05  # s, between two tries to reach it
LOOK = 0.05  # s, between two looks at its timer
TIMER = 0x3F003004  # microseconds, the low word, which overflows every 71 minutes
LEVELS = (0x3F200034, 0x3F200038)  # of GPIO lines 0 to 31, 32 to 53


class Emulator:
    """Keeps its card and its sockets in a folder; `heard` takes the lines of its console.

    A machine whose console nobody reads stands still.
    """

    def __init__(self, loop: Loop, folder: str, heard: Heard, card: str = "card.qcow2") -> None:
        self.folder = folder
        self.seconds = 0.0  # of the board's time since it was switched on or taken up, to its end
        self._loop, self._card = loop, Path(folder, card)
        self._heard = {"console": heard, "qmp": self._answered, "qtest": self._read}
        self._process: Process | None = None
        self._lines: dict[str, Line] = {}
        self._answers: list[dict[str, object]] = []  # of the monitor
        self._asked: deque[Callable[[int], object]] = deque()  # who waits for a register, in order
        self._look = loop.timer(lambda: self._register(TIMER, self._count))
        self._microseconds: int | None = None

    @property
    def running(self) -> bool:
        return self._process is not None and self._process.running

    def start(self, free: bool = False, where: ContextManager[None] = nullcontext()) -> None:
        """Boots from its card. Where there is none yet, it goes on from where bench/board/make has put a
        board away: booted, the unit's program installed and not started.
        """
        for name in (*self._heard, "mcu"):
            Path(self.folder, name).unlink(missing_ok=True)
        # The machine holds it to its very end, which comes a little after that of a bwrap that is killed.
        lock = os.open(f"{self._card}.lock", os.O_CREAT | os.O_RDWR)
        fcntl.flock(lock, fcntl.LOCK_EX)
        pace, cache = FREE if free else TRUE
        if not self._card.exists():
            shutil.copy(MADE / "card.qcow2", self._card)
            pace += " -loadvm ready"
        machine = MACHINE.format(MADE, self._card, cache, self.folder)
        command = f"bwrap --die-with-parent {PLACES.format(ROOT, REPO)} -- {machine} {pace}".split()
        command += ["-append", KERNEL]
        with where:
            self._process = Process(self._loop, command, stderr=self._complain, pass_fds=[lock])
        os.close(lock)
        self._asked.clear()
        self._lines = {name: self._reach(name) for name in self._heard}
        self.command("qmp_capabilities")
        self._microseconds, self.seconds = None, 0.0
        self._look.every(LOOK)

    def kill(self) -> None:
        """As a power cut ends a board."""
        self._look.stop()
        for line in self._lines.values():
            line.close()
        if self._process:
            self._process.stop()

    def say(self, line: bytes) -> None:
        self._lines["console"].send(line)

    def command(self, name: str, **arguments: object) -> object:
        """Of the monitor; its console is heard meanwhile."""
        self._answers.clear()
        told = {"execute": name, "arguments": arguments}
        self._lines["qmp"].send(json.dumps(told).encode() + b"\n")
        self._loop.until(lambda: bool(self._answers) or not self.running, PATIENCE)
        answer = self._answers[0] if self._answers else {}
        if "return" not in answer:
            raise Failure(f"the board's machine: {answer or 'no answer'}")
        return answer["return"]

    def level(self, line: int) -> int:
        """Of a GPIO line, as its pin shows it."""
        found: list[int] = []
        self._register(LEVELS[line // 32], found.append)
        if not self._loop.until(lambda: bool(found), PATIENCE if self.running else 0):
            raise Failure("the board's machine does not answer")
        return found[0] >> line % 32 & 1

    def plug_in(self, tap: str, address: str) -> None:
        """The far end of a USB network adapter is the tap of that name."""
        self.command("netdev_add", type="tap", id=tap, ifname=tap, script="no", downscript="no")
        self.command("device_add", driver="usb-net", id=f"usb-{tap}", netdev=tap, mac=address)

    def unplug(self, tap: str) -> None:
        self.command("device_del", id=f"usb-{tap}")
        self.command("netdev_del", id=tap)

    def _reach(self, name: str) -> Line:
        rest = b""

        def hear(content: bytes) -> None:
            nonlocal rest
            *lines, rest = (rest + content).split(b"\n")
            for line in lines:
                self._heard[name](line)

        end = monotonic() + PATIENCE
        while True:
            try:
                return to_socket(self._loop, f"{self.folder}/{name}", hear)
            except Failure:
                if monotonic() > end or not self.running:
                    raise Failure("the board's machine does not start") from None
                self._loop.until(lambda: False, ATTEMPT)

    def _answered(self, line: bytes) -> None:
        answer = json.loads(line)
        if answer.keys() & {"return", "error"}:  # no greeting, no event
            self._answers.append(answer)

    def _register(self, place: int, act: Callable[[int], object]) -> None:
        self._asked.append(act)
        self._lines["qtest"].send(b"readl 0x%x\n" % place)

    def _read(self, line: bytes) -> None:
        self._asked.popleft()(int(line.split()[1], 16))

    def _count(self, now: int) -> None:
        if self._microseconds is not None:
            self.seconds += (now - self._microseconds) % 2**32 / 1e6
        self._microseconds = now

    @staticmethod
    def _complain(said: bytes) -> None:
        for line in said.splitlines():
            # At each plug: a kernel asks an adapter for what only a faster one has.
            if not line.startswith(b"usbnet: failed control transaction"):
                print(line.decode(errors="replace"), file=sys.stderr)
