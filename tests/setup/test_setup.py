#!/usr/bin/python3
# SPDX-License-Identifier: LicenseRef-KT6120
"""kt6120-check on a unit of recorded tools and files, with one fault at a time."""

import http.server
import json
import os
import pathlib
import shutil
import subprocess
import threading
import time
import unittest

TREE = pathlib.Path(__file__).resolve().parents[2]
SBIN = TREE / "packaging/root/kt6120/usr/sbin"
BIN = pathlib.Path("/home/pi/KT6120/bin")
TOOLS = pathlib.Path("/tmp/tools")
COMMANDS = "/var/www/html/commands.txt"
PATIENCE = 60  # s
STATES = ("ok", "warning", "fault")
GPIO_1 = '\tline {:3}: "GPIO{}" {} output active-high\n'
FREE = "".join(GPIO_1.format(line, line, "unused") for line in range(54))
CAMERA = """\t[0]: 'MJPG' (Motion-JPEG, compressed)
\t[1]: 'UYVY' (UYVY 4:2:2)
\tFrames per second: 25.000 (25/1)
\tWidth/Height      : 720/576
"""
IFCONFIG = (
    "{}: flags=4163<UP>\n        inet 10.9.0.2  netmask 255.255.255.0  broadcast 10.9.0.255\n"
)
SERVICE = "ActiveState=active\nUnitFileState=enabled\nNRestarts=0\nResult=success\n"
ANSWERS = {
    "i2cget": "0x64\n",
    "gpioinfo": FREE,
    "gpioinfo --version": "gpioinfo (libgpiod) v1.6.3\n",
    "v4l2-ctl": CAMERA,
    "gst-inspect-1.0": "",
    "ifconfig": IFCONFIG.format("eth0"),
    "timedatectl": "yes\n",
    "systemctl show kt6120 -p ActiveState,UnitFileState,NRestarts,Result": SERVICE,
    "systemctl show kt6120-web -p LoadState,ActiveState": "LoadState=loaded\nActiveState=active\n",
    "vcgencmd": "temp=48.3'C\n",
}
FILES = {
    COMMANDS: "",
    "/etc/group": "www-data:x:0:\n",
    "/tmp/cmdline": "root=/dev/mmcblk0p2 net.ifnames=0\n",
    "/tmp/consoles": "tty1                 -WU (EC p  )    4:1\n",
    BIN / "gstreamer-1.0/libgstkt6120.so": "",
    "/sys/class/drm/card0-Composite-1/status": "connected\n",
    "/sys/class/drm/card0-Composite-1/modes": "720x480i\n720x576i\n",
    "/sys/fs/ext4/mmcblk0p2/errors_count": "0\n",
    "/sys/block/mmcblk0/device/life_time": "0x01 0x02\n",
}


def shell(script):
    subprocess.run(["sh", "-euc", script], check=True, timeout=PATIENCE)


def write(path, text=""):
    path = pathlib.Path(path)
    path.parent.mkdir(parents=True, exist_ok=True)
    path.write_text(text)


def reply(key, output="", status=0):
    write(f"/run/bench/replies/{key}/output", output)
    write(f"/run/bench/replies/{key}/status", f"{status}\n")


def replace(path, old, new):
    text = pathlib.Path(path).read_text()
    assert old in text
    write(path, text.replace(old, new))


class Page(http.server.BaseHTTPRequestHandler):
    status = 401

    def do_GET(self):
        self.send_response(Page.status)
        self.end_headers()

    def log_message(self, *_):
        pass


def setUpModule():
    """Takes the desk's files away and lays what stays the same."""
    shell(
        """for place in /sys /etc /var/lib; do
            mount -t tmpfs tmpfs $place
        done
        for file in cmdline consoles; do
            touch /tmp/$file
            mount --bind /tmp/$file /proc/$file
        done"""
    )
    os.environ["PATH"] = f"{TOOLS}:/usr/bin:/usr/sbin"
    for tool in {key.split()[0] for key in ANSWERS}:
        folder = TOOLS if tool != "vcgencmd" else pathlib.Path("/opt/vc/bin")
        folder.mkdir(exist_ok=True)
        shutil.copy(TREE / "bench/recorder", folder / tool)
    for uart in ("ttyAMA0", "ttyS0"):
        _, slave = os.openpty()
        write(f"/dev/{uart}")
        shell(f"mount --bind {os.ttyname(slave)} /dev/{uart}")
        os.close(slave)
    for script in ("gpio", "bb_read"):
        shutil.copy(TREE / f"scripts/KT6120_{script}.sh", BIN)
    shutil.copy("/usr/bin/tail", BIN / "KT6120")
    server = http.server.HTTPServer(("127.0.0.1", 80), Page)
    threading.Thread(target=server.serve_forever, daemon=True).start()


