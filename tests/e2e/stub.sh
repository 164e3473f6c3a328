#!/bin/sh
# Stand-in for a router program in the sandbox (vantpost, teldra, wifi, curl, ...): appends its
# call, "<program as invoked> <arguments>", to calls.log, then sleeps as many seconds as
# stub/NAME.delay holds, if there is one, and succeeds.
sandbox=/usr/lib/zorvik-sandbox
delay=$sandbox/stub/${0##*/}.delay
printf '%s\n' "$0${*:+ $*}" >>"$sandbox/calls.log"
[ ! -f "$delay" ] || sleep "$(cat "$delay")"
