# SPDX-License-Identifier: LicenseRef-KT6120
# shellcheck shell=sh
# Reading and driving a GPIO line of the compute module, for the scripts beside this file to
# source. Goes through the kernel's character device with libgpiod's tools, whose two major
# versions differ in their options, and through sysfs where the tools are missing. Each
# function fails with status 1 and the reason on standard error.

# The processor's own lines: their character device, and their chip's label in sysfs.
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
    case $1 in
    0 | 1) ;;
    *) return 1 ;;
    esac
}

# Waits for a condition, for two seconds at most.
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

# gpio_holders LINE LEVEL: the gpioset processes left behind by gpio_drive that drive the line
# to the level (a pattern). They are known by a mark in their environment, so that a gpioset
# which somebody else started is never taken for one of them.
gpio_holders() {
    grep -lxz "KT6120_GPIO=$1=$2" /proc/[0-9]*/environ 2>/dev/null | cut -d / -f 3
}

is_gpio_released() {
    [ -z "$(gpio_holders "$1" '[01]')" ]
}

# The kernel keeps a line driven only as long as the process that asked for it lives, so
# gpioset stays in the background; the next call for the line replaces it.
gpio_drive_by_tool() {
    # Already so: replacing the holder would let go of the line for a moment.
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
    # shellcheck disable=SC2086 # the options are several words
    KT6120_GPIO=$1=$2 gpioset $gpio_options "$1=$2" >/dev/null 9<&- || return 1
}

# gpio_sysfs_line LINE: prints the line's folder, exported if need be. sysfs numbers the lines of
# all chips in one sequence.
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
        # For an ordinary user the line is writable only once udev has seen it.
        wait_until [ -w "$gpio_folder/direction" ]
        printf '%s\n' "$gpio_folder"
        return 0
    done
    echo "no GPIO chip $gpio_chip_label" >&2
    return 1
}

gpio_drive_by_sysfs() {
    gpio_line=$(gpio_sysfs_line "$1") || return 1
    # Direction and level in one write: the line never shows the other level.
    if [ "$2" -eq 1 ]; then echo high; else echo low; fi >"$gpio_line/direction" || return 1
}

# gpio_drive LINE LEVEL: drives the line, also after the script has ended. Calls that overlap
# take turns: their caller does not wait for ever, and its last word has to be the last.
gpio_drive() {
    flock -w 10 9 || return 1
    if command -v gpioset >/dev/null; then
        gpio_drive_by_tool "$@"
    else
        gpio_drive_by_sysfs "$@"
    fi
} 9<"$0"

# gpio_read LINE: prints the line's level, 0 or 1. In the foreground, that is in the process group of
# the script, so that its caller ends both.
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
