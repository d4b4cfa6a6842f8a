#!/bin/sh
# SPDX-License-Identifier: LicenseRef-KT6120
#
# Ends the phone stream that KT6120_stream_start.sh started; without one it does nothing.
#
# The program opens the camera for its own picture 100 ms after it has launched this script, and
# tries once: until the stream is killed the shell works alone, without an outside program, a look
# through /proc or a wait. A stream of datagrams needs no end in good order.
set -u

here=${0%/*}
[ "$here" != "$0" ] || here=.
. "$here/KT6120_stream.sh"
take_turn stop
