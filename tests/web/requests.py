# SPDX-License-Identifier: LicenseRef-KT6120
"""Sends the unit's page bad requests, good ones faster than it allows, and commands beside another writer.

Usage, in the sandbox with an installed tree: python3 -m tests.web.requests BUILD. The bench runs the real
program, and the page behind the real web server. The first failure ends it.
"""

import concurrent.futures
import fcntl
import http.client
import itertools
import json
import os
import re
import select
import signal
import socket
import subprocess
import sys
import time
from functools import partial

from bench.desk import Desk
from bench.unit import SANITIZER

CLOCK = "/run/bench/clock"  # its step
FAKED = dict(
    LD_PRELOAD="/usr/$LIB/faketime/libfaketime.so.1",
    FAKETIME_TIMESTAMP_FILE=CLOCK,
    FAKETIME_NO_CACHE="1",
    FAKETIME_DONT_FAKE_MONOTONIC="1",
    NO_FAKE_STAT="1",
    ASAN_OPTIONS=os.environ.get("ASAN_OPTIONS", "") + SANITIZER,
)
COMMANDS = "/var/www/html/commands.txt"
LOG = "/home/pi/KT6120/bin/commands_log.log"
STORE = "/home/pi/KT6120/bin/KT6120.ini"
LAMP = '{"command":"LAMPUP"}'
OWN = {"Host": "127.0.0.1", "Origin": "http://127.0.0.1", "Content-Type": "application/json"}
OFFER = f"""v=0
o=- 1 2 IN IP4 127.0.0.1
s=-
t=0 0
a=group:BUNDLE 0
m=video 9 UDP/TLS/RTP/SAVPF 108
c=IN IP4 0.0.0.0
a=ice-ufrag:abcd
a=ice-pwd:abcdefghijklmnopqrstuvwx
a=fingerprint:sha-256 00{":00" * 31}
a=setup:actpass
a=mid:0
a=recvonly
a=rtcp-mux
a=rtpmap:108 H264/90000
a=fmtp:108 packetization-mode=1;profile-level-id=42e01f
"""


def get(path, method="GET", host="127.0.0.1"):
    return method, path, None, {"Host": host}


def post(body=LAMP, **other):
    return "POST", "/api/commands", body, OWN | {k.replace("_", "-"): v for k, v in other.items()}


def command(name, **argument):
    return post(json.dumps({"command": name, **argument}))


def picture(method="POST", name="", body=OFFER, **other):
    kind = {"Content_Type": "application/sdp"}
    return method, f"/api/picture{name}", body, post(**kind | other)[3]


BAD = [
    (405, get("/api/commands?command=LAMPUP")),
    (403, post(Origin="")),
    (403, post(User_Agent="reader")),  # the bench's web server takes it for the user
    (403, post(Origin="http://127.0.0.1.example.org")),
    (415, post(Content_Type="text/plain", Origin="https://127.0.0.1")),  # as a form can send
    (400, command("LAMPUP\nLAMPOFF")),
    (400, command("MODEL", argument="x\n")),
    (400, command("MODEL", argument="x" * 33)),
    (400, command("SONDE", argument="2")),
    (400, command("LAMPUP", argument="1")),
    (409, post('{"command":"LAMPUP","from":"45"}')),  # the lamp is at another level
    (400, post('{"command":"LAMPUP","from":45}')),
    (413, post('{"command":"LAMPUP"' + " " * 300 + "}")),
    (413, post(" " * 5000)),
    (404, get("/api/commandsx")),
    (400, get("/api/history?range=ever")),
    (421, get("/api/state", host="127.0.0.1.example.org")),
    (421, get("/metrics", host="example-local:80")),
    (421, picture(Host="127.0.0.1.example.org")),
    (405, get("/api/picture")),
    (403, picture("DELETE", "/1", Origin="null")),
    (415, picture(Content_Type="application/json")),
    (413, picture(body=OFFER + "a=x\n" * 4096)),
    (400, picture(body=OFFER.replace("m=video", "m=audio"))),
    (400, picture(body=OFFER + OFFER[OFFER.index("m=") :].replace("mid:0", "mid:1"))),
    (400, picture(body=OFFER.replace("a=ice-ufrag", "a=x"))),
    (400, picture(body=re.sub("(m=.*)(a=ice-ufrag.*)(a=ice-pwd)", r"\2\2\1\3", OFFER, flags=re.S))),
    (406, picture(body=OFFER.replace("H264", "VP8"))),
    (406, picture(body=OFFER.replace("mode=1", "mode=0"))),
]


