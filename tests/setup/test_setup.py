#!/usr/bin/python3
# SPDX-License-Identifier: LicenseRef-KT6120
"""kt6120-check on a unit with one fault at a time, kt6120-setup on recorded systems."""

import contextlib
import http.server
import io
import json
import os
import pathlib
import re
import runpy
import subprocess
import threading
import time
import unittest
import unittest.mock

TREE = pathlib.Path(__file__).resolve().parents[2]
SBIN, HELPERS = (TREE / "scripts" / name for name in ("sbin", "service"))
PROGRAM = "/home/pi/KT6120/bin/KT6120"
PATIENCE = 60  # s
STATES = ("ok", "warning", "fault")
WORLD = r"""
replies=/run/bench/replies tools=/tmp/tools
bin=/home/pi/KT6120/bin commands=/var/www/html/commands.txt drm=/sys/class/drm/card0-Composite-1
config=/boot/firmware/config.txt cmdline=/boot/firmware/cmdline.txt
wants=/etc/systemd/system/getty.target.wants page=/etc/lighttpd/conf-enabled
service='systemctl show kt6120 -p ActiveState,UnitFileState,NRestarts,Result'
web='systemctl show kt6120-web -p LoadState,ActiveState'
# What a tool answers from now on, its exit status.
says() { mkdir -p "$replies/$1"; echo "$2" >"$replies/$1/output"; echo "${3-0}" >"$replies/$1/status"; }
answer() { sed -i "$2" "$replies/$1/output"; }
lacks() { for name; do says "gst-inspect-1.0 --exists $name" '' 1; done; }
libgpiod_2() {
    says 'gpioinfo --version' 'gpioinfo (libgpiod) v2.2.1'
    says 'gpioinfo --chip gpiochip0' "$(sed 's/unused.*/output/; /GPIO43/s/$/ consumer="led"/' $replies/gpioinfo/output)"
}
room() { cp -a $bin /tmp/bin; mount -t tmpfs -o size=$1 tmpfs $bin; mv /tmp/bin/* $bin; rmdir /tmp/bin; }
desk() { # takes the desk's files away
    for place in /sys /etc /var/lib; do mount -t tmpfs tmpfs $place; done
    for file in /proc/cmdline /proc/consoles; do : >/tmp/${file##*/}; mount --bind /tmp/${file##*/} $file; done
    for uart in /dev/ttyAMA0 /dev/ttyS0; do : >$uart; mount --bind /dev/null $uart; done
    mkdir -p /run/systemd/system $tools /sys/fs/ext4/mmcblk0p2 /sys/block/mmcblk0/device $drm $bin/gstreamer-1.0
    for tool in i2cget gpioinfo v4l2-ctl gst-inspect-1.0 ifconfig systemctl nft; do
        cp $tree/bench/recorder $tools/$tool
    done
    cp $tree/bench/recorder /opt/vc/bin/vcgencmd
    cp $tree/scripts/KT6120_gpio.sh $tree/scripts/KT6120_bb_read.sh $bin
    cp /usr/bin/tail $bin/KT6120
}
well() { # the commands file remains the one that the program watches
    umount -q $bin || true
    [ ! -e /var/www/kept ] || mv /var/www/kept $commands
    rm -rf $replies /sys/class/net /etc/lighttpd
    : >$bin/KT6120.ini
    says i2cget 0x64
    says gpioinfo "$(seq 0 53 | sed 's/.*/\tline &: "GPIO&" unused output active-high/')"
    says 'gpioinfo --version' 'gpioinfo (libgpiod) v1.6.3'
    says v4l2-ctl "[0]: 'MJPG' (Motion-JPEG, compressed)
        [1]: 'UYVY' (UYVY 4:2:2)
        Frames per second: 25.000 (25/1)
        Width/Height : 720/576"
    says ifconfig "$(printf 'eth0: flags=4163<UP>\n  inet 10.9.0.2  broadcast 10.9.0.255\n')"
    says "$service" "$(printf 'ActiveState=active\nUnitFileState=enabled\nNRestarts=0\nResult=success\n')"
    says "$web" 'LoadState=loaded ActiveState=active'
    says vcgencmd "temp=48.3'C"
    mkdir -p /sys/class/net/eth0/device /sys/class/net/wlan0/device /sys/class/net/wlan0/phy80211 $drm
    echo connected >$drm/status
    echo 720x576i >$drm/modes
    echo 0 >/sys/fs/ext4/mmcblk0p2/errors_count
    echo 0x01 0x02 >/sys/block/mmcblk0/device/life_time
    echo root=/dev/mmcblk0p2 net.ifnames=0 video=Composite-1:720x576@50ie,tv_mode=PAL >/tmp/cmdline
    echo tty1 >/tmp/consoles
    echo 401 >/tmp/status
    echo www-data:x:0: >/etc/group
    : >$bin/gstreamer-1.0/libgstkt6120.so
    : >>$commands
    chmod 664 $commands
    ln -sfn /dev/ttyAMA0 /dev/serial0
}
system() { # the recorded one
    rm -rf /boot /etc/* /var/lib/kt6120 /dev/serial* $commands $replies
    cp -r $tree/tests/setup/$1/. /
    mkdir -p $wants /etc/network
    echo www-data:x:0: >/etc/group
    echo LAMPUP >$commands
    chmod 664 $commands
    cp $tree/bench/recorder $tools/ifup
    says systemctl '' 3
}
files() {
    find /boot /etc /var/www -type f -exec stat -c '%n %a' {} + -exec sha256sum {} + | sort
    find /etc /var/www -type l -printf '%p %l\n' | sort
    ls -i $commands 2>/dev/null || true
}
"""
# Line, its state, part of its text, what is done to the unit.
FAULTS = r"""
serial line | fault | /dev/serial0 is missing | rm /dev/serial0
serial line | warning | /dev/ttyS0 | ln -sfn /dev/ttyS0 /dev/serial0
serial users | fault | console | echo 'ttyAMA0  -W- (EC p  )  204:64' >>/tmp/consoles
converter | fault | status 1 | says i2cget '' 2
GPIO lines | fault | line 21 is in use: "GPIO21" "spi" | answer gpioinfo '/GPIO21"/s/unused.*/"spi" output [used]/'
GPIO lines | fault | line 43 is in use | libgpiod_2
GPIO lines | fault | there is no line 19 | says gpioinfo ''
camera | fault | but nothing | answer v4l2-ctl /UYVY/d
camera | fault | but nothing | answer v4l2-ctl s/576/480/
camera | fault | but UYVY at 30.000 | answer v4l2-ctl s/25/30/
camera | fault | but UYVY at 30.000 | echo ' (30.000 fps)' >>$replies/v4l2-ctl/output
encoder | ok | the kernel's | lacks omxh264enc
encoder | warning | software | lacks omxh264enc v4l2h264enc
encoder | fault | neither | lacks omxh264enc v4l2h264enc x264enc
encoder | fault | no element | lacks omxh264enc; rm $bin/gstreamer-1.0/*
TV output | fault | no composite output | rm -r $drm
TV output | fault | is off | echo disconnected >$drm/status
TV output | fault | no mode | echo 720x480i >$drm/modes
TV output | fault | not set to PAL | echo net.ifnames=0 >/tmp/cmdline
network | fault | enx1 instead | mkdir -p /sys/class/net/enx1/device
network | fault | the next interface | echo root=LABEL=root tv_mode=PAL >/tmp/cmdline
network | warning | eth0 and wlan0 | answer ifconfig '1h; 1!H; $!d; x; p; s/eth0/wlan0/'
commands file | fault | is missing | mv $commands /var/www/kept
commands file | fault | regular | mv $commands /var/www/kept; mkfifo $commands
commands file | fault | not writable | mv $commands /var/www/kept; ln -s ../kept $commands; chmod g-w $commands
commands file | fault | not writable | echo root:x:0: >/etc/group
commands file | fault | its group is pi | mkdir -p $page; : >$page/90-kt6120.conf; sed -i 's/www-data/pi/' /etc/group
commands file | fault | does not watch | mv $commands /var/www/kept; cp -p /var/www/kept $commands
vcgencmd | fault | VCHI | says vcgencmd 'VCHI failed'
disk | warning | MiB free | room 50m
disk | fault | MiB free | room 5m
card | fault | read-only | mount --bind $bin $bin; mount -o remount,ro,bind $bin
card | fault | mmcblk0p2: 3 errors | echo 3 >/sys/fs/ext4/mmcblk0p2/errors_count
card | warning | 80 % | echo 0x01 0x09 >/sys/block/mmcblk0/device/life_time
card | fault | 100 % | echo 0x0b 0x01 >/sys/block/mmcblk0/device/life_time
service | fault | failed, last result watchdog | answer "$service" 's/=active/=failed/; s/=success/=watchdog/'
service | fault | does not write | touch -d '70 seconds ago' $bin/KT6120.ini
service | fault | disabled at boot | answer "$service" s/=enabled/=disabled/
service | warning | 7 times | answer "$service" s/=0/=7/
page | ok | not installed | answer "$web" s/=loaded/=not-found/
page | fault | does not run | answer "$web" s/=active/=failed/
page | warning | no password | echo 200 >/tmp/status
page | fault | status 500 | echo 500 >/tmp/status
page | warning | no limit to the connections | says nft '' 1
"""


