# SPDX-License-Identifier: LicenseRef-KT6120
"""Runs ten virtual units under a real Prometheus, lowers the battery of one and kills another.

Usage: python3 -m tests.web.fleet BUILD. Ends with 0 when promtool accepts the metrics and only these two
units' alerts fire. Each unit is a bench with the real program, page and web server. Their cameras are lost:
encoding ten pictures would take all the processor time.
"""

import json
import os
import pathlib
import signal
import subprocess
import sys
import tempfile
import time
from contextlib import ExitStack

from bench.desk import Desk

TOP = pathlib.Path(__file__).resolve().parents[2]
BUILD = pathlib.Path(sys.argv[1]).resolve()
NAMES = [f"127.0.0.1:{port}" for port in range(19101, 19111)]
LOW, KILLED = NAMES[3], NAMES[7]
EXPECTED = {("BatteryLow", LOW), ("UnitWarned", LOW), ("UnitSilent", KILLED)}
PROMETHEUS = "127.0.0.1:19100"
SCRAPE = f"""
global: {{scrape_interval: 5s, evaluation_interval: 5s}}
rule_files: [{TOP}/web/fleet/alerts.yml]
scrape_configs:
  - job_name: kt6120
    static_configs: [{{targets: {json.dumps(NAMES)}}}]
"""


def start(stack, *command):
    quiet = subprocess.DEVNULL
    process = subprocess.Popen(command, start_new_session=True, stdout=quiet, stderr=quiet)
    stack.callback(end, process)
    return process


def end(process):
    if process.poll() is None:
        os.killpg(process.pid, signal.SIGKILL)
        process.wait()


def ask(query):
    """The labels of each series that Prometheus answers."""
    command = ["promtool", "query", "instant", "-o", "json", f"http://{PROMETHEUS}", query]
    said = subprocess.run(command, check=False, capture_output=True).stdout
    return [one["metric"] for one in json.loads(said or "[]")]


def firing():
    alerts = ask('ALERTS{alertstate="firing"}')
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
        desk.loop.until(pathlib.Path("/run/desk/low").exists)
        desk.run("mcu BAT:V 1500")
        desk.loop.until(lambda: False)


def trial(folder, stack):
    benches = {}
    for name in NAMES:
        port = name.split(":")[1]
        desk = folder / port
        desk.mkdir()
        listen = f"TCP-LISTEN:{port},bind=127.0.0.1,reuseaddr,fork"
        start(stack, "socat", listen, f"UNIX-CONNECT:{desk}/page")
        sandbox = (TOP / "bench/sandbox", "--tree", BUILD / "tree", "--desk", desk)
        unit_alone = ("/usr/bin/python3", "-m", "tests.web.fleet", BUILD, "unit")
        benches[name] = start(stack, *sandbox, *unit_alone), desk
    (folder / "prometheus.yml").write_text(SCRAPE)
    places = (f"--storage.tsdb.path={folder}/data", f"--web.listen-address={PROMETHEUS}")
    start(stack, "prometheus", f"--config.file={folder}/prometheus.yml", *places)

    charged = "kt6120_battery_voltage_volts > 5.5"
    expect(300, "ten charged units", lambda: len(ask("up == 1")) == len(ask(charged)) == len(NAMES))
    page = subprocess.check_output(["curl", "-sf", f"http://{LOW}/metrics"])
    lint = subprocess.run(["promtool", "check", "metrics"], input=page, capture_output=True)
    expect(0, f"promtool accepts the metrics {lint.stderr.decode()}", lambda: not lint.stderr)
    assert not firing()
    (benches[LOW][1] / "low").touch()
    end(benches[KILLED][0])
    # More than a minute later: others' alerts would fire too by then.
    expect(180, f"firing: {EXPECTED}", lambda: firing() == EXPECTED)


if sys.argv[2:]:
    sys.exit(unit())
with tempfile.TemporaryDirectory() as place, ExitStack() as all_started:
    trial(pathlib.Path(place), all_started)
