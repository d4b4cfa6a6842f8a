#!/bin/sh
# SPDX-License-Identifier: LicenseRef-KT6120
#
# KT6120_bb_read.sh CHANNEL
#
# Prints the 8-bit reading of a channel of the analogue-to-digital converter board, as 0x and two
# hexadecimal digits. CHANNEL is 0x and one or two hexadecimal digits.
# If the board does not answer: prints the reason to standard error, exit status 1. Exit status 2 for
# wrong arguments.
set -u
bus=1
address=0x48

# The PATH of an ordinary user lacks the folder of i2cget.
PATH=$PATH:/usr/sbin:/sbin

channel=${1-}
case $#$channel in
10x[0-9a-f] | 10x[0-9a-f][0-9a-f]) ;;
*)
    printf 'usage: %s CHANNEL (0x0 to 0xff)\n' "${0##*/}" >&2
    exit 2
    ;;
esac

# --foreground keeps i2cget in the script's process group, which the caller kills after a timeout.
reading=$(timeout --foreground 5 i2cget -y "$bus" "$address" "$channel") || exit 1
case $reading in
0x[0-9a-f][0-9a-f]) printf '%s\n' "$reading" ;;
*) exit 1 ;;
esac
