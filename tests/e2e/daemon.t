# The daemon as a whole: start-up lines, its log, loopback only, one instance, 3 workers.
$ cat $STATE/daemon/zorvik.stdout; grep -o 'TNonblockingServer: Serving.*' $STATE/daemon/zorvik.stderr
argc is 1, argv is NULL? 0
run server accept all connections.
TNonblockingServer: Serving with 1 io threads.
ran: /usr/sbin/nvram get model
$ within "grep -q Create $STATE/syslog"; sed -n 's/cpp:[0-9]*]Create/cpp:NN]Create/p' $STATE/syslog
[ZORVIK INFO DataManager.cpp:NN]Create Database folder at: /etc/zorvik/
$ (: </dev/tcp/192.168.31.1/9096) 2>/dev/null || echo "192.168.31.1 refuses"
192.168.31.1 refuses
$ { frame Request '{"command":"get_scene_count"}'; frame request '{"command":"nope"}'; } | ask 2
exception Request
Invalid method name: 'Request'
1
reply request
{ "code": -1, "msg": "api not exists" }
$ echo start second >$STATE/control; ended second | sed 's/^Thrift: .\{24\}/Thrift:/'
second ended: 1
Thrift: TNonblockingServerSocket::listen() Could not bind to port 9096
zorvik: cannot serve on 127.0.0.1:9096: Could not bind: Address already in use
ran: /usr/sbin/nvram get model
# Three status records hold the three workers (each waits 1.5 s for the logger, one after the
# other): a fourth request waits until the first record is done, and is answered then.
$ echo 1.5 >$STATE/stub/logger.delay
> zorvikctl '{"command":"scene_setting","name":"Night","action_list":[]}'
{ "code": 0, "msg": "", "id": 1 }
$ for i in 1 2 3; do (zorvikctl '{"command":"scene_record_by_crontab"}'
>   echo $EPOCHREALTIME >>$STATE/done) >/dev/null & done
ran: /usr/bin/logger stat_points_none zorvik_scene_status=1:1
$ sleep 0.3; asked=$EPOCHREALTIME; zorvikctl '{"command":"scene_start"}'; answered=$EPOCHREALTIME
{ "code": 3, "msg": "parameter format error" }
zorvikctl: the daemon answered code 3
$ wait; sort -n $STATE/done | awk -v asked=$asked -v answered=$answered '{ done[NR] = $1 }
>   END { print (answered - asked > 0.8 ? "queued" : "not queued"), "until",
>     (answered - done[1] < 0.75 ? "the first record was done" : "later") }'
queued until the first record was done
ran: /usr/bin/logger stat_points_none zorvik_scene_status=1:1
ran: /usr/bin/logger stat_points_none zorvik_scene_status=1:1
# A record still waiting for the logger outlasts a client's time-out.
$ zorvikctl --timeout 0.5 '{"command":"scene_record_by_crontab"}'
zorvikctl: no reply from the zorvik daemon within 0.5 s (--timeout)
[exit 4]
ran: /usr/bin/logger stat_points_none zorvik_scene_status=1:1
