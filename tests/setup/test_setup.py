#!/usr/bin/python3
# SPDX-License-Identifier: LicenseRef-KT6120
"""kt6120-check on a unit of recorded tools and files, with one fault at a time."""

import contextlib
import http.server
import io
import json
import os
import pathlib
import re
import runpy
import shutil
import subprocess
import threading
import time
import unittest
import unittest.mock

TREE = pathlib.Path(__file__).resolve().parents[2]
BIN = pathlib.Path("/home/pi/KT6120/bin")
TOOLS = pathlib.Path("/tmp/tools")
os.environ["PATH"] = f"{TOOLS}:/usr/bin:/usr/sbin"
CHECK, SETUP = (
    runpy.run_path(str(TREE / f"packaging/root/kt6120/usr/sbin/kt6120-{name}"))
    for name in ("check", "setup")
)
COMMANDS = "/var/www/html/commands.txt"
REPLIES = "/run/bench/replies"
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
    "ifup": "",
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
        status, said = run(CHECK, "--json")
        lines = {line["name"]: line for line in json.loads(said)["lines"]}
        self.assertEqual(status, max(STATES.index(line["state"]) for line in lines.values()))
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


OURS = ["+", "+# The inspection camera's unit (kt6120-setup)"]
COMPOSITE = "+dtoverlay=vc4-kms-v3d,composite"
RASPIOS = ["-dtoverlay=vc4-kms-v3d", COMPOSITE, *OURS]
RASPIOS += ["+enable_uart=1", "+dtparam=i2c_arm=on", "+enable_tvout=1"]
DEBIAN = [*OURS, "+dtparam=i2c_arm=on", "+enable_tvout=1", COMPOSITE]
DEBIAN_KEPT = [
    *OURS,
    "+enable_uart=1",
    *DEBIAN[2:],
    "+net.ifnames=0 video=Composite-1:720x576@50ie",
]
UDEV = '+KERNEL=="ttyAMA0", SYMLINK+="serial0"'
# The lines that change, without those of cmdline.txt and the network.
SYSTEMS = {
    "raspios12": RASPIOS,
    "raspios13": RASPIOS,
    "debian12": [*DEBIAN, '+CONSOLES="tty0"', *DEBIAN_KEPT, UDEV],
    "debian13": [*DEBIAN, '-CONSOLES="tty0 ttyS1,115200"', '+CONSOLES="tty0"', *DEBIAN_KEPT, UDEV],
}
CMDLINE = {
    "raspios12": "console=tty1 root=PARTUUID=4e639091-02 rootfstype=ext4 fsck.repair=yes rootwait"
    " cfg80211.ieee80211_regdom=GB net.ifnames=0",
    "raspios13": "console=tty1 root=PARTUUID=1a2b83e2-02 rootfstype=ext4 fsck.repair=yes rootwait"
    " ds=nocloud;i=rpi-imager-1761830571034 net.ifnames=0",
    "debian12": "console=tty0 root=LABEL=RASPIROOT rw fsck.repair=yes net.ifnames=0 cma=64M rootwait",
}
CMDLINE["debian13"] = CMDLINE["debian12"]
# What differs on a Raspberry Pi OS 12; a line of the output, with what is left alone.
CASES = r"""
sed -i 's/kms-v3d$/&,cma-256/' $config | +dtoverlay=vc4-kms-v3d,composite,cma-256
sed -i 's/kms-v3d$/&,cma-256,composite/' $config | +dtoverlay=vc4-kms-v3d,composite,cma-256
echo enable_uart=0 >>$config | -enable_uart=0
echo dtparam=i2c_arm=off,i2c_arm_baudrate=9600 >>$config | +dtparam=i2c_arm=on,i2c_arm_baudrate=9600
echo dtparam=i2s=on >>$config | +#dtparam=i2s=on
echo dtoverlay=spi1-1cs >>$config | +#dtoverlay=spi1-1cs
sed -i 's/^.all.$/[cm4]/' $config | +[all]
sed -i '1i # \xff' $config | +enable_uart=1
sed -i 's/$/\r/' $config | +enable_uart=1
ln -s ttyAMA0 /dev/serial1; ln -s /x $wants/hciuart.service | -symlink to /x
ln -s ttyS0 /dev/serial0 | +dtoverlay=disable-bt
ln -s /x $wants/serial-getty@ttyAMA0.service | -symlink to /x
ln -s ttyAMA0 /dev/serial0; ln -s /x $wants/hciuart.service | +enable_uart=1
sed -i 's/ console=tty1//' $cmdline | +console=tty1 root=
sed -i 's/$/ video=Composite-1:720x480@60ie net.ifnames=1/' $cmdline | -console=serial0
echo 'fine?' >>$config | left alone: /boot/firmware/config.txt: line 49: fine?
echo cmdline=other.txt >>$config | left alone: /boot/firmware/config.txt: line 49: cmdline=other.txt
echo 2 >>$cmdline | left alone: /boot/firmware/cmdline.txt: not one line with root=
mkfifo $config.new; mv $config.new $cmdline | left alone: /boot/firmware/cmdline.txt: not a regular file
mv /boot/firmware/* /boot | +++ /boot/config.txt
rm -r /boot/firmware | left alone: /boot/firmware/config.txt: no config.txt there, nor in /boot
says 'systemctl is-active --quiet NetworkManager' '' | +interface-name=usb0;eth0;
says 'systemctl is-active --quiet systemd-networkd' '' | +DHCP=yes
echo 'iface eth0 inet static' >/etc/network/interfaces | +allow-hotplug usb0
echo 'iface eth0 inet dhcp iface' >/etc/network/interfaces | +iface usb0 inet dhcp
rm /tmp/tools/ifup | left alone: /etc/network/interfaces.d/kt6120: neither NetworkManager
rm $commands | /var/www/html/commands.txt: new, empty
chmod 644 $commands | /var/www/html/commands.txt: group and mode www-data 644 -> www-data 664
"""
VARIABLES = "config=/boot/firmware/config.txt cmdline=/boot/firmware/cmdline.txt wants=/etc/systemd/system/getty.target.wants\n"


