#!/bin/sh
# SPDX-License-Identifier: LicenseRef-KT6120
#
# Ends the phone stream that KT6120_stream_start.sh started; without one it does nothing.
#
# The program opens the camera for the PAL picture 100 ms after it has launched this script and does
# not retry. So until the stream is killed, only shell builtins run. A stream of datagrams needs no
# orderly end.
set -u

here=${0%/*}
[ "$here" != "$0" ] || here=.
. "$here/KT6120_stream.sh"
take_turn stop
