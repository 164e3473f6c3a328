# The request tunnel: which texts are commands, which members each command insists on, the
# line it logs and the manager operation it reaches. (Format: tests/TranscriptRunner.cpp.)
# A command word is compared as text with the sixteen commands (docs/protocol.md shows others).
> {"command":"scene_stat"}
> {"command":"SCENE_START","id":1}
< { "code": -1, "msg": "api not exists" }
# The manager gets json-c's spelling of the members, never the caller's; no "id" is -1.
> { "command" : "scene_setting", "name": "Night", "action_list": [{"thirdParty":"system",  "type":"t", "payload":"a/b"}], "launch": {"go_home": {"mac": "AA:BB"}} }
< { "code": 0, "msg": "", "id": 1 }
I ZorvikTunnel.cpp addScene: id=-1
I ZorvikTunnel.cpp addScene: name=Night
I ZorvikTunnel.cpp addScene: actions=[ { "thirdParty": "system", "type": "t", "payload": "a\/b" } ]
I ZorvikTunnel.cpp addScene: launch={ "go_home": { "mac": "AA:BB" } }
> {"command":"scene_setting","id":7,"name":"Day","action_list":[]}
< { "code": 0, "msg": "", "id": 2 }
I ZorvikTunnel.cpp addScene: id=7
! I ZorvikTunnel.cpp addScene: launch=
# No command object, members missing, null, empty or mistyped: refused unlogged (more: protocol.md).
> {"command":null}
> {"Command":"get_scene_count"}
> {"command":"scene_setting","action_list":[]}
> {"command":"scene_setting","name":"Night"}
> {"command":"scene_setting","name":"Night","action_list":"[]"}
> {"command":"scene_start"}
> {"command":"scene_delete","id":null}
> {"command":"get_multiple_scene_setting","start_id":1}
> {"command":"get_multiple_scene_setting","end_id":1}
> {"command":"scene_update","name":"Gone","action_list":[]}
> {"command":"scene_update","id":1,"name":"","action_list":[]}
> {"command":"scene_launch","id":1}
> {"command":"scene_launch","launch":{}}
> {"command":"scene_start_by_device_status","mac":"AA"}
> {"command":"scene_start_by_device_status","connected":true}
> {"command":"scene_start_by_crontab","time":"07:30"}
> {"command":"scene_start_by_crontab","week":1,"time":""}
< { "code": 3, "msg": "parameter format error" }
! I ZorvikTunnel.cpp
> {"command":"get_scene_setting"}
< { "code": 0, "msg": "", "scene_list": [ { "id": 1, "name": "Night", "action_list": [ { "thirdParty": "system", "type": "t", "payload": "a\/b" } ], "launch": { "go_home": { "mac": "AA:BB" } } }, { "id": 2, "name": "Day", "action_list": [ ] } ] }
I ZorvikTunnel.cpp get all scenes
# The other commands with their lines (those manager.t uses: there); scene 9 does not exist.
> {"command":"scene_update","id":1,"name":"Morning","action_list":[{"thirdParty":"quiro","type":"t"}],"launch":{"timer":{}}}
< { "code": 0, "msg": "" }
I ZorvikTunnel.cpp updateScene: id=1, name=Morning
I ZorvikTunnel.cpp updateScene: actions=[ { "thirdParty": "quiro", "type": "t" } ]
I ZorvikTunnel.cpp updateScene: launch={ "timer": { } }
> {"command":"get_single_scene_setting","id":1}
< { "code": 0, "msg": "", "scene": { "id": 1, "name": "Morning", "action_list": [ { "thirdParty": "quiro", "type": "t" } ], "launch": { "timer": { } } } }
I ZorvikTunnel.cpp getSingleScene: id=1
> {"command":"get_single_scene_setting","id":"9abc"}
< { "code": 0, "msg": "" }
I ZorvikTunnel.cpp getSingleScene: id=9
> {"command":"scene_stop","id":9}
< { "code": 3502, "msg": "scene not found" }
I ZorvikTunnel.cpp stopScene: id=9
> {"command":"scene_launch","id":9,"launch":{"leave_home":{"mac":"AA"}}}
< { "code": 3502, "msg": "scene not found" }
I ZorvikTunnel.cpp setSceneLaunch: id=9, launch={ "leave_home": { "mac": "AA" } }
> {"command":"scene_launch_delete","id":9}
< { "code": 3502, "msg": "scene not found" }
I ZorvikTunnel.cpp removeSceneLaunch: id=9
> {"command":"is_scene_processing","id":9}
< { "code": 3502, "msg": "scene not found" }
I ZorvikTunnel.cpp isSceneProcessing: id=9
# "connected" is read as a boolean whatever its JSON type.
> {"command":"scene_start_by_device_status","mac":"AA","connected":"false"}
< { "code": 3506, "msg": "scene has not home launch mode" }
I ZorvikTunnel.cpp startSceneByDeviceStatus: mac=AA, connected=1
> {"command":"scene_start_by_device_status","mac":"AA","connected":0}
< { "code": 3506, "msg": "scene has not home launch mode" }
I ZorvikTunnel.cpp startSceneByDeviceStatus: mac=AA, connected=0
# The crontab tick logs the tunnel's own clock; a reset just its line.
> {"command":"scene_start_by_crontab","week":"3","time":"07:30"}
< { "code": 0, "msg": "" }
I ZorvikTunnel.cpp startSceneByCrontab: week=3, time=07:30, utc:{now}
> {"command":"reset_scenes"}
< { "code": 0, "msg": "" }
I ZorvikTunnel.cpp reset scenes
