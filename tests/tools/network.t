# iface, bridge, portal, and sockets.
$ kernel_proc; mount -t sysfs sysfs /sys; make_bridge
$ bridge fdb add 02:a0:f1:00:00:07 dev eth0 master dynamic
$ zorvctl bridge fdb; zorvctl bridge fdb br0 --json
MAC                PORT  IFNAME  LOCAL  AGE SECONDS
02:a0:f1:00:00:07     1  eth0    no               0
02:a0:f1:00:00:10     1  eth0    yes              0
{"bridge":"br0","entries":[{"mac":"02:a0:f1:00:00:07","port":1,"ifname":"eth0","local":false,"age_seconds":0},{"mac":"02:a0:f1:00:00:10","port":1,"ifname":"eth0","local":true,"age_seconds":0}]}
$ zorvctl bridge ports; zorvctl bridge ports --json
PORT  IFNAME  STATE       MAC
   1  eth0    forwarding  02:a0:f1:00:00:10
{"bridge":"br0","ports":[{"port":1,"ifname":"eth0","state":"forwarding","mac":"02:a0:f1:00:00:10"}]}
$ zorvctl bridge lookup 02:A0:F1:00:00:07; zorvctl bridge lookup 02:A0:F1:00:00:07 --json
bridge       br0
mac          02:a0:f1:00:00:07
port         1
ifname       eth0
age_seconds  0
{"bridge":"br0","mac":"02:a0:f1:00:00:07","port":1,"ifname":"eth0","age_seconds":0}
$ zorvctl bridge delete 02:a0:f1:00:00:07 eth0; zorvctl bridge lookup 02:a0:f1:00:00:07
asked the kernel to forget 02:a0:f1:00:00:07 on eth0
zorvctl: 02:a0:f1:00:00:07: not learned on br0
[1]

$ zorvctl iface show; zorvctl --json iface show br0
NAME  INDEX  UP   ADDRESS
lo        1  yes  127.0.0.1
br0       2  yes  192.0.2.1
far0      3  yes  -
eth0      4  yes  -
{"interfaces":[{"name":"br0","index":2,"up":true,"address":"192.0.2.1"}]}
$ zorvctl iface up lo; zorvctl iface up far0 --json; ip link set far0 down; zorvctl iface up far0
yes
{"name":"far0","up":true}
no
[1]
$ : >/run/system.uplink; zorvctl iface uplink; zorvctl --json iface uplink
state     connected
device    eth0
wireless  none
{"state":"connected","device":"eth0","wireless":"none"}
$ echo down >/run/system.uplink; zorvctl --json iface uplink
{"state":"down","device":null,"wireless":"down"}
[1]

$ mkdir -p /run/guest/portal/hotel; cd /run/guest/portal/hotel
$ printf 'aa:bb\ncc:dd\n' >authorized; printf 10,20 >vlans; zorvctl portal list; zorvctl portal list --json
NAME   VLANS  DEVNAMES  AUTHORIZED
hotel  10,20         -  aa:bb,cc:dd
{"portals":[{"name":"hotel","authorized":["aa:bb","cc:dd"],"devnames":null,"vlans":["10","20"]}]}
$ zorvctl portal auth hotel cc:dd; zorvctl portal auth hotel c:dd
yes
no
[1]
$ zorvctl portal auth hotel cc:dd --json; zorvctl portal find --vlan 20
{"portal":"hotel","client":"cc:dd","authorized":true}
hotel
$ zorvctl portal find --name hotel --json; zorvctl portal find --device wlan0
{"portal":"hotel"}
zorvctl: no portal serves that
[1]

$ cd /tmp/work; echo 'site cloud.test' | cloud; zorvctl sockets --name zorv-cloud
PID  COMM        SOCKET TYPE  STATE   LOCAL PORT  REMOTE PORT  PATH
 48  zorv-cloud  tcp          LISTEN         443  *               -
$ zorvctl sockets --name zorv-cloud --json
{"sockets":[{"socket_type":"tcp","state":"LISTEN","local_port":443,"remote_port":"*","pid":48,"comm":"zorv-cloud"}]}
$ sh -c 'printf "caf\303\251 \033\377" >/proc/$$/comm; exec 7>/tmp/work/log
>   name=$(printf "caf\303\251 \033\377"); zorvctl ps --fds --name "$name"
>   zorvctl ps --json --fds --name "$name"'
53  café \x1b\xff
FD TYPE  LINK                SOCKET TYPE  STATE  LOCAL PORT  REMOTE PORT  PATH
file     /dev/null                     -      -           -            -     -
file     /run/transcript/17            -      -           -            -     -
file     /run/transcript/17            -      -           -            -     -
file     /tmp/work/log                 -      -           -            -     -
{"processes":[{"pid":53,"ppid":3,"stat":"S","rss":1548,"vsz":2592,"fd_count":4,"comm":"café \u001B�","invalid_utf8":true,"cmdline":"sh -c printf \"caf\\303\\251 \\033\\377\" >/proc/$$/comm; exec 7>/tmp/work/log\n  name=$(printf \"caf\\303\\251 \\033\\377\"); zorvctl ps --fds --name \"$name\"\n  zorvctl ps --json --fds --name \"$name\"","fds":[{"fd_type":"file","link":"/dev/null"},{"fd_type":"file","link":"/run/transcript/17"},{"fd_type":"file","link":"/run/transcript/17"},{"fd_type":"file","link":"/tmp/work/log"}]}]}
$ zorvctl ps | head -2; zorvctl ps --json --name nobody
PID  PPID  STAT    RSS    VSZ  FD COUNT  COMM        CMDLINE
  1     0  S      3424  23488         3  test_tools  build/release/tests/tools/test_tools --gtest_filter=Zorvctl.*
{"processes":[]}
[1]