def lay():
    """A unit without a fault. The commands file remains the one that the program watches."""
    shell(f"umount -q {BIN} || true; [ ! -e /var/www/kept ] || mv /var/www/kept {COMMANDS}")
    for key, answer in ANSWERS.items():
        reply(key, answer)
    for path, text in FILES.items():
        write(path, text)
    os.chmod(COMMANDS, 0o664)
    shell(
        """ln -sfn /dev/ttyAMA0 /dev/serial0
        rm -rf /sys/class/net /run/bench/replies/gst*\\ *
        mkdir -p /sys/class/net/eth0/device /sys/class/net/wlan0/device /sys/class/net/wlan0/phy80211"""
    )
    Page.status = 401


# says TOOL ANSWER [STATUS]: what a tool prints from now on.
SAYS = """says() {
    mkdir -p "/run/bench/replies/$1"
    echo "$2" >"/run/bench/replies/$1/output"
    echo "${3-0}" >"/run/bench/replies/$1/status"
}
answer() { sed -i "$2" "/run/bench/replies/$1/output"; }
lacks() { for name; do says "gst-inspect-1.0 --exists $name" '' 1; done; }
service='systemctl show kt6120 -p ActiveState,UnitFileState,NRestarts,Result'
page='systemctl show kt6120-web -p LoadState,ActiveState'
bin=/home/pi/KT6120/bin commands=/var/www/html/commands.txt drm=/sys/class/drm/card0-Composite-1
gpioinfo_2() { # line 43 is in use
    says 'gpioinfo --version' 'gpioinfo (libgpiod) v2.2.1'
    says 'gpioinfo --chip gpiochip0' "$(sed 's/unused.*/output/; /GPIO43/s/$/ consumer="led"/' \\
        /run/bench/replies/gpioinfo/output)"
}
room() { # SIZE of the disk
    cp -a $bin /tmp/bin
    mount -t tmpfs -o size=$1 tmpfs $bin
    mv /tmp/bin/* $bin
    rmdir /tmp/bin
}
"""
# Line, its state, part of its text, what is done to the unit.
FAULTS = r"""
serial line | fault | /dev/serial0 is missing | rm /dev/serial0
serial line | warning | /dev/ttyS0 | ln -sfn /dev/ttyS0 /dev/serial0
serial users | fault | console | echo 'ttyAMA0  -W- (EC p  )  204:64' >>/tmp/consoles
converter | fault | status 1 | says i2cget '' 2
GPIO lines | fault | line 21 is in use: "GPIO21" "spi" | answer gpioinfo '/GPIO21"/s/unused.*/"spi" output [used]/'
GPIO lines | fault | line 43 is in use | gpioinfo_2
GPIO lines | fault | there is no line 19 | says gpioinfo ''
GPIO lines | fault | status 1 | says gpioinfo '' 1
camera | fault | but nothing | answer v4l2-ctl /UYVY/d
camera | fault | but nothing | answer v4l2-ctl s/576/480/
camera | fault | but UYVY at 30.000 | answer v4l2-ctl s/25/30/
camera | fault | but UYVY at 30.000 | echo ' (30.000 fps)' >>/run/bench/replies/v4l2-ctl/output
camera | fault | status 1 | says v4l2-ctl '' 1
encoder | ok | the kernel's | lacks omxh264enc
encoder | warning | software | lacks omxh264enc v4l2h264enc
encoder | fault | neither | lacks omxh264enc v4l2h264enc x264enc
encoder | fault | no element | lacks omxh264enc; rm $bin/gstreamer-1.0/*
TV output | fault | no composite output | rm -r $drm
TV output | fault | is off | echo disconnected >$drm/status
TV output | fault | no mode | echo 720x480i >$drm/modes
network | fault | enx1 instead | mkdir -p /sys/class/net/enx1/device
network | fault | the next interface | echo root=LABEL=root >/tmp/cmdline
network | warning | eth0 and wlan0 | answer ifconfig '1h; 1!H; $!d; x; p; s/eth0/wlan0/'
network | fault | status 127 | says ifconfig '' 127
commands file | fault | is missing | mv $commands /var/www/kept
commands file | fault | regular | mv $commands /var/www/kept; mkfifo $commands
commands file | fault | not writable | chmod g-w $commands
commands file | fault | not writable | echo root:x:0: >/etc/group
commands file | fault | does not watch | mv $commands /var/www/kept; cp -p /var/www/kept $commands
vcgencmd | fault | VCHI | says vcgencmd 'VCHI failed'
vcgencmd | fault | status 255 | says vcgencmd '' 255
disk | warning | MiB free | room 50m
disk | fault | MiB free | room 5m
card | fault | read-only | mount --bind $bin $bin; mount -o remount,ro,bind $bin
card | fault | mmcblk0p2: 3 errors | echo 3 >/sys/fs/ext4/mmcblk0p2/errors_count
card | warning | 90 % | echo 0x01 0x0a >/sys/block/mmcblk0/device/life_time
card | fault | 100 % | echo 0x0b 0x01 >/sys/block/mmcblk0/device/life_time
clock | warning | not synchronised | says timedatectl no
service | fault | failed, last result watchdog | answer "$service" 's/=active/=failed/; s/=success/=watchdog/'
service | fault | disabled at boot | answer "$service" s/=enabled/=disabled/
service | warning | 7 times | answer "$service" s/=0/=7/
page | ok | not installed | answer "$page" s/=loaded/=not-found/
page | fault | does not run | answer "$page" s/=active/=failed/
"""