class Setup(unittest.TestCase):
    def lay(self, system, script=""):
        """The unit has the system's recorded files."""
        shell(
            f"""rm -rf /boot /etc/* /var/lib/kt6120 /dev/serial* {COMMANDS} {REPLIES}
            cp -r {TREE}/tests/setup/{system}/. /
            mkdir -p /etc/systemd/system/getty.target.wants /etc/network {REPLIES}
            echo www-data:x:0: >/etc/group
            echo LAMPUP >{COMMANDS}
            chmod 664 {COMMANDS}
            cp {TREE}/bench/recorder {TOOLS}/ifup
            """
            + SAYS
            + """for manager in NetworkManager systemd-networkd; do
                says "systemctl is-active --quiet $manager" '' 3
            done
            """
            + VARIABLES
            + script
        )

    def setup(self, *options, answer="", left=False):
        """Returns what it prints."""
        status, said = run(SETUP, *options, answer=answer)
        self.assertEqual("left alone: " in said, left, said)
        self.assertEqual(status, left or "[y/N]" in said and answer != "y\n", said)
        return said

    def files(self):
        shell(
            """find /boot /etc /var/www -type f -exec stat -c '%n %a' {} + -exec sha256sum {} + >/tmp/files
            find /etc /var/www -type l -printf '%p %l\n' >>/tmp/files
            stat -c %i /var/www/html/commands.txt >>/tmp/files 2>/dev/null || true"""
        )
        return sorted(pathlib.Path("/tmp/files").read_text().splitlines())

    def there_and_back(self, left=False):
        """Returns what the change printed."""
        before = self.files()
        said = self.setup("--dry-run", left=left)
        self.assertEqual(self.files(), before)
        self.assertEqual(
            self.setup("--yes", left=left).split("done; ")[0], said.split("left alone: ")[0]
        )
        after = self.files()
        self.assertIn("nothing to change", self.setup("--yes", left=left))
        self.assertEqual(self.files(), after)
        self.setup("--undo", "--yes")
        self.assertEqual(self.files(), before)
        return said

    def test_systems(self):
        for system, lines in SYSTEMS.items():
            with self.subTest(system=system):
                self.lay(system)
                said = re.findall(r"^[-+](?!--|\+\+).*$", self.there_and_back(), re.M)
                new = [line for line in said if " root=" in line and line[0] == "+"]
                self.assertEqual(new, [f"+{CMDLINE[system]} video=Composite-1:720x576@50ie"])
                expected = [line for line in said if " root=" not in line and "usb0" not in line]
                self.assertEqual(
                    [line for line in expected if line != "+iface eth0 inet dhcp"], lines
                )

    def test_twice(self):
        """What has changed meanwhile stays; what has not goes back to what it was at first."""
        self.lay("raspios12")
        before = self.files()
        self.assertIn("[y/N]", self.setup(answer="n\n"))
        self.assertIn("[y/N]", self.setup())
        self.assertEqual(self.files(), before)
        self.setup(answer="y\n")
        shell("ln -s ttyAMA0 /dev/serial1; echo LAMPDOWN >/var/www/html/commands.txt")
        self.assertIn("+dtoverlay=disable-bt", self.setup("--yes"))
        self.setup("--undo", "--yes")
        shell("echo LAMPUP >/var/www/html/commands.txt")
        self.assertEqual(self.files(), before)
        self.setup("--yes")
        shell("echo over_voltage=2 >>/boot/firmware/config.txt")
        after = self.files()
        said = self.setup("--undo", "--yes", left=True)
        self.assertIn("config.txt: somebody else has changed it since", said)
        same = {line for line in self.files() if "config.txt" in line}
        self.assertEqual(same, {line for line in after if "config.txt" in line})

    def test_cases(self):
        for row in CASES.strip().split("\n"):
            script, line = row.split(" | ")
            with self.subTest(script=script):
                self.lay("raspios12", script)
                config = pathlib.Path("/boot/firmware/config.txt")
                said = self.there_and_back(line.startswith("left"))
                self.assertTrue(any(found.startswith(line) for found in said.split("\n")), said)


if __name__ == "__main__":
    unittest.main()
