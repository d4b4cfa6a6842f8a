#!/bin/sh
# SPDX-License-Identifier: LicenseRef-KT6120
#
# KT6120_stream_start.sh ADDRESS PORT
# The phone stream: the camera /dev/video0 as H.264 (720x576, 25 frames a second, baseline,
# level 3) in RTP packets to a UDP port of an IPv4 address, which may be a broadcast address.
# Replaces a running stream. Runs until KT6120_stream_stop.sh or a signal ends it. A failing stream
# (no camera, no network) is restarted after a second, with GStreamer's message on standard error.
# Exit status 2 for wrong arguments, 1 if there is no encoder or its folder in /run is not writable.
#
# If the network is lost during the second of the splash image, the program launches the stop script
# first and this one up to 100 ms later, and nothing would stop it. So this script uses the camera
# only while the program would consider the unit connected, and exits otherwise. It always streams
# to the address of a single viewer on a connected network.
set -u
# The PATH of an ordinary user lacks the folder of ifconfig, which translates what it prints.
PATH=$PATH:/usr/sbin:/sbin
export LC_ALL=C

is_address() (
    case $1 in '' | *[!0-9.]* | .* | *. | *..*) exit 1 ;; esac
    IFS=.
    # shellcheck disable=SC2086 # split at the dots
    set -- $1
    [ $# -eq 4 ] || exit 1
    for number; do
        [ ${#number} -le 3 ] && [ "$number" -le 255 ] || exit 1
    done
)

is_port() {
    case $1 in '' | *[!0-9]*) return 1 ;; esac
    [ ${#1} -le 5 ] && [ "$1" -ge 1 ] && [ "$1" -le 65535 ]
}

if ! { [ $# -eq 2 ] && is_address "$1" && is_port "$2"; }; then
    echo "usage: ${0##*/} ADDRESS PORT (an IPv4 address, a UDP port)" >&2
    exit 2
fi

# Run in a new process group, so that one signal ends all of it.
kill -0 -$$ 2>/dev/null || exec setsid /bin/sh "$0" "$@"

here=$(dirname "$0")
. "$here/KT6120_stream.sh"
take_turn start
[ -z "$overtaken" ] || exit 0
if [ ! -e "$marks/$own.$$.start" ]; then
    echo "${0##*/}: cannot create a file in $marks" >&2
    exit 1
fi
. "$here/KT6120_video.sh"

encoder=$(first_of omxh264enc v4l2h264enc x264enc) || exit 1
case $encoder in
omxh264enc) settings='target-bitrate=4000000 control-rate=1 b-frames=0' ;;
v4l2h264enc) settings='extra-controls=controls,video_bitrate=4000000,h264_i_frame_period=25' ;;
x264enc) settings='bitrate=4000 tune=zerolatency speed-preset=ultrafast key-int-max=25' ;;
esac

# The stream headers are repeated every second for late viewers. A PAL camera is interlaced, which
# neither the baseline profile nor phones support; deinterlace passes progressive pictures through.
# pdeathsig ends the pipeline however this script ends.
stream() {
    # shellcheck disable=SC2086 # several settings
    exec setpriv --pdeathsig KILL gst-launch-1.0 -q \
        v4l2src device=/dev/video0 ! queue ! videoconvert ! \
        "video/x-raw,format=I420,width=720,height=576,framerate=25/1" ! \
        deinterlace fields=top ! queue ! \
        "$encoder" $settings ! "video/x-h264,profile=baseline,level=(string)3" ! \
        rtph264pay pt=96 config-interval=1 ! udpsink host="$1" port="$2" sync=false
}

# A second that a signal can interrupt.
pause() {
    sleep 1 &
    sleeper=$!
    wait "$sleeper"
}

# Whether the address is that of a single viewer: the unit itself or a directly connected host, not
# a broadcast address.
is_viewer() {
    case $1 in 127.*) return 0 ;; esac
    case $(ip -4 route get "$1" 2>/dev/null) in
    '' | *' via '* | broadcast* | multicast* | unreachable*) return 1 ;;
    esac
}

# The program's own rule: exactly one interface has a broadcast address.
is_on_network() {
    # shellcheck disable=SC2046 # split into words
    set -- $(ifconfig 2>/dev/null)
    networks=0
    for word; do
        [ "$word" != broadcast ] || networks=$((networks + 1))
    done
    [ "$networks" -eq 1 ]
}

running=
sleeper=
trap 'kill -KILL $running $sleeper 2>/dev/null; exit 0' TERM INT HUP

# Failed checks, one per second, before this script exits. A lost network may be back before the
# program notices, because connecting to an app that does not answer takes it ten seconds.
patience=3
long_patience=15
if is_viewer "$1"; then
    is_on_network() { true; }
elif [ $((own - stopped)) -lt 100 ]; then
    # Right after a stop, the PAL picture opens the camera first.
    long_patience=$patience
    pause
fi

missed=0
while [ "$missed" -lt "$patience" ]; do
    if is_on_network; then
        missed=0
        patience=$long_patience
        # shellcheck disable=SC2086 # may be empty
        kill -0 $running 2>/dev/null || { stream "$@" & running=$!; }
    else
        # Without a network, release the camera.
        missed=$((missed + 1))
        # shellcheck disable=SC2086 # may be empty
        kill -KILL $running 2>/dev/null
        running=
    fi
    pause
done
echo "${0##*/}: $1 is on no network any more" >&2
