# SPDX-License-Identifier: LicenseRef-KT6120
# shellcheck shell=sh
# Functions that the video scripts share, sourced from the same folder.

# first_of ELEMENT...: prints the first GStreamer element that is installed. If there is none,
# prints a message to standard error and fails.
first_of() {
    for element; do
        gst-inspect-1.0 --exists --atleast-version=1.0 "$element" && echo "$element" && return
    done
    echo "${0##*/}: needs one of these GStreamer elements: $*" >&2
    return 1
}
