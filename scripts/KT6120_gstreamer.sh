#!/bin/sh
# SPDX-License-Identifier: LicenseRef-KT6120
#
# The PAL receiver: takes the camera picture, H.264 in RTP packets on UDP port 8083 of the
# unit, and shows it on the video output: the display controller, else the frame buffer, else
# a window where there is a desktop, else nowhere (packets are still taken and decoded). Runs
# until it is told to end. A receiver that breaks down is started again a second later, with
# its reason on standard error; where one runs already, this ends at once with status 0. With
# no H.264 decoder at hand it says so and ends with status 1.
set -u
. "$(dirname "$0")/KT6120_video.sh"

# Held on the script itself: no file of its own, so nobody can have laid it before.
exec 9<"$0"
flock -n 9 || exit 0

decoder=$(first_of omxh264dec v4l2h264dec avdec_h264 openh264dec) || exit 1
if [ -e /dev/dri/card0 ]; then
    sink=kmssink
elif [ -e /dev/fb0 ]; then
    sink=fbdevsink
elif [ -n "${DISPLAY-}${WAYLAND_DISPLAY-}" ]; then
    sink=autovideosink
else
    sink=fakesink
fi

# Waits for a command in a way that a signal can break.
run() {
    "$@" &
    child=$!
    wait "$child"
}

# A signal ends the command that runs, and the script with it.
child=
trap 'trap "" TERM INT HUP; kill "$child" 2>/dev/null; wait; exit 0' TERM INT HUP

while :; do
    run timeout -k 2 0 gst-launch-1.0 -q \
        udpsrc port=8083 address=127.0.0.1 \
        caps="application/x-rtp,media=video,encoding-name=H264,clock-rate=90000,payload=96" ! \
        rtph264depay ! h264parse ! "$decoder" ! videoconvert ! "$sink" sync=false
    run sleep 1
done
