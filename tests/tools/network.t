# iface, bridge, portal, sockets and ps.
$ umount /proc; mount -t sysfs -o ro sysfs /sys; bridge fdb add 02:a0:f1:00:00:07 dev eth0 master dynamic
$ zorvctl bridge fdb --json; zorvctl bridge ports --json; zorvctl bridge lookup 02:A0:F1:00:00:07 --json; zorvctl bridge delete 02:a0:f1:00:00:07 eth0
{"bridge":"br0","entries":[...{"mac":"02:a0:f1:00:00:07","port":1,"ifname":"eth0","local":false,"age_seconds":...},...{"mac":"02:a0:f1:00:00:10","port":1,"ifname":"eth0","local":true,"age_seconds":...}]}
{"bridge":"br0","ports":[{"port":1,"ifname":"eth0","state":"forwarding","mac":"02:a0:f1:00:00:10"}]}
{"bridge":"br0","mac":"02:a0:f1:00:00:07","port":1,"ifname":"eth0","age_seconds":...}
the kernel has no 02:a0:f1:00:00:07 on eth0
$ : >/run/system.uplink; zorvctl --json iface uplink; zorvctl iface show --json; ip link set far0 down; zorvctl iface up far0
{"state":"connected","device":"eth0","wireless":"none"}
{"interfaces":[{"name":"lo","index":1,"up":true,"address":"127.0.0.1"},{"name":"br0","index":2,"up":true,"address":"192.0.2.1"},{"name":"far0","index":3,"up":true,"address":null},{"name":"eth0","index":4,"up":true,"address":null}]}
no
[1]
$ hotel=/run/guest/portal/hotel; mkdir -p $hotel; printf 'aa:bb\ncc:dd\n' >$hotel/authorized; printf 10,20 >$hotel/vlans
$ zorvctl portal list --json; zorvctl portal auth hotel c:dd; zorvctl portal auth hotel cc:dd --json; zorvctl portal find --vlan 20
{"portals":[{"name":"hotel","authorized":["aa:bb","cc:dd"],"devnames":null,"vlans":["10","20"]}]}
no
{"portal":"hotel","client":"cc:dd","authorized":true}
hotel
$ echo 'site cloud.test' | cloud; zorvctl sockets --name zorv-cloud --json
{"sockets":[{"socket_type":"tcp","state":"LISTEN","local_port":443,"remote_port":"*","pid":...,"comm":"zorv-cloud"}]}
$ sleep 60 & zorvctl ps --json --sort pid | grep -o '"pid":[0-9]*' | cut -d: -f2 >pids; sort -nc pids; grep -cx $! pids; kill $!
1
$ cat >named <<'END' # itself
> exec 7>/tmp/seven </dev/null 2>/dev/null
> zorvctl ps --fds --name "$name"; zorvctl ps --json --name "$name"
> END
$ export name="$(printf 'caf\303\251 \033\377')"; cp /bin/sh "$name"; bash -c 'exec -a sh "./$name" named' | grep 'caf\|seven'
...  café \x1b\xff
file     /tmp/seven...-      -           -            -     -
{"processes":[{"pid":...,"ppid":...,"stat":"...","rss":...,"vsz":...,"fd_count":...,"comm":"café \u001B�","invalid_utf8":true,"cmdline":"sh named"}]}
