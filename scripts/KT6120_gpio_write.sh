#!/bin/sh
# SPDX-License-Identifier: LicenseRef-KT6120
#
# KT6120_gpio_write.sh LINE LEVEL
#
# Drives a GPIO line of the compute module (0 to 53) to 0 or 1. The line stays driven after this
# script has exited. 21 is lamp power, 25 the USB boot pulse, 19 is set once after the start.
# If the line cannot be driven, for instance because another program uses it: prints the reason to
# standard error, exit status 1. Exit status 2 for wrong arguments.
set -u
. "$(dirname "$0")/KT6120_gpio.sh"

if [ $# -ne 2 ] || ! is_gpio_line "$1" || ! is_gpio_level "$2"; then
    usage 'LINE LEVEL (0 to 53, 0 or 1)'
fi
gpio_drive "$1" "$2"
