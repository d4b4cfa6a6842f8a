#!/usr/bin/python3
# SPDX-License-Identifier: LicenseRef-KT6120
"""The unit's scripts, among recorded stand-ins of their tools and with the bench's camera and encoder."""

import os
import pathlib
import re
import shutil
import signal
import subprocess
import time
import unittest
import unittest.mock

TREE = pathlib.Path(__file__).resolve().parents[2]
INSTALLED = pathlib.Path("/home/pi/KT6120/bin")
TOOLS = pathlib.Path("/tmp/tools")
BENCH = pathlib.Path("/run/bench")
REPLIES, CALLS, CAMERA = (BENCH / name for name in ("replies", "calls", "camera"))
GPIO, USB = pathlib.Path("/sys/class/gpio"), pathlib.Path("/sys/bus/usb")
SLEPT, MARKS = pathlib.Path("/tmp/slept"), pathlib.Path("/run/KT6120")
PATIENCE = 60  # s


def until(condition):
    end = time.monotonic() + PATIENCE
    while not condition():
        assert time.monotonic() < end, "timeout"
        time.sleep(0.01)


def script(name):
    return str(INSTALLED / f"KT6120_{name}.sh")


def run(name, *arguments):
    command = [script(name), *arguments]
    return subprocess.run(command, capture_output=True, text=True, timeout=PATIENCE, check=False)


def write(path, text, mode=0o644):
    path.parent.mkdir(parents=True, exist_ok=True)
    path.write_text(text)
    path.chmod(mode)


def reply(key, output, status=0):
    write(REPLIES / key / "output", output)
    write(REPLIES / key / "status", f"{status}\n")


def calls():
    lines = CALLS.read_text().splitlines() if CALLS.exists() else []
    return [" ".join(line.split("\t")[1:]) for line in lines]


def install_gpiod(version):
    """libgpiod's tools of a version, or none."""
    for tool in ("gpioset", "gpioget"):
        (TOOLS / tool).unlink(missing_ok=True)
        if version:
            shutil.copy(TREE / "bench/recorder", TOOLS / tool)
            reply(f"{tool} --version", f"{tool} (libgpiod) v{version}\nCopyright\n")


def is_running(process):
    return pathlib.Path(f"/proc/{process}").exists()


class Scripts(unittest.TestCase):
    def setUp(self):
        for place in (INSTALLED, TOOLS, REPLIES, BENCH / "real"):
            shutil.rmtree(place, ignore_errors=True)
            place.mkdir(parents=True)
        CALLS.unlink(missing_ok=True)
        for file in (TREE / "scripts").glob("KT6120_*.sh"):
            shutil.copy(file, INSTALLED)