class Check(unittest.TestCase):
    def start(self, *command, **options):
        process = subprocess.Popen(command, **options)
        self.addCleanup(process.wait)
        self.addCleanup(process.kill)

    def lines(self):
        done = subprocess.run(
            [SBIN / "kt6120-check", "--json"],
            capture_output=True,
            text=True,
            timeout=PATIENCE,
            check=False,
        )
        self.assertEqual(done.stderr, "")
        lines = {line["name"]: line for line in json.loads(done.stdout)}
        self.assertEqual(
            done.returncode, max(STATES.index(line["state"]) for line in lines.values())
        )
        return lines

    def changes(self, name, state, text):
        """This line has changed, and no other."""
        lines = self.lines()
        self.assertEqual([n for n, line in lines.items() if line != self.good[n]], [name])
        self.assertEqual(lines[name]["state"], state)
        self.assertIn(text, lines[name]["text"])
        self.assertEqual(lines[name]["remedy"] == "", state == "ok")

    def test_faults(self):
        lay()
        with open("/dev/ttyAMA0", "rb") as line:
            self.start(BIN / "KT6120", "-f", COMMANDS, stdin=line)
        end = time.monotonic() + PATIENCE
        while "watched" not in (good := self.lines())["commands file"]["text"]:
            self.assertLess(time.monotonic(), end)
        self.good = good
        self.assertEqual({line["state"] for line in good.values()}, {"ok"})
        for row in FAULTS.strip().split("\n"):
            name, state, text, script = row.split(" | ")
            with self.subTest(name=name, script=script):
                lay()
                shell(SAYS + script)
                self.changes(name, state, text)
        lay()
        for status, text in ((200, "no password"), (500, "status 500")):
            with self.subTest(status=status):
                Page.status = status
                self.changes("page", "fault", text)
        lay()
        with open("/dev/ttyAMA0", "rb"):
            self.changes("serial users", "fault", f"process {os.getpid()}, uses")
        self.start("sleep", "60", env={**os.environ, "KT6120_GPIO": "26=1"})
        shell(
            SAYS
            + """answer gpioinfo '/GPIO26/{s/unused/"gpioset"/; s/$/ [used]/}
                /GPIO21/{s/unused/"gpioget"/; s/$/ [used]/}'"""
        )
        self.changes("GPIO lines", "ok", "holds 26")


if __name__ == "__main__":
    unittest.main()
