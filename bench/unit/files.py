# SPDX-License-Identifier: LicenseRef-KT6120
"""Files of the unit, as others on it would leave them."""

from bench import Expect, State, Verb, number, to_bytes, to_text
from bench.watch.store import parse

from . import places
from .machine import Machine

TEXT_SHOWN = 2000  # bytes


class Files:
    def __init__(self, machine: Machine) -> None:
        self._machine = machine
        self.verbs = [
            Verb("web", "KEYWORD [ARGUMENT]", "the page writes into the commands file", self._web),
            Verb(
                "web",
                "replace KEYWORD...|delete",
                "it puts another file in its place; takes it away",
            ),
            Verb(
                "config",
                "KEY VALUE",
                "writes the configuration file: config Lamp/MaxCurrent 30",
                lambda words: self._set(places.CONFIGURATION, words),
                2,
            ),
            Verb(
                "store",
                "KEY VALUE",
                "writes the status store, as another program would",
                lambda words: self._set(places.STORE, words),
                2,
            ),
            Verb(
                "file",
                "PATH TEXT",
                "makes a file with that content",
                lambda words: machine.write(words[0], to_bytes(" ".join(words[1:]))),
                2,
            ),
            Verb("folder", "PATH", "makes a folder", lambda words: machine.mkdir(words[0])),
            Verb(
                "remove",
                "PATH",
                "removes a file or a folder with all it holds",
                lambda words: machine.remove(words[0]),
            ),
            Verb("readonly", "PATH", "nothing can be written there", self._protect),
            Verb(
                "writable",
                "PATH",
                "takes readonly back",
                lambda words: machine.run("umount", "--lazy", words[0]),
            ),
        ]
        self.expects = [
            Expect("file", "PATH TEXT", "the file holds the text", self._holds),
            Expect("nofile", "PATH", "there is no such file", self._missing),
            Expect("lines", "PATH N", "the file has N lines", self._lines),
        ]

    def content(self, path: str) -> bytes:
        return self._machine.read(path) or b""

    def _web(self, words: list[str]) -> None:
        if words[0] == "delete":
            self._machine.remove(places.COMMANDS)
        elif words[0] == "replace":
            line = to_bytes(" ".join(words[1:]) + "\n")
            self._machine.write(places.COMMANDS, line, "replace")
        else:
            self._machine.write(places.COMMANDS, to_bytes(" ".join(words) + "\n"), "overwrite")

    def _set(self, path: str, words: list[str]) -> None:
        """A key of an INI file, which is replaced as a whole."""
        key, value = words[0] if "/" in words[0] else "General/" + words[0], " ".join(words[1:])
        quoted = '"' + value.replace('"', '\\"') + '"'
        values = parse(self.content(path)) | {key: quoted if set(',;"') & set(value) else value}
        groups: dict[str, list[str]] = {}
        for whole, text in values.items():
            group, _, name = whole.partition("/")
            groups.setdefault(group, []).append(f"{name}={text}\n")
        sections = (f"[{group}]\n" + "".join(lines) for group, lines in groups.items())
        self._machine.write(path, to_bytes("\n".join(sections)), "replace")

    def _protect(self, words: list[str]) -> None:
        self._machine.run("mount", "--bind", words[0], words[0])
        self._machine.run("mount", "-o", "remount,bind,ro", words[0])

    def _holds(self, words: list[str]) -> State:
        text = to_bytes(" ".join(words[1:]))
        return State(
            lambda: text in self.content(words[0]),
            lambda: f"{words[0]} holds:\n{to_text(self.content(words[0])[-TEXT_SHOWN:])}",
        )

    def _missing(self, words: list[str]) -> State:
        return State(lambda: not self._machine.exists(words[0]), lambda: f"{words[0]} is there")

    def _lines(self, words: list[str]) -> State:
        wanted = int(number(words[1]))
        return State(
            lambda: self.content(words[0]).count(b"\n") == wanted,
            lambda: f"{words[0]} has {self.content(words[0]).count(10)}",
        )
