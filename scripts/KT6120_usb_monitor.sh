#!/bin/sh
# SPDX-License-Identifier: LicenseRef-KT6120
#
# KT6120_usb_monitor.sh
#
# Writes to the system log (tag KT6120) which USB devices are connected and disconnected, hubs
# excepted. Reads the kernel's list every two seconds; that costs one process, sleep. Exits when the
# program that started it has exited, so that a restarted program never has two monitors.
# Prints nothing. Logs nothing if the kernel has no USB or the system log does not answer. Exit
# status 2 for wrong arguments.
set -u
interval=2
hub_class=09

if [ $# -ne 0 ]; then
    printf 'usage: %s\n' "${0##*/}" >&2
    exit 2
fi

newline='
'

# attribute FILE: sets value to the first line of a device attribute, empty if there is none.
attribute() {
    value=
    read -r value <"$1"
} 2>/dev/null

# Sets present to the connected devices, one per line: port, vendor:product, maker and name.
look() {
    present=
    for device in /sys/bus/usb/devices/*; do
        attribute "$device/bDeviceClass"
        # Interfaces have no attribute of this name.
        case $value in
        '' | "$hub_class") continue ;;
        esac
        text=${device##*/}
        attribute "$device/idVendor"
        text="$text $value"
        attribute "$device/idProduct"
        text="$text:$value"
        for name in manufacturer product; do
            attribute "$device/$name"
            text="$text${value:+ $value}"
        done
        present=$present$text$newline
    done
}

# say_missing LIST OTHER WHAT: logs WHAT for each line of LIST that OTHER lacks.
say_missing() {
    while IFS= read -r text; do
        case $newline$2 in
        *"$newline$text$newline"*) ;;
        *) [ -z "$text" ] || logger -t KT6120 -- "USB device $3: $text" ;;
        esac
    done <<END
$1
END
}

# Field 4 of the status is the parent's pid; it changes when the program exits.
is_parent_alive() {
    read -r _ _ _ parent _ </proc/$$/stat && [ "$parent" -eq "$PPID" ]
}

known=
while is_parent_alive; do
    look
    say_missing "$known" "$present" disconnected
    say_missing "$present" "$known" connected
    known=$present
    sleep "$interval"
done
