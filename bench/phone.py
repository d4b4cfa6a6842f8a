# SPDX-License-Identifier: LicenseRef-KT6120
"""The unit's networks, and the phone at their far end with its viewing app."""

import ctypes
import os
import socket
from collections.abc import Callable, Iterator
from contextlib import contextmanager, suppress
from functools import cached_property, partial

from bench import Failure, number, to_bytes
from bench.watch import History
from bench.world import Act, Clock, run

PLUG = os.path.join(os.path.dirname(__file__), "plug")
CLONE_NEWNET = 0x40000000
libc = ctypes.CDLL(None)

# The unit's address and the phone's, where no other is given.
NETS = {
    "usb0": ("192.168.42.10/24", "192.168.42.129"),
    "eth0": ("192.168.1.50/24", "192.168.1.1"),
}

APP_PORT = 8082
HEARTBEAT = 5.0  # s
PATIENCE = 60  # s, for a unit that reads nothing


class Network:
    """Pairs of virtual Ethernet ends, one in the unit's world, one in the phone's (bench/plug)."""

    def __init__(self, history: History) -> None:
        self._history = history
        self._peers: dict[str, str] = {}  # interface -> the phone's address and prefix
        self.when_up: Act = lambda: None

    def do_usb(self, verb: str, address: str = "", gateway: str = "") -> None:
        """up [ADDRESS/PREFIX [GATEWAY]]|down - a phone over USB; an address alone: no default route"""
        self.do_net("usb0", verb, address, gateway)

    def do_eth(self, verb: str, address: str = "", gateway: str = "") -> None:
        """up [ADDRESS/PREFIX [GATEWAY]]|down - a network over Ethernet"""
        self.do_net("eth0", verb, address, gateway)

    def do_net(self, name: str, verb: str, address: str = "", gateway: str = "") -> None:
        """NAME up ADDRESS/PREFIX [GATEWAY]|down - any other network"""
        if not address:
            address, gateway = NETS.get(name, ("", ""))
        if verb not in ("up", "down") or verb == "up" and not address:
            raise Failure("up [ADDRESS/PREFIX [GATEWAY]] or down?")
        if verb == "down" or name in self._peers:
            self._peers.pop(name, None)
            self.unplug(name)
            self._history.note("network", f"{name} down\n")
        if verb == "up":
            self.when_up()
            self.plug_in(name, address, gateway)
            self._peers[name] = f"{gateway}/{address.partition('/')[2]}" if gateway else ""
            self._history.note("network", f"{name} up: {address}, gateway {gateway or 'none'}\n")

    @cached_property
    def _spaces(self) -> tuple[int, int]:
        """The namespaces of the unit and of the phone, which is made when it is first needed."""
        unit = os.open("/proc/self/ns/net", os.O_RDONLY)
        if libc.unshare(CLONE_NEWNET) != 0:
            raise Failure("cannot make the phone's network: not in the sandbox?")
        run("ip", "link", "set", "lo", "up")
        phone = os.open("/proc/self/ns/net", os.O_RDONLY)
        libc.setns(unit, CLONE_NEWNET)
        return unit, phone

    @contextmanager
    def in_phone(self) -> Iterator[None]:
        """Sockets that are made meanwhile are the phone's, and so are programs that are started."""
        unit, phone = self._spaces
        libc.setns(phone, CLONE_NEWNET)
        try:
            yield
        finally:
            libc.setns(unit, CLONE_NEWNET)

    def set_reachable(self, reachable: bool) -> None:
        """Without an address the phone's end vanishes, and no connection is closed; or it is back."""
        for name, peer in self._peers.items():
            if peer:
                self.phone_ip("addr", "replace" if reachable else "del", peer, "dev", name)

    def plug_in(self, name: str, address: str, gateway: str) -> None:
        """The phone has the gateway's address, to which the default route leads; "": no route."""
        run(PLUG, name, address, gateway, f"/proc/{os.getpid()}/fd/{self._spaces[1]}")

    def unplug(self, name: str) -> None:
        """The interface disappears."""
        run("ip", "link", "del", name)

    def phone_ip(self, *arguments: str) -> None:
        with self.in_phone():
            run("ip", *arguments)


