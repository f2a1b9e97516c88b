# trace and analytics: what leaves the unit, and what keeps it from leaving.
$ echo scm_reftype=atag >/usr/lib/build.properties
$ printf '{"b": [2, 3]}\n' >data
$ send() { zorvctl trace send radio 'café' --data '{"a":1}' --data @data \
>   --source port=eth0 --meta 'k=v=w' --meta e= --timestamp 7 "$@"; }
$ send --dry-run | tee shown
PUT https://trace.zorv.example/traces
{"meta":{"timestamp":1795312735971,"type":"event","meta":{"model":"","version":"unknown.0","board_rev":"-1","manufacturer_id":"0","controller.version":"unknown","is_default":"false","mfg_week":"2005","anonymous_device_id":"0000000000000000"},"source":{}},"traces":[{"payload":{"contentType":"application/json","data":"{\"a\":1}"},"timestamp":7,"type":"café","namespace":"radio","source":{"port":"eth0"},"meta":{"k":"v=w","e":""}},{"payload":{"contentType":"application/json","data":"{\"b\":[2,3]}"},"timestamp":7,"type":"café","namespace":"radio","source":{"port":"eth0"},"meta":{"k":"v=w","e":""}}]}
$ zorvctl trace send a b --json # there is no network
{"url":"https://trace.zorv.example/traces","requests":[{"traces":1,"result":1,"name":"failed"}]}
[5]
$ cloud <<END
> site trace.zorv.example
> answer PUT /traces 202
> END
$ send --json; requests >sent; now='s/"timestamp":[0-9]*/"timestamp":now/g'
{"url":"https://trace.zorv.example/traces","requests":[{"traces":2,"result":0,"name":"accepted"}]}
$ sed "1d; $now" shown >a; sed "1,/^$/d; $now" sent >b; diff -B a b
$ zorvctl trace send a b --data '{}' --data '{}' --each; requests | grep -c PUT
PUT https://trace.zorv.example/traces
TRACES  RESULT  NAME
     1       0  accepted
     1       0  accepted
2
$ zorvctl trace send a b --dry-run --json
{"url":"https://trace.zorv.example/traces","documents":[{"meta":{"timestamp":1795312736364,"type":"event","meta":{"model":"","version":"unknown.0","board_rev":"-1","manufacturer_id":"0","controller.version":"unknown","is_default":"false","mfg_week":"2005","anonymous_device_id":"0000000000000000"},"source":{}},"traces":[{"timestamp":1795312736364,"type":"b","namespace":"a"}]}]}
$ zorvctl trace status
state        open
mode         2
mode_file    /var/run/system.analytics.mode
mode_from    default
environment  production
url          https://trace.zorv.example/traces
$ echo mgmt.kelo.env=stage >/tmp/system.cfg; zorvctl trace status --json
{"state":"open","mode":2,"mode_file":"/var/run/system.analytics.mode","mode_from":"default","environment":"stage","url":"https://trace.stage.zorv.example/traces"}
$ echo 0 >/run/system.analytics.mode; zorvctl trace status | head -4
state        off
mode         0
mode_file    /var/run/system.analytics.mode
mode_from    file
$ zorvctl trace send a b
PUT https://trace.stage.zorv.example/traces
TRACES  RESULT  NAME
     1       4  off
[4]
$ zorvctl trace send a b --dry-run
PUT https://trace.stage.zorv.example/traces
{"meta":{"timestamp":1795312736584,"type":"event","meta":{"model":"","version":"unknown.0","board_rev":"-1","manufacturer_id":"0","controller.version":"unknown","is_default":"false","mfg_week":"2005","anonymous_device_id":"0000000000000000"},"source":{}},"traces":[{"timestamp":1795312736584,"type":"b","namespace":"a"}]}
[4]
$ rm /run/system.analytics.mode # the sixth in a row comes within a second of the fifth
$ zorvctl trace send a b --each --data '{}' --data '{}' --data '{}' --data '{}' --data '{}' --data '{}'
PUT https://trace.stage.zorv.example/traces
TRACES  RESULT  NAME
     1       1  failed
     1       1  failed
     1       1  failed
     1       1  failed
     1       1  failed
     1       2  back-off
[4]

$ zorvctl analytics
SETTING   CONFIGURED  UNIT  FROM     MEANING
mode               2     2  default  anonymous reports
coredump           0     0  default  no dumps
$ printf 'system.analytics.status=enabled\nsystem.analytics.coredump=on\n' >a.cfg
$ echo 0 >/run/system.analytics.mode; echo 1 >/run/system.analytics.coredump; zorvctl analytics a.cfg
SETTING   CONFIGURED  UNIT  FROM  MEANING
mode               1     0  file  reports are off
coredump           1     1  file  dumps may go
[1]
$ echo system.analytics.anonymous=0 >a.cfg; echo 1 >/run/system.analytics.mode
$ echo 2 >/run/system.analytics.coredump; zorvctl analytics a.cfg --json
{"file":"a.cfg","settings":[{"setting":"mode","configured":1,"unit":1,"from":"file","file":"/var/run/system.analytics.mode","meaning":"reports with identities"},{"setting":"coredump","configured":0,"unit":2,"from":"file","file":"/var/run/system.analytics.coredump","meaning":"no dumps"}]}
[1]