class AmongTools(Scripts):
    """The search path holds these and the stand-ins only, whatever the desk has installed."""

    def setUp(self):
        super().setUp()
        for tool in "cat cut dirname flock grep sh timeout".split():
            (TOOLS / tool).symlink_to(shutil.which(tool) or "")
        write(TOOLS / "sleep", f"#!/bin/sh\necho $1 >>{SLEPT}\nexec /bin/sleep 0.02\n", 0o755)
        SLEPT.unlink(missing_ok=True)
        for tool in ("i2cget", "systemctl", "logger"):
            shutil.copy(TREE / "bench/recorder", TOOLS / tool)
        self.enterContext(unittest.mock.patch.dict(os.environ, PATH=str(TOOLS)))

    def test_chores(self):
        set_1 = "gpioset --mode=signal --background gpiochip0 "
        set_2 = "gpioset --daemonize --chip gpiochip0 "
        power_off = "systemctl start --no-block --job-mode=replace-irreversibly poweroff.target"
        for gpiod, command, call, answer, tool_status, status in (
            ("1.6.3", "gpio_write 21 1", set_1 + "21=1", "", 0, 0),
            ("2.2.1", "gpio_write 19 1", set_2 + "19=1", "busy", 3, 1),
            ("1.6.3", "sonde_en_write 43 0", set_1 + "43=0", "", 0, 0),
            ("1.6.3", "gpio_read 0", "gpioget gpiochip0 0", "1\n", 0, 0),
            ("2.2.1", "gpio_read 53", "gpioget --numeric --chip gpiochip0 53", "0\n", 0, 0),
            ("1.6.3", "gpio_read 26", "gpioget gpiochip0 26", "", 4, 1),
            ("", "bb_read 0x10", "i2cget -y 1 0x48 0x10", "0x0a\n", 0, 0),
            ("", "bb_read 0x1", "i2cget -y 1 0x48 0x1", "0x90\n", 0, 0),
            ("", "bb_read 0x15", "i2cget -y 1 0x48 0x15", "0xf9\n", 0, 0),
            ("", "bb_read 0x7", "i2cget -y 1 0x48 0x7", "0x00\n", 2, 1),
            ("", "bb_read 0x07", "i2cget -y 1 0x48 0x07", "Warning\n", 0, 1),
            ("", "shutdown", power_off, "", 5, 5),
        ):
            with self.subTest(command=command, gpiod=gpiod, status=tool_status):
                install_gpiod(gpiod)
                CALLS.unlink(missing_ok=True)
                reply(call, answer, tool_status)
                done = run(*command.split())
                self.assertEqual((done.returncode, done.stdout), (status, "" if status else answer))
                self.assertEqual([c for c in calls() if not c.endswith(" --version")], [call])
                self.assertFalse(SLEPT.exists())

    def test_readers_share_their_group(self):
        """Killing the group of a reader that hangs kills its tool too."""
        group = "#!/bin/sh\nexec cut -d ' ' -f 5 /proc/self/stat >/tmp/group\n"
        for tool, command in (("gpioget", "gpio_read 26"), ("i2cget", "bb_read 0x1")):
            write(TOOLS / tool, group, 0o755)
            run(*command.split())
            self.assertEqual(pathlib.Path("/tmp/group").read_text(), f"{os.getpgrp()}\n")

    def test_wrong_arguments(self):
        """Nothing is called, and no mark of a stream left."""
        shutil.rmtree(MARKS, ignore_errors=True)
        no_address = (" phone 1", " 1.2.3 1", " 1..2.3 1", " 1.2.3.256 1", " 1.2.3.0004 1")
        no_port = ("", " 0", " 65536", " 1x", " 1 1")
        for name, rows in {
            "shutdown": (" now",),
            "usb_monitor": (" 1-1",),
            "bb_read": ("", " ", " 12", " 0x", " 0x123", " 0xG", " 0x1 0x2"),
            "gpio_read": ("", " ", " 54", " 026", " -1", " 26 1"),
            "gpio_write": ("", " 54 1", " 21", " 21 2", " 21 01", " 21 1 1"),
            "stream_start": ("", *no_address, *(f" 1.2.3.4{port}" for port in no_port)),
        }.items():
            for row in rows:
                with self.subTest(name + row):
                    done = run(name, *row.split(" ")[1:])
                    self.assertEqual((done.returncode, done.stdout, calls()), (2, "", []))
                    self.assertRegex(done.stderr, r"^usage: KT6120_.*\n$")
        self.assertFalse(MARKS.exists())

    def test_driven_lines_are_held(self):
        """A line stays driven by a process; a new level replaces it and nobody else's."""
        install_gpiod("1.6.3")
        # As the kernel does, it refuses a line that is held; a holder takes a while to end.
        gpioset = """#!/bin/sh
            held=/tmp/held${KT6120_GPIO%=*}
            for old in $(cat $held 2>/dev/null); do kill -0 $old && exit 1; done
            sh -c 'trap "/bin/sleep 0.2; exit" TERM; /bin/sleep 600 & wait' <&- >&- 2>&- &
            echo $! >$held; echo $! >>/tmp/holders"""
        write(BENCH / "real/gpioset", gpioset.replace("            ", ""), 0o755)
        subprocess.run([TOOLS / "gpioset", "21=1"], check=True)
        for level in ("21 1", "19 1", "21 1", "21 0"):  # the third is there already
            self.assertEqual(run("gpio_write", *level.split()).returncode, 0)
        ids = [int(line) for line in pathlib.Path("/tmp/holders").read_text().split()]
        until(lambda: [is_running(id) for id in ids] == [True, False, True, True])
        self.assertLess(max(map(float, SLEPT.read_text().split())), 0.1)
        (TOOLS / "flock").unlink()
        write(TOOLS / "flock", "#!/bin/sh\nexit 1\n", 0o755)  # another call for the line hangs
        self.assertEqual(run("gpio_write", "21", "1").returncode, 1)
        self.assertTrue(is_running(ids[-1]))
        for holder in filter(is_running, ids):
            os.kill(holder, signal.SIGKILL)

    def test_sysfs_instead(self):
        """Without the tools lines go through sysfs, which creates a line's folder on export."""
        for chip, label in (("512", "other"), ("566", "pinctrl-bcm2835")):
            write(GPIO / f"gpiochip{chip}/label", label + "\n")
            write(GPIO / f"gpiochip{chip}/base", chip + "\n")
        os.mkfifo(GPIO / "export")
        export = (
            "exec 3<>export; for line in 1 2; do read -r n <&3; /bin/mkdir new; echo 1 >new/value;"
            " echo in >new/direction; /bin/mv new gpio$n; done"
        )
        kernel = subprocess.Popen(export, shell=True, cwd=GPIO)
        for level, direction in (("1", "high\n"), ("0", "low\n")):
            self.assertEqual(run("gpio_write", "21", level).returncode, 0)
            self.assertEqual((GPIO / "gpio587/direction").read_text(), direction)
        done = run("gpio_read", "26")
        self.assertEqual((done.returncode, done.stdout), (0, "1\n"))
        self.assertEqual((GPIO / "gpio592/direction").read_text(), "in\n")
        kernel.wait(PATIENCE)
        shutil.rmtree(GPIO)
        done = run("gpio_read", "26")
        self.assertEqual((done.returncode, done.stdout), (1, ""))

    def test_usb_devices_are_logged(self):
        def plug(port, *attributes):
            for name, value in (attribute.split("=") for attribute in attributes):
                write(USB / "new" / name, value + "\n")
            (USB / "devices").mkdir(exist_ok=True)
            (USB / "new").rename(USB / "devices" / port)

        plug("usb1", "idVendor=1d6b", "idProduct=0002", "bDeviceClass=09")
        plug("1-1:1.0", "bInterfaceClass=e0")
        command = ["/bin/sh", "-c", f"/bin/sh {script('usb_monitor')} & echo $!; wait"]
        program = subprocess.Popen(command, stdout=subprocess.PIPE)
        self.addCleanup(program.kill)
        assert program.stdout
        monitor = int(program.stdout.readline())
        named = ["product=Phone * $(x)", "manufacturer=Maker"]
        plug("1-1", *named, "idProduct=5678", "idVendor=1234", "bDeviceClass=00")
        entry = "logger -t KT6120 -- USB device {}connected: 1-1 1234:5678 Maker Phone * $(x)"
        until(lambda: calls() == [entry.format("")])
        shutil.rmtree(USB / "devices/1-1")
        until(lambda: calls() == [entry.format(""), entry.format("dis")])
        SLEPT.unlink()
        until(SLEPT.exists)  # between two looks
        # It ends with the program that started it.
        self.assertTrue(is_running(monitor))
        program.kill()
        until(lambda: not is_running(monitor))


