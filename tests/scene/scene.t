# A scene's two texts: how its actions and its launch are read, and how the scene reads back in
# replies and in the feed message at the end of a run. (Format: tests/TranscriptRunner.cpp.)
# Skipped elements are logged by position; actions block by default; the feed names the scene
# and its first action only.
> {"command":"scene_setting","name":"it's","action_list":[null,{"thirdParty":"quiro","type":"t","name":"L","keyName":"K","payload":{"a":1},"delay":300},{"type":"t"},{"thirdParty":"","type":"t"},{"thirdParty":"quiro","type":"t","name":"M","payload":"b","delay":1}],"launch":{"go_home":{"mac":"AA"}}}
< { "code": 0, "msg": "", "id": 1 }
> {"command":"scene_start","id":1}
< { "code": 0, "msg": "" }
I Scene.cpp Scene actions dirty
E Scene.cpp Scene actions[0] is null
E Scene.cpp Scene actions[2] thirdParty or type is null
E Scene.cpp Scene actions[3] thirdParty or type is empty
I Scene.cpp Scene action size is 2
I Action.cpp action [0] prepare to execute
I Action.cpp action [1] prepare to execute
I Scene.cpp system command: /usr/sbin/vantpost '{ "type": 5, "data": { "name": "it'\''s", "list": [ { "name": "L", "keyName": "K" } ] } }'
$ /usr/sbin/pellway 6 'eyAiYSI6IDEgfQ'
$ /usr/sbin/vantpost '{ "type": 5, "data": { "name": "it'\''s", "list": [ { "name": "L", "keyName": "K" } ] } }'
$ /usr/sbin/pellway 6 'Yg'
# Actions are read again only after a change; a failing feed is logged and the run ends.
@result 1 /usr/sbin/vantpost
> {"command":"scene_start","id":1}
< { "code": 0, "msg": "" }
! I Scene.cpp Scene actions dirty
E Scene.cpp system call error
$ /usr/sbin/pellway 6 'eyAiYSI6IDEgfQ'
$ /usr/sbin/vantpost '{ "type": 5, "data": { "name": "it'\''s", "list": [ { "name": "L", "keyName": "K" } ] } }'
$ /usr/sbin/pellway 6 'Yg'
> {"command":"is_scene_processing","id":1}
< { "code": 0, "msg": "", "processing": 0 }
@result 0 /usr/sbin/vantpost
# Replies hold "action_list" only for an array, "launch" only for JSON (older rows vary).
@insert 2 | odd | not json | not json either
@insert 3 | obj | {"a":1}
@restart
I Scene.cpp Scene launch not json format
> {"command":"get_multiple_scene_setting","start_id":2,"end_id":3}
< { "code": 0, "msg": "", "scene_list": [ { "id": 2, "name": "odd" }, { "id": 3, "name": "obj" } ] }
> {"command":"scene_start","id":2}
< { "code": 3, "msg": "parameter format error" }
E Scene.cpp Scene actions not json format
> {"command":"scene_start","id":3}
< { "code": 3, "msg": "parameter format error" }
E Scene.cpp Scene actions not json array
# Of "go_home", "leave_home", "timer" the first wins; "enabled" defaults to true. Without "mac"
# a launch is kept but starts nothing; without all three keys it is dropped, also in the store.
> {"command":"scene_setting","name":"both","action_list":[{"thirdParty":"quiro","type":"t","payload":"c","delay":1}],"launch":{"timer":{"time":"07:30","repeat":"1"},"go_home":{"mac":"BB"}}}
< { "code": 0, "msg": "", "id": 4 }
> {"command":"scene_setting","name":"no mac","action_list":[],"launch":{"go_home":{"enabled":true}}}
< { "code": 0, "msg": "", "id": 5 }
E Scene.cpp Scene go_home mac NULL
> {"command":"scene_setting","name":"no mac","action_list":[],"launch":{"leave_home":{}}}
< { "code": 0, "msg": "", "id": 6 }
E Scene.cpp Scene leave_home mac NULL
> {"command":"scene_setting","name":"sunrise","action_list":[],"launch":{"sunrise":{}}}
< { "code": 0, "msg": "", "id": 7 }
E Scene.cpp Scene launch mode format error
> {"command":"scene_start_by_crontab","week":1,"time":"07:30"}
< { "code": 0, "msg": "" }
> {"command":"scene_start_by_device_status","mac":"bb","connected":true}
< { "code": 0, "msg": "" }
$ /usr/sbin/vantpost '{ "type": 5, "data": { "name": "both", "list": [ { "name": "", "keyName": "" } ] } }'
$ /usr/sbin/pellway 6 'Yw'
> {"command":"get_multiple_scene_setting","start_id":5,"end_id":7}
< { "code": 0, "msg": "", "scene_list": [ { "id": 5, "name": "no mac", "action_list": [ ], "launch": { "go_home": { "enabled": true } } }, { "id": 6, "name": "no mac", "action_list": [ ], "launch": { "leave_home": { } } }, { "id": 7, "name": "sunrise", "action_list": [ ] } ] }
@restart
! E Scene.cpp Scene launch mode format error
# A new launch drops the timer of the old one.
> {"command":"scene_launch","id":4,"launch":{"timer":{"time":"07:30","repeat":"1"}}}
< { "code": 0, "msg": "" }
> {"command":"scene_start_by_crontab","week":1,"time":"07:30"}
< { "code": 0, "msg": "" }
$ /usr/sbin/vantpost '{ "type": 5, "data": { "name": "both", "list": [ { "name": "", "keyName": "" } ] } }'
$ /usr/sbin/pellway 6 'Yw'
> {"command":"scene_launch","id":4,"launch":{"go_home":{"mac":"BB"}}}
< { "code": 0, "msg": "" }
> {"command":"scene_start_by_crontab","week":1,"time":"07:30"}
< { "code": 0, "msg": "" }
# A null launch entry counts as absent: the next key is read, and with none left the launch goes.
> {"command":"scene_launch","id":6,"launch":{"go_home":null,"leave_home":{"mac":"DD"}}}
> {"command":"scene_launch","id":7,"launch":{"go_home":null}}
< { "code": 0, "msg": "" }
> {"command":"scene_launch","id":7,"launch":{"go_home":null}}
< { "code": 0, "msg": "" }
E Scene.cpp Scene launch mode format error
> {"command":"scene_start_by_device_status","mac":"dd","connected":false}
< { "code": 0, "msg": "" }
