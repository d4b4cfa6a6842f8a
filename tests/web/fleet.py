# SPDX-License-Identifier: LicenseRef-KT6120
"""A real Prometheus, as web/fleet configures it, scrapes a unit whose battery runs low.

Usage, in the sandbox with an installed tree: python3 -m tests.web.fleet BUILD. Ends with 0 when promtool
accepts the metrics and, a minute later, the battery's alerts fire and no others.
"""

import json
import shutil
import subprocess
import sys
import time
from functools import partial
from pathlib import Path

from bench.desk import Desk

FLEET = Path("/tmp/fleet")
PROMETHEUS = "http://127.0.0.1:9090"
NORMAL = 'up{job="kt6120"} == 1 and on(instance) kt6120_battery_voltage_volts > 5.5'


def ask(query):
    """The labels of each series that Prometheus answers."""
    command = ["promtool", "query", "instant", "-o", "json", PROMETHEUS, query]
    said = subprocess.run(command, check=False, capture_output=True).stdout
    return [one["metric"] for one in json.loads(said or "[]")]


def firing():
    return {alert["alertname"] for alert in ask('ALERTS{alertstate="firing"}')}


def until(condition):
    end = time.monotonic() + 300
    while not condition():
        assert time.monotonic() < end, f"firing: {firing()}"
        time.sleep(1)


def try_scrape():
    until(lambda: ask(NORMAL))
    page = subprocess.check_output(["curl", "-sf", "http://127.0.0.1/metrics"])
    lint = subprocess.run(["promtool", "check", "metrics"], input=page, capture_output=True)
    assert not lint.stderr, lint.stderr.decode()
    assert not firing(), firing()


shutil.copytree("web/fleet", FLEET)
(FLEET / "units.yml").write_text("- targets: [127.0.0.1:80]\n")
(FLEET / "units.password").write_text("none is asked for\n")
with Desk(sys.argv[1]) as desk:
    desk.run("camera lost")
    desk.run("unit start")
    desk.page.serve()
    quiet = subprocess.DEVNULL
    command = ["prometheus", "--config.file=prometheus.yml", "--storage.tsdb.path=data"]
    subprocess.Popen(command, cwd=FLEET, stdout=quiet, stderr=quiet)
    desk.loop.apart(try_scrape)
    desk.run("mcu BAT:V 1500")
    desk.loop.apart(partial(until, lambda: firing() == {"BatteryLow", "UnitWarned"}))
