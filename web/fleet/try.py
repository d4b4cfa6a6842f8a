#!/usr/bin/env python3
# SPDX-License-Identifier: LicenseRef-KT6120
"""Ten virtual units on one desk, watched by a real Prometheus. One gets a low battery, one is killed.

Usage: try.py BUILD_FOLDER. Ends with 0 when promtool finds nothing in the figures and exactly these
two alerts fire, each for its unit. Each unit is a bench of its own with the real program, the real
page and the real web server; their cameras are lost, since ten pictures would be a matter of the
encoder alone.
"""

import json
import os
import pathlib
import signal
import subprocess
import sys
import tempfile
import time
import urllib.error
import urllib.parse
import urllib.request

UNITS = 10
TOP = pathlib.Path(__file__).resolve().parents[2]
BUILD = pathlib.Path(sys.argv[1]).resolve()
FIRST_PORT = 19101
PROMETHEUS = "127.0.0.1:19100"
SCRAPE = """
global: {{scrape_interval: 5s, evaluation_interval: 5s}}
rule_files: [{rules}]
scrape_configs:
  - job_name: kt6120
    static_configs: [{{targets: {targets}}}]
"""
started = []


def start(*command, **options):
    process = subprocess.Popen(
        command, start_new_session=True, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL, **options)
    started.append(process)
    return process


def end(process):
    if process.poll() is None:
        os.killpg(process.pid, signal.SIGKILL)
        process.wait()


def ask(query):
    place = f"http://{PROMETHEUS}/api/v1/query?" + urllib.parse.urlencode({"query": query})
    try:
        with urllib.request.urlopen(place, timeout=10) as answer:
            return json.load(answer)["data"]["result"]
    except (urllib.error.URLError, ConnectionError):
        return []


def firing():
    alerts = ask('ALERTS{alertstate="firing",alertname!="UnitWarned"}')
    return {(a["metric"]["alertname"], a["metric"]["instance"]) for a in alerts}


def within(seconds, what, condition):
    begin = time.monotonic()
    while not condition():
        if time.monotonic() - begin > seconds:
            print(f"FAILED  {what}", flush=True)
            return False
        time.sleep(1)
    print(f"ok      {what} ({time.monotonic() - begin:.0f} s)", flush=True)
    return True


def start_unit(folder, port):
    desk = folder / str(port)
    desk.mkdir()
    bench = start(TOP / "bench/sandbox", "--tree", BUILD / "tree", "--desk", desk,
                  BUILD / "bin/bench", "--address", f"http://127.0.0.1:{port}/",
                  stdin=subprocess.PIPE, text=True)
    say(bench, "camera lost")
    start("socat", f"TCP-LISTEN:{port},bind=127.0.0.1,reuseaddr,fork", f"UNIX-CONNECT:{desk}/page")
    return bench


def say(bench, line):
    bench.stdin.write(line + "\n")
    bench.stdin.flush()


def trial(folder):
    names = [f"127.0.0.1:{FIRST_PORT + number}" for number in range(UNITS)]
    benches = []
    for number in range(UNITS):
        benches.append(start_unit(folder, FIRST_PORT + number))
        time.sleep(1)  # a desk's two cores start one after the other
    config = folder / "prometheus.yml"
    config.write_text(SCRAPE.format(rules=TOP / "web/fleet/alerts.yml", targets=json.dumps(names)))
    start("prometheus", f"--config.file={config}", f"--storage.tsdb.path={folder}/data",
          f"--web.listen-address={PROMETHEUS}")

    low, killed = names[3], names[7]
    fine = within(120, f"{UNITS} units answer", lambda: len(ask("up == 1")) == UNITS)
    fine = within(60, "each tells its battery", lambda: len(
        ask("kt6120_battery_voltage_volts > 5.5")) == UNITS) and fine
    with urllib.request.urlopen(f"http://{names[0]}/metrics", timeout=10) as page:
        lint = subprocess.run(["promtool", "check", "metrics"], input=page.read(), capture_output=True)
    fine = within(1, f"promtool check metrics {lint.stderr.decode()}",
                  lambda: lint.returncode == 0 and not lint.stderr) and fine
    time.sleep(10)
    fine = within(1, "no alert yet", lambda: firing() == set()) and fine
    slowest = ask("max(scrape_duration_seconds)")[0]["value"][1]
    print(f"        the slowest scrape took {float(slowest) * 1000:.0f} ms", flush=True)
    say(benches[3], "mcu BAT:V 1500")
    end(benches[7])
    expected = {("BatteryLow", low), ("UnitSilent", killed)}
    fine = within(180, f"firing: BatteryLow of {low}, UnitSilent of {killed}",
                  lambda: firing() == expected) and fine
    warned = {(a["metric"]["instance"], a["metric"]["message"])
              for a in ask('ALERTS{alertstate="firing",alertname="UnitWarned"}')}
    fine = within(1, "the low one has warned in its log", lambda: warned == {
        (low, "Battery Voltage Under Threshold (")}) and fine
    time.sleep(10)
    fine = within(1, "and nothing else", lambda: firing() == expected) and fine
    return fine


def main():
    with tempfile.TemporaryDirectory() as folder:
        try:
            fine = trial(pathlib.Path(folder))
        finally:
            for process in started:
                end(process)
    return 0 if fine else 1


sys.exit(main())
