#!/bin/sh
# SPDX-License-Identifier: LicenseRef-KT6120
#
# KT6120_sonde_en_write.sh LINE LEVEL
#
# Switches the locating transmitter (the sonde) by its enable line (43): 1 on, 0 off. Line, level,
# output and exit status are those of KT6120_gpio_write.sh.
exec /bin/sh "$(dirname "$0")/KT6120_gpio_write.sh" "$@"
