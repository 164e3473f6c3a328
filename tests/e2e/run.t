# One scene through every back end, started by its phone coming home: router, device tunnel, the
# sibling Thrift services (a few lines of Perl here), the TV found through ARP, the feed report.
ran: /usr/sbin/nvram get model
$ for service in halvex:9092 kelmora:9090; do perl -MIO::Socket::INET -e '
>   my ($name, $port, $log) = @ARGV; my $server = IO::Socket::INET->new(
>     LocalAddr => "127.0.0.1:$port", Listen => 5, ReuseAddr => 1) or die "$port: $!";
>   while (my $client = $server->accept) {
>     read($client, my $size, 4) == 4 or next; read($client, my $call, unpack("N", $size));
>     my ($method, $sequence, $text) = unpack("x4 N/a N x3 N/a", $call);
>     open(my $calls, ">>", $log); print $calls "$name $text\n"; close $calls;
>     print $client pack("N/a", pack("N N/a N C n N/a C", 0x80010002, $method, $sequence, 11, 0,
>       q({"code":0}), 0)) }' ${service%:*} ${service#*:} $STATE/calls.log &
>   within "(: </dev/tcp/127.0.0.1/${service#*:}) 2>/dev/null"
> done
$ zorvikctl '{"command":"scene_setting","name":"Evening","action_list":[
> {"thirdParty":"brelkrouter","type":"router","name":"Block","keyName":"wan",
>  "payload":{"command":"wan_block","mac":"AA:BB:CC:DD:EE:FF"}},
> {"thirdParty":"quiro","type":"light","payload":"{\"a\":1}"},
> {"thirdParty":"halvex","type":"ir","payload":"{\"ir\":\"tv_on\"}"},
> {"thirdParty":"kelmora","type":"light","payload":{"light":1}},
> {"thirdParty":"tevra","type":"tv","payload":{"mac":"AA:BB:CC:DD:EE:FF","command":"poweroff"}},
> {"thirdParty":"brelkrouter","type":"router","payload":{"command":"wifi_down"}}],
> "launch":{"go_home":{"mac":"AA:BB:CC:DD:EE:01"}}}'
{ "code": 0, "msg": "", "id": 1 }
$ zorvikctl '{"command":"scene_start_by_device_status","mac":"aa:bb:cc:dd:ee:01","connected":true}'
{ "code": 0, "msg": "" }
ran: /usr/sbin/teldra macfilter set mac=AA:BB:CC:DD:EE:FF wan=no
ran: /usr/sbin/teldra macfilter commit
ran: /usr/sbin/pellway 6 eyJhIjoxfQ
ran: halvex {"ir":"tv_on"}
ran: kelmora { "light": 1 }
ran: /usr/bin/curl -s -k --connect-timeout 10 http://192.168.31.23/cgi-bin/powerctrl.cgi?off=1
ran: /usr/sbin/vantpost { "type": 5, "data": { "name": "Evening", "list": [ { "name": "Block", "keyName": "wan" } ] } }
ran: /sbin/wifi down
# zorvikctl's options, messages and exit statuses (reply codes, "-" and --pretty: the examples of
# docs/protocol.md; no daemon: restart.t; a time-out: daemon.t).
$ zorvikctl --help | grep protocol.md
Every request, reply and code: docs/protocol.md in the zorvik sources.
$ zorvikctl --bogus count
zorvikctl: unknown option --bogus
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
