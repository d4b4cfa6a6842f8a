#!/bin/sh
# SPDX-License-Identifier: LicenseRef-KT6120
#
# Ends the phone stream that KT6120_stream_start.sh started; without one it does nothing.
#
# The program opens the camera for its own picture 100 ms after it has launched this script, and
# tries once: until the stream is killed the shell works alone, without an outside program, a look
# through /proc or a wait. A stream of datagrams needs no end in good order.
#
# Start and stop may be launched milliseconds apart and come to their first lines in any order.
# What counts is when they were launched: the start times of their processes, then the numbers.
# Each leaves its mark, a file TIME.NUMBER.SCRIPT, and then looks at all marks: a stream older than
# itself it kills, and a start that finds anything younger than itself does nothing. So of any two
# at least one sees the other, wherever it is interrupted.
set -u

# The unit's own folder, root's as its service is; without root's rights one for the user.
marks=/run/KT6120
[ -w /run ] || marks=${XDG_RUNTIME_DIR:-/dev/shm}/KT6120

# birth_of NUMBER: sets birth to the start time of a process, in hundredths of a second since boot.
birth_of() {
    read -r birth 2>/dev/null <"/proc/$1/stat" || return 1
    # shellcheck disable=SC2086 # split at the blanks
    set -- ${birth##*) } # from the third field on, the one behind the name
    birth=${20}
}

# Leaves the mark of this process and ends what is older. Sets own (its birth), overtaken (not
# empty: something is younger) and stopped (the last stop's birth).
take_turn() {
    birth_of $$
    own=$birth
    overtaken=
    stopped=-1000000 # never
    [ -d "$marks" ] || mkdir -m 755 "$marks" 2>/dev/null
    [ -O "$marks" ] || return # another user's, or none
    true >"$marks/$own.$$.${0##*_}"
    for mark in "$marks"/*.*.st*.sh; do
        [ -e "$mark" ] || continue # none, or removed by another
        script=${mark##*/}
        time=${script%%.*}
        number=${script#*.}
        number=${number%%.*}
        if [ "$time" -gt "$own" ] || { [ "$time" -eq "$own" ] && [ "$number" -gt $$ ]; }; then
            # shellcheck disable=SC2034 # for a start
            overtaken=yes
            continue
        fi
        [ "$number" -ne $$ ] || continue
        set -- "$@" "$mark"
        case $script in
        *.stop.sh) [ "$time" -lt "$stopped" ] || stopped=$time ;;
        # Its number may be another process's by now.
        *) if birth_of "$number" && [ "$birth" -eq "$time" ]; then kill -KILL "-$number"; fi ;;
        esac
    done
    [ $# -eq 0 ] || rm -f "$@"
}

take_turn
