#!/usr/bin/python3
# SPDX-License-Identifier: LicenseRef-KT6120
"""Sends the unit's page what nobody should, and then commands as fast as it takes them.

Usage, in the sandbox with an installed tree: requests.py BUILD. The real program runs on the bench,
behind the real web server. A bad request is refused with its status and leaves the commands file as
it was; of the good ones each is carried out once, in order.
"""

import concurrent.futures
import fcntl
import json
import os
import re
import signal
import socket
import subprocess
import sys
import time
from pathlib import Path

sys.path.insert(0, str(Path(__file__).resolve().parents[2]))

from bench.desk import Desk

COMMANDS = "/var/www/html/commands.txt"
JSON = "Content-Type: application/json"
OWN = "Origin: http://127.0.0.1"
FORM = "Content-Type: application/x-www-form-urlencoded"
LAMP = '{"command":"LAMPUP"}'
failures = []


def check(condition, what):
    if not condition:
        failures.append(what)
        print("FAILED ", what, flush=True)


def ask(head, body="", length=True):
    """Status of the answer to a request as it stands, and its body; 0 when there was none."""
    with socket.create_connection(("127.0.0.1", 80), timeout=60) as line:
        head = [head, "Host: 127.0.0.1", "Connection: close"] if isinstance(head, str) else head
        if length and body:
            head = head + [f"Content-Length: {len(body)}"]
        try:
            line.sendall("\r\n".join(head + ["", body]).encode())
            answer = b""
            while piece := line.recv(65536):
                answer += piece
        except ConnectionError:
            return 0, b""
    if not answer.startswith(b"HTTP/1.1 "):
        return 0, answer
    return int(answer[9:12]), answer.split(b"\r\n\r\n", 1)[1]


def post(*headers, body=LAMP):
    return (["POST /api/commands HTTP/1.1", "Host: 127.0.0.1", "Connection: close", *headers], body)


def own(body):
    return post(OWN, JSON, body=body)


def get(path, method="GET", host="127.0.0.1"):
    return ([f"{method} {path} HTTP/1.1", f"Host: {host}", "Connection: close"], "")


def command(name, **argument):
    return own(json.dumps({"command": name, **argument}))


BAD = [
    # (what, statuses that refuse it, request)
    ("a command by GET", {405}, get("/api/commands")),
    ("a command in the query", {405}, get("/api/commands?command=LAMPUP")),
    ("by PUT", {405}, get("/api/commands", "PUT")),
    ("by OPTIONS", {200, 405}, get("/api/commands", "OPTIONS")),
    ("by a method that is none", {400, 405, 501}, get("/api/commands", "LAMPUP")),
    ("no origin", {403}, post(JSON)),
    ("another site's origin", {403}, post("Origin: http://example.org", JSON)),
    ("an origin without name", {403}, post("Origin: null", JSON)),
    ("an origin that begins like ours", {403}, post("Origin: http://127.0.0.1.example.org", JSON)),
    ("another port's origin", {403}, post("Origin: http://127.0.0.1:8080", JSON)),
    ("two origins", {400, 403}, post("Origin: http://example.org", OWN, JSON)),
    ("a form", {415}, post(OWN, FORM, body="command=LAMPUP")),
    ("plain text, as a form can send", {415}, post(OWN, "Content-Type: text/plain")),
    ("no type", {415}, post(OWN)),
    ("no body", {400, 411}, post(OWN, JSON, body="")),
    ("no JSON", {400}, own("LAMPUP")),
    ("a list", {400}, own('["LAMPUP"]')),
    ("deeply nested", {400}, own("[" * 200)),
    ("a word that is none", {400}, command("REBOOT")),
    ("a second line", {400}, command("LAMPUP\nLAMPOFF")),
    ("a second line in the argument", {400}, command("MODEL", argument="x\nLAMPUP")),
    ("a line feed at the end", {400}, command("MODEL", argument="x\n")),
    ("a NUL", {400}, command("MODEL", argument="x\0")),
    ("a line separator", {400}, command("MODEL", argument="x\u2028y")),
    ("a blank", {400}, command("MODEL", argument="x y")),
    ("a long name", {400}, command("MODEL", argument="x" * 33)),
    ("no argument", {400}, command("MODEL")),
    ("sonde 2", {400}, command("SONDE", argument="2")),
    ("sonde as a number", {400}, command("SONDE", argument=1)),
    ("an argument too many", {400}, command("LAMPUP", argument="1")),
    ("a member too many", {400}, command("SONDE", argument="1", also="LAMPUP")),
    ("a body too long for a command", {413}, own('{"command":"LAMPUP"' + " " * 300 + "}")),
    ("a body too long for the server", {413}, own(" " * 5000)),
    ("another path", {404}, get("/api/commandsx")),
    ("out of the folder", {400, 403, 404}, get("/../../etc/passwd")),
    ("out of it, encoded", {400, 403, 404}, get("/%2e%2e/%2e%2e/etc/passwd")),
    ("the commands file", {404}, get("/commands.txt")),
    ("the store", {404}, get("/KT6120.ini")),
    ("events by POST", {405, 411}, get("/api/events", "POST")),
    ("a history of for ever", {400}, get("/api/history?range=ever")),
    ("a name on the internet", {421}, get("/api/state", host="unit.example.org")),
    ("one that begins like an address", {421}, get("/api/state", host="127.0.0.1.example.org")),
    ("one that ends like ours", {421}, get("/metrics", host="example-local:80")),
]


def content():
    with open(COMMANDS, "rb") as file:
        return file.read(), os.stat(COMMANDS).st_mtime_ns


def heard(history):
    """What the unit has told the microcontroller."""
    told = re.findall(rb"LAMP:OFF|COILER:ZERO", history.of("serial").content)
    return [line.decode() for line in told]


