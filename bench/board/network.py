# SPDX-License-Identifier: LicenseRef-KT6120
"""Networks of a board: USB adapters with the phone at a tap. A DHCP server gives the unit its address."""

import ipaddress

from bench import Failure
from bench.phone import Network
from bench.watch import History
from bench.world import Clock, Loop, Process

from .remote import Remote

# The last byte of an adapter's address is its number here; root/ has the udev rule that names it.
ADAPTERS = ("usb0", "eth0", "wlan0")
DEVICE = "/sys/class/net/{}/device/../{}"
PATIENCE = 60  # s, until the kernel has named an adapter
SERVER = """dnsmasq --no-daemon --conf-file=/dev/null --port=0 --pid-file= --leasefile-ro --no-ping
--dhcp-authoritative --bind-interfaces --interface={0} --dhcp-range={1},{1},{2} --dhcp-option=3{3}"""


class BoardNetwork(Network):
    def __init__(self, loop: Loop, clock: Clock, history: History, board: Remote) -> None:
        super().__init__(history, lambda seconds: clock.until(lambda: False, seconds))
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
        self._loop.until(lambda: bool(self._board.read(vendor)), PATIENCE)
        if not self._servers[name].running:
            raise Failure(f"dnsmasq has ended, which serves {name}")

    def unplug(self, name: str) -> None:
        # The kernel releases it first: QEMU crashes when an adapter vanishes during a read.
        self._board.write(DEVICE.format(name, "remove"), b"1")
        self._board.emulator.command("device_del", id=f"usb-{name}")
        self._board.emulator.command("netdev_del", id=name)
        self._servers.pop(name).stop()
        self.phone_ip("link", "del", name)
