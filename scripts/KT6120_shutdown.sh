#!/bin/sh
# SPDX-License-Identifier: LicenseRef-KT6120
#
# KT6120_shutdown.sh
#
# Shuts the unit down, whatever else runs: on Debian 13 systemctl poweroff is refused while apt or
# another program inhibits it.
# Prints nothing. Fails with the status and message of systemctl; exit status 2 for wrong
# arguments.
set -u

if [ $# -ne 0 ]; then
    printf 'usage: %s\n' "${0##*/}" >&2
    exit 2
fi
exec systemctl start --no-block --job-mode=replace-irreversibly poweroff.target
