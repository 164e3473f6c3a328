# The action handlers, run at once and in order by the crontab tick. Router actions: the command
# lines, logged at the error level, and the faults that run nothing. The other "thirdParty" words
# (any other spelling does nothing) and the device tunnel's line: the payload in base64 without
# padding, logged at the info level. (Format: tests/TranscriptRunner.cpp.)
> {"command":"scene_setting","name":"R","launch":{"timer":{"time":"07:30","repeat":"1"}},"action_list":[{"thirdParty":"brelkrouter","type":"t","payload":{"command":"wan_block","mac":"AA:BB:CC:DD:EE:FF"}},{"thirdParty":"brelkrouter","type":"t","payload":{"command":"wan_unblock","mac":"aa-bb-cc-dd-ee-ff"}},{"thirdParty":"brelkrouter","type":"t","payload":{"command":"wifi_down"}},{"thirdParty":"brelkrouter","type":"t","payload":{"command":"wifi_up","mac":"x;y"}},{"thirdParty":"brelkrouter","type":"t","payload":{"command":"reboot"}},{"thirdParty":"brelkrouter","type":"t","payload":"not json"},{"thirdParty":"brelkrouter","type":"t","payload":{"mac":"AA"}},{"thirdParty":"brelkrouter","type":"t","payload":{"command":"wan_unblock"}},{"thirdParty":"brelkrouter","type":"t","payload":{"command":"wan_block","mac":"AA:BB:CC:DD:EE:FG"}},{"thirdParty":"x","type":"normal_reboot"},{"thirdParty":"x","type":"normal_wan_forbidden","name":"wan","extra":{"duration":60000,"mac":"AA:BB:CC:DD:EE:FF"}},{"thirdParty":"x","type":"normal_wifi_down","extra":{"duration":60000}},{"thirdParty":"x","type":"normal_wan_forbidden","extra":{"duration":1,"mac":"$(reboot)"}},{"thirdParty":"x","type":"normal_wan_forbidden","extra":{"duration":1}},{"thirdParty":"x","type":"normal_shutdown","extra":"x"},{"thirdParty":"x","type":"normal_shutdown","extra":{}},{"thirdParty":"x","type":"normal_wan_forbidden"},{"thirdParty":"x","type":"normal_wifi_down","extra":{"mac":"AA"}},{"thirdParty":"x","type":"normal_shutdown"},{"thirdParty":"x","type":"normal_shutdown","delay":120000,"extra":{"duration":59999}},{"thirdParty":"x","type":"normal_shutdown","delay":180000,"extra":{"duration":120000}}]}
< { "code": 0, "msg": "", "id": 1 }
> {"command":"scene_setting","name":"A","launch":{"timer":{"time":"07:30","repeat":"1"}},"action_list":[{"thirdParty":"unknown","type":"t","payload":"a"},{"thirdParty":"Quiro","type":"t","payload":"a"},{"thirdParty":"system","type":"t","payload":"a"},{"thirdParty":"tevra","type":"t","payload":"not json"},{"thirdParty":"tarwen","type":"t","payload":"not json"},{"thirdParty":"quiro","type":"t","payload":{"a":1}},{"thirdParty":"lumdex","type":"t","payload":{"a":1}},{"thirdParty":"quiro","type":"t"},{"thirdParty":"quiro","type":"t","payload":"ab"},{"thirdParty":"quiro","type":"t","payload":"aé"},{"thirdParty":"quiro","type":"t","payload":"   $0D(S!,cG9$#=4TUf$^&ZnW&vz){+*#;_#L+#^.#lo#~z /; /~  ?"}]}
< { "code": 0, "msg": "", "id": 2 }
> {"command":"scene_start_by_crontab","week":1,"time":"07:30"}
< { "code": 0, "msg": "" }
E Scene.cpp Scene actions[16] special type extra is null
E Scene.cpp Scene actions[17] special type extra duration is null
E Scene.cpp Scene actions[18] special type extra is null
E Action.cpp system command: /usr/sbin/teldra macfilter set mac=AA:BB:CC:DD:EE:FF wan=no;/usr/sbin/teldra macfilter commit
E Action.cpp brelk router payload is not json format
E Action.cpp brelk router payload not contain command
E Action.cpp brelk router payload not contain mac
E Action.cpp brelk router mac is invalid: AA:BB:CC:DD:EE:FG
I Scene.cpp execute1: wan 07:30 0ms
E Action.cpp brelk router mac is invalid: $(reboot)
E Action.cpp brelk router group extra not contain mac for wan block or unblock
E Action.cpp brelk router shutdown extra is not json format
E Action.cpp brelk router shutdown extra not contain duration for shutdown
E Action.cpp system vendor no longer support.
E TevraHelper.cpp brelk TevraHelper extra is not json format
E TevraHelper.cpp brelk TevraHelper extra is not json format
I Action.cpp system command: /usr/sbin/pellway 6 'eyAiYSI6IDEgfQ'
$ /usr/sbin/teldra macfilter set mac=AA:BB:CC:DD:EE:FF wan=no;/usr/sbin/teldra macfilter commit
$ /usr/sbin/teldra macfilter set mac=aa-bb-cc-dd-ee-ff wan=yes;/usr/sbin/teldra macfilter commit
$ /sbin/wifi down
$ /sbin/wifi
$ reboot_safe.sh
$ /usr/sbin/teldra macfilter set mac=AA:BB:CC:DD:EE:FF wan=no;/usr/sbin/teldra macfilter commit
$ /sbin/wifi down
$ /usr/sbin/pellway 6 'eyAiYSI6IDEgfQ'
$ /usr/sbin/pellway 6 'eyAiYSI6IDEgfQ'
$ /usr/sbin/pellway 6 ''
$ /usr/sbin/pellway 6 'YWI'
$ /usr/sbin/pellway 6 'YcOp'
$ /usr/sbin/vantpost '{ "type": 5, "data": { "name": "A", "list": [ { "name": "", "keyName": "" } ] } }'
$ /usr/sbin/pellway 6 'ICAgJDBEKFMhLGNHOSQjPTRUVWYkXiZablcmdnopeysqIztfI0wrI14uI2xvI356IC87IC9+ICA/'
# A pair's second action runs "duration" later; shutdowns in whole minutes; a failure is logged.
@result 1 /sbin/wifi
> {"command":"scene_start_by_crontab","week":1,"time":"07:31"}
< { "code": 0, "msg": "" }
I Scene.cpp execute1: wan 07:30 60000ms
E Action.cpp system call error
$ /usr/sbin/teldra macfilter set mac=AA:BB:CC:DD:EE:FF wan=yes;/usr/sbin/teldra macfilter commit
$ /sbin/wifi
> {"command":"scene_start_by_crontab","week":1,"time":"07:32"}
< { "code": 0, "msg": "" }
$ /usr/sbin/qumbe 2 0
> {"command":"scene_start_by_crontab","week":1,"time":"07:33"}
< { "code": 0, "msg": "" }
$ /usr/sbin/vantpost '{ "type": 5, "data": { "name": "R", "list": [ { "name": "", "keyName": "" } ] } }'
$ /usr/sbin/qumbe 2 2
# A pair's first action and a shutdown always block, a pair's second and a reboot never do.
> {"command":"scene_setting","name":"S","action_list":[{"thirdParty":"x","type":"normal_wan_forbidden","delay":300,"block":false,"extra":{"duration":1,"mac":"AA"}},{"thirdParty":"x","type":"normal_wifi_down","extra":{"duration":150}},{"thirdParty":"quiro","type":"t","payload":"a","delay":1},{"thirdParty":"x","type":"normal_shutdown","delay":300,"block":false,"extra":{"duration":60000}},{"thirdParty":"x","type":"normal_reboot","delay":400,"block":true},{"thirdParty":"quiro","type":"t","payload":"b","delay":200}]}
< { "code": 0, "msg": "", "id": 3 }
> {"command":"scene_start","id":3}
< { "code": 0, "msg": "" }
$ /usr/sbin/teldra macfilter set mac=AA wan=no;/usr/sbin/teldra macfilter commit
$ /usr/sbin/teldra macfilter set mac=AA wan=yes;/usr/sbin/teldra macfilter commit
$ /sbin/wifi down
$ /usr/sbin/pellway 6 'YQ'
$ /sbin/wifi
$ /usr/sbin/qumbe 2 1
$ /usr/sbin/pellway 6 'Yg'
$ reboot_safe.sh
