# Bad frames, each on a connection of its own. Garbage in a frame, a tiny frame whose parameter
# announces 2 GiB, one whose unversioned method name announces 256 MiB and an empty one get no
# answer, and the connection stays; Thrift tells of them on standard error, not in the log.
$ printf '\0\0\0\x10\xff\xff\xff\xff\xff\xff\xff\xff\xff\xff\xff\xff\xff\xff\xff\xff' | ask
> { frame request '' | head -c -5; be32 2147483632; printf '{'; } | ask
> { be32 11; be32 268435456; printf request; } | ask
> printf '\0\0\0\0' | ask
silent
silent
silent
silent
$ grep -o 'exception: .*Bad version identifier\|frame size too short' $STATE/daemon/zorvik.stderr
> grep -i thrift $STATE/syslog || echo "no Thrift line in the log"
exception: N6apache6thrift8protocol18TProtocolExceptionE: Bad version identifier
frame size too short
no Thrift line in the log
# Calls up to 64 KiB are served; a longer frame closes the connection.
$ for size in 65536 65537; do frame request "$(pad $size)" | ask; done
reply request
{ "code": 0, "msg": "", "count": 0 }
closed
# A call holding more than 4096 opening brackets is refused unparsed (json-c would take some 270
# times its size to build it).
$ for n in 4094 4095; do frame request "{\"command\":\"x\",\"a\":[$(printf '{},%.0s' $(seq $n))0]}" | ask; done
reply request
{ "code": -1, "msg": "api not exists" }
reply request
{ "code": 3, "msg": "parameter format error" }
# A flood: 400 connections send calls for some seconds and stay (150 dribble calls of 64 KiB,
# 150 send 20 such calls at once, 100 send one of 4 MiB) while a caller asks every 50 ms on a
# connection of its own. The daemon holds at most 256 callers' connections (a few descriptors more
# for a moment, of connections being refused), the caller waits less than 2 s each time, and the
# daemon's peak resident memory stays below 64 MiB.
$ frame request "$(pad 65536)" >$STATE/bound; frame request "$(pad 4194304)" >$STATE/big
> frame request '{"command":"get_scene_count"}' >$STATE/count
> for _ in $(seq 20); do cat $STATE/bound; done >$STATE/burst
> exec {caller}<>/dev/tcp/127.0.0.1/9096; fds=($PROC/fd/*); idle=${#fds[@]}
$ for i in $(seq 400); do
>   (case $((i % 8)) in
>     [0-2]) for _ in $(seq 13); do dd bs=16k count=1 status=none; sleep 0.2; done <$STATE/burst ;;
>     [3-5]) cat $STATE/burst ;;
>     *) cat $STATE/big ;;
>   esac; exec sleep 9) >/dev/tcp/127.0.0.1/9096 2>/dev/null &
> done
$ polls=0 answered=0 worst=0 most=0 end=$((${EPOCHREALTIME/./} + 4000000))
> while [ ${EPOCHREALTIME/./} -lt $end ]; do
>   asked=${EPOCHREALTIME/./} polls=$((polls + 1)) && cat $STATE/count >&$caller
>   timeout 5 dd bs=67 count=1 iflag=fullblock status=none <&$caller | grep -aq '"count": 0' &&
>     answered=$((answered + 1))
>   waited=$((${EPOCHREALTIME/./} - asked)) fds=($PROC/fd/*)
>   [ $waited -lt $worst ] || worst=$waited; [ ${#fds[@]} -lt $most ] || most=${#fds[@]}
>   sleep 0.05
> done; kill $(jobs -p); wait
> [ $answered = $polls ] && [ $polls -ge 10 ] && echo "answered every time"
> [ $((most -= idle - 1)) -le 260 ] && echo "at most 256 connections" || echo "$most connections"
> [ $worst -lt 2000000 ] && echo "waits below 2 s" || echo "a wait of $((worst / 1000)) ms"
> awk '/VmHWM/ { print ($2 < 65536 ? "peak below 64 MiB" : "peak " $2 " KiB") }' $PROC/status
answered every time
at most 256 connections
waits below 2 s
peak below 64 MiB
# Connections beyond what the descriptor limit allows are closed at once; the daemon stays and
# serves new callers once they are gone.
$ stop zorvik; start low 100
$ for i in $(seq 120); do exec {c}<>/dev/tcp/127.0.0.1/9096; held+=($c); done; sleep 0.5
> for c in ${held[@]}; do read -t 0 -u $c && closed=$((closed + 1)); exec {c}>&-; done
> [ $closed -gt 0 ] && echo "some closed at once"; zorvikctl count
some closed at once
{ "code": 0, "msg": "", "count": 0 }
