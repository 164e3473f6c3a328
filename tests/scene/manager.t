# The scene manager: ids, runs, presence, the store kept in step with the registry, the status
# record and the clock. (Format: tests/TranscriptRunner.cpp.)

# Nothing registered: no presence scene, no record.
> {"command":"scene_start_by_device_status","mac":"AA:BB:CC:DD:EE:FF","connected":true}
< { "code": 3506, "msg": "scene has not home launch mode" }
> {"command":"scene_record_by_crontab"}
< { "code": 0, "msg": "" }
! I SceneManager.cpp

# Below 30000 the manager picks the id: the largest registered one + 1 ... up to 29999 (this row
# comes from an older daemon).
@insert 29999 | old | []
@restart
> {"command":"scene_setting","name":"none left","action_list":[]}
< { "code": 3501, "msg": "update database failed" }
> {"command":"scene_delete","id":29999}
< { "code": 0, "msg": "" }
> {"command":"scene_setting","id":0,"name":"a","action_list":[]}
< { "code": 0, "msg": "", "id": 1 }
> {"command":"scene_setting","id":29999,"name":"b","action_list":[]}
< { "code": 0, "msg": "", "id": 2 }
> {"command":"scene_setting","name":"c","action_list":[]}
< { "code": 0, "msg": "", "id": 3 }
> {"command":"scene_delete","id":2}
< { "code": 0, "msg": "" }
> {"command":"scene_setting","name":"d","action_list":[]}
< { "code": 0, "msg": "", "id": 4 }

# From 30000 the caller's id is kept (the store refuses a second one alike); then no automatic
# id is left.
> {"command":"scene_setting","id":30000,"name":"big","action_list":[]}
< { "code": 0, "msg": "", "id": 30000 }
> {"command":"scene_setting","id":2147483647,"name":"max","action_list":[]}
< { "code": 0, "msg": "", "id": 2147483647 }
> {"command":"scene_setting","id":30000,"name":"again","action_list":[]}
> {"command":"scene_setting","name":"next","action_list":[]}
< { "code": 3501, "msg": "update database failed" }
> {"command":"get_multiple_scene_setting","start_id":4,"end_id":30000}
< { "code": 0, "msg": "", "scene_list": [ { "id": 4, "name": "d", "action_list": [ ] }, { "id": 30000, "name": "big", "action_list": [ ] } ] }
> {"command":"scene_delete","id":30000}
> {"command":"scene_delete","id":2147483647}
< { "code": 0, "msg": "" }

# The status record: each scene's id and alarm switch, in list order. The alarm is not read
# when a scene is added before the clock is trusted.
> {"command":"scene_setting","name":"on","action_list":[],"launch":{"timer":{"time":"07:30","repeat":"1"}}}
< { "code": 0, "msg": "", "id": 5 }
! I AlarmObject.cpp
> {"command":"scene_setting","name":"off","action_list":[],"launch":{"timer":{"enabled":false}}}
< { "code": 0, "msg": "", "id": 6 }
> {"command":"scene_record_by_crontab"}
< { "code": 0, "msg": "" }
I SceneManager.cpp record: "zorvik_scene_status=1:1|3:1|4:1|5:1|6:0"
$ logger stat_points_none "zorvik_scene_status=1:1|3:1|4:1|5:1|6:0"
! E SceneManager.cpp
! I SceneManager.cpp system command:
@result 256 logger
> {"command":"scene_record_by_crontab"}
< { "code": 0, "msg": "" }
E SceneManager.cpp system call error
$ logger stat_points_none "zorvik_scene_status=1:1|3:1|4:1|5:1|6:0"

# One run at a time; stop ends it (an idle scene too); a scene without a valid action answers 3.
> {"command":"scene_setting","name":"long","action_list":[{"thirdParty":"quiro","type":"t","delay":60000}]}
< { "code": 0, "msg": "", "id": 7 }
> {"command":"scene_start","id":7}
< { "code": 0, "msg": "" }
> {"command":"scene_start","id":7}
< { "code": 3505, "msg": "scene is processing" }
> {"command":"is_scene_processing","id":7}
< { "code": 0, "msg": "", "processing": 1 }
> {"command":"scene_stop","id":7}
> {"command":"scene_stop","id":7}
< { "code": 0, "msg": "" }
> {"command":"is_scene_processing","id":7}
< { "code": 0, "msg": "", "processing": 0 }
> {"command":"scene_start","id":1}
< { "code": 3, "msg": "parameter format error" }
I Scene.cpp Scene actions length is 0
> {"command":"scene_update","id":9,"name":"x","action_list":[]}
< { "code": 3502, "msg": "scene not found" }

