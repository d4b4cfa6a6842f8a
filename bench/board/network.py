# SPDX-License-Identifier: LicenseRef-KT6120
"""Networks of a board: USB adapters that are plugged in while it runs, the phone at a tap.

The unit gets its address from the phone, by DHCP.
"""

import ipaddress
from collections.abc import Callable

from bench import Failure
from bench.phone import Network
from bench.watch import History
from bench.world import Loop, Process

from .remote import Remote

# The adapters that the board knows by name, by the last byte of their address (see root/).
ADAPTERS = ("usb0", "eth0", "wlan0")
ADDRESS = "52:54:00:00:00:{:02x}"
# As the board shows an adapter; written to, it lets go of it. One that is pulled while the board
# reads from it makes the emulator end.
DEVICE = "/sys/class/net/{}/device/../{}"
PATIENCE = 60  # s, of the board's time, until it knows an adapter
SERVER = """dnsmasq --no-daemon --conf-file=/dev/null --port=0 --pid-file= --leasefile-ro --dhcp-authoritative
--no-ping --bind-interfaces --interface={0} --dhcp-range={1},{1},{2} --dhcp-option=option:router{3}"""


class BoardNetwork(Network):
    def __init__(
        self, loop: Loop, history: History, pause: Callable[[float], object], board: Remote
    ) -> None:
        super().__init__(history, pause)
        self._loop, self._board = loop, board
        self._servers: dict[str, Process] = {}  # by interface: who gives addresses

    def plug_in(self, name: str, address: str, gateway: str) -> None:
        if name not in ADAPTERS:
            raise Failure(f"the board has no adapter {name}")
        unit = ipaddress.ip_interface(address)
        # A phone that is no gateway gives addresses all the same, from the last one of the network.
        phone = f"{gateway or unit.network.broadcast_address - 1}/{unit.network.prefixlen}"
        self.phone_ip("tuntap", "add", name, "mode", "tap")
        self.phone_ip("addr", "add", phone, "broadcast", "+", "dev", name)
        self.phone_ip("link", "set", name, "up")
        server = SERVER.format(name, unit.ip, unit.netmask, f",{gateway}".rstrip(","))
        said: list[bytes] = []
        with self.in_phone():
            self._servers[name] = Process(self._loop, server.split(), stderr=said.append)
        self._board.emulator.plug_in(name, ADDRESS.format(ADAPTERS.index(name) + 1))
        vendor = DEVICE.format(name, "idVendor")
        self._loop.until(lambda: bool(self._board.read(vendor)), PATIENCE)
        if not self._servers[name].running:
            raise Failure(f"dnsmasq has ended: {said}")

    def unplug(self, name: str) -> None:
        self._board.write(DEVICE.format(name, "remove"), b"1")
        self._board.emulator.unplug(name)
        self._servers.pop(name).stop()
        self.phone_ip("link", "del", name)
