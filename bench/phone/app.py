# SPDX-License-Identifier: LicenseRef-KT6120
"""The phone at the far end of the networks, with its viewing app.

A TCP server at port 8082, a heartbeat every 5 s, and open ports for the video stream.
"""

import socket
from collections.abc import Callable
from functools import partial

from bench import Failure, Verb, number, to_bytes
from bench.watch.history import History
from bench.world.clock import Clock
from bench.world.loop import Loop

from .network import Network

APP_PORT = 8082
STREAM_PORTS = (49152, 8001)  # so that the stream finds somebody at home; nobody reads there
HEARTBEAT = 5.0  # s
PATIENCE = 60  # s, for a unit that does not take what is sent


class App:
    def __init__(
        self,
        loop: Loop,
        clock: Clock,
        history: History,
        network: Network,
        expect: Callable[[list[str]], object],
    ) -> None:
        self._loop = loop
        self._history = history
        self._network = network
        self._expect = expect
        self._server: socket.socket | None = None
        self._line: socket.socket | None = None  # the unit's connection
        self._talks = self._reads = True
        self._listen()
        with network.in_phone():
            self._stream = [socket.socket(type=socket.SOCK_DGRAM) for _ in STREAM_PORTS]
        for end, port in zip(self._stream, STREAM_PORTS):
            end.bind(("", port))
        clock.every(HEARTBEAT, self._beat)
        # What it can be told, with the number of arguments; anything else it says to the unit.
        self._acts: dict[tuple[str, int], Callable[..., object]] = {
            ("refuse", 0): self._refuse,
            ("accept", 0): self._listen,
            ("silent", 0): lambda: self._behave(talks=False, reads=self._reads),
            ("hang", 0): lambda: self._behave(talks=False, reads=False),
            ("talk", 0): lambda: self._behave(talks=True, reads=True),
            ("drop", 0): lambda: network.set_reachable(False),
            ("close", 0): lambda: self._end(self._connected()),
            ("halfclose", 0): lambda: self._connected().shutdown(socket.SHUT_WR),
            ("raw", 1): lambda text: self.send(to_bytes(text)),
            ("big", 1): lambda count: self.send(b"x" * int(number(count)) + b"\r\n"),
        }
        self.verbs = [
            Verb("app", "LINE", "the app sends the line with CR LF: app LampUp", self.command),
            Verb("app", 'raw "BYTES"|big COUNT', "it sends bytes as told; a line of so many bytes"),
            Verb("app", "silent|talk|hang", "no heartbeat; every 5 s again; nor does it read"),
            Verb("app", "refuse|accept", "its port is closed; open and reachable again"),
            Verb("app", "close|halfclose|drop", "ends the connection; vanishes without a word"),
            Verb(
                "ask", "LINE ANSWER", r'it hears the answer too: ask TWK? "TWK 0\r"', self._ask, 2
            ),
        ]

    def command(self, words: list[str]) -> None:
        act = self._acts.get((words[0], len(words) - 1))
        if act:
            act(*words[1:])
        else:
            self.send(to_bytes(" ".join(words)) + b"\r\n")

    def _ask(self, words: list[str]) -> None:
        self.command(words[:-1])
        self._expect(["app", words[-1]])

    def send(self, content: bytes) -> None:
        line = self._connected()
        self._history.note("phone", content)
        try:
            line.sendall(content)
        except OSError:
            self._end(line)

    def _beat(self) -> None:
        if self._talks and self._line:
            self.send(b"KestraApp\r\n")

    def _connected(self) -> socket.socket:
        if not self._line:
            raise Failure("the unit is not connected to the app")
        return self._line

    def _listen(self) -> None:
        self._network.set_reachable(True)
        if not self._server:
            with self._network.in_phone():
                self._server = socket.create_server(("", APP_PORT))
            self._loop.reads(self._server.fileno(), partial(self._take_connection, self._server))

    def _refuse(self) -> None:
        if self._server:
            self._loop.forget(self._server.fileno())
            self._server.close()
            self._server = None
        if self._line:
            self._end(self._line)

    def _behave(self, talks: bool, reads: bool) -> None:
        self._talks, self._reads = talks, reads
        if self._line:
            self._loop.forget(self._line.fileno())
            self._hear_from(self._line)

    def _take_connection(self, server: socket.socket) -> None:
        self._line, (address, _) = server.accept()
        self._line.settimeout(PATIENCE)
        self._line.setsockopt(socket.IPPROTO_TCP, socket.TCP_NODELAY, 1)
        self._history.note("network", f"app: the unit has connected from {address}\n")
        self._hear_from(self._line)

    def _hear_from(self, line: socket.socket) -> None:
        if self._reads:
            self._loop.reads(line.fileno(), partial(self._hear, line))

    def _hear(self, line: socket.socket) -> None:
        try:
            content = line.recv(65536)
        except OSError:
            content = b""
        if content:
            self._history.note("app", content)
        else:
            self._end(line)

    def _end(self, line: socket.socket) -> None:
        self._loop.forget(line.fileno())
        line.close()
        if self._line is line:
            self._line = None
        self._history.note("network", "app: the unit's connection has ended\n")