# A change stops the run before it touches the store; live scene and stored row change together.
> {"command":"scene_start","id":7}
< { "code": 0, "msg": "" }
> {"command":"scene_update","id":7,"name":"new","action_list":[],"launch":{"go_home":{"mac":"AA:BB:CC:DD:EE:FF"}}}
< { "code": 0, "msg": "" }
> {"command":"is_scene_processing","id":7}
< { "code": 0, "msg": "", "processing": 0 }
> {"command":"scene_start","id":7}
< { "code": 3, "msg": "parameter format error" }
> {"command":"scene_setting","name":"s","action_list":[{"thirdParty":"quiro","type":"t","delay":60000}]}
< { "code": 0, "msg": "", "id": 8 }
> {"command":"scene_start","id":8}
< { "code": 0, "msg": "" }
> {"command":"scene_launch","id":8,"launch":{"leave_home":{"mac":"11:22:33:44:55:66"}}}
< { "code": 0, "msg": "" }
> {"command":"is_scene_processing","id":8}
< { "code": 0, "msg": "", "processing": 0 }
> {"command":"scene_setting","name":"t","action_list":[{"thirdParty":"quiro","type":"t","delay":60000}],"launch":{"leave_home":{"mac":"77:88:99:AA:BB:CC"}}}
< { "code": 0, "msg": "", "id": 9 }
> {"command":"scene_start","id":9}
< { "code": 0, "msg": "" }
> {"command":"scene_launch_delete","id":9}
< { "code": 0, "msg": "" }
> {"command":"is_scene_processing","id":9}
< { "code": 0, "msg": "", "processing": 0 }
> {"command":"scene_start_by_device_status","mac":"77:88:99:AA:BB:CC","connected":false}
< { "code": 3506, "msg": "scene has not home launch mode" }
@restart
> {"command":"get_multiple_scene_setting","start_id":7,"end_id":9}
< { "code": 0, "msg": "", "scene_list": [ { "id": 7, "name": "new", "action_list": [ ], "launch": { "go_home": { "mac": "AA:BB:CC:DD:EE:FF" } } }, { "id": 8, "name": "s", "action_list": [ { "thirdParty": "quiro", "type": "t", "delay": 60000 } ], "launch": { "leave_home": { "mac": "11:22:33:44:55:66" } } }, { "id": 9, "name": "t", "action_list": [ { "thirdParty": "quiro", "type": "t", "delay": 60000 } ] } ] }

# Presence starts every enabled scene whose MAC matches the whole text in any letter case and
# whose direction matches; a scene already running still counts. Each reports its run's end.
> {"command":"scene_setting","name":"h1","action_list":[{"thirdParty":"quiro","type":"t","payload":"1","delay":1000}],"launch":{"go_home":{"mac":"AA:BB:CC:DD:EE:FF"}}}
< { "code": 0, "msg": "", "id": 10 }
> {"command":"scene_setting","name":"h2","action_list":[{"thirdParty":"quiro","type":"t","payload":"2","delay":1300}],"launch":{"go_home":{"mac":"aa:bb:cc:dd:ee:ff","enabled":true}}}
< { "code": 0, "msg": "", "id": 11 }
> {"command":"scene_setting","name":"off","action_list":[{"thirdParty":"quiro","type":"t","payload":"3"}],"launch":{"go_home":{"mac":"AA:BB:CC:DD:EE:FF","enabled":false}}}
< { "code": 0, "msg": "", "id": 12 }
> {"command":"scene_start_by_device_status","mac":"aA:bb:cc:dd:ee:ff","connected":true}
< { "code": 0, "msg": "" }
> {"command":"scene_start_by_device_status","mac":"AA:BB:CC:DD:EE:FF","connected":true}
< { "code": 0, "msg": "" }
$ /usr/sbin/vantpost '{ "type": 5, "data": { "name": "h1", "list": [ { "name": "", "keyName": "" } ] } }'
$ /usr/sbin/pellway 6 'MQ'
$ /usr/sbin/vantpost '{ "type": 5, "data": { "name": "h2", "list": [ { "name": "", "keyName": "" } ] } }'
$ /usr/sbin/pellway 6 'Mg'
> {"command":"scene_start_by_device_status","mac":"AA:BB:CC:DD:EE:F","connected":true}
> {"command":"scene_start_by_device_status","mac":"AA:BB:CC:DD:EE:FF0","connected":true}
> {"command":"scene_start_by_device_status","mac":"AA:BB:CC:DD:EE:00","connected":true}
> {"command":"scene_start_by_device_status","mac":"AA:BB:CC:DD:EE:FF","connected":false}
< { "code": 3506, "msg": "scene has not home launch mode" }
> {"command":"scene_start_by_device_status","mac":"11:22:33:44:55:66","connected":false}
< { "code": 0, "msg": "" }
> {"command":"is_scene_processing","id":8}
< { "code": 0, "msg": "", "processing": 1 }

