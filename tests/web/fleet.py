#!/usr/bin/python3
# SPDX-License-Identifier: LicenseRef-KT6120
"""Runs ten virtual units under a real Prometheus, lowers the battery of one and kills another.

Usage: fleet.py BUILD. Ends with 0 when promtool accepts the metrics and exactly these two units' alerts
fire. Each unit is a bench with the real program, page and web server. Their cameras are lost: encoding ten
pictures would take all the processor time.
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
NAMES = [f"127.0.0.1:{port}" for port in range(19101, 19111)]
LOW, KILLED = NAMES[3], NAMES[7]
EXPECTED = {("BatteryLow", LOW), ("UnitSilent", KILLED)}
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
    quiet = subprocess.DEVNULL
    started.append(subprocess.Popen(command, start_new_session=True, stdout=quiet, stderr=quiet))
    return started[-1]


def end(process):
    if process.poll() is None:
        os.killpg(process.pid, signal.SIGKILL)
        process.wait()


def ask(query):
    place = f"http://{PROMETHEUS}/api/v1/query?" + urllib.parse.urlencode({"query": query})
    try:
        with urllib.request.urlopen(place, timeout=10) as answer:
            return [one["metric"] for one in json.load(answer)["data"]["result"]]
    except OSError:
        return []


def firing():
    alerts = ask('ALERTS{alertstate="firing",alertname!="UnitWarned"}')
    return {(alert["alertname"], alert["instance"]) for alert in alerts}


def expect(seconds, what, condition):
    begin = time.monotonic()
    while not condition():
        if time.monotonic() - begin > seconds:
            sys.exit(f"FAILED  {what}")
        time.sleep(1)
    print(f"ok      {what} ({time.monotonic() - begin:.0f} s)", flush=True)


def unit():
    """One of the units, in its sandbox, until it is killed."""
    with Desk(str(BUILD)) as desk:
        desk.run("camera lost")
        desk.run("unit start")
        desk.page.serve()
        desk.loop.until(pathlib.Path("/run/desk/low").exists, math.inf)
        desk.run("mcu BAT:V 1500")
        desk.loop.until(lambda: False, math.inf)


def trial(folder):
    benches = {}
    for name in NAMES:
        port = name.split(":")[1]
        desk = folder / port
        desk.mkdir()
        listen = f"TCP-LISTEN:{port},bind=127.0.0.1,reuseaddr,fork"
        start("socat", listen, f"UNIX-CONNECT:{desk}/page")
        sandbox = (TOP / "bench/sandbox", "--tree", BUILD / "tree", "--desk", desk)
        benches[name] = start(*sandbox, "/usr/bin/python3", __file__, BUILD, "unit"), desk
    (folder / "prometheus.yml").write_text(SCRAPE)
    places = (f"--storage.tsdb.path={folder}/data", f"--web.listen-address={PROMETHEUS}")
    start("prometheus", f"--config.file={folder}/prometheus.yml", *places)

    charged = "kt6120_battery_voltage_volts > 5.5"
    expect(300, "ten charged units", lambda: len(ask("up == 1")) == len(ask(charged)) == len(NAMES))
    page = urllib.request.urlopen(f"http://{LOW}/metrics", timeout=10).read()
    lint = subprocess.run(["promtool", "check", "metrics"], input=page, capture_output=True)
    expect(0, f"promtool accepts the metrics {lint.stderr.decode()}", lambda: not lint.stderr)
    assert not firing()
    (benches[LOW][1] / "low").touch()
    end(benches[KILLED][0])
    # More than a minute later: others' alerts would fire too by then.
    expect(180, f"firing: {EXPECTED}", lambda: firing() == EXPECTED)


def main():
    if sys.argv[2:]:
        return unit()
    with tempfile.TemporaryDirectory() as folder:
        try:
            trial(pathlib.Path(folder))
        finally:
            for process in started:
                end(process)


main()
