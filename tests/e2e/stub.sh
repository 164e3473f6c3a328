#!/bin/sh
# Stand-in for a router program in the sandbox (vantpost, teldra, wifi, curl, ...): appends its
# call, "<program as invoked> <arguments>", to calls.log, then sleeps as many seconds as
# stub/NAME.delay holds, if there is one, and succeeds.
sandbox=/usr/lib/zorvik-sandbox
name=${0##*/}
call=$0
[ $# -eq 0 ] || call="$0 $*"
printf '%s\n' "$call" >>"$sandbox/calls.log"
[ ! -f "$sandbox/stub/$name.delay" ] || sleep "$(cat "$sandbox/stub/$name.delay")"
