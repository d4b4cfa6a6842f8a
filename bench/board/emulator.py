# SPDX-License-Identifier: LicenseRef-KT6120
"""The emulated board: a BCM2837 board in QEMU, with its monitor, registers and console."""

import fcntl
import io
import json
import os
import shutil
import socket
from contextlib import suppress
from pathlib import Path
from subprocess import PIPE
from time import monotonic
from typing import IO

from bench import Failure
from bench.world import CHECK_INTERVAL, Heard, Loop, Process

from .agent import by_line

REPO = Path(__file__).parents[2]
MADE = REPO / "build/board"
ROOT = REPO / "build/roots/emulator"
# The board's clock counts instructions, and what its card has acknowledged survives a kill.
EXACT = "-accel tcg,thread=single -icount shift=0", "cache.writeback=off"
# As fast as the desk allows, on several processors; the card is complete only at the end.
FREE = "-accel tcg,thread=multi", "cache.no-flush=on"
COMMAND = """bwrap --die-with-parent --ro-bind {root}/usr /usr --ro-bind {root}/etc /etc
--symlink usr/bin /bin --symlink usr/lib /lib --symlink usr/lib64 /lib64 --proc /proc
--dev-bind /dev /dev --tmpfs /tmp --bind {repo} {repo} -- qemu-system-aarch64 -M raspi3b
-display none -monitor none -kernel {made}/kernel -initrd {made}/initrd -dtb {made}/board.dtb
-drive if=sd,format=qcow2,file={card},{cache}
-device at24c-eeprom,bus=i2c-bus.1,address=0x48,rom-size=256
-chardev socket,id=mcu,path={folder}/mcu,server=on,wait=off -serial chardev:mcu
-chardev stdio,id=console,signal=off -serial chardev:console
-qmp unix:{folder}/qmp,server=on,wait=off {pace}"""
# A camera with one PAL input; a USB hub that never sleeps, since it would miss a plug.
KERNEL = """root=/dev/mmcblk0 rw console=ttyS1,115200 loglevel=4 TERM=dumb systemd.hostname=board
systemd.show_status=false systemd.default_timeout_start_sec=300 modules_load=i2c-bcm2835,i2c-dev,vivid,cdc_ether
vivid.n_devs=1 vivid.node_types=0x1 vivid.num_inputs=1 vivid.input_types=0x2
usbcore.autosuspend=-1"""
PATIENCE = 600  # s, for an answer of the monitor on a very busy machine
LOOK_INTERVAL = 0.05  # s, between two reads of the timer
TIMER = 0x3F003004  # microseconds since power on
LEVELS = 0x3F200034  # of the GPIO lines, one bit each


class Emulator:
    """Keeps card, sockets and console in a folder. `heard` gets the lines of the console.

    The console is a file: QEMU would wait for the reader of a full pipe, which may wait for its monitor.
    """

    def __init__(self, loop: Loop, folder: str, heard: Heard, card: str = "card.qcow2") -> None:
        self._loop, self._folder, self._card = loop, folder, Path(folder, card)
        self._heard = by_line(heard)
        self._console: IO[bytes] = io.BytesIO()
        loop.timer(self._read_console).start(CHECK_INTERVAL, CHECK_INTERVAL)
        self._process: Process | None = None
        self._monitor: IO[str] | None = None
        self._begin = self._now = 0  # microseconds
        self._next_look = 0.0

    @property
    def running(self) -> bool:
        return self._process is not None and self._process.running

    @property
    def seconds(self) -> float:
        """The board's time since its start, up to its end."""
        if self.running and monotonic() > self._next_look:
            with suppress(Failure):  # it has just ended
                self._now = self._register(TIMER)
            self._next_look = monotonic() + LOOK_INTERVAL
        return (self._now - self._begin) / 1e6

    def start(self, free: bool = False) -> None:
        """Boots from the card. Without one, continues from the snapshot of bench/board/make: booted,
        the package installed, the unit's program not started.
        """
        # QEMU holds the lock and exits a little later than its bwrap.
        lock = os.open(f"{self._card}.lock", os.O_CREAT | os.O_RDWR)
        fcntl.flock(lock, fcntl.LOCK_EX)
        pace, cache = FREE if free else EXACT
        if not self._card.exists():
            shutil.copy(MADE / "card.qcow2", self._card)
            pace += " -loadvm ready"
        places = {"root": ROOT, "repo": REPO, "made": MADE, "folder": self._folder}
        command = COMMAND.format(**places, card=self._card, cache=cache, pace=pace).split()
        command += ["-append", KERNEL.replace("\n", " ")]
        place = f"{self._folder}/console"
        with open(place, "wb") as console:
            self._process = Process(self._loop, command, console, stdin=PIPE, pass_fds=[lock])
        self._console = open(place, "rb")
        os.close(lock)
        self._connect()
        self._begin = self._now = self._register(TIMER)

    def kill(self) -> None:
        """Ends it as a power cut does."""
        if self._process:
            self._process.stop()
            self._read_console()

    def _read_console(self) -> None:
        if content := self._console.read():
            self._heard(content)

    def say(self, content: bytes) -> None:
        """To the console."""
        if self._process:
            with suppress(BrokenPipeError):
                os.write(self._process.child.stdin.fileno(), content)

    def command(self, name: str, **arguments: object) -> object:
        """A command of QEMU's monitor (QMP)."""
        assert self._monitor
        try:
            self._monitor.write(json.dumps({"execute": name, "arguments": arguments}) + "\n")
            self._monitor.flush()
            for answer in map(json.loads, self._monitor):  # events too
                if "return" in answer:
                    return answer["return"]
                if "error" in answer:
                    raise Failure(f"the board's emulator: {answer['error']['desc']}")
        except TimeoutError:
            self.kill()
        except OSError:
            pass
        raise Failure("the board's emulator does not answer")

    def human_command(self, line: str) -> str:
        return str(self.command("human-monitor-command", **{"command-line": line}))

    def level(self, line: int) -> int:
        """Of a GPIO line, as its pin shows it."""
        return self._register(LEVELS) >> line & 1

    def _register(self, address: int) -> int:
        """A register of 64 bits; QEMU shows its two words behind the address."""
        low, high = self.human_command(f"xp /2wx {address:#x}").split()[1:]
        return int(high, 16) << 32 | int(low, 16)

    def _connect(self) -> None:
        monitor = socket.socket(socket.AF_UNIX)
        monitor.settimeout(PATIENCE)
        place = f"{self._folder}/qmp"
        if not self._loop.until(lambda: monitor.connect_ex(place) == 0, PATIENCE):
            raise Failure("the board's emulator does not start")
        self._monitor = monitor.makefile("rw")
        self.command("qmp_capabilities")
