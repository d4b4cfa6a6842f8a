# SPDX-License-Identifier: LicenseRef-KT6120
"""Opens the unit's page in a browser until its picture moves.

Usage: python3 -m tests.picture.see ADDRESS USER:PASSWORD. Exit status 1 and what the page shows after a
minute without.
"""

import sys
import time
from base64 import b64encode

from bench.page import start_browser

with start_browser() as driver:
    secret = "Basic " + b64encode(sys.argv[2].encode()).decode()
    driver.execute_cdp_cmd("Network.enable", {})
    driver.execute_cdp_cmd("Network.setExtraHTTPHeaders", {"headers": {"Authorization": secret}})
    driver.get(sys.argv[1])
    shown = "return document.querySelector('video').getVideoPlaybackQuality().totalVideoFrames"
    end = time.monotonic() + 60
    while driver.execute_script(shown) < 50:
        if time.monotonic() > end:
            sys.exit(driver.find_element("tag name", "body").text)
        time.sleep(0.1)
