# Scenes, their action lists and launch modes survive a restart. The daemon is killed while a
# command it started still runs (the Wi-Fi switch takes 3 s): the new one binds the port all the
# same.
ran: /usr/sbin/nvram get model
$ echo 3 >$STATE/stub/wifi.delay
$ zorvikctl '{"command":"scene_setting","name":"Night","action_list":[{"thirdParty":"brelkrouter",
> "type":"router","payload":{"command":"wifi_down"}}],"launch":{"go_home":{"mac":"AA:BB"}}}'
> zorvikctl start 1
{ "code": 0, "msg": "", "id": 1 }
{ "code": 0, "msg": "" }
ran: /usr/sbin/vantpost { "type": 5, "data": { "name": "Night", "list": [ { "name": "", "keyName": "" } ] } }
ran: /sbin/wifi down
$ stop zorvik; zorvikctl count; echo "exit $?"; start again; zorvikctl list
zorvikctl: no zorvik daemon listens on 127.0.0.1:9096 (is it running?)
exit 3
{ "code": 0, "msg": "", "scene_list": [ { "id": 1, "name": "Night", "action_list": [ { "thirdParty": "brelkrouter", "type": "router", "payload": { "command": "wifi_down" } } ], "launch": { "go_home": { "mac": "AA:BB" } } } ] }
ran: /usr/sbin/nvram get model

# A client adds scenes while the daemon is killed with SIGKILL and started again, four times:
# every answered scene is there after each restart, and no other but the one the kill cut off.
$ for n in 1 2 3 4; do
>   (for i in $(seq 500); do
>     echo k$n-$i >$STATE/cut
>     zorvikctl "{\"command\":\"scene_setting\",\"name\":\"k$n-$i\",\"action_list\":[]}" || break
>     echo k$n-$i >>$STATE/answered
>   done) >/dev/null 2>&1 & sleep 0.$((RANDOM % 5 + 2)); stop ${last:-again}; wait $!; start k$n
>   zorvikctl list | grep -o '"name": "k[^"]*' | cut -d'"' -f4 | sort >$STATE/listed
>   sort $STATE/answered | comm -3 - $STATE/listed | grep -vx "	$(cat $STATE/cut)"
>   cp $STATE/listed $STATE/answered; last=k$n
> done; [ $(wc -l <$STATE/answered) -gt 20 ] && echo "more than 20 answered"
more than 20 answered
ran: /usr/sbin/nvram get model
ran: /usr/sbin/nvram get model
ran: /usr/sbin/nvram get model
ran: /usr/sbin/nvram get model
