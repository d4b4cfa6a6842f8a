#!/bin/sh
# SPDX-License-Identifier: LicenseRef-KT6120
#
# KT6120_usb_monitor.sh
#
# Watches the USB ports, to one of which a phone is connected, and says on the system log
# (tag KT6120) which devices come and go; hubs are left out. Looks at the kernel's list every
# two seconds, which starts one process, and ends by itself when the program that started it
# has ended, so that a restarted program never has two.
# Prints nothing and never fails on its own: where the kernel has no USB or the system log
# does not answer, nothing is said. Status 2 for wrong arguments.
set -u
interval=2
hub_class=09

if [ $# -ne 0 ]; then
    printf 'usage: %s\n' "${0##*/}" >&2
    exit 2
fi

newline='
'

say() {
    logger -t KT6120 -- "$1"
}

# The first line of a device's attribute, empty where it has none.
attribute() {
    value=
    [ ! -r "$1" ] || read -r value <"$1"
} 2>/dev/null

# Sets present to the connected devices, one a line: port, vendor:product, maker and name.
look() {
    present=
    for device in /sys/bus/usb/devices/*; do
        attribute "$device/bDeviceClass"
        # Interfaces of a device have no class of this name.
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

# say_missing LIST OTHER WHAT: says WHAT of each line of LIST that OTHER lacks.
say_missing() {
    while IFS= read -r text; do
        case $newline$2 in
        *"$newline$text$newline"*) ;;
        *) [ -z "$text" ] || say "USB device $3: $text" ;;
        esac
    done <<END
$1
END
}

# Field 4 of the status is the parent now; it changes when the program ends.
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
