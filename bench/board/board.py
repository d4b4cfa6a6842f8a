# SPDX-License-Identifier: LicenseRef-KT6120
"""The virtual unit on an emulated board: program, hardware, picture, networks and power."""

import ipaddress
import re
from functools import partial
from typing import cast

from bench import Failure, State, number
from bench.desk import Around
from bench.machine import Machine
from bench.mcu import to_socket
from bench.phone import Network
from bench.unit import FAULT_LINE, Surroundings, Unit
from bench.video import PORTS, Tap, Video
from bench.watch import History
from bench.world import Clock, Condition, Loop, Process

from .emulator import Emulator
from .remote import Remote

SERVICE = "kt6120.service"
# All since the boot: the snapshot has an empty journal.
JOURNAL = ["journalctl", "--follow", "--lines=all", "--output=cat", f"--unit={SERVICE}"]
RESTART = b"Scheduled restart job"
PICTURE = "/tmp/picture.png"
# The last byte of an adapter's address is its number here; root/ has the udev rule that names it.
ADAPTERS = ("usb0", "eth0", "wlan0")
DEVICE = "/sys/class/net/{}/device/../{}"
# s of the board's time, in which the hub's polls, one in 255 ms, pass through all eight USB channels.
QUIET = 3
PLUG_LIMIT = 60  # s, until the kernel has named an adapter
SERVER = """dnsmasq --no-daemon --conf-file=/dev/null --port=0 --pid-file= --leasefile-ro --no-ping
--dhcp-authoritative --bind-interfaces --interface={0} --dhcp-range={1},{1},{2} --dhcp-option=3{3}"""


class BoardClock(Clock):
    """The board's clock counts instructions; `speed` has no effect."""

    def __init__(self, loop: Loop, emulator: Emulator) -> None:
        super().__init__(loop)
        self._emulator = emulator

    def set_pace(self, speed: float, stride: float = 0) -> None:
        pass

    def seconds(self) -> float:
        return self._emulator.seconds

    def until(self, condition: Condition, seconds: float, lost: Condition = lambda: False) -> bool:
        end = self.seconds() + seconds

        def over() -> bool:
            return lost() or not self._emulator.running or self.seconds() >= end

        return self.loop.until(condition, lost=over)


class Service(Unit):
    """The unit's program as a service, whose journal is its standard output."""

    def __init__(self, clock: Clock, history: History, board: Remote) -> None:
        super().__init__(clock)
        self._history, self._board = history, board
        board.spawn(JOURNAL, self._hear)

    def start(self) -> None:
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
            self.ending, self.unasked = "restarted", True


class BoardSurroundings(Surroundings):
    """An EEPROM is the converter; fault line and camera are the kernel's."""

    recorder = "/usr/lib/board/bench/recorder"
    # The others would end the board or have no device.
    real = ["killall", "logrotate", "gpioset", "gpioget", "gpioinfo", "i2cget"]

    healthy = {key: reply for key, reply in Surroundings.healthy.items() if key != FAULT_LINE}

    def set_channel(self, number: str, reading: str) -> None:
        if not re.fullmatch("0x[0-9a-f]{1,2}", reading):  # the EEPROM holds bytes only
            return super().set_channel(number, reading)
        self.clear_reply(f"KT6120_bb_read.sh {number}")
        self._machine.run("i2cset", "-y", "1", "0x48", number, reading, "b")

    def set_camera(self, state: str) -> None:
        self._machine.run("modprobe", *([] if state == "back" else ["--remove"]), "vivid")


class PalTap(Tap):
    """The PAL picture does not leave the board: the agent listens in."""

    def __init__(self, board: Remote) -> None:
        super().__init__(PORTS["pal"])
        self._board = board

    def rate(self) -> float:
        return float(self._board.rate())

    def write_picture(self, clock: Clock, file: str) -> None:
        self._board.write_picture(PICTURE)
        with open(file, "wb") as picture:
            picture.write(self._board.read(PICTURE))


