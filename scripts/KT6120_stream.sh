# SPDX-License-Identifier: LicenseRef-KT6120
# shellcheck shell=sh
# Ordering of the phone stream's start and stop scripts, which source this file.
#
# Start and stop may be launched milliseconds apart and reach their first lines in any order. Their
# order is that of launch: the start times of their processes, then the pids. Each creates a mark,
# a file TIME.PID.ROLE, and then reads all marks. It kills every older stream; a start that finds a
# younger mark does nothing. So of any two at least one sees the other, wherever it is interrupted.

# The service's folder, owned by root; another user gets a folder of his own.
marks=/run/KT6120
[ -w /run ] || marks=${XDG_RUNTIME_DIR:-/dev/shm}/KT6120

# birth_of PID: sets birth to the start time of a process, in hundredths of a second since boot.
birth_of() {
    read -r birth 2>/dev/null <"/proc/$1/stat" || return 1
    # shellcheck disable=SC2086 # split into words
    set -- ${birth##*) } # from the third field on, the one behind the name
    birth=${20}
}

# take_turn start|stop: creates the mark of this process and kills older streams. Sets own (its
# birth), overtaken (not empty if there is a younger mark) and stopped (birth of the last stop).
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
        # The pid may have been reused.
        *) if birth_of "$number" && [ "$birth" -eq "$time" ]; then kill -KILL "-$number"; fi ;;
        esac
    done
    [ $# -eq 0 ] || rm -f "$@"
}
