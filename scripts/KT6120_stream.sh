# SPDX-License-Identifier: LicenseRef-KT6120
# shellcheck shell=sh
# Which of the phone stream's start and stop scripts is in force, for the two to source.
#
# Start and stop may be launched milliseconds apart and come to their first lines in any order.
# What counts is when they were launched: the start times of their processes, then the numbers.
# Each leaves its mark, a file TIME.NUMBER.ROLE, and then looks at all marks: a stream older than
# itself it kills, and a start that finds anything younger than itself does nothing. So of any two
# at least one sees the other, wherever it is interrupted.

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

# take_turn start|stop: leaves the mark of this process and ends older streams. Sets own (its
# birth), overtaken (not empty: something is younger) and stopped (the last stop's birth).
take_turn() {
    role=$1
    shift
    birth_of $$
    own=$birth
    overtaken=
    stopped=-1000000 # never
    [ -d "$marks" ] || mkdir -m 755 "$marks" 2>/dev/null
    [ -O "$marks" ] || return # another user's, or none
    true >"$marks/$own.$$.$role"
    for mark in "$marks"/*.*.st*; do
        [ -e "$mark" ] || continue # none, or removed by another
        name=${mark##*/}
        time=${name%%.*}
        number=${name#*.}
        number=${number%%.*}
        if [ "$time" -gt "$own" ] || { [ "$time" -eq "$own" ] && [ "$number" -gt $$ ]; }; then
            # shellcheck disable=SC2034 # read by the start script
            overtaken=yes
            continue
        fi
        [ "$number" -ne $$ ] || continue
        set -- "$@" "$mark"
        case $name in
        *.stop*) [ "$time" -lt "$stopped" ] || stopped=$time ;;
        # Its number may be another process's by now.
        *) if birth_of "$number" && [ "$birth" -eq "$time" ]; then kill -KILL "-$number"; fi ;;
        esac
    done
    [ $# -eq 0 ] || rm -f "$@"
}
