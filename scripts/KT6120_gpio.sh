# SPDX-License-Identifier: LicenseRef-KT6120
# shellcheck shell=sh
# Functions that read and drive a GPIO line of the compute module, sourced by the scripts in this
# folder. They use libgpiod's tools, whose two major versions differ in their options, or sysfs if
# the tools are missing. Each fails with status 1 and prints the reason to standard error.

# The chip of the processor's lines: its character device, and its label in sysfs.
gpio_chip=gpiochip0
gpio_chip_label='pinctrl-bcm*'

usage() {
    printf 'usage: %s %s\n' "${0##*/}" "$1" >&2
    exit 2
}

is_gpio_line() {
    case $1 in
    [0-9] | [1-4][0-9] | 5[0-3]) ;;
    *) return 1 ;;
    esac
}

is_gpio_level() {
    [ "$1" = 0 ] || [ "$1" = 1 ]
}

# wait_until COMMAND: waits until the command succeeds, at most two seconds.
wait_until() {
    gpio_tries=100
    until "$@" || [ "$gpio_tries" -eq 0 ]; do
        gpio_tries=$((gpio_tries - 1))
        sleep 0.02
    done
}

is_libgpiod_1() {
    case $("$1" --version 2>/dev/null) in
    *'(libgpiod) v1.'*) ;;
    *) return 1 ;;
    esac
}

# gpio_holders LINE LEVEL: prints the pids of the gpioset processes of gpio_drive that drive the line
# to the level (a pattern). A variable in their environment distinguishes them from other gpioset
# processes.
gpio_holders() {
    grep -lxz "KT6120_GPIO=$1=$2" /proc/[0-9]*/environ 2>/dev/null | cut -d / -f 3
}

is_gpio_released() {
    [ -z "$(gpio_holders "$1" '[01]')" ]
}

# The kernel drives a line only while the process that requested it runs, so gpioset stays in the
# background. The next call for the line replaces it.
gpio_drive_by_tool() {
    # If the level is already set, keep the holder: replacing it would release the line for a moment.
    [ -z "$(gpio_holders "$1" "$2")" ] || return 0
    for gpio_holder in $(gpio_holders "$1" '[01]'); do
        kill "$gpio_holder"
    done
    wait_until is_gpio_released "$1"
    if is_libgpiod_1 gpioset; then
        gpio_options="--mode=signal --background $gpio_chip"
    else
        gpio_options="--daemonize --chip $gpio_chip"
    fi
    # shellcheck disable=SC2086 # several options
    KT6120_GPIO=$1=$2 gpioset $gpio_options "$1=$2" >/dev/null 9<&- || return 1
}

# gpio_sysfs_line LINE: exports the line if necessary and prints its folder. sysfs numbers the lines
# of all chips in one sequence.
gpio_sysfs_line() {
    for gpio_folder in /sys/class/gpio/gpiochip*; do
        [ -r "$gpio_folder/label" ] || continue
        read -r gpio_label <"$gpio_folder/label" || return 1
        # shellcheck disable=SC2254 # a pattern
        case $gpio_label in
        $gpio_chip_label) ;;
        *) continue ;;
        esac
        read -r gpio_base <"$gpio_folder/base" || return 1
        gpio_number=$((gpio_base + $1))
        gpio_folder=/sys/class/gpio/gpio$gpio_number
        [ -d "$gpio_folder" ] || echo "$gpio_number" >/sys/class/gpio/export || return 1
        # udev makes the line writable for ordinary users.
        wait_until [ -w "$gpio_folder/direction" ]
        printf '%s\n' "$gpio_folder"
        return 0
    done
    echo "no GPIO chip $gpio_chip_label" >&2
    return 1
}

gpio_drive_by_sysfs() {
    gpio_line=$(gpio_sysfs_line "$1") || return 1
    # One write sets direction and level, so that the line never has the other level.
    if [ "$2" -eq 1 ]; then echo high; else echo low; fi >"$gpio_line/direction" || return 1
}

# gpio_drive LINE LEVEL: drives the line, also after the script has exited. The lock on the script
# keeps overlapping calls in order, because the caller stops waiting for a slow call.
gpio_drive() {
    flock -w 10 9 || return 1
    if command -v gpioset >/dev/null; then
        gpio_drive_by_tool "$@"
    else
        gpio_drive_by_sysfs "$@"
    fi
} 9<"$0"

# gpio_read LINE: prints the line's level, 0 or 1. --foreground keeps gpioget in the script's process
# group, which the caller kills after a timeout.
gpio_read() {
    if ! command -v gpioget >/dev/null; then
        gpio_line=$(gpio_sysfs_line "$1") || return 1
        echo in >"$gpio_line/direction" && cat "$gpio_line/value" || return 1
    elif is_libgpiod_1 gpioget; then
        timeout --foreground 5 gpioget "$gpio_chip" "$1" || return 1
    else
        timeout --foreground 5 gpioget --numeric --chip "$gpio_chip" "$1" || return 1
    fi
}
