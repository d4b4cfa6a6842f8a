# shellcheck shell=sh
# What the scripts that run a video pipeline share; they source it from beside themselves.

# first_of ELEMENT...: prints the first GStreamer element that is at hand; without one, says so
# and fails.
first_of() {
    for element; do
        gst-inspect-1.0 --exists --atleast-version=1.0 "$element" && echo "$element" && return
    done
    echo "${0##*/}: needs one of: $*" >&2
    return 1
}

# Waits for a command in a way that a signal can break.
run() {
    "$@" &
    child=$!
    wait "$child"
}

# From here on a signal ends the command that runs, and the script with it.
end_with_child() {
    child=
    trap 'trap "" TERM INT HUP; kill "$child" 2>/dev/null; wait; exit 0' TERM INT HUP
}