def answer(request):
    line = http.client.HTTPConnection("127.0.0.1", timeout=60)
    line.request(*request)
    return line.getresponse()


def check(status, request):
    with answer(request) as given:
        assert given.status == status, f"{given.status}, not {status}: {request}"


def until(condition):
    end = time.monotonic() + 60
    while not condition():
        assert time.monotonic() < end, "a minute has passed"
        time.sleep(0.05)


def try_requests():
    check(200, command("LAMPUP"))  # from 0 to 15: the store had the last run's level
    for status, request in BAD:
        before = os.stat(COMMANDS).st_mtime_ns
        check(status, request)
        assert os.stat(COMMANDS).st_mtime_ns == before, f"the commands file was written: {request}"
    for name in ("127.0.0.1:8080", "[::1]", "localhost", "Unit-7.local.", socket.gethostname()):
        check(200, get("/api/history?range=week", host=name))
    check(400, post("", Host="unit.local.", Origin="http://unit.local."))  # not 403
    with socket.create_connection(("127.0.0.1", 80), 60) as line:
        line.send(b"PRI * HTTP/2.0\r\n\r\nSM\r\n\r\n")
        assert line.recv(4) == b"HTTP", "it speaks HTTP/2"
    named = answer(("GET", "/metrics", None, {"Host": "unit.example.org", "User-Agent": "reader"}))
    assert str(named.headers["Content-Type"]).startswith("text/plain"), named.headers
    assert b'"picture":"unknown"' not in answer(get("/api/state")).read(), "a long log hides it"
    headers = str(answer(get("/")).headers)
    for wanted in ("'none'; script-src 'self';", "frame-ancestors 'none'", "nosniff", "no-cache"):
        assert wanted in headers and "unsafe" not in headers, headers


def try_picture():
    """Four may watch. One that ends, and all that never connect, leave their places to others.

    Nothing is sent to a host that an offer names.
    """
    host = socket.socket(type=socket.SOCK_DGRAM)
    host.bind(("127.0.0.1", 0))
    offer = f"{OFFER}a= candidate:1 1 udp 9 127.0.0.1 {host.getsockname()[1]} typ host\n"
    began = time.monotonic()

    def check_full():  # a slow machine forgets the first, which never connects, after 6 s
        assert answer(picture()).status == 503 or time.monotonic() - began > 6, "five watch"

    answers = [answer(picture(body=offer)) for _ in range(4)]
    for given in answers:
        text = given.read().decode()
        assert given.status == 201 and re.search(r" 127\.0\.0\.1 809[0-7] typ host", text), text
    check_full()
    name = answers[2].headers["Location"].removeprefix("/api/picture")
    for status in (200, 404):
        check(status, picture("DELETE", name))
    check(201, picture())
    check_full()
    until(lambda: answer(picture()).status == 201)
    assert not select.select([host], [], [], 0)[0], "the host was called"


def try_another_writer():
    """What is answered 200 was carried out; flock keeps the page out; a stopped unit costs seconds."""
    unit = int(subprocess.check_output(["pidof", "KT6120"]))
    with open(COMMANDS, "r+b", buffering=0) as file:
        os.kill(unit, signal.SIGSTOP)
        before = os.stat(COMMANDS).st_mtime_ns  # reading the file would look like the unit's read
        page = concurrent.futures.ThreadPoolExecutor(1)
        overwritten = page.submit(check, 409, command("RESET"))
        until(lambda: os.stat(COMMANDS).st_mtime_ns != before)
        file.write(b"LAMPOFF\n")
        os.kill(unit, signal.SIGCONT)
        overwritten.result()

        os.kill(unit, signal.SIGSTOP)
        began = time.monotonic()
        check(504, command("RESET"))
        before = os.stat(COMMANDS).st_mtime_ns
        withdrawn = page.submit(check, 504, command("RESET"))
        until(lambda: os.stat(COMMANDS).st_mtime_ns != before)  # written
        before = os.stat(COMMANDS).st_mtime_ns
        until(lambda: withdrawn.done() or os.stat(COMMANDS).st_mtime_ns != before)
        os.kill(unit, signal.SIGCONT)  # it reads the blank line
        withdrawn.result()
        assert time.monotonic() - began < 30, "a stopped unit was waited for"

        fcntl.flock(file, fcntl.LOCK_EX)
        before = os.stat(COMMANDS).st_mtime_ns
        check(503, command("RESET"))
        assert os.stat(COMMANDS).st_mtime_ns == before, "written while another had the lock"


