#!/bin/sh
# KT6120_stream_start.sh ADDRESS PORT
# The phone stream: the camera /dev/video0 as H.264 (720x576, 25 frames a second, baseline,
# level 3) in RTP packets to a UDP port of an IPv4 address, a broadcast address included. Takes
# the place of a stream that runs already and goes on until KT6120_stream_stop.sh or a signal
# ends it. A stream that breaks down (no camera, no network) is started again a second later,
# with its reason on standard error. Wrong arguments end with status 2, a missing encoder with
# status 1.
set -u
. "$(dirname "$0")/KT6120_video.sh"

lock=/run/lock/KT6120_stream # open for as long as anything streams

usage() {
    echo "usage: ${0##*/} ADDRESS PORT (an IPv4 address, a UDP port)" >&2
    exit 2
}

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
    usage
fi

# End the stream that runs, as KT6120_stream_stop.sh does.
fuser -s -k -TERM "$lock" 2>/dev/null
flock -w 4 "$lock" true || fuser -s -k -KILL "$lock"
exec 9>"$lock" || exit 1
flock -w 1 9 || exit 1

encoder=$(first_of omxh264enc v4l2h264enc x264enc) || exit 1
case $encoder in
omxh264enc) settings='target-bitrate=4000000 control-rate=1 b-frames=0' ;;
v4l2h264enc) settings='extra-controls=controls,video_bitrate=4000000,h264_i_frame_period=25' ;;
x264enc) settings='bitrate=4000 tune=zerolatency speed-preset=ultrafast key-int-max=25' ;;
esac

end_with_child
while :; do
    # The stream headers go out every second, for a viewer that joins late.
    # shellcheck disable=SC2086 # several settings
    run timeout -k 2 0 gst-launch-1.0 -q v4l2src device=/dev/video0 ! queue ! videoconvert ! \
        "video/x-raw,format=I420,width=720,height=576,framerate=25/1" ! queue ! \
        "$encoder" $settings ! "video/x-h264,profile=baseline,level=(string)3" ! \
        rtph264pay pt=96 config-interval=1 ! udpsink host="$1" port="$2" sync=false
    run sleep 1
done