def within(seconds, condition):
    end = time.monotonic() + seconds
    while not condition():
        if time.monotonic() > end:
            return False
        time.sleep(0.05)
    return True


def try_bad():
    for what, statuses, (head, body) in BAD:
        before = content()
        status = ask(head, body)[0]
        check(status in statuses, f"{what}: {status}, not {sorted(statuses)}")
        check(content() == before, f"{what}: the commands file was written")


def try_own_names():
    for name in ("127.0.0.1:8080", "[::1]", "localhost", "Unit-7.local.", socket.gethostname()):
        status = ask(*get("/api/state", host=name))[0]
        check(status == 200, f"by the name {name}: {status}")


def later(request):
    """Asks in a thread of its own; calling the result waits for the status."""
    asked = concurrent.futures.ThreadPoolExecutor(1).submit(ask, *request)
    return lambda: asked.result()[0]


def try_another_writer():
    """What is answered 200 was carried out, and whoever locks the file has it for himself."""
    unit = int(subprocess.check_output(["pidof", "KT6120"]))
    with open(COMMANDS, "r+b", buffering=0) as file:
        os.kill(unit, signal.SIGSTOP)
        before = os.stat(COMMANDS).st_mtime_ns  # looking into it would count as the unit's reading
        answer = later(command("RESET"))
        check(within(60, lambda: os.stat(COMMANDS).st_mtime_ns != before), "RESET was not written")
        file.write(b"LAMPOFF\n")
        os.kill(unit, signal.SIGCONT)
        check((status := answer()) == 409, f"another's line in place of ours: {status}")

        os.kill(unit, signal.SIGSTOP)
        began = time.monotonic()
        for name in ("RESET", "LAMPOFF"):
            check((status := ask(*command(name))[0]) == 504, f"{name}, unit stopped: {status}")
        check(time.monotonic() - began < 30, "a stopped unit was waited for")
        os.kill(unit, signal.SIGCONT)

        fcntl.flock(file, fcntl.LOCK_EX)
        before = content()
        check((status := ask(*command("RESET"))[0]) == 503, f"while another has the lock: {status}")
        check(content() == before, "the commands file was written while another had the lock")


def try_locked_lamp():
    """A Tallwick probe locks the lamp: what the unit did not do is not answered 200."""
    check(within(60, lambda: b'"attached"' in ask(*get("/api/state"))[1]), "no probe is shown")
    while (status := ask(*command("LAMPUP"))[0]) == 429:  # after the many
        time.sleep(0.05)
    check(status == 504, f"a lamp that stays off: {status}")


def try_headers():
    line = socket.create_connection(("127.0.0.1", 80), timeout=60)
    line.sendall(b"GET / HTTP/1.1\r\nHost: 127.0.0.1\r\nConnection: close\r\n\r\n")
    head = b""
    while b"\r\n\r\n" not in head:
        head += line.recv(4096)
    for wanted in (
        b"default-src 'none'; script-src 'self';",
        b"frame-ancestors 'none'",
        b"nosniff",
    ):
        check(wanted in head, f"no {wanted.decode()} in the headers")
    check(b"unsafe" not in head, "something unsafe in the headers")


def try_many(history):
    """Forty commands, alternating, faster than is allowed: some are told to wait, none is lost."""
    refused = 0
    wanted = heard(history)
    began = time.monotonic()
    for number in range(40):
        name, line = (("LAMPOFF", "LAMP:OFF"), ("RESET", "COILER:ZERO"))[number % 2]
        while (status := ask(*command(name))[0]) == 429:
            refused += 1
            time.sleep(0.05)
        check(status == 200, f"command {number}: {status}")
        wanted.append(line)
    # Twenty at once and five a second: a machine so slow that it asks for no more is none.
    check(refused > 0 or time.monotonic() - began > 4, "40 commands at once were not too many")
    within(10, lambda: len(heard(history)) >= len(wanted))
    check(
        heard(history) == wanted, f"done: {len(heard(history))} of {len(wanted)}, or not in order"
    )


def viewer():
    """A connection that asks for events, and whether it was let in."""
    line = socket.create_connection(("127.0.0.1", 80), timeout=60)
    line.sendall(b"GET /api/events HTTP/1.1\r\nHost: 127.0.0.1\r\n\r\n")
    return line, line.recv(4096).startswith(b"HTTP/1.1 200")


def try_viewers():
    """Eight may look; a ninth takes the place of the one that came first, and of no other."""
    viewers = [viewer() for _ in range(9)]
    check(all(let_in for _, let_in in viewers), "a viewer was refused")

    def displaced(line, end):
        received = b""
        while (
            time.monotonic() < end and b"displaced" not in received and (piece := line.recv(4096))
        ):
            received += piece
        return b"event: displaced" in received

    check(displaced(viewers[0][0], time.monotonic() + 60), "the oldest was not displaced")
    check(not displaced(viewers[1][0], time.monotonic() + 1), "another was displaced")


def main():
    with Desk(sys.argv[1]) as desk:
        desk.run("camera missing")
        desk.run("call KT6120_gpio_write.sh takes 0.05")
        desk.run("unit start")
        desk.run('expect serial "BAT:V?"')
        desk.page.serve()
        for part in (
            try_bad,
            try_headers,
            try_own_names,
            try_viewers,
            try_another_writer,
            lambda: try_many(desk.history),
        ):
            desk.loop.apart(part)
        desk.run("mcu TWK 1")
        desk.loop.apart(try_locked_lamp)
    print("verdict: " + ("the page holds" if not failures else f"{len(failures)} failures"))
    return 1 if failures else 0


sys.exit(main())