class App:
    """A TCP server at port 8082, and a heartbeat every 5 s."""

    def __init__(self, clock: Clock, history: History, network: Network) -> None:
        self._loop, self._clock, self._history = clock.loop, clock, history
        self._network = network
        self._server: socket.socket | None = None
        self._line: socket.socket | None = None  # the unit's connection
        self._unsent = b""  # of what the app says
        self._accepts = self._talks = True
        self._heart = clock.loop.timer(self._beat)
        network.when_up = self._open

    def do_app(self, verb: str, *words: str) -> None:
        """LINE - the app sends the line with CR LF: app LampUp
        raw "BYTES"|big COUNT - it sends any bytes; a line of COUNT bytes
        silent|talk - no heartbeat; every 5 s again
        refuse|accept - its port is closed; open and reachable again
        close|halfclose|drop - ends the connection; vanishes without ending it"""
        acts: dict[tuple[str, int], Callable[..., object]] = {
            ("refuse", 0): self._refuse,
            ("accept", 0): self._accept,
            ("silent", 0): lambda: setattr(self, "_talks", False),
            ("talk", 0): lambda: setattr(self, "_talks", True),
            ("drop", 0): lambda: self._network.set_reachable(False),
            ("close", 0): lambda: self._end(self._connected()),
            ("halfclose", 0): lambda: self._connected().shutdown(socket.SHUT_WR),
            ("raw", 1): lambda text: self._send(to_bytes(text)),
            ("big", 1): lambda count: self._send(b"x" * int(number(count)) + b"\r\n"),
        }
        if act := acts.get((verb, len(words))):
            act(*words)
        else:
            self._send(to_bytes(" ".join((verb, *words))) + b"\r\n")

    def _send(self, content: bytes) -> None:
        line = self._connected()
        self._history.note("phone", content)
        self._unsent += content  # a heartbeat meanwhile comes after it
        sent = self._loop.until(
            partial(self._flush, line), PATIENCE, lambda: self._line is not line
        )
        if not sent and self._line is line:
            self._end(line)

    def _flush(self, line: socket.socket) -> bool:
        with suppress(OSError):  # it takes no more now, or the connection has ended
            self._unsent = self._unsent[line.send(self._unsent) :]
        return not self._unsent

    def _beat(self) -> None:
        self._heart.start(HEARTBEAT / self._clock.speed)
        if self._talks and self._line:
            self._send(b"KestraApp\r\n")

    def _connected(self) -> socket.socket:
        if not self._line:
            raise Failure("the unit is not connected to the app")
        return self._line

    def _open(self) -> None:
        """Binds its port before the unit can come."""
        if self._accepts and not self._server:
            with self._network.in_phone():
                self._server = socket.create_server(("", APP_PORT))
            take = partial(self._take_connection, self._server)
            self._loop.reads(self._server.fileno(), take)

    def _accept(self) -> None:
        self._accepts = True
        self._network.set_reachable(True)
        self._open()

    def _refuse(self) -> None:
        self._accepts = False
        if self._server:
            self._loop.forget(self._server.fileno())
            self._server.close()
            self._server = None
        if self._line:
            self._end(self._line)

    def _take_connection(self, server: socket.socket) -> None:
        line, (address, _) = server.accept()
        self._line, self._unsent = line, b""
        self._heart.start(HEARTBEAT / self._clock.speed)
        line.setsockopt(socket.IPPROTO_TCP, socket.TCP_NODELAY, 1)
        self._history.note("network", f"app: the unit has connected from {address}\n")
        self._loop.hears(line.fileno(), partial(self._history.note, "app"), lambda: self._end(line))

    def _end(self, line: socket.socket) -> None:
        self._loop.forget(line.fileno())
        line.close()
        if line is self._line:
            self._line = None
            self._heart.stop()
        self._history.note("network", "app: the unit's connection has ended\n")