def try_many(history):
    """Of forty commands, sent faster than allowed, some are refused and none is lost."""
    sent = {"LAMPOFF": b"LAMP:OFF", "RESET": b"COILER:ZERO"}

    def done():
        return re.findall(rb"LAMP:OFF|COILER:ZERO", history.of("serial").content)

    wanted, refused, began = done(), 0, time.monotonic()
    for name in list(sent) * 20:
        while (status := answer(command(name)).status) == 429:
            refused += 1
            time.sleep(0.05)
        assert status == 200, f"{name}: {status}"
        wanted.append(sent[name])
    # Twenty at once and five a second are allowed: a slow machine may not exceed that.
    assert refused or time.monotonic() - began > 4, "forty commands at once were not too many"
    until(lambda: len(done()) >= len(wanted))
    assert done() == wanted, f"not in order: {done()}"


def try_answered():
    """After a command every viewer gets the readings, also those that it did not change."""
    with answer(get("/api/events")) as stream:

        def shows_lamp():
            return any(b'"Camera/Lamp"' in line for line in itertools.islice(stream, 60))

        assert shows_lamp()
        check(200, command("LAMPOFF"))  # it is off
        assert shows_lamp(), "a viewer was not told"


def try_locked_lamp():
    """While a Tallwick probe locks the lamp, LAMPUP is not answered with 200."""
    until(lambda: b'"attached"' in answer(get("/api/state")).read())
    while (status := answer(command("LAMPUP")).status) == 429:  # after the forty
        time.sleep(0.05)
    assert status == 504, f"a lamp that stays off: {status}"
    os.kill(int(subprocess.check_output(["pidof", "KT6120"])), signal.SIGSTOP)
    until(lambda: time.time() - os.stat(STORE).st_mtime > 6)  # nobody asks
    assert b"store_age_seconds 0\n" not in answer(get("/metrics")).read(), "old values are new"


def try_clock():
    """A step of the unit's clock cuts no stream; a web server that restarts itself does, after 5 s."""
    with answer(get("/api/events")) as stream:
        with open(CLOCK, "w", encoding="ascii") as clock:
            clock.write("+40d")
        until(lambda: answer(get("/")).headers["Date"][:16] != stream.headers["Date"][:16])
        beats = (line for line in stream if b'"zone"' in line)
        in_ten_seconds = list(itertools.islice(beats, 6))
        assert len(in_ten_seconds) == 6, "the stream has ended"


def main():
    with Desk(sys.argv[1]) as desk:
        desk.run("camera missing")
        desk.run("call KT6120_gpio_write.sh takes 0.05")
        desk.run(r'file /home/pi/KT6120/bin/KT6120.ini "[Camera]\nLamp=46\n"')
        desk.run("unit start")
        desk.run('expect serial "BAT:V?"')
        with open(LOG, "a", encoding="ascii") as log:
            log.write("25-11-2026 01:00:00,4,Lamp Turned Off\n" * 2000)
        desk.run(f"file {CLOCK} +0")
        os.environ |= FAKED
        desk.page.serve()
        del os.environ["LD_PRELOAD"]
        desk.loop.apart(try_requests)
        desk.loop.apart(try_picture)
        desk.loop.apart(try_another_writer)
        desk.loop.apart(try_answered)
        desk.loop.apart(partial(try_many, desk.history))
        desk.run("mcu TWK 1")
        desk.loop.apart(try_locked_lamp)
        desk.loop.apart(try_clock)


main()
