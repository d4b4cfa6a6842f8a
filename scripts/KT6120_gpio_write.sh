#!/bin/sh
# SPDX-License-Identifier: LicenseRef-KT6120
#
# KT6120_gpio_write.sh LINE LEVEL
#
# Drives a GPIO line of the compute module (0 to 53) to 0 or 1, also after this script has
# ended: 21 lamp power, 25 the USB boot pulse, 19 raised once after the start.
# Prints nothing. Status 1, with the reason on standard error, where the line cannot be had,
# for instance because another program holds it; 2 for wrong arguments.
set -u
. "$(dirname "$0")/KT6120_gpio.sh"

if [ $# -ne 2 ] || ! is_gpio_line "$1" || ! is_gpio_level "$2"; then
    usage 'LINE LEVEL (0 to 53, 0 or 1)'
fi
gpio_drive "$1" "$2"
