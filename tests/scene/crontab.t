# The crontab tick replays timed scenes' actions: on the alarm's weekdays those whose delay keeps
# them in the alarm's minute or moves them into this one (across midnight and the week's end),
# and a one-time alarm's within a minute after they were due; logged, reported to the feed
# before the last action's own work, leaving the scene idle. (Format: tests/TranscriptRunner.cpp.)
> {"command":"scene_setting","name":"W","action_list":[{"thirdParty":"quiro","type":"t","name":"first","payload":"a"},{"thirdParty":"quiro","type":"t","name":"second","payload":"b","delay":120000}],"launch":{"timer":{"time":"07:30","repeat":"1,3"}}}
> {"command":"scene_setting","name":"off","action_list":[{"thirdParty":"quiro","type":"t"}],"launch":{"timer":{"time":"07:30","repeat":"1,3","enabled":false}}}
> {"command":"scene_setting","name":"N","action_list":[{"thirdParty":"quiro","type":"t","payload":"c","delay":1200000}],"launch":{"timer":{"time":"23:50","repeat":"6"}}}
> {"command":"scene_setting","name":"no colon","action_list":[{"thirdParty":"quiro","type":"t","delay":60000}],"launch":{"timer":{"time":"0730","repeat":"0,1,2,3,4,5,6"}}}
! E
# Nothing is due: another weekday or minute, a time without a colon (at 07:30 "off" stays off).
> {"command":"scene_start_by_crontab","week":2,"time":"07:30"}
> {"command":"scene_start_by_crontab","week":1,"time":"07:31"}
> {"command":"scene_start_by_crontab","week":2,"time":"07:32"}
> {"command":"scene_start_by_crontab","week":6,"time":"00:10"}
> {"command":"scene_start_by_crontab","week":3,"time":"22:11"}
< { "code": 0, "msg": "" }
> {"command":"scene_start_by_crontab","week":1,"time":"07:30"}
< { "code": 0, "msg": "" }
I Scene.cpp execute1: first 07:30 0ms
$ /usr/sbin/pellway 6 'YQ'
> {"command":"scene_start_by_crontab","week":3,"time":"07:32"}
< { "code": 0, "msg": "" }
I Scene.cpp execute1: second 07:30 120000ms
I Action.cpp system command: /usr/sbin/vantpost '{ "type": 5, "data": { "name": "W", "list": [ { "name": "first", "keyName": "" } ] } }'
$ /usr/sbin/vantpost '{ "type": 5, "data": { "name": "W", "list": [ { "name": "first", "keyName": "" } ] } }'
$ /usr/sbin/pellway 6 'Yg'
> {"command":"is_scene_processing","id":1}
< { "code": 0, "msg": "", "processing": 0 }
> {"command":"scene_start_by_crontab","week":0,"time":"00:10"}
< { "code": 0, "msg": "" }
$ /usr/sbin/vantpost '{ "type": 5, "data": { "name": "N", "list": [ { "name": "", "keyName": "" } ] } }'
$ /usr/sbin/pellway 6 'Yw'
# Numbers at their edges: the largest weekday counts modulo 7; time texts may hold any number.
> {"command":"scene_setting","name":"F","action_list":[{"thirdParty":"quiro","type":"t","payload":"e","delay":60000}],"launch":{"timer":{"time":"0:2147483647","repeat":"1"}}}
> {"command":"scene_setting","name":"G","action_list":[{"thirdParty":"quiro","type":"t","payload":"f","delay":2147483647}],"launch":{"timer":{"time":"2147483645:37","repeat":"6"}}}
! E
> {"command":"scene_start_by_crontab","week":2147483647,"time":"02:08"}
< { "code": 0, "msg": "" }
$ /usr/sbin/vantpost '{ "type": 5, "data": { "name": "F", "list": [ { "name": "", "keyName": "" } ] } }'
$ /usr/sbin/pellway 6 'ZQ'
$ /usr/sbin/vantpost '{ "type": 5, "data": { "name": "G", "list": [ { "name": "", "keyName": "" } ] } }'
$ /usr/sbin/pellway 6 'Zg'
# A one-time alarm 70 s ago: only the second action, 30 s later, is in its minute; in 30 s none.
> {"command":"scene_setting","name":"O","action_list":[{"thirdParty":"quiro","type":"t","name":"x","payload":"g"},{"thirdParty":"quiro","type":"t","name":"y","payload":"h","delay":30000}],"launch":{"timer":{"utc_time":{now-70}000}}}
< { "code": 0, "msg": "", "id": 7 }
> {"command":"scene_start_by_crontab","week":1,"time":"99:99"}
< { "code": 0, "msg": "" }
I Scene.cpp execute1 once: y  30000ms
$ /usr/sbin/vantpost '{ "type": 5, "data": { "name": "O", "list": [ { "name": "x", "keyName": "" } ] } }'
$ /usr/sbin/pellway 6 'aA'
> {"command":"scene_launch","id":7,"launch":{"timer":{"utc_time":{now+30}000}}}
> {"command":"scene_start_by_crontab","week":1,"time":"99:99"}
< { "code": 0, "msg": "" }
