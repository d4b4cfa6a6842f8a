#!/bin/sh
# SPDX-License-Identifier: LicenseRef-KT6120
#
# KT6120_gpio_read.sh LINE
#
# Prints the level of a GPIO line of the compute module (0 to 53): 0 or 1. Line 26 reads 1
# when the USB supply reports a fault.
# If the line cannot be read: prints the reason to standard error, exit status 1. Exit status 2 for
# wrong arguments.
set -u
. "$(dirname "$0")/KT6120_gpio.sh"

if [ $# -ne 1 ] || ! is_gpio_line "$1"; then
    usage 'LINE (0 to 53)'
fi
gpio_read "$1"