class BoardNetwork(Network):
    """USB adapters with the phone at a tap. A DHCP server gives the unit its address."""

    def __init__(self, loop: Loop, history: History, board: Remote) -> None:
        super().__init__(history)
        self._loop, self._board = loop, board
        self._servers: dict[str, Process] = {}

    def plug_in(self, name: str, address: str, gateway: str) -> None:
        if name not in ADAPTERS:
            raise Failure(f"the board has no adapter {name}")
        unit = ipaddress.ip_interface(address)
        # Without a gateway, the server has the last address of the network.
        phone = f"{gateway or unit.network.broadcast_address - 1}/{unit.network.prefixlen}"
        self.phone_ip("tuntap", "add", name, "mode", "tap")
        self.phone_ip("addr", "add", phone, "broadcast", "+", "dev", name)
        self.phone_ip("link", "set", name, "up")
        server = SERVER.format(name, unit.ip, unit.netmask, f",{gateway}".rstrip(","))
        with self.in_phone():
            self._servers[name] = Process(self._loop, server.split(), stderr=lambda _: None)
        mac = f"52:54:00:00:00:{ADAPTERS.index(name) + 1:02}"
        tap = {"type": "tap", "ifname": name, "script": "no", "downscript": "no"}
        self._board.emulator.command("netdev_add", id=name, **tap)
        self._board.emulator.command(
            "device_add", driver="usb-net", id=f"usb-{name}", netdev=name, mac=mac
        )
        vendor = DEVICE.format(name, "idVendor")
        self._loop.until(lambda: bool(self._board.read(vendor)), PLUG_LIMIT)
        if not self._servers[name].running:
            raise Failure(f"dnsmasq has ended, which serves {name}")

    def unplug(self, name: str) -> None:
        # The kernel releases it first: QEMU crashes when an adapter vanishes during a read, which it
        # repeats until the kernel uses the same channel again.
        self._board.write(DEVICE.format(name, "remove"), b"1")
        BoardClock(self._loop, self._board.emulator).until(lambda: False, QUIET)
        self._board.emulator.command("device_del", id=f"usb-{name}")
        self._board.emulator.command("netdev_del", id=name)
        self._servers.pop(name).stop()
        self.phone_ip("link", "del", name)


class Board(Around):
    def __init__(self, folder: str) -> None:
        """The folder is for the card and the sockets."""
        loop, history = self.loop, self.history = Loop(), History()
        self._remote = board = Remote(loop, history, folder)
        self._emulator = board.emulator
        self.machine, self.clock = cast(Machine, board), BoardClock(loop, board.emulator)
        self.network = BoardNetwork(loop, history, board)
        self._switch_on()
        self.unit = Service(self.clock, history, board)
        self.video = Video(self.clock, history, self.network)
        self.video.taps[PORTS["pal"]] = PalTap(board)
        line = partial(to_socket, loop, f"{folder}/mcu")
        self.assemble(line, BoardSurroundings(self.machine, history), self)

    def __exit__(self, *_: object) -> None:
        self._emulator.kill()

    def _switch_on(self) -> None:
        with self.network.in_phone():  # QEMU opens the phone's taps
            self._emulator.start()

    def do_power(self, verb: str) -> None:
        """cut|on - at once; it boots from its card"""
        if verb == "cut":
            self._emulator.kill()
        elif verb == "on":
            self._switch_on()
            self.mcu.renew_line()  # before the program sends on it
            self._remote.resume()
        else:
            raise Failure("cut or on?")

    def expect_gpio(self, line: str, level: str) -> State:
        """LINE LEVEL - the level of a pin: gpio 21 1"""
        pin = int(number(line))
        return State(lambda: self._emulator.level(pin), lambda now: str(now) == level)

    def expect_power(self, state: str) -> State:
        """on|off - whether it has switched itself off"""
        return State(lambda: "on" if self._emulator.running else "off", lambda now: now == state)
