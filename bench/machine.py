# SPDX-License-Identifier: LicenseRef-KT6120
"""The unit's computer: its files and processes, as the bench deals with them.

On a desk it is the sandbox. On a board the agent has one of these and the bench calls its methods from
afar; so this module needs nothing but Python.
"""

import contextlib
import os
import signal
from functools import partial

from bench import to_text
from bench.world import CHECK_INTERVAL, Heard, Loop, Process, run

GAUGES = {
    "rss": "resident MiB of the program; growth is counted from the last mark",
    "descriptors": "open ones",
    "children": "of the program",
    "zombies": "children that have ended and were not reaped",
    "threads": "of the program",
    "cpu": "seconds of processor since its start",
    "family": "the same, with its children that have exited",
}

# The first process of a sandbox and this one name the unit's programs as well.
BENCH = ("1", str(os.getpid()))
TICKS = os.sysconf("SC_CLK_TCK")


class Machine:
    def __init__(self, loop: Loop) -> None:
        self._loop = loop

    def read(self, path: str) -> bytes | None:
        """None where there is no such file."""
        try:
            with open(path, "rb") as file:
                return file.read()
        except OSError:
            return None

    def write(self, path: str, content: bytes, how: str = "create") -> None:
        """How: "create"; "replace" what is there by a rename; "overwrite" it without truncating it.

        An observer of the file sees one change then, not two. A longer old content ends in blank lines.
        """
        place = path + ".new" if how == "replace" else path
        os.makedirs(os.path.dirname(path), exist_ok=True)
        if os.path.islink(place):  # a stand-in's: what it leads to stays as it is
            os.remove(place)
        flags = os.O_WRONLY | (0 if how == "overwrite" else os.O_CREAT | os.O_TRUNC)
        with open(os.open(place, flags, 0o644), "wb", buffering=0) as file:
            file.write(content.ljust(os.fstat(file.fileno()).st_size, b"\n"))
        if how == "replace":
            os.rename(place, path)

    def link(self, target: str, path: str) -> None:
        """Replaces the file that is there."""
        os.makedirs(os.path.dirname(path), exist_ok=True)
        os.symlink(target, path + ".new")
        os.rename(path + ".new", path)

    def which(self, name: str) -> str:
        """The program of that name; "" where there is none."""
        return next(filter(os.path.exists, (f"/usr/sbin/{name}", f"/usr/bin/{name}")), "")

    def run(self, *command: str) -> str:
        return str(self._loop.apart(partial(run, *command)))

    def spawn(self, command: list[str], heard: Heard) -> None:
        """Starts a program that runs on."""
        Process(self._loop, command, stdout=heard)

    def follow(self, path: str, heard: Heard) -> None:
        """Lines that are appended to a file. One that is replaced or cut is read from its start."""
        known = b""

        def look(content: bytes) -> None:
            nonlocal known
            whole = content[: content.rfind(b"\n") + 1]  # the rest of the line is still to come
            new, known = whole.removeprefix(known), whole
            if new:
                heard(new)

        self.watch(path, look)

    def watch(self, path: str, heard: Heard) -> None:
        """The whole of a file, at each change."""
        known, last = (0, 0, 0), b""

        def look() -> None:
            nonlocal known, last
            with contextlib.suppress(OSError):
                file = os.stat(path)
                # Two changes may have the same time.
                state = file.st_ino, file.st_size, file.st_mtime_ns
                content = self.read(path) if state != known else None
                known = state
                if content not in (None, last):
                    last = content or b""
                    heard(last)

        self._loop.timer(look).start(0, CHECK_INTERVAL)
        look()

    def gauges(self, process: int) -> dict[str, float]:
        """What the system shows of a running program."""
        lines = self._of_all("stat").items()
        stats = {pid: line.rpartition(b")")[2].split() for pid, line in lines}  # from the state on
        stat = stats.get(str(process)) or [b"0"] * 22
        parent, files = str(process).encode(), f"/proc/{process}/fd"
        children = [fields[0] for fields in stats.values() if fields[1:2] == [parent]]
        own, system, reaped, reaped_system = (int(ticks) / TICKS for ticks in stat[11:15])
        return {
            "rss": int(stat[21]) * os.sysconf("SC_PAGE_SIZE") / 2**20,
            "descriptors": len(os.listdir(files)) if os.path.isdir(files) else 0,
            "children": len(children),
            "zombies": children.count(b"Z"),
            "threads": int(stat[17]),
            "cpu": own + system,
            "family": own + system + reaped + reaped_system,
        }

    def processes_with(self, text: str) -> int:
        """How many have the text in their command line, its words with blanks between."""
        lines = [line for pid, line in self._of_all("cmdline").items() if pid not in BENCH]
        return sum(text in to_text(line.replace(b"\0", b" ")) for line in lines)

    def end_all(self, variable: str) -> None:
        """Kills every process that has this in its environment, and waits until none is left."""
        mark = f"{variable}=".encode()
        while found := [pid for pid, has in self._of_all("environ").items() if mark in has]:
            for pid in found:
                with contextlib.suppress(ProcessLookupError):
                    os.kill(int(pid), signal.SIGKILL)

    def _of_all(self, file: str) -> dict[str, bytes]:
        """That file of /proc of each process."""
        pids = filter(str.isdigit, os.listdir("/proc"))
        return {pid: self.read(f"/proc/{pid}/{file}") or b"" for pid in pids}
