# What all verbs have in common: exit statuses, messages, and documents that are always whole.
$ printf 'a=1\nb=word\n' >a.cfg; echo 5 >cfg
$ mkdir -p /tmp/system.cfg /run/system.uplink /proc/zorvhal/system.info /proc/net/tcp /proc/net/nf_conntrack; : >/proc/meminfo
$ while read -r status code arguments; do # a failure is told alike in text and as a document
>   eval "zorvctl $arguments" >text 2>error </dev/null; was=$?
>   eval "zorvctl $arguments --json" >document 2>said </dev/null; [ $was$? = $status$status ] &&
>     [ ! -s text ] && [ "$(grep -c '^zorvctl: .' error)" = 1 ] &&
>     grep -q '^{"error":{"code":"'$code'","message":".*}}$' document || cat error document
> done <<'END'
> 2 usage cfg get a.cfg c --int --default x
> 1 not-found cfg get a.cfg b --int
> 5 io cfg lint /dev/zero
> 5 io file add cfg 9223372036854775807
> 3 unavailable hw eeprom
> 3 unavailable bridge ports br9
> 2 usage bridge delete 02:a0:f1:00:00:0g lo
> 3 unavailable portal list
> 3 unavailable lock report true
> 1 invalid url parse ftp://myhost
> 2 usage http get https://cloud.test/ --doh-fallback
> 5 io http post https://cloud.test/ --data @none
> 2 usage trace send a b --meta "$(printf 'k=\377')"
> 3 unavailable crash report
> 2 usage crash dump --signal 11 --pid 812 --name 'a"b'
> 1 not-found iface up eth9
> 2 usage crash finish ../..
> 2 usage trace send a b --timestamp -1
> 3 unavailable bridge delete 02:a0:f1:00:00:01 lo
> 5 io file get . --default 1
> 5 io trace status
> 5 io iface uplink
> 5 io model is_qm
> 5 io conntrack
> 5 io sockets
> 5 io mem
> END
$ mkdir -p /run/guest/portal/hotel/vlans; zorvctl portal list --json
...
{"error":{"code":"io","message":"/var/run/guest/portal/hotel/vlans: Is a directory"}}
[5]
$ zorvctl file get cfg; zorvctl --json # a file that is named like a family
5
{"error":{"code":"usage","message":"A subcommand is required (see: zorvctl --help)"}}
[2]
$ seq -f 'wireless.%g.ssid=office' 20000 >long.cfg # more than a pipe holds
$ zorvctl cfg list long.cfg >/dev/full; { zorvctl cfg list long.cfg --json; echo $? >status; } | true; cat status
zorvctl: standard output: No space left on device
5
$ zorvctl cfg apply --set a=2 a.cfg >&-; grep a a.cfg # its number goes to no file that is written
zorvctl: standard output: Bad file descriptor
# CFG Start
a=2
$ zorvctl hash - <&-; zorvctl file get "$(printf '\033\342\200\256\342\200\215n')" # who turns the line shows
zorvctl: -: Bad file descriptor
zorvctl: \x1b\xe2\x80\xae\xe2\x80\x8dn: No such file or directory
[5]
$ printf 'good=\303\251\nbad=a\377\355\240\200z\n\300\257=1\n' >odd.cfg; zorvctl --json cfg list odd.cfg
{"entries":[{"key":"good","value":"é"},{"key":"bad","value":"a����z","invalid_utf8":true},{"key":"��","invalid_utf8":true,"value":"1"}]}