os.environ |= {"PATH": "/tmp/tools:/usr/bin:/usr/sbin", "http_proxy": "http://127.0.0.1:9"}
CHECK, SETUP = (runpy.run_path(str(SBIN / f"kt6120-{name}")) for name in ("check", "setup"))


def shell(script):
    command = ["sh", "-euc", f"tree={TREE}" + WORLD + script]
    return subprocess.run(command, check=True, timeout=PATIENCE, stdout=subprocess.PIPE).stdout


def run(program, *options, answer=""):
    """In this process, which saves most of the time. Returns exit status and output."""
    said = io.StringIO()
    with (
        unittest.mock.patch("sys.argv", ["program", *options]),
        unittest.mock.patch("sys.stdin", io.StringIO(answer)),
        contextlib.redirect_stdout(said),
        contextlib.redirect_stderr(said),
    ):
        return program["main"](), said.getvalue()


class Page(http.server.BaseHTTPRequestHandler):
    def do_GET(self):
        self.send_response_only(int(pathlib.Path("/tmp/status").read_text()))  # logs nothing
        self.end_headers()


def setUpModule():
    shell("desk")
    server = http.server.HTTPServer(("127.0.0.1", 80), Page)
    threading.Thread(target=server.serve_forever, daemon=True).start()


class Check(unittest.TestCase):
    def start(self, *command, **options):
        process = self.enterContext(subprocess.Popen(command, **options))
        self.addCleanup(process.kill)

    def lines(self, clock=0):
        with unittest.mock.patch("ctypes.CDLL") as library, unittest.mock.patch("time.sleep"):
            library.return_value.adjtimex.return_value = clock
            status, said = run(CHECK, "--json")
        lines = {line["name"]: line for line in json.loads(said)["lines"]}
        self.assertEqual(status, max(STATES.index(line["state"]) for line in lines.values()))
        return lines

    def changes(self, name, state, text, clock=0):
        """This line has changed, and no other."""
        lines = self.lines(clock)
        self.assertEqual([n for n, line in lines.items() if line != self.good[n]], [name])
        self.assertEqual(lines[name]["state"], state)
        self.assertIn(text, lines[name]["text"])
        self.assertEqual(lines[name]["remedy"] == "", state == "ok")

    def test_faults(self):
        shell("well")
        with open("/dev/ttyAMA0", "rb") as line:
            self.start(PROGRAM, "-f", "/var/www/html/commands.txt", stdin=line)
        end = time.monotonic() + PATIENCE
        while "watched" not in (good := self.lines())["commands file"]["text"]:
            self.assertLess(time.monotonic(), end)
        self.good = good
        self.assertEqual({line["state"] for line in good.values()}, {"ok"})
        for row in FAULTS.strip().split("\n"):
            name, state, text, script = row.split(" | ")
            with self.subTest(name=name, script=script):
                shell("well; " + script)
                self.changes(name, state, text)
        shell("well")
        self.changes("clock", "warning", "not synchronised", clock=5)
        with open("/dev/ttyAMA0", "rb"):
            self.changes("serial users", "fault", f"process {os.getpid()}, uses")
        self.start("sleep", "60", env={**os.environ, "KT6120_GPIO": "26=1"})
        held = '/GPIO26/s/unused/"gpioset" [used]/; /GPIO21/s/unused/"gpioget" [used]/'
        shell(f"answer gpioinfo '{held}'")
        self.changes("GPIO lines", "ok", "holds 26")
        self.assertIn("\nok       camera: UYVY 720 x 576", run(CHECK)[1])
        shell("well; touch -d '70 seconds ago' $bin/KT6120.ini")
        with unittest.mock.patch("time.sleep", lambda _: shell("touch $bin/KT6120.ini")):
            self.assertEqual(CHECK["service"](), self.good["service"]["text"])  # the clock jumped


