# SPDX-License-Identifier: LicenseRef-KT6120
"""Programs that the bench calls and starts."""

import os
import subprocess
from collections.abc import Callable, Sequence
from functools import partial

from bench import Failure, to_text

from .loop import Loop

PATIENCE = 120  # s, for a slow machine


def run(*command: str) -> str:
    """Runs it to its end; what it said. Raises Failure with that where it is no success."""
    done = subprocess.run(
        command, stdout=subprocess.PIPE, stderr=subprocess.STDOUT, timeout=PATIENCE
    )
    said = to_text(done.stdout).strip()
    if done.returncode != 0:
        raise Failure(f"{' '.join(command)}: {said}")
    return said


class Process:
    """A program that runs beside the bench, heard by functions that take its bytes."""

    def __init__(
        self,
        loop: Loop,
        command: Sequence[str],
        stdout: Callable[[bytes], object] | None = None,
        stderr: Callable[[bytes], object] | None = None,
        ended: Callable[[int], object] = lambda status: None,  # its exit status, or minus a signal
        **options: object,  # of Popen
    ) -> None:
        for name, listener in (("stdout", stdout), ("stderr", stderr)):
            options[name] = subprocess.PIPE if listener else options.get(name)
        options.setdefault("stdin", subprocess.DEVNULL)
        try:
            self.child = subprocess.Popen(command, **options)  # type: ignore[call-overload]
        except OSError as error:
            raise Failure(f"cannot start {command[0]}: {error.strerror}") from None
        self.id: int = self.child.pid
        self._loop = loop
        self._told = ended
        self._hears: list[Callable[[], bool]] = []
        for pipe, listener in ((self.child.stdout, stdout), (self.child.stderr, stderr)):
            if listener:
                os.set_blocking(pipe.fileno(), False)
                loop.reads(pipe.fileno(), hear := partial(self._hear, pipe.fileno(), listener))
                self._hears.append(hear)
        self._end = os.pidfd_open(self.id)
        loop.reads(self._end, self._finish)

    @property
    def running(self) -> bool:
        return self.id > 0

    def stop(self) -> None:
        """Ends it, and waits for that."""
        if self.running:
            self.child.kill()
            self._finish()

    def _hear(self, pipe: int, listener: Callable[[bytes], object]) -> bool:
        try:
            said = os.read(pipe, 65536)
        except BlockingIOError:
            return False
        if said:
            listener(said)
        else:
            self._loop.forget(pipe)
        return bool(said)

    def _finish(self) -> None:
        status = self.child.wait()
        self.id = 0
        self._loop.forget(self._end)
        os.close(self._end)
        for hear in self._hears:
            while hear():
                pass
        for pipe in (self.child.stdout, self.child.stderr):
            if pipe:
                self._loop.forget(pipe.fileno())
                pipe.close()
        self._told(status)
