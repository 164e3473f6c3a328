# The daemon is killed while a command it started still runs (the Wi-Fi switch takes 3 s): a new
# daemon binds the port and answers all the same.
ran: /usr/sbin/nvram get model
$ echo 3 >$STATE/stub/wifi.delay
$ zorvikctl '{"command":"scene_setting","name":"Off","action_list":[{"thirdParty":"brelkrouter",
> "type":"router","payload":{"command":"wifi_down"}}]}'; zorvikctl start 1
{ "code": 0, "msg": "", "id": 1 }
{ "code": 0, "msg": "" }
ran: /sbin/wifi down
$ stop zorvik; start again; zorvikctl count
{ "code": 0, "msg": "", "count": 1 }
ran: /usr/sbin/nvram get model
