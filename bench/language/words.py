# SPDX-License-Identifier: LicenseRef-KT6120
"""The text form of commands: words with blanks between them.

A part in double quotes may hold blanks and the escapes \\r \\n \\t \\0 \\" \\\\ and \\xNN; outside
quotes nothing is special. (shlex has other escapes and takes more characters for quotes.)
"""

import re

from bench import Failure, to_text

ESCAPES = {"r": "\r", "n": "\n", "t": "\t", "0": "\0", '"': '"', "\\": "\\"}
LETTERS = {ord(byte): "\\" + letter for letter, byte in ESCAPES.items() if byte != '"'}

QUOTED = re.compile(r'"((?:[^"\\]|\\.)*)"', re.DOTALL)
WORD = re.compile(rf'(?:[^ \t\r\n"]|{QUOTED.pattern})+|"', re.DOTALL)
ESCAPE = re.compile(r"\\(x[0-9a-fA-F]{2}|.)", re.DOTALL)


def _unescape(match: re.Match[str]) -> str:
    escape = match[1]
    if escape in ESCAPES:
        return ESCAPES[escape]
    if escape[0] != "x":
        raise Failure(f"unknown escape \\{escape}")
    if len(escape) == 1:
        raise Failure("\\x wants two hexadecimal digits")
    return to_text(bytes.fromhex(escape[1:]))


def _unquote(match: re.Match[str]) -> str:
    return ESCAPE.sub(_unescape, match[1])


def split(line: str) -> list[str]:
    words: list[str] = []
    for match in WORD.finditer(line):
        if match[0] == '"':
            raise Failure("a quote is not closed")
        words.append(QUOTED.sub(_unquote, match[0]))
    return words


def printable(content: bytes) -> str:
    """Bytes as a person can read them: control bytes and bytes above ASCII as escapes."""
    return "".join(
        LETTERS.get(byte) or (chr(byte) if 0x20 <= byte < 0x7F else f"\\x{byte:02x}")
        for byte in content
    )


def quoted(content: bytes) -> str:
    """As one word that can be read again."""
    return '"' + printable(content).replace('"', '\\"') + '"'
