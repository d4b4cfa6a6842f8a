# SPDX-License-Identifier: LicenseRef-KT6120
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
