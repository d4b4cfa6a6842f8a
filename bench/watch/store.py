# SPDX-License-Identifier: LicenseRef-KT6120
"""The status store on disk: every key that changes, as "key: old -> new"."""

from bench import Expect, State, to_text

from .history import History


def parse(content: bytes) -> dict[str, str]:
    """The keys of an INI file with their groups, the values as they stand."""
    values = {}
    group = ""
    for line in map(str.strip, to_text(content).split("\n")):
        key, equals, value = line.partition("=")
        if line.startswith("[") and line.endswith("]"):
            group = line[1:-1] + "/"
        elif equals and key:
            values[group + key] = value
    return values


class Store:
    def __init__(self, history: History) -> None:
        self._history = history
        self.values: dict[str, str] = {}
        self.expects = [Expect("store", "KEY VALUE", "the status store on disk", self._look)]

    def hear(self, content: bytes) -> None:
        """What the file holds now."""
        before, self.values = self.values, parse(content)
        for key, value in sorted(self.values.items()):
            old = before.get(key, "-")
            if old != value:
                self._history.note("change", f"{key}: {old} -> {value}\n")

    def _look(self, words: list[str]) -> State:
        key, value = words[0], " ".join(words[1:])
        return State(
            lambda: self.values.get(key, "") == value,
            lambda: f"{key} is {self.values.get(key, 'missing')}",
        )