class Helpers(unittest.TestCase):
    def test_devices_are_awaited_at_boot(self):
        shell("echo 29.99 1 >/tmp/uptime; mount --bind /tmp/uptime /proc/uptime; mkdir /dev/dri")
        waiting = subprocess.Popen([HELPERS / "await-devices"])
        self.assertRaises(subprocess.TimeoutExpired, waiting.wait, 0.2)
        shell("touch /dev/video0 /dev/dri/card0")
        waiting.wait(PATIENCE)
        shell("rm -r /dev/video0 /dev/dri; echo 30.00 1 >/tmp/uptime")
        subprocess.run([HELPERS / "await-devices"], timeout=PATIENCE, check=True)

    def test_temperature_of_the_kernel(self):
        zone = "zone=/sys/class/thermal/thermal_zone0; mkdir -p $zone; echo 48312 >$zone/temp"
        self.assertEqual(shell(f"{zone}; {HELPERS}/vcgencmd measure_temp"), b"temp=48.3'C\n")


TITLE = ["+", "+# The inspection camera's unit (kt6120-setup)"]
COMPOSITE = "+dtoverlay=vc4-kms-v3d,composite"
RASPIOS = ["-dtoverlay=vc4-kms-v3d", COMPOSITE, *TITLE]
RASPIOS += ["+enable_uart=1", "+dtparam=i2c_arm=on", "+enable_tvout=1"]
DEBIAN = ["+dtparam=i2c_arm=on", "+enable_tvout=1", COMPOSITE]
SOURCES = ['+CONSOLES="tty0"', *TITLE, "+enable_uart=1", *DEBIAN]
SOURCES += ["+net.ifnames=0 video=Composite-1:720x576@50ie,tv_mode=PAL"]
SOURCES += ['+KERNEL=="ttyAMA0", SYMLINK+="serial0"']
# The lines that change, but for those of the network and of cmdline.txt.
SYSTEMS = {
    "raspios": RASPIOS,
    "debian12": [*TITLE, *DEBIAN, *SOURCES],
    "debian13": [*TITLE, *DEBIAN, '-CONSOLES="tty0 ttyS1,115200"', *SOURCES],
}
CASES = r"""
sed -i 's/kms-v3d$/&,cma-256,composite/' $config | +dtoverlay=vc4-kms-v3d,composite,cma-256
sed -i 's/kms-v3d$/&,composite=off/' $config | +dtoverlay=vc4-kms-v3d,composite
echo enable_uart=0 >>$config | -enable_uart=0
echo dtparam=i2c_arm=off,i2c_arm_baudrate=9600 >>$config | +dtparam=i2c_arm=on,i2c_arm_baudrate=9600
echo dtparam=i2s=on >>$config | +#dtparam=i2s=on
echo dtparam=i2s,i2c_arm=off,i2s=on,audio=on >>$config | +dtparam=i2c_arm=on,audio=on
echo dtoverlay=spi1-1cs >>$config | +#dtoverlay=spi1-1cs
sed -i 's/^.all.$/[cm4]/' $config | +[all]
sed -i '1i # \xff' $config | +enable_uart=1
sed -i 's/$/\r/' $config | +enable_uart=1
ln -s ttyAMA0 /dev/serial1; ln -s /x $wants/hciuart.service | -symlink to /x
ln -s ttyS0 /dev/serial0 | +dtoverlay=disable-bt
ln -s /x $wants/serial-getty@ttyAMA0.service | -symlink to /x
ln -s ttyAMA0 /dev/serial0; ln -s /x $wants/hciuart.service | not -symlink to /x
echo console=ttyS1,115200 console=tty2 console=serial0 root=x video=Composite-1:720x480@60ie net.ifnames=1 >$cmdline | +console=tty2 root=x net.ifnames=0 video=Composite-1:720x576@50ie
echo root=x >$cmdline | +console=tty1 root=x net.ifnames=0 video=Composite-1:720x576@50ie
echo 'fine?' >>$config | left alone: /boot/firmware/config.txt: line 31: fine?
echo cmdline=other.txt >>$config | left alone: /boot/firmware/config.txt: line 31: cmdline=other.txt
echo 2 >>$cmdline | left alone: /boot/firmware/cmdline.txt: not one line with root=
mkfifo $config.new; mv $config.new $cmdline | left alone: /boot/firmware/cmdline.txt: not a regular file
mv /boot/firmware/* /boot | +++ /boot/config.txt
rm -r /boot/firmware | left alone: /boot/firmware/config.txt: no config.txt there, nor in /boot
says 'systemctl is-active --quiet NetworkManager' '' | /etc/NetworkManager/system-connections/kt6120.nmconnection: new, mode 600
says 'systemctl is-active --quiet systemd-networkd' '' | +DHCP=yes
echo 'iface eth0 inet static' >/etc/network/interfaces | +allow-hotplug usb0
rm /tmp/tools/ifup | left alone: /etc/network/interfaces.d/kt6120: neither NetworkManager nor systemd-networkd runs, and ifupdown is missing
rm $commands | /var/www/html/commands.txt: new, mode 664
mv $commands /var/www/kept; ln -s ../kept $commands; chmod 644 $commands | left alone: /var/www/html/commands.txt: a symlink, whose target the web server's group cannot write
chmod 644 $commands | /var/www/html/commands.txt: group and mode www-data 644 -> www-data 664
"""


