#!/bin/sh
# Stand-in for a router program in the sandbox (vantpost, teldra, wifi, curl, ...): appends its
# call, "<program as invoked> <arguments>", to calls.log, then answers as scripted under stub/ by
# its name: NAME.delay (seconds to sleep first), NAME.out (output), NAME.status (exit status).
sandbox=/usr/lib/zorvik-sandbox
name=${0##*/}
call=$0
[ $# -eq 0 ] || call="$0 $*"
printf '%s\n' "$call" >>"$sandbox/calls.log"
[ ! -f "$sandbox/stub/$name.delay" ] || sleep "$(cat "$sandbox/stub/$name.delay")"
[ ! -f "$sandbox/stub/$name.out" ] || cat "$sandbox/stub/$name.out"
[ ! -f "$sandbox/stub/$name.status" ] || exit "$(cat "$sandbox/stub/$name.status")"
exit 0
