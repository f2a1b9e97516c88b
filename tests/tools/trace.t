# trace and analytics: what leaves the unit, and what keeps it from leaving.
$ whole_unit; printf '{"b": [2, 3]}\n' >data
$ send() { zorvctl trace send radio 'café' --data '{"a":1}' --data @data \
>   --source port=eth0 --meta 'k=v=w' --meta e= --timestamp 7 "$@"; }; send --dry-run
PUT https://trace.zorv.example/traces
{"meta":{"timestamp":...,"type":"event","meta":{"model":"TARN-Console","version":"6.6.55.15189","board_rev":"3","manufacturer_id":"0","controller.version":"unknown","is_default":"false","mfg_week":"2005","anonymous_device_id":"0000000000000000"},"source":{}},"traces":[{"payload":{"contentType":"application/json","data":"{\"a\":1}"},"timestamp":7,"type":"café","namespace":"radio","source":{"port":"eth0"},"meta":{"k":"v=w","e":""}},{"payload":{"contentType":"application/json","data":"{\"b\":[2,3]}"},"timestamp":7,"type":"café","namespace":"radio","source":{"port":"eth0"},"meta":{"k":"v=w","e":""}}]}
$ printf 'site trace.zorv.example\nanswer PUT /traces 202\n' | cloud; send --json
{"url":"https://trace.zorv.example/traces","requests":[{"traces":2,"result":0,"name":"accepted"}]}
$ send --dry-run >shown; requests | sed '2d; s/"timestamp":[0-9]*/"timestamp":now/g' >sent
$ sed 's/ http.*/ \/traces HTTP\/1.1/; s/"timestamp":[0-9]*/"timestamp":now/g' shown | cmp - sent
$ zorvctl trace status --json; echo mgmt.kelo.env=stage >/tmp/system.cfg; echo 0 >/run/system.analytics.mode
{"state":"open","mode":2,"mode_file":"/var/run/system.analytics.mode","mode_from":"default","environment":"production","url":"https://trace.zorv.example/traces"}
$ zorvctl trace status | xargs; zorvctl trace send a b --dry-run --json >shown; zorvctl trace send a b --json
state off mode 0 mode_file /var/run/system.analytics.mode mode_from file environment stage url https://trace.stage.zorv.example/traces
{"url":"https://trace.stage.zorv.example/traces","requests":[{"traces":1,"result":4,"name":"off"}]}
[4]
$ printf 'system.analytics.status=enabled\nsystem.analytics.coredump=on\n' >a.cfg; zorvctl analytics a.cfg --json
{"file":"a.cfg","settings":[{"setting":"mode","configured":1,"unit":0,"from":"file","file":"/var/run/system.analytics.mode","meaning":"reports are off"},{"setting":"coredump","configured":1,"unit":0,"from":"default","file":"/var/run/system.analytics.coredump","meaning":"no dumps"}]}
[1]
$ rm /run/system.analytics.mode; braces=$(printf -- '--data {} %.0s' 1 2 3 4 5 6) # the sixth within a second of the fifth
$ zorvctl -v trace send a b --each $braces --json | grep -o '"name[^}]*' | uniq -c
zorvctl[...]: [warn ] trace.put_trace(): PUT 'https://trace.stage.zorv.example/traces' failed: [6] Couldn't resolve host name
      5 "name":"failed"
      1 "name":"back-off"
