#!/usr/bin/python3
# SPDX-License-Identifier: LicenseRef-KT6120
"""Ten virtual units on one desk, watched by a real Prometheus. One gets a low battery, one is killed.

Usage: fleet.py BUILD. Ends with 0 when promtool finds nothing in the figures and exactly these two
alerts fire, each for its unit. Each unit is a bench of its own with the real program, the real page and
the real web server; their cameras are lost, since ten pictures would be a matter of the encoder alone.
"""

import json
import math
import os
import pathlib
import signal
import subprocess
import sys
import tempfile
import time
import urllib.parse
import urllib.request

TOP = pathlib.Path(__file__).resolve().parents[2]
sys.path.insert(0, str(TOP))

from bench.desk import Desk

BUILD = pathlib.Path(sys.argv[1]).resolve()
PORTS = range(19101, 19111)
NAMES = [f"127.0.0.1:{port}" for port in PORTS]
LOW, KILLED = 3, 7
EXPECTED = {("BatteryLow", NAMES[LOW]), ("UnitSilent", NAMES[KILLED])}
QUIET = subprocess.DEVNULL
PROMETHEUS = "127.0.0.1:19100"
SCRAPE = f"""
global: {{scrape_interval: 5s, evaluation_interval: 5s}}
rule_files: [{TOP}/web/fleet/alerts.yml]
scrape_configs:
  - job_name: kt6120
    static_configs: [{{targets: {json.dumps(NAMES)}}}]
"""
started = []


def start(*command):
    started.append(subprocess.Popen(command, start_new_session=True, stdout=QUIET, stderr=QUIET))


def end(process):
    if process.poll() is None:
        os.killpg(process.pid, signal.SIGKILL)
        process.wait()


def ask(query):
    place = f"http://{PROMETHEUS}/api/v1/query?" + urllib.parse.urlencode({"query": query})
    try:
        with urllib.request.urlopen(place, timeout=10) as answer:
            return json.load(answer)["data"]["result"]
    except OSError:
        return []


def firing(which, label):
    alerts = ask(f'ALERTS{{alertstate="firing",alertname{which}}}')
    return {(a["metric"][label], a["metric"]["instance"]) for a in alerts}


def fires(expected):
    return firing('!="UnitWarned"', "alertname") == expected


def holds(seconds, what, condition):
    begin = time.monotonic()
    while not (met := condition()) and time.monotonic() - begin < seconds:
        time.sleep(1)
    print(f"{'ok' if met else 'FAILED':<7} {what} ({time.monotonic() - begin:.0f} s)", flush=True)
    return met


def unit():
    """One of the benches, in its sandbox: runs until it is killed."""
    with Desk(str(BUILD)) as desk:
        desk.run("camera lost")
        desk.run("unit start")
        desk.page.serve()
        desk.loop.until(pathlib.Path("/run/desk/low").exists, math.inf)
        desk.run("mcu BAT:V 1500")
        desk.loop.until(lambda: False, math.inf)


def lint():
    with urllib.request.urlopen(f"http://{NAMES[0]}/metrics", timeout=10) as page:
        found = subprocess.run(
            ["promtool", "check", "metrics"], input=page.read(), capture_output=True
        )
    print(found.stderr.decode(), end="")
    return found.returncode == 0 and not found.stderr


def trial(folder):
    for port in PORTS:
        desk = folder / str(port)
        desk.mkdir()
        start(
            "socat", f"TCP-LISTEN:{port},bind=127.0.0.1,reuseaddr,fork", f"UNIX-CONNECT:{desk}/page"
        )
        sandbox = (TOP / "bench/sandbox", "--tree", BUILD / "tree", "--desk", desk)
        start(*sandbox, "/usr/bin/python3", __file__, BUILD, "unit")
    (folder / "prometheus.yml").write_text(SCRAPE)
    places = (f"--storage.tsdb.path={folder}/data", f"--web.listen-address={PROMETHEUS}")
    start("prometheus", f"--config.file={folder}/prometheus.yml", *places)

    battery = "kt6120_battery_voltage_volts > 5.5"
    yield holds(300, "ten units answer", lambda: len(ask("up == 1")) == len(PORTS))
    yield holds(60, "each tells its battery", lambda: len(ask(battery)) == len(PORTS))
    yield holds(0, "promtool finds nothing in the figures", lint)
    time.sleep(10)  # two scrapes, in which an alert would come
    yield holds(0, "no alert yet", lambda: fires(set()))
    slowest = ask("max(scrape_duration_seconds)")[0]["value"][1]
    print(f"        the slowest scrape took {float(slowest) * 1000:.0f} ms", flush=True)
    (folder / str(PORTS[LOW]) / "low").touch()
    end(started[2 * KILLED + 1])
    yield holds(180, f"firing: {EXPECTED}", lambda: fires(EXPECTED))
    warned = {("Battery Voltage Under Threshold (", NAMES[LOW])}
    yield holds(
        0, "the low one has warned in its log", lambda: firing('="UnitWarned"', "message") == warned
    )
    time.sleep(10)
    yield holds(0, "and nothing else", lambda: fires(EXPECTED))


def main():
    if sys.argv[2:]:
        return unit()
    with tempfile.TemporaryDirectory() as folder:
        try:
            return 0 if all(list(trial(pathlib.Path(folder)))) else 1
        finally:
            for process in started:
                end(process)


sys.exit(main())
