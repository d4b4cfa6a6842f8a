#!/bin/sh
# Ends the phone stream that KT6120_stream_start.sh started and returns when the camera is
# free: the lock file stays open in whatever streams, so no process number can be stale. What
# does not end within four seconds is killed. Without a stream it does nothing. Status 0.
set -u

lock=/run/lock/KT6120_stream

fuser -s -k -TERM "$lock" 2>/dev/null
flock -w 4 "$lock" true || fuser -s -k -KILL "$lock"
exit 0
