# SPDX-License-Identifier: LicenseRef-KT6120
"""The bench's end of a serial line, whatever carries it."""

import os
import select
import socket
import tty
from collections.abc import Callable

from bench import Failure
from bench.world.loop import Loop


class Line:
    """Of an open file. `others` are closed with it."""

    def __init__(
        self, loop: Loop, file: int, heard: Callable[[bytes], object], *others: int, link: str = ""
    ) -> None:
        os.set_blocking(file, False)
        self._loop = loop
        self._files = [file, *others]
        self._heard = heard
        self._link = link
        self.set_deaf(False)

    def send(self, content: bytes) -> None:
        """All of it, as one arrival at the unit."""
        while self._files and content:
            try:
                content = content[os.write(self._files[0], content) :]
            except BlockingIOError:  # the other end has not read yet
                select.select([], self._files[:1], [], 0.1)
            except OSError:
                return

    def set_deaf(self, deaf: bool) -> None:
        """While deaf, nothing is read: the line's buffer fills up."""
        if self._files:
            self._loop.forget(self._files[0])
            if not deaf:
                self._loop.reads(self._files[0], self._read)

    def close(self) -> None:
        """Every read and write at the other end fails from now on."""
        if self._link and os.path.islink(self._link):
            os.remove(self._link)
        if self._files:
            self._loop.forget(self._files[0])
        while self._files:
            os.close(self._files.pop())

    def _read(self) -> None:
        try:
            content = os.read(self._files[0], 4096)
        except OSError:
            content = b""
        if content:
            self._heard(content)
        else:
            self.close()  # the other end has


def pseudo_terminal(loop: Loop, link: str, heard: Callable[[bytes], object]) -> Line:
    """A line whose far end is linked under that name.

    The bench has that end open too: a terminal that nobody has open is readable for ever. It is raw
    from the start, so that nothing is echoed before the unit opens it.
    """
    near, far = os.openpty()
    tty.setraw(far)
    if os.path.lexists(link):
        os.remove(link)
    os.symlink(os.ttyname(far), link)
    return Line(loop, near, heard, far, link=link)


def to_socket(loop: Loop, path: str, heard: Callable[[bytes], object]) -> Line:
    end = socket.socket(socket.AF_UNIX)
    try:
        end.connect(path)
    except OSError:
        raise Failure(f"nobody is at {path}") from None
    return Line(loop, end.detach(), heard)
