#!/bin/sh
# SPDX-License-Identifier: LicenseRef-KT6120
#
# The PAL receiver: receives H.264 over RTP on UDP port 8083 and shows it on the video output: the
# display controller, else the frame buffer, else a window if there is a desktop; otherwise it
# decodes without showing. Sends a copy of the packets to UDP port 8084, for the page. Runs until a
# signal ends it. A failing pipeline is restarted after a second, with GStreamer's message on
# standard error; after three failures in a row the display is left out for half a minute, so that
# the page has its picture. Exits with status 0 if another receiver runs, with status 1 and a message
# if no H.264 decoder is installed.
set -u
. "$(dirname "$0")/KT6120_video.sh"

# Lock the script itself: another user could have created a lock file.
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

# Runs a command so that a signal interrupts the wait for it.
run() {
    "$@" &
    wait "$!"
}

# A signal ends the running command and the script. The command misses a signal that comes before its
# exec, so kill is repeated. If timeout is signalled while it forks, its child stays, so its process
# group is killed too.
stop() {
    trap '' TERM INT HUP
    while kill "${!-}" 2>/dev/null; do sleep 0.1; done
    kill -KILL "-${!-}" 2>/dev/null
    exit 0
}
trap stop TERM INT HUP

receive() { # SECONDS SINK; 0: without end
    run timeout -k 2 "$1" gst-launch-1.0 -q \
        udpsrc port=8083 address=127.0.0.1 \
        caps="application/x-rtp,media=video,encoding-name=H264,clock-rate=90000,payload=96" ! \
        tee name=packets ! queue ! \
        rtph264depay ! h264parse ! "$decoder" ! videoconvert ! "$2" sync=false \
        packets. ! queue leaky=downstream ! \
        udpsink host=127.0.0.1 port=8084 sync=false async=false
}

seconds() { read -r uptime _ </proc/uptime; echo "${uptime%.*}"; }

failures=0 # in a row, each within twenty seconds: Debian 13 takes nine to find that it cannot use a display
while :; do
    began=$(seconds)
    receive 0 "$sink"
    failures=$((failures + 1))
    [ $(($(seconds) - began)) -lt 20 ] || failures=0
    run sleep 1
    [ "$failures" -lt 3 ] || receive 30 fakesink
done
