# SPDX-License-Identifier: LicenseRef-KT6120
"""The text form of commands: words with blanks between them.

A part in double quotes may hold blanks and the escapes \\r \\n \\t \\0 \\" \\\\ and \\xNN; outside
quotes nothing is special. (shlex has other escapes and takes more characters for quotes.)
"""

import re

from bench import Failure, to_text

ESCAPES = {"r": "\r", "n": "\n", "t": "\t", "0": "\0", '"': '"', "\\": "\\"}
LETTERS = {ord(byte): "\\" + letter for letter, byte in ESCAPES.items() if byte != '"'}

QUOTED = r'"((?:[^"\\]|\\.)*)"'
WORD = re.compile(rf'(?:[^ \t\r\n"]|{QUOTED})+|"', re.DOTALL)


def _unescape(match: re.Match[str]) -> str:
    escape = match[1]
    if escape in ESCAPES:
        return ESCAPES[escape]
    if escape[0] != "x":
        raise Failure(f"unknown escape \\{escape}")
    if len(escape) == 1:
        raise Failure("\\x wants two hexadecimal digits")
    return to_text(bytes.fromhex(escape[1:]))


def split(line: str) -> list[str]:
    words = []
    for match in WORD.finditer(line):
        if match[0] == '"':
            raise Failure("a quote is not closed")
        words.append(
            re.sub(
                QUOTED,
                lambda quoted: re.sub(
                    r"\\(x[0-9a-fA-F]{2}|.)", _unescape, quoted[1], flags=re.DOTALL
                ),
                match[0],
                flags=re.DOTALL,
            )
        )
    return words


def printable(content: bytes) -> str:
    """Bytes as a person can read them: control bytes and bytes above ASCII as escapes."""
    return "".join(
        LETTERS.get(byte) or (chr(byte) if 0x20 <= byte < 0x7F else f"\\x{byte:02x}")
        for byte in content
    )
