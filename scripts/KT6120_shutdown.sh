#!/bin/sh
# SPDX-License-Identifier: LicenseRef-KT6120
#
# KT6120_shutdown.sh
#
# Powers the unit down in good order.
# Prints nothing. Fails with systemctl's status and message where the system refuses; status
# 2 for wrong arguments.
set -u

if [ $# -ne 0 ]; then
    printf 'usage: %s\n' "${0##*/}" >&2
    exit 2
fi
exec systemctl poweroff