def gst(pipeline, **options):
    # A second's work of a quiet machine may take a busy one a minute.
    command = ["timeout", str(5 * PATIENCE), "gst-launch-1.0", "-q", *pipeline.split()]
    return subprocess.run(command, check=False, capture_output=True, **options)


class WithPicture(Scripts):
    """The bench's camera and encoder are in GST_PLUGIN_PATH, as on a unit the plug-in's folder is."""

    TO_THIS_DESK = ("127.0.0.1", "49152")
    ELSEWHERE = ("192.168.42.255", "49152")

    def setUp(self):
        super().setUp()
        write(CAMERA, "ok")

    def start(self, *arguments, **options):
        stream = subprocess.Popen(["sh", script("stream_start"), *arguments], **options)
        self.addCleanup(stream.kill)
        return stream

    def stop(self):
        done = subprocess.run(["sh", script("stream_stop")], capture_output=True, timeout=PATIENCE)
        self.assertEqual((done.returncode, done.stdout + done.stderr), (0, b""))

    def launch_frozen(self, name, *arguments):
        """Launched, and kept from its first line until it is sent SIGCONT."""
        freeze = ["sh", "-c", 'kill -STOP $$; exec sh "$@"', "sh", script(name), *arguments]
        process = subprocess.Popen(freeze)
        until(lambda: ") T " in pathlib.Path(f"/proc/{process.pid}/stat").read_text())
        return process

    def thaw(self, process):
        process.send_signal(signal.SIGCONT)
        process.wait(PATIENCE)

    def decodes(self, port):
        caps = "application/x-rtp,media=video,encoding-name=H264,clock-rate=90000,payload=96"
        picture = "avdec_h264 ! video/x-raw,width=720,height=576 ! identity eos-after=5 ! fakesink"
        stream = f"udpsrc port={port} caps={caps} ! rtph264depay ! {picture}"
        return gst(stream).returncode == 0

    def camera_is_free(self):
        return gst("v4l2src ! fakesink num-buffers=1").returncode == 0

    def test_stream_runs_until_it_is_stopped(self):
        write(CAMERA, "missing")
        said = pathlib.Path("/tmp/said")
        with said.open("w") as stderr:
            first = self.start(*self.TO_THIS_DESK, stderr=stderr)
        until(lambda: "Cannot identify device" in said.read_text())
        write(CAMERA, "ok")  # and tried again
        self.assertTrue(self.decodes(49152))
        # Without the unit's own element in sight, the kernel's encoder is taken as it is.
        plain = os.environ["GST_PLUGIN_PATH"].split(":")[-1]
        world = {**os.environ, "GST_PLUGIN_PATH": plain, "GST_REGISTRY": "/tmp/registry"}
        second = self.start("127.255.255.255", "8001", env=world)
        first.wait(PATIENCE)
        self.assertTrue(self.decodes(8001))
        self.stop()
        second.wait(PATIENCE)

    def test_stop_needs_the_shell_alone(self):
        """The program takes the camera back 100 ms later, however slow other programs are."""
        write(TOOLS / "hanging", "#!/bin/sh\nexec /bin/sleep 60\n", 0o755)
        for name in {*os.listdir("/usr/bin"), *os.listdir("/usr/sbin")}:
            (TOOLS / name).symlink_to(TOOLS / "hanging")
        stream = self.start(*self.TO_THIS_DESK)
        self.assertTrue(self.decodes(49152))
        self.assertFalse(self.camera_is_free())
        slow = subprocess.Popen(["/bin/sh", script("stream_stop")], env={"PATH": str(TOOLS)})
        stream.wait(PATIENCE)
        until(self.camera_is_free)
        slow.kill()
        slow.wait()

    def test_stream_ends_with_its_script(self):
        for number, status in ((signal.SIGTERM, 0), (signal.SIGKILL, -signal.SIGKILL)):
            stream = self.start(*self.TO_THIS_DESK)
            self.assertTrue(self.decodes(49152))
            stream.send_signal(number)
            self.assertEqual(stream.wait(PATIENCE), status)
            until(self.camera_is_free)

    def test_order_of_launch_holds(self):
        """The script launched last wins, in whatever order they reach their first lines."""
        older_start = self.launch_frozen("stream_start", *self.TO_THIS_DESK)
        self.stop()
        self.thaw(older_start)
        self.assertTrue(self.camera_is_free())
        older_stop = self.launch_frozen("stream_stop")
        stream = self.start(*self.TO_THIS_DESK)
        self.assertTrue(self.decodes(49152))
        self.thaw(older_stop)
        self.assertTrue(self.decodes(49152))
        self.stop()
        stream.wait(PATIENCE)

    def test_strangers_are_left_alone(self):
        """A process that has got the pid of a stream that has ended."""
        self.stop()  # creates the folder
        stranger = subprocess.Popen(["setsid", "sleep", "60"])
        mark = MARKS / f"1.{stranger.pid}.start.sh"
        mark.touch()
        self.stop()
        self.assertFalse(mark.exists())
        self.assertRaises(subprocess.TimeoutExpired, stranger.wait, 0.1)
        stranger.kill()
        stranger.wait()

    def test_stream_ends_with_its_network(self):
        """Right after a stop it waits a second, then ends with the third failed check."""
        self.stop()
        stream = self.launch_frozen("stream_start", *self.ELSEWHERE)
        birth = pathlib.Path(f"/proc/{stream.pid}/stat").read_text().split()[21]
        (MARKS / f"{birth}.1.stop").touch()
        thawed = time.monotonic()
        self.thaw(stream)
        self.assertEqual(stream.returncode, 0)
        self.assertGreater(time.monotonic() - thawed, 4)
        plug = [str(TREE / "bench/plug"), "usb0", "192.168.42.10/24", "192.168.42.1"]
        subprocess.run(plug, check=True)
        self.stop()
        stream = self.start(*self.ELSEWHERE)
        self.assertTrue(self.decodes(49152))
        subprocess.run("ip link del usb0".split(), check=True)
        self.assertEqual(stream.wait(PATIENCE), 0)
        self.assertTrue(self.camera_is_free())

    def test_encoder(self):
        """The plug-in's element, around x264enc and around the kernel's encoder, for PAL and phone."""

        def encode(world, raw, settings):
            source = f"videotestsrc num-buffers=51 pattern=snow ! video/x-raw,{raw}"
            sink = "video/x-h264,stream-format=byte-stream ! filesink location=/tmp/encoded"
            return gst(f"{source} ! omxh264enc {settings} ! {sink}", env=world).returncode

        both = os.environ["GST_PLUGIN_PATH"]
        alone = os.environ | {"GST_PLUGIN_PATH": both.split(":")[0], "GST_REGISTRY": "/tmp/own"}
        for world in (alone, os.environ):
            for caps in "", "caps=video/x-h264,profile=(string)baseline,level=(string)3":
                settings = f"target-bitrate=1000000 control-rate=1 b-frames=0 {caps}"
                self.assertEqual(encode(world, "width=720,height=576,framerate=25/1", settings), 0)
                units = pathlib.Path("/tmp/encoded").read_bytes().split(b"\0\0\1")[1:]
                # No delay: each thread encodes a part of a frame. On one core there is one thread anyway.
                self.assertTrue(any(re.search(b" (sliced_)?threads=1 ", unit) for unit in units))
                sps = next(unit for unit in units if unit[0] & 31 == 7)
                self.assertIn(sps[1], (66,) if caps else (66, 77, 100))  # the profile
                self.assertEqual(sps[3], 30)  # level 3
                first = [unit[0] & 31 for unit in units if unit[0] & 31 in (1, 5) and unit[1] & 128]
                self.assertEqual((len(first), first.count(5)), (51, 3))  # key frames a second apart
                # Two seconds of what compresses worst: 250,000 bytes requested.
                self.assertTrue(200_000 < sum(map(len, units)) < 400_000)
        # x264enc would accept what the hardware does not and no phone decodes.
        self.assertNotEqual(encode(alone, "format=Y444", ""), 0)

    def test_what_a_stream_cannot_do_without(self):
        bare = {"GST_REGISTRY": "/tmp/bare", "GST_PLUGIN_PATH": "", "GST_PLUGIN_SYSTEM_PATH": "/x"}
        for name, arguments in ("stream_start", self.TO_THIS_DESK), ("gstreamer", ()):
            with unittest.mock.patch.dict(os.environ, bare):
                done = run(name, *arguments)
            self.assertEqual((done.returncode, "needs one of" in done.stderr), (1, True))
        shutil.rmtree(MARKS)
        MARKS.touch()
        done = run("stream_start", *self.TO_THIS_DESK)
        MARKS.unlink()
        self.assertEqual((done.returncode, "cannot create a file" in done.stderr), (1, True))

    def test_one_receiver_runs(self):
        def port_is_taken():  # 127.0.0.1:8083
            return "0100007F:1F93 " in pathlib.Path("/proc/net/udp").read_text()

        pathlib.Path("/dev/dri").mkdir()
        pathlib.Path("/dev/dri/card0").touch()  # a display that cannot be used
        first = subprocess.Popen(["sh", script("gstreamer")])
        until(lambda: subprocess.run(["pgrep", "-f", "fakesink"]).returncode == 0)
        until(port_is_taken)
        self.assertEqual(run("gstreamer").returncode, 0)
        self.assertTrue(port_is_taken())
        first.terminate()
        first.wait(PATIENCE)
        self.assertFalse(port_is_taken())


if __name__ == "__main__":
    unittest.main()
