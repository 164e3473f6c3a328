# zorvikctl's options, messages and exit statuses (reply codes, "-" and --pretty: the examples of
# docs/protocol.md; no daemon: restart.t).
$ zorvikctl --help | grep protocol.md
Every request, reply and code: docs/protocol.md in the zorvik sources.
$ zorvikctl --bogus count
zorvikctl: unknown option --bogus
[exit 2]
$ zorvikctl --timeout abc count
zorvikctl: --timeout needs a number of seconds above 0, not abc
[exit 2]
$ zorvikctl --timeout 0 count
zorvikctl: --timeout needs a number of seconds above 0, not 0
[exit 2]
$ zorvikctl count --timeout
zorvikctl: --timeout needs a number of seconds
[exit 2]
$ zorvikctl count extra 2>/dev/null
[exit 2]
$ zorvikctl get seven
zorvikctl: not a scene id: seven
[exit 2]
$ head -c 5000000 /dev/zero | tr '\0' ' ' | zorvikctl -
zorvikctl: the zorvik daemon on 127.0.0.1:9096 closed the connection without a reply (request too large?)
[exit 3]
# A TV that never appears holds the crontab tick far longer than the time-out.
$ zorvikctl '{"command":"scene_setting","name":"TV","action_list":[{"thirdParty":"tevra","type":"tv","payload":{"mac":"00:11:22:33:44:55","command":"poweron"}}],"launch":{"timer":{"time":"20:00","repeat":"5"}}}'
{ "code": 0, "msg": "", "id": 1 }
$ zorvikctl --timeout 1 '{"command":"scene_start_by_crontab","week":5,"time":"20:00"}'
zorvikctl: no reply from the zorvik daemon within 1 s (--timeout)
[exit 4]
