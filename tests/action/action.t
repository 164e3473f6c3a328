# The handler of each "thirdParty" word (any other spelling does nothing) and the device tunnel's
# line: the payload in base64 without padding, logged at the info level. The crontab tick runs
# the actions at once, in order. (Format: tests/TranscriptRunner.cpp.)
> {"command":"scene_setting","name":"A","launch":{"timer":{"time":"07:30","repeat":"1"}},"action_list":[{"thirdParty":"unknown","type":"t","payload":"a"},{"thirdParty":"Quiro","type":"t","payload":"a"},{"thirdParty":"system","type":"t","payload":"a"},{"thirdParty":"tevra","type":"t","payload":"not json"},{"thirdParty":"tarwen","type":"t","payload":"not json"},{"thirdParty":"quiro","type":"t","payload":{"a":1}},{"thirdParty":"lumdex","type":"t","payload":{"a":1}},{"thirdParty":"quiro","type":"t"},{"thirdParty":"quiro","type":"t","payload":"ab"},{"thirdParty":"quiro","type":"t","payload":"aé"},{"thirdParty":"quiro","type":"t","payload":"   $0D(S!,cG9$#=4TUf$^&ZnW&vz){+*#;_#L+#^.#lo#~z /; /~  ?"}]}
< { "code": 0, "msg": "", "id": 1 }
> {"command":"scene_start_by_crontab","week":1,"time":"07:30"}
< { "code": 0, "msg": "" }
E Action.cpp system vendor no longer support.
E TevraHelper.cpp brelk TevraHelper extra is not json format
E TevraHelper.cpp brelk TevraHelper extra is not json format
I Action.cpp system command: /usr/sbin/pellway 6 'eyAiYSI6IDEgfQ'
$ /usr/sbin/pellway 6 'eyAiYSI6IDEgfQ'
$ /usr/sbin/pellway 6 'eyAiYSI6IDEgfQ'
$ /usr/sbin/pellway 6 ''
$ /usr/sbin/pellway 6 'YWI'
$ /usr/sbin/pellway 6 'YcOp'
$ /usr/sbin/vantpost '{ "type": 5, "data": { "name": "A", "list": [ { "name": "", "keyName": "" } ] } }'
$ /usr/sbin/pellway 6 'ICAgJDBEKFMhLGNHOSQjPTRUVWYkXiZablcmdnopeysqIztfI0wrI14uI2xvI356IC87IC9+ICA/'
