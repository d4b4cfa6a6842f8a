#!/bin/sh
# SPDX-License-Identifier: LicenseRef-KT6120
#
# KT6120_sonde_en_write.sh LINE LEVEL
#
# Switches the locating transmitter (the sonde) through its enable line, which the program
# names (43): 1 on, 0 off. The line stays driven after this script has ended.
# Prints nothing. Status 1, with the reason on standard error, where the line cannot be had;
# 2 for wrong arguments.
set -u
. "$(dirname "$0")/KT6120_gpio.sh"

if [ $# -ne 2 ] || ! is_gpio_line "$1" || ! is_gpio_level "$2"; then
    usage 'LINE LEVEL (0 to 53, 0 or 1)'
fi
gpio_drive "$1" "$2"