# A scene removed while it runs is stopped first: its action never comes.
> {"command":"scene_setting","name":"soon","action_list":[{"thirdParty":"quiro","type":"t","delay":300}]}
< { "code": 0, "msg": "", "id": 13 }
> {"command":"scene_start","id":13}
> {"command":"scene_delete","id":13}
< { "code": 0, "msg": "" }
@sleep 800
> {"command":"is_scene_processing","id":13}
< { "code": 3502, "msg": "scene not found" }

# Start-up pauses 200 ms, then trusts the clock only when the first line of the NTP status holds
# OK in any letter case; until then it polls on a thread of its own.
@start
< 200
E SceneManager.cpp Can not find ntp status file: {dir}/ntp.status
I SceneManager.cpp Waiting for ntp status ok, times: 1 duration: 5
@restart
@file ntp.status unsynchronised\nOK
@start
E SceneManager.cpp ===========> upper buffer: UNSYNCHRONISED
I SceneManager.cpp Waiting for ntp status ok, times: 1 duration: 5
@restart
@file ntp.status ntp ok\nsecond line
@start
< 200
E SceneManager.cpp ===========> upper buffer: NTP OK
I SceneManager.cpp Ntp status ok, now add existing alarm
I AlarmObject.cpp Alarm timer time: 07:30
! I SceneManager.cpp Waiting

# With the clock trusted every new launch's alarm is read at once.
> {"command":"scene_setting","name":"late","action_list":[],"launch":{"timer":{"time":"08:15","repeat":"2"}}}
< { "code": 0, "msg": "", "id": 13 }
I AlarmObject.cpp Alarm timer time: 08:15
> {"command":"scene_update","id":13,"name":"late","action_list":[],"launch":{"timer":{"time":"09:45"}}}
< { "code": 0, "msg": "" }
I AlarmObject.cpp Alarm timer time: 09:45
> {"command":"scene_launch","id":13,"launch":{"timer":{"time":"10:05"}}}
< { "code": 0, "msg": "" }
I AlarmObject.cpp Alarm timer time: 10:05

# After a reset the store stays closed until the daemon restarts: every change is refused and
# the registry stays as it was; a refused change still stops the run.
> {"command":"scene_start","id":8}
< { "code": 0, "msg": "" }
> {"command":"reset_scenes"}
< { "code": 0, "msg": "" }
> {"command":"scene_setting","name":"x","action_list":[]}
> {"command":"scene_update","id":8,"name":"changed","action_list":[]}
> {"command":"scene_launch","id":8,"launch":{"go_home":{"mac":"AA"}}}
> {"command":"scene_launch_delete","id":8}
> {"command":"scene_delete","id":8}
< { "code": 3501, "msg": "update database failed" }
> {"command":"get_multiple_scene_setting","start_id":8,"end_id":8}
< { "code": 0, "msg": "", "scene_list": [ { "id": 8, "name": "s", "action_list": [ { "thirdParty": "quiro", "type": "t", "delay": 60000 } ], "launch": { "leave_home": { "mac": "11:22:33:44:55:66" } } } ] }
> {"command":"is_scene_processing","id":8}
< { "code": 0, "msg": "", "processing": 0 }
@restart
> {"command":"get_scene_count"}
< { "code": 0, "msg": "", "count": 0 }
