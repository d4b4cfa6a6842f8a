# SPDX-License-Identifier: LicenseRef-KT6120
"""The unit's networks, made of the kernel's own interfaces, addresses and routes.

Each is a pair of virtual Ethernet ends: one in the unit's world, one in the phone's.
"""

import contextlib
import ctypes
import os
import random
from collections.abc import Callable, Iterator
from functools import partial
from pathlib import Path

from bench import Failure, Verb, number
from bench.watch.history import History
from bench.world.programs import run

PLUG = str(Path(__file__).parents[1] / "plug")
CLONE_NEWNET = 0x40000000
LIBC = ctypes.CDLL(None)
LONGEST_PAUSE = 3  # s, between two flaps

# What is plugged in by a word of its own: interface, the unit's address, the phone's.
NETS = {
    "usb": ("usb0", "192.168.42.10/24", "192.168.42.129"),
    "eth": ("eth0", "192.168.1.50/24", "192.168.1.1"),
}
FORMS = "up [ADDRESS/PREFIX [GATEWAY]]|down"


class Network:
    def __init__(self, history: History, pause: Callable[[float], object]) -> None:
        """`pause` lets seconds of the unit's time pass."""
        self._history = history
        self._pause = pause
        self._peers: dict[str, str] = {}  # interface -> the phone's address and prefix
        self._unit = os.open("/proc/self/ns/net", os.O_RDONLY)
        if LIBC.unshare(CLONE_NEWNET) != 0:
            raise Failure("cannot make the phone's network: not in the sandbox?")
        self._phone = os.open("/proc/self/ns/net", os.O_RDONLY)
        LIBC.setns(self._unit, CLONE_NEWNET)
        self.place = f"/proc/{os.getpid()}/fd/{self._phone}"  # of the phone's namespace
        self.phone_ip("link", "set", "lo", "up")
        usb, eth = (partial(self._plug, *net) for net in NETS.values())
        self.verbs = [
            Verb("usb", FORMS, "a phone over USB; an address alone: no default route", usb),
            Verb("eth", FORMS, "the same over Ethernet", eth),
            Verb("net", f"NAME {FORMS}", "any other network", self._other, 2),
            Verb(
                "flap", "usb|eth COUNT SEED", "so often down or up, 0 to 3 s apart", self._flap, 3
            ),
        ]

    @contextlib.contextmanager
    def in_phone(self) -> Iterator[None]:
        """Sockets that are made meanwhile are the phone's, and so are programs that are started."""
        LIBC.setns(self._phone, CLONE_NEWNET)
        try:
            yield
        finally:
            LIBC.setns(self._unit, CLONE_NEWNET)

    def up(self, name: str, address: str, gateway: str) -> None:
        """The phone has the gateway's address, to which the default route leads; "": no route."""
        if name in self._peers:
            self.down(name)
        self.plug_in(name, address, gateway)
        self._peers[name] = f"{gateway}/{address.partition('/')[2]}" if gateway else ""
        self._history.note("network", f"{name} up: {address}, gateway {gateway or 'none'}\n")

    def down(self, name: str) -> None:
        """The interface disappears, as an unplugged one does."""
        self._peers.pop(name, None)
        self.unplug(name)
        self._history.note("network", f"{name} down\n")

    def set_reachable(self, reachable: bool) -> None:
        """The phone vanishes without a word: its end has no address any more; or it is back."""
        for name, peer in self._peers.items():
            if peer:
                self.phone_ip("addr", "flush", "dev", name)
            if peer and reachable:
                self.phone_ip("addr", "add", peer, "broadcast", "+", "dev", name)

    def plug_in(self, name: str, address: str, gateway: str) -> None:
        run(PLUG, name, address, gateway, self.place)

    def unplug(self, name: str) -> None:
        run("ip", "link", "del", name)

    def phone_ip(self, *arguments: str) -> None:
        run("nsenter", f"--net={self.place}", "ip", *arguments)

    def _plug(self, name: str, address: str, gateway: str, words: list[str]) -> None:
        if words == ["down"]:
            self.down(name)
        elif words[0] == "up" and (address or len(words) > 1):
            if len(words) > 1:
                address, gateway = (words[1:] + [""])[:2]
            self.up(name, address, gateway)
        else:
            raise Failure("up or down?" if address else "net NAME up ADDRESS/PREFIX [GATEWAY]")

    def _other(self, words: list[str]) -> None:
        self._plug(words[0], "", "", words[1:])

    def _flap(self, words: list[str]) -> None:
        if words[0] not in NETS:
            raise Failure("usb or eth?")
        chance = random.Random(int(number(words[2])))
        for _ in range(int(number(words[1]))):
            self._pause(chance.uniform(0, LONGEST_PAUSE))
            is_up = NETS[words[0]][0] in self._peers
            self._plug(*NETS[words[0]], ["down" if is_up else "up"])
