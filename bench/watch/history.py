# SPDX-License-Identifier: LicenseRef-KT6120
"""Everything that happened on the bench, in order: a stream of bytes for each kind."""

from collections.abc import Callable

from bench import to_bytes

# What happens, by the name that `expect` has for it.
KINDS = {
    "serial": "bytes of the unit to the MCU",
    "mcu": "of the MCU to the unit",
    "log": "the program log",
    "stdout": "the program's standard output",
    "stderr": "its standard error",
    "calls": "calls of recorded programs, in order",
    "app": "bytes of the unit to the phone",
    "phone": "of the phone to the unit",
    "change": 'changes of the status store: "Battery/Voltage: 6260 -> 4695"',
    "network": "changes of the network",
    "bench": "the bench's own remarks",
}


class Stream:
    def __init__(self) -> None:
        self.content = bytearray()
        self.found = 0  # behind the last text that an expect has met
        self.mark = 0  # where the last mark() was set


class History:
    def __init__(self) -> None:
        self._streams = {kind: Stream() for kind in KINDS}
        self.listeners: list[Callable[[str, bytes], object]] = []
        self.when_marked: list[Callable[[], object]] = []
        # Calls of programs that run side by side come in any order: each is met by itself.
        self.met_calls: set[int] = set()

    def note(self, kind: str, text: bytes | str) -> None:
        """A text of a kind that is made of lines carries its line feed."""
        content = to_bytes(text) if isinstance(text, str) else text
        self._streams[kind].content += content
        for listener in self.listeners:
            listener(kind, content)

    def of(self, kind: str) -> Stream:
        return self._streams[kind]

    def mark(self) -> None:
        """Later expects look only at what happens from now on."""
        for stream in self._streams.values():
            stream.found = stream.mark = len(stream.content)
        for act in self.when_marked:
            act()
