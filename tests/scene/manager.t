# The scene manager: ids, runs, presence, the store kept in step with the registry, the status
# record and the clock. (Format: tests/TranscriptRunner.cpp.)
# No scene: nothing is recorded.
> {"command":"scene_record_by_crontab"}
< { "code": 0, "msg": "" }
I ZorvikTunnel.cpp recordSceneByCrontab
# Below 30000 the manager picks the id, the largest one + 1, up to 29999 (here an older row's).
@insert 29999 | old | []
@restart
> {"command":"scene_setting","name":"none left","action_list":[]}
< { "code": 3501, "msg": "update database failed" }
> {"command":"scene_delete","id":29999}
< { "code": 0, "msg": "" }
I ZorvikTunnel.cpp removeScene: id=29999
> {"command":"scene_setting","id":29999,"name":"a","action_list":[]}
< { "code": 0, "msg": "", "id": 1 }
> {"command":"scene_setting","name":"c","action_list":[]}
< { "code": 0, "msg": "", "id": 2 }
> {"command":"scene_delete","id":1}
< { "code": 0, "msg": "" }
> {"command":"scene_setting","name":"d","action_list":[]}
< { "code": 0, "msg": "", "id": 3 }
# From 30000 the caller's id is kept (unless stored already); then no automatic id is left.
> {"command":"scene_setting","id":30000,"name":"big","action_list":[]}
< { "code": 0, "msg": "", "id": 30000 }
> {"command":"scene_setting","id":2147483647,"name":"max","action_list":[]}
< { "code": 0, "msg": "", "id": 2147483647 }
> {"command":"scene_setting","id":30000,"name":"again","action_list":[]}
> {"command":"scene_setting","name":"next","action_list":[]}
< { "code": 3501, "msg": "update database failed" }
> {"command":"get_multiple_scene_setting","start_id":3,"end_id":30000}
< { "code": 0, "msg": "", "scene_list": [ { "id": 3, "name": "d", "action_list": [ ] }, { "id": 30000, "name": "big", "action_list": [ ] } ] }
I ZorvikTunnel.cpp getMultipleScene: startId=3, endId=30000
> {"command":"scene_delete","id":30000}
> {"command":"scene_delete","id":2147483647}
< { "code": 0, "msg": "" }
# The status record: each scene's id and alarm switch. (Before NTP an added alarm is not read.)
> {"command":"scene_setting","name":"on","action_list":[],"launch":{"timer":{"time":"07:30","repeat":"1"}}}
< { "code": 0, "msg": "", "id": 4 }
! I AlarmObject.cpp
> {"command":"scene_setting","name":"off","action_list":[],"launch":{"timer":{"enabled":false}}}
< { "code": 0, "msg": "", "id": 5 }
> {"command":"scene_record_by_crontab"}
< { "code": 0, "msg": "" }
I SceneManager.cpp record: "zorvik_scene_status=2:1|3:1|4:1|5:0"
$ logger stat_points_none "zorvik_scene_status=2:1|3:1|4:1|5:0"
! E SceneManager.cpp
! I SceneManager.cpp system command:
@result 256 logger
> {"command":"scene_record_by_crontab"}
< { "code": 0, "msg": "" }
E SceneManager.cpp system call error
$ logger stat_points_none "zorvik_scene_status=2:1|3:1|4:1|5:0"
# Stop ends a run (an idle scene too); a scene without actions answers 3.
> {"command":"scene_setting","name":"long","action_list":[{"thirdParty":"quiro","type":"t","delay":60000}]}
< { "code": 0, "msg": "", "id": 6 }
> {"command":"scene_start","id":6}
< { "code": 0, "msg": "" }
I ZorvikTunnel.cpp startScene: id=6
> {"command":"scene_stop","id":6}
> {"command":"scene_stop","id":6}
< { "code": 0, "msg": "" }
> {"command":"scene_start","id":2}
< { "code": 3, "msg": "parameter format error" }
I Scene.cpp Scene actions length is 0
# A change stops the run (a start succeeds after it); live scene and stored row change alike.
> {"command":"scene_start","id":6}
< { "code": 0, "msg": "" }
> {"command":"scene_update","id":6,"name":"new","action_list":[],"launch":{"go_home":{"mac":"AA:BB:CC:DD:EE:FF"}}}
< { "code": 0, "msg": "" }
> {"command":"scene_start","id":6}
< { "code": 3, "msg": "parameter format error" }
> {"command":"scene_setting","name":"s","action_list":[{"thirdParty":"quiro","type":"t","delay":60000}]}
< { "code": 0, "msg": "", "id": 7 }
> {"command":"scene_setting","name":"t","action_list":[{"thirdParty":"quiro","type":"t","delay":60000}],"launch":{"leave_home":{"mac":"77:88:99:AA:BB:CC"}}}
< { "code": 0, "msg": "", "id": 8 }
> {"command":"scene_start","id":7}
> {"command":"scene_start","id":8}
< { "code": 0, "msg": "" }
> {"command":"scene_launch","id":7,"launch":{"leave_home":{"mac":"11:22:33:44:55:66"}}}
> {"command":"scene_launch_delete","id":8}
> {"command":"scene_start","id":7}
> {"command":"scene_start","id":8}
< { "code": 0, "msg": "" }
> {"command":"scene_start_by_device_status","mac":"77:88:99:AA:BB:CC","connected":false}
< { "code": 3506, "msg": "scene has not home launch mode" }
@restart
> {"command":"get_multiple_scene_setting","start_id":6,"end_id":8}
< { "code": 0, "msg": "", "scene_list": [ { "id": 6, "name": "new", "action_list": [ ], "launch": { "go_home": { "mac": "AA:BB:CC:DD:EE:FF" } } }, { "id": 7, "name": "s", "action_list": [ { "thirdParty": "quiro", "type": "t", "delay": 60000 } ], "launch": { "leave_home": { "mac": "11:22:33:44:55:66" } } }, { "id": 8, "name": "t", "action_list": [ { "thirdParty": "quiro", "type": "t", "delay": 60000 } ] } ] }
# Presence starts every scene of that whole MAC, in any letter case, for its direction.
> {"command":"scene_setting","name":"h1","action_list":[{"thirdParty":"quiro","type":"t","payload":"1","delay":1000}],"launch":{"go_home":{"mac":"AA:BB:CC:DD:EE:FF"}}}
< { "code": 0, "msg": "", "id": 9 }
> {"command":"scene_setting","name":"h2","action_list":[{"thirdParty":"quiro","type":"t","payload":"2","delay":1300}],"launch":{"go_home":{"mac":"aa:bb:cc:dd:ee:ff","enabled":true}}}
< { "code": 0, "msg": "", "id": 10 }
> {"command":"scene_start_by_device_status","mac":"aA:bb:cc:dd:ee:ff","connected":true}
< { "code": 0, "msg": "" }
$ /usr/sbin/vantpost '{ "type": 5, "data": { "name": "h1", "list": [ { "name": "", "keyName": "" } ] } }'
$ /usr/sbin/pellway 6 'MQ'
$ /usr/sbin/vantpost '{ "type": 5, "data": { "name": "h2", "list": [ { "name": "", "keyName": "" } ] } }'
$ /usr/sbin/pellway 6 'Mg'
> {"command":"scene_start_by_device_status","mac":"AA:BB:CC:DD:EE:F","connected":true}
> {"command":"scene_start_by_device_status","mac":"AA:BB:CC:DD:EE:FF0","connected":true}
> {"command":"scene_start_by_device_status","mac":"AA:BB:CC:DD:EE:00","connected":true}
< { "code": 3506, "msg": "scene has not home launch mode" }
> {"command":"scene_start_by_device_status","mac":"11:22:33:44:55:66","connected":false}
< { "code": 0, "msg": "" }
> {"command":"is_scene_processing","id":7}
< { "code": 0, "msg": "", "processing": 1 }
# Start-up pauses 200 ms, trusts the clock if the NTP status's first line holds OK, else polls.
@start
< 200
E SceneManager.cpp Can not find ntp status file: ntp.status
I SceneManager.cpp Waiting for ntp status ok, times: 1 duration: 5
@start unsynchronised\nOK
E SceneManager.cpp ===========> upper buffer: UNSYNCHRONISED
I SceneManager.cpp Waiting for ntp status ok, times: 1 duration: 5
@start ntp_ok\nsecond
< 200
E SceneManager.cpp ===========> upper buffer: NTP_OK
I SceneManager.cpp Ntp status ok, now add existing alarm
I AlarmObject.cpp Alarm timer time: 07:30
! I SceneManager.cpp Waiting
# With the clock trusted a changed launch's alarm is read at once; one that cannot be read harms
# nothing.
> {"command":"scene_setting","name":"late","action_list":[],"launch":{"timer":{"time":"08:15","repeat":"2"}}}
< { "code": 0, "msg": "", "id": 11 }
I AlarmObject.cpp Alarm timer time: 08:15
> {"command":"scene_launch","id":11,"launch":{"timer":{"time":"10:05"}}}
< { "code": 0, "msg": "" }
I AlarmObject.cpp Alarm timer time: 10:05
> {"command":"scene_update","id":11,"name":"late","action_list":[],"launch":{"timer":{"time":"7:0-2)3","repeat":"2"}}}
< { "code": 0, "msg": "" }
I AlarmObject.cpp Alarm timer time: 7:0-2)3
# After a reset the store is closed until a restart: changes are refused but still stop the run.
> {"command":"reset_scenes"}
> {"command":"scene_start","id":7}
< { "code": 0, "msg": "" }
> {"command":"scene_update","id":7,"name":"changed","action_list":[]}
> {"command":"scene_launch","id":7,"launch":{"go_home":{"mac":"AA"}}}
> {"command":"scene_launch_delete","id":7}
> {"command":"scene_delete","id":7}
< { "code": 3501, "msg": "update database failed" }
> {"command":"get_multiple_scene_setting","start_id":7,"end_id":7}
< { "code": 0, "msg": "", "scene_list": [ { "id": 7, "name": "s", "action_list": [ { "thirdParty": "quiro", "type": "t", "delay": 60000 } ], "launch": { "leave_home": { "mac": "11:22:33:44:55:66" } } } ] }
> {"command":"is_scene_processing","id":7}
< { "code": 0, "msg": "", "processing": 0 }
@restart
> {"command":"get_scene_count"}
< { "code": 0, "msg": "", "count": 0 }
I ZorvikTunnel.cpp get scenes count
