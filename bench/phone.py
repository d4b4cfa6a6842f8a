# SPDX-License-Identifier: LicenseRef-KT6120
"""The unit's networks, and the phone at their far end with its viewing app."""

import os
import socket
from collections.abc import Callable, Iterator
from contextlib import contextmanager
from functools import cached_property, partial

from bench import Failure, number, to_bytes
from bench.machine import libc
from bench.watch import History
from bench.world import Act, Clock, Loop, run

PLUG = os.path.join(os.path.dirname(__file__), "plug")
CLONE_NEWNET = 0x40000000
LONGEST_PAUSE = 3  # s, between two flaps

# What has a verb: interface, the unit's address, the phone's.
NETS = {
    "usb": ("usb0", "192.168.42.10/24", "192.168.42.129"),
    "eth": ("eth0", "192.168.1.50/24", "192.168.1.1"),
}

APP_PORT = 8082
STREAM_PORTS = (49152, 8001)  # open, so that the stream arrives; nothing reads it
HEARTBEAT = 5.0  # s
PATIENCE = 60  # s, for a unit that reads nothing


class Network:
    """Pairs of virtual Ethernet ends, one in the unit's world, one in the phone's (bench/plug)."""

    def __init__(self, history: History, pause: Callable[[float], object]) -> None:
        """`pause` waits so many seconds of the unit's time."""
        self._history, self._pause = history, pause
        self._peers: dict[str, str] = {}  # interface -> the phone's address and prefix
        self.when_up: list[Act] = []

    def do_usb(self, verb: str, address: str = "", gateway: str = "") -> None:
        """up [ADDRESS/PREFIX [GATEWAY]]|down - a phone over USB; an address alone: no default route"""
        self.do_net("usb", verb, address, gateway)

    def do_eth(self, verb: str, address: str = "", gateway: str = "") -> None:
        """up [ADDRESS/PREFIX [GATEWAY]]|down - a network over Ethernet"""
        self.do_net("eth", verb, address, gateway)

    def do_net(self, net: str, verb: str, address: str = "", gateway: str = "") -> None:
        """NAME up ADDRESS/PREFIX [GATEWAY]|down - any other network"""
        name, *usual = NETS.get(net, (net, "", ""))
        if verb == "down":
            self.down(name)
        elif verb == "up" and (address or usual[0]):
            self.up(name, *((address, gateway) if address else usual))
        else:
            raise Failure(f"{net} up [ADDRESS/PREFIX [GATEWAY]] or down?")

    def do_flap(self, net: str, count: str, seed: str) -> None:
        """usb|eth COUNT SEED - so often down or up, 0 to 3 s apart"""
        from random import Random  # takes its time to load

        chance = Random(int(number(seed)))
        for _ in range(int(number(count))):
            self._pause(chance.uniform(0, LONGEST_PAUSE))
            self.do_net(net, "down" if NETS.get(net, net)[0] in self._peers else "up")

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

    def up(self, name: str, address: str, gateway: str) -> None:
        """The phone has the gateway's address, to which the default route leads; "": no route."""
        if name in self._peers:
            self.down(name)
        for act in self.when_up:
            act()
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
        run(PLUG, name, address, gateway, f"/proc/{os.getpid()}/fd/{self._spaces[1]}")

    def unplug(self, name: str) -> None:
        run("ip", "link", "del", name)

    def phone_ip(self, *arguments: str) -> None:
        with self.in_phone():
            run("ip", *arguments)


class App:
    """A TCP server at port 8082, a heartbeat every 5 s, and open ports for the video stream."""

    def __init__(
        self,
        loop: Loop,
        clock: Clock,
        history: History,
        network: Network,
        expect: Callable[..., None],
    ) -> None:
        self._loop, self._history, self._network, self._expect = loop, history, network, expect
        self._server: socket.socket | None = None
        self._line: socket.socket | None = None  # the unit's connection
        self._accepts = self._talks = True
        self._stream: list[socket.socket] = []
        network.when_up.append(self._open)
        clock.every(HEARTBEAT, self._beat)

    def do_app(self, verb: str, *words: str) -> None:
        """LINE - the app sends the line with CR LF: app LampUp
        raw "BYTES"|big COUNT - it sends any bytes; a line of so many bytes
        silent|talk|hang - no heartbeat; every 5 s again; nor does it read
        refuse|accept - its port is closed; open and reachable again
        close|halfclose|drop - ends the connection; vanishes without a word"""
        acts: dict[tuple[str, int], Callable[..., object]] = {
            ("refuse", 0): self._refuse,
            ("accept", 0): self._accept,
            ("silent", 0): lambda: self._talk(False),
            ("hang", 0): self._hang,
            ("talk", 0): lambda: self._talk(True),
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

    def do_ask(self, *words: str) -> None:
        """LINE ANSWER - it hears the answer too: ask TWK? "TWK 0\\r\" """
        self.do_app(*words[:-1])
        self._expect("app", words[-1])

    def _send(self, content: bytes) -> None:
        line = self._connected()
        self._history.note("phone", content)
        try:
            line.sendall(content)
        except OSError:
            self._end(line)

    def _beat(self) -> None:
        if self._talks and self._line:
            self._send(b"KestraApp\r\n")

    def _connected(self) -> socket.socket:
        if not self._line:
            raise Failure("the unit is not connected to the app")
        return self._line

    def _open(self) -> None:
        """Binds its ports before the unit can come."""
        with self._network.in_phone():
            if not self._stream:
                self._stream = [socket.socket(type=socket.SOCK_DGRAM) for _ in STREAM_PORTS]
                for end, port in zip(self._stream, STREAM_PORTS):
                    end.bind(("", port))
            if self._accepts and not self._server:
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

    def _talk(self, talks: bool) -> None:
        self._talks = talks
        if self._line:
            self._hear_from(self._line)

    def _hang(self) -> None:
        self._talks = False
        self._loop.forget(self._connected().fileno())

    def _take_connection(self, server: socket.socket) -> None:
        self._line, (address, _) = server.accept()
        self._line.settimeout(PATIENCE)
        self._line.setsockopt(socket.IPPROTO_TCP, socket.TCP_NODELAY, 1)
        self._history.note("network", f"app: the unit has connected from {address}\n")
        self._hear_from(self._line)

    def _hear_from(self, line: socket.socket) -> None:
        self._loop.forget(line.fileno())
        hear = partial(self._history.note, "app")
        self._loop.hears(line.fileno(), hear, lambda: self._end(line))

    def _end(self, line: socket.socket) -> None:
        self._loop.forget(line.fileno())
        line.close()
        self._line = None if self._line is line else self._line
        self._history.note("network", "app: the unit's connection has ended\n")
