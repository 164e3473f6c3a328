#!/bin/sh
# Stand-in for a router program inside the Zorvik sandbox (vantpost, teldra, wifi, curl, ...).
#
# Every call appends one line "<seconds.nanoseconds><TAB><program as invoked> <arguments>" to
# calls.log, and in a development sandbox also tells the developer on standard error. Then it
# answers as scripted under stub/, by the program's file name: <name>.delay (seconds to sleep
# first), <name>.out (standard output), <name>.status (exit status, 0 when absent).
sandbox=/usr/lib/zorvik-sandbox
name=${0##*/}
call=$0
[ $# -eq 0 ] || call="$0 $*"
printf '%s\t%s\n' "$(date +%s.%N)" "$call" >>"$sandbox/calls.log"
[ ! -e "$sandbox/echo" ] || printf 'zorvik ran: %s\n' "$call" >&2
[ ! -f "$sandbox/stub/$name.delay" ] || sleep "$(cat "$sandbox/stub/$name.delay")"
[ ! -f "$sandbox/stub/$name.out" ] || cat "$sandbox/stub/$name.out"
[ ! -f "$sandbox/stub/$name.status" ] || exit "$(cat "$sandbox/stub/$name.status")"
exit 0