class Setup(unittest.TestCase):
    def setup(self, *options, answer="", left=False):
        status, said = run(SETUP, *options, answer=answer)
        self.assertEqual("left alone: " in said, left, said)
        self.assertEqual(status, left or "[y/N]" in said and answer != "y\n", said)
        return said

    def there_and_back(self, left=False):
        """Returns what the change printed."""
        before = shell("files")
        said = self.setup("--dry-run", left=left)
        self.assertEqual(shell("files"), before)
        done = self.setup("--yes", left=left)
        shell("echo LAMPUP >$commands")
        self.assertEqual(done.split("done; ")[0], said.split("left alone: ")[0])
        after = shell("files")
        self.assertIn("nothing to change", self.setup("--yes", left=left))
        self.assertEqual(shell("files"), after)
        self.setup("--undo", "--yes")
        self.assertEqual(shell("files"), before)
        return said

    def test_systems(self):
        for system, lines in SYSTEMS.items():
            with self.subTest(system=system):
                shell(f"system {system}")
                said = re.findall(r"^[-+](?!--|\+\+).*$", self.there_and_back(), re.M)
                others = [line for line in said if not re.search(r" root=|usb0|iface eth0", line)]
                self.assertEqual(others, lines)
                shell("ln -s ttyAMA0 /dev/serial0")  # the operator's own rule, or the system's
                self.assertNotIn("serial0.rules", self.setup("--dry-run"))

    def test_cases(self):
        for row in CASES.strip().split("\n"):
            script, line = row.split(" | ")
            with self.subTest(script=script):
                shell("system raspios; " + script)
                said = self.there_and_back(line.startswith("left")).splitlines()
                self.assertEqual(line.removeprefix("not ") in said, line[:3] != "not", said)

    def test_twice(self):
        """What has changed meanwhile stays; what has not goes back to what it was at first."""
        shell("system raspios; chmod 644 $commands")
        before = shell("files")
        self.assertIn("[y/N]", self.setup(answer="n\n"))
        self.assertIn("[y/N]", self.setup())
        self.assertEqual(shell("files"), before)
        self.setup(answer="y\n")
        shell("ln -s ttyAMA0 /dev/serial1; echo LAMPDOWN >$commands")
        self.assertIn("+dtoverlay=disable-bt", self.setup("--yes"))
        self.setup("--undo", "--yes")
        shell("echo LAMPUP >$commands")
        self.assertEqual(shell("files"), before)
        self.setup("--yes")
        changed = shell("echo over_voltage=2 >>$config; sha256sum $config")
        shell("cp $tree/tests/setup/raspios$cmdline $cmdline")
        said = self.setup("--undo", "--yes", left=True)
        self.assertNotIn("cmdline.txt", said)
        self.assertIn("config.txt: somebody else has changed it since", said)
        self.assertEqual(shell("sha256sum $config"), changed)
        for damaged in "", "[1]":
            shell(f"echo '{damaged}' >/var/lib/kt6120/setup.json")
            with self.assertRaisesRegex(SETUP["LeftAlone"], "damaged"):
                run(SETUP, "--undo")

    def test_group_of_the_web_server(self):
        """The sandbox has root's only."""
        shell("system raspios; echo www-data:x:33: >/etc/group")
        with unittest.mock.patch("os.chown") as chown:
            self.setup("--yes")
        chown.assert_called_once_with("/var/www/html/commands.txt", -1, 33)

    def test_full_boot_folder(self):
        shell("system raspios; mv /boot/firmware /boot/kept; mkdir /boot/firmware")
        shell("mount -t tmpfs -o size=8k tmpfs /boot/firmware; mv /boot/kept/* /boot/firmware")
        self.addCleanup(shell, "umount /boot/firmware")
        before = shell("sha256sum /boot/firmware/*")
        self.assertIn("No space left", self.setup("--yes", left=True))
        self.assertEqual(shell("sha256sum /boot/firmware/*"), before)


if __name__ == "__main__":
    unittest.main()
