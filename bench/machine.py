# SPDX-License-Identifier: LicenseRef-KT6120
"""The unit's computer: its files and processes, as whatever stands around the program deals with them.

On a desk it is the sandbox. On a board the agent has one of these and the bench calls its methods from
afar; so this module needs nothing of Debian's beside Python.
"""

import contextlib
import ctypes
import os
import signal

from bench import Failure, to_text
from bench.world import Act, Heard, Loop, Process, run

LOOKUP_INTERVAL = 0.1  # s
# Of inotify: modified, moved to, created, deleted; of folders only.
INTERESTING = 0x2 | 0x80 | 0x100 | 0x200 | 0x01000000

GAUGES = ("rss", "descriptors", "children", "zombies", "threads", "cpu", "family")

libc = ctypes.CDLL(None, use_errno=True)


class FolderWatch:
    """Calls whenever something in the folder of a file has changed."""

    def __init__(self, loop: Loop, path: str, changed: Act) -> None:
        self._folder, self._changed = os.fsencode(os.path.dirname(path)), changed
        self._queue = libc.inotify_init1(os.O_NONBLOCK | os.O_CLOEXEC)
        if self._queue < 0:
            raise Failure("no inotify queue left")
        self._watched = -1
        loop.reads(self._queue, self._read)
        # A folder in use goes away without a word, so it is looked up again and again; to watch the
        # same one twice changes nothing.
        loop.timer(self._look).every(LOOKUP_INTERVAL)
        self._look()

    def _look(self) -> None:
        now = libc.inotify_add_watch(self._queue, self._folder, INTERESTING)
        if now not in (-1, self._watched):
            self._changed()  # it may hold something already
        self._watched = now

    def _read(self) -> None:
        os.read(self._queue, 65536)
        self._changed()


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
        """How: "create"; "replace" what is there by a rename; "overwrite" it as it stands.

        To overwrite is one change for whoever watches the file, where cutting it first would be another.
        What the old content has more becomes blank lines.
        """
        place = path + ".new" if how == "replace" else path
        flags = os.O_WRONLY | (0 if how == "overwrite" else os.O_CREAT | os.O_TRUNC)
        with open(os.open(place, flags, 0o644), "wb", buffering=0) as file:
            file.write(content.ljust(os.fstat(file.fileno()).st_size, b"\n"))
        if how == "replace":
            os.rename(place, path)

    def remove(self, path: str) -> None:
        """A file, or a folder with all that it holds; nothing where there is none."""
        if os.path.isdir(path) and not os.path.islink(path):
            from shutil import rmtree  # takes its time to load

            rmtree(path)
        elif os.path.lexists(path):
            os.remove(path)

    def install(self, program: str, path: str, aside: str) -> None:
        """Copies a program there; what stood there is put aside first."""
        self.mkdir(os.path.dirname(path))
        for source, place in ((path, aside), (program, path)):
            if (content := self.read(source)) is not None:
                self.remove(place)
                self.write(place, content)
                os.chmod(place, 0o755)

    def link(self, target: str, path: str) -> None:
        """In the place of what is there."""
        self.remove(path)
        os.symlink(target, path)

    def mkdir(self, path: str) -> None:
        os.makedirs(path, exist_ok=True)

    def exists(self, path: str) -> bool:
        return os.path.exists(path)

    def which(self, name: str) -> str | None:
        places = (f"/usr/sbin/{name}", f"/usr/bin/{name}")
        return next((place for place in places if os.access(place, os.X_OK)), None)

    def run(self, *command: str) -> str:
        return run(*command)

    def spawn(self, command: list[str], heard: Heard) -> None:
        """A program that runs on."""
        Process(self._loop, command, stdout=heard)

    def follow(self, path: str, heard: Heard) -> None:
        """Lines that are appended to a file. One that is replaced or cut is read from its start."""
        inode = position = 0

        def read() -> None:
            nonlocal inode, position
            with contextlib.suppress(OSError), open(path, "rb") as file:
                state = os.fstat(file.fileno())
                if state.st_ino != inode or state.st_size < position:
                    inode, position = state.st_ino, 0
                file.seek(position)
                text = file.read()
                whole = text[: text.rfind(b"\n") + 1]  # the rest of the line is still to come
                position += len(whole)
                if whole:
                    heard(whole)

        FolderWatch(self._loop, path, read)

    def watch(self, path: str, heard: Heard) -> None:
        """The whole of a file, at each change."""
        told = b""

        def look() -> None:
            nonlocal told
            content = self.read(path)
            if content is not None and content != told:
                told = content
                heard(content)

        FolderWatch(self._loop, path, look)

    def gauges(self, process: int) -> dict[str, float]:
        """What the system tells about a running program.

        Resident MiB, open descriptors, children, those ended and not reaped, threads, and seconds of
        processor since its start: its own; its own and those of its ended children.
        """
        place = f"/proc/{process}"
        status = to_text(self.read(place + "/status") or b"").splitlines()
        of = dict(line.split(":\t", 1) for line in status)
        stat = self._stat(str(process))
        others = map(self._stat, self._processes())
        children = [fields[0] for fields in others if fields[1] == str(process)]
        ticks = os.sysconf("SC_CLK_TCK")
        values = (
            float(of.get("VmRSS", "0 kB").split()[0]) / 1024,
            len(os.listdir(place + "/fd")) if os.path.isdir(place) else 0,
            len(children),
            children.count("Z"),
            float(of.get("Threads", 0)),
            sum(map(int, stat[11:13])) / ticks,
            sum(map(int, stat[11:15])) / ticks,
        )
        return dict(zip(GAUGES, values, strict=True))

    def processes_with(self, text: str) -> int:
        """Running programs whose command line holds the text, its words with blanks between."""
        lines = (self.read(f"/proc/{process}/cmdline") or b"" for process in self._processes())
        return sum(text in to_text(line.replace(b"\0", b" ")) for line in lines)

    def end_all(self, variable: str) -> None:
        """Ends every process that has this in its environment, and waits for that."""

        def marked(process: str) -> bool:
            return f"{variable}=".encode() in (self.read(f"/proc/{process}/environ") or b"")

        while found := list(filter(marked, self._processes())):
            for process in found:
                with contextlib.suppress(ProcessLookupError):
                    os.kill(int(process), signal.SIGKILL)

    def _processes(self) -> list[str]:
        return [name for name in os.listdir("/proc") if name.isdigit()]

    def _stat(self, process: str) -> list[str]:
        """The fields behind the name: [0] state, [1] parent, [11:15] ticks of processor time."""
        line = to_text(self.read(f"/proc/{process}/stat") or b"")
        return line[line.rfind(")") + 2 :].split() or ["", ""]
