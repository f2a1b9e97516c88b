# board, model, hw, status, mem, conntrack, top: what the unit is and how it does.
$ zorvctl board | head -3
name              Unknown
reason            no /proc/zorvhal/system.info: the default record
platform          -
$ whole_unit; zorvctl board
name              Tarn Console
reason            vendor 0x1f3d, system id 0x7e8b: a row of the board table
platform          TARN-Console
system_id         0x7e8b
cpu_mac           02:a0:f3:00:00:07
cpuid             -
board_revision    3
bom_revision      0x0002e8ff
country_code      -
old_wifi          no
fast_adopt        no
ports             11
main_port         9
poe_budget        170
poe_reason        180 W, 10 W held back
accelerometer     no
firmware_minimum  2.3.6
beta_firmware     no

RULE                  VERSION  RAISED  REASON
table row             2.0.0    yes     the row of Tarn Console
address block         -        no      not a board of the first wireless firmware
board revision        -        no      no table for this board
newest address block  2.3.6    yes     the unit's is 02:a0:f3
bill of materials     -        no      no table for this board

GROUP  PHY  PORT ID  LABEL   MAIN
    0    1        1  LAN 1   -
    0    2        2  LAN 2   -
    0    3        3  LAN 3   -
    0    4        4  LAN 4   -
    0    5        5  LAN 5   -
    0    6        6  LAN 6   -
    0    7        7  LAN 7   -
    0    8        8  LAN 8   -
    1    9        9  Main    alone in its group
    2   10       10  SFP+ 1  -
    3   11       11  SFP+ 2  -
$ zorvctl board --json
{"name":"Tarn Console","reason":"vendor 0x1f3d, system id 0x7e8b: a row of the board table","platform":"TARN-Console","system_id":"0x7e8b","cpu_mac":"02:a0:f3:00:00:07","cpuid":null,"board_revision":3,"bom_revision":"0x0002e8ff","country_code":null,"old_wifi":false,"fast_adopt":false,"ports":11,"main_port":9,"poe_budget":170,"poe_reason":"180 W, 10 W held back","accelerometer":false,"firmware_minimum":"2.3.6","beta_firmware":false,"firmware_rules":[{"rule":"table row","version":"2.0.0","raised":true,"reason":"the row of Tarn Console"},{"rule":"address block","version":null,"raised":false,"reason":"not a board of the first wireless firmware"},{"rule":"board revision","version":null,"raised":false,"reason":"no table for this board"},{"rule":"newest address block","version":"2.3.6","raised":true,"reason":"the unit's is 02:a0:f3"},{"rule":"bill of materials","version":null,"raised":false,"reason":"no table for this board"}],"port_list":[{"group":0,"phy":1,"port_id":1,"label":"LAN 1","main":null},{"group":0,"phy":2,"port_id":2,"label":"LAN 2","main":null},{"group":0,"phy":3,"port_id":3,"label":"LAN 3","main":null},{"group":0,"phy":4,"port_id":4,"label":"LAN 4","main":null},{"group":0,"phy":5,"port_id":5,"label":"LAN 5","main":null},{"group":0,"phy":6,"port_id":6,"label":"LAN 6","main":null},{"group":0,"phy":7,"port_id":7,"label":"LAN 7","main":null},{"group":0,"phy":8,"port_id":8,"label":"LAN 8","main":null},{"group":1,"phy":9,"port_id":9,"label":"Main","main":"alone in its group"},{"group":2,"phy":10,"port_id":10,"label":"SFP+ 1","main":null},{"group":3,"phy":11,"port_id":11,"label":"SFP+ 2","main":null}],"radio_list":[]}
$ for ids in '' 'vendorid=1f3e\nsystemid=7e8b' 'vendorid=1f3d\nsystemid=7e8c'; do
>   printf "$ids\n" >/proc/zorvhal/system.info; zorvctl board | grep reason; done
reason            an id is missing in system.info: the default record
poe_reason        0 W, 0 W held back
reason            vendor 0x1f3e, system id 0x7e8b: another vendor: the default record
poe_reason        0 W, 0 W held back
reason            vendor 0x1f3d, system id 0x7e8c: no row of the board table: the default record
poe_reason        0 W, 0 W held back
$ zorvctl model is_gen2
no
[1]
$ zorvctl model is_gen2 --json
{"class":"is_gen2","holds":false}
[1]
$ zorvctl model | tail -2
is_qm                 no
is_router_to_mesh     no

$ { printf '\002\240'; head -c 65534 /dev/zero | tr '\0' '\377'; } >EEPROM
$ zorvctl hw eeprom
00000000: 02 a0 ff ff ff ff ff ff ff ff ff ff ff ff ff ff
00000010: ff ff ff ff ff ff ff ff ff ff ff ff ff ff ff ff
*
$ zorvctl hw eeprom --json --output saved; cmp EEPROM saved
{"size":65536,"file":"saved"}
$ zorvctl hw eeprom --output /dev/full
zorvctl: /dev/full: No space left on device
[5]
$ mkdir -p /proc/bus/pci; printf '01fd\t8086abcd\t10\n' >/proc/bus/pci/devices; zorvctl hw pci
[1]
$ zorvctl hw pci --vendor 8086
PLACE    VENDOR  DEVICE  SUBSYSTEM VENDOR  SUBSYSTEM DEVICE  REVISION  IRQ
01:1f.5  8086    abcd    0000              0000                     0   16

$ zorvctl status
FACT                VALUE              SOURCE                         STATE
version             6.6.55.15189       /usr/etc/.version, .build      ok
uptime              1h18m31s           /proc/uptime                   ok
main_mac            00:11:22:33:44:55  /proc/zorvhal/system.info      ok
manufacturer        0x0000             /proc/zorvhal/system.info      ok
services            none               /tmp/system.cfg                ok
environment         production         mgmt.kelo.env                  ok
environment_in_use  production         build and mgmt.kelo.env.force  ok
internet            -                  /var/run/system.internet       No such file or directory
dhcp_client         -                  /var/run/dhcpc.last_state      No such file or directory
ssh                 does not listen    /proc/net/tcp                  ok
gateway             -                  route netlink                  no default route through br0
$ make_bridge; ip route add default via 192.0.2.254 dev br0; chmod 777 /tmp/system.cfg
$ zorvctl status br0 | grep 'address\|gateway\|services\|link'
services            -                  /tmp/system.cfg                permissions 0777: taken for none
gateway             192.0.2.254        route netlink                  ok
gateway_mac         -                  /proc/net/arp                  no complete entry
$ zorvctl status br0 --json
{"sources":[{"fact":"version","value":"6.6.55.15189","source":"/usr/etc/.version, .build","state":"ok"},{"fact":"uptime","value":"1h18m31s","source":"/proc/uptime","state":"ok"},{"fact":"main_mac","value":"00:11:22:33:44:55","source":"/proc/zorvhal/system.info","state":"ok"},{"fact":"manufacturer","value":"0x0000","source":"/proc/zorvhal/system.info","state":"ok"},{"fact":"services","value":null,"source":"/tmp/system.cfg","state":"permissions 0777: taken for none"},{"fact":"environment","value":"production","source":"mgmt.kelo.env","state":"ok"},{"fact":"environment_in_use","value":"production","source":"build and mgmt.kelo.env.force","state":"ok"},{"fact":"internet","value":null,"source":"/var/run/system.internet","state":"No such file or directory"},{"fact":"dhcp_client","value":null,"source":"/var/run/dhcpc.last_state","state":"No such file or directory"},{"fact":"ssh","value":"does not listen","source":"/proc/net/tcp","state":"ok"},{"fact":"gateway","value":"192.0.2.254","source":"route netlink","state":"ok"},{"fact":"gateway_mac","value":null,"source":"/proc/net/arp","state":"no complete entry"},{"fact":"interface","value":null,"source":"/proc/net/dev","state":"No such file or directory"}]}
$ zorvctl status br9
FACT                VALUE              SOURCE                         STATE
version             6.6.55.15189       /usr/etc/.version, .build      ok
uptime              1h18m31s           /proc/uptime                   ok
main_mac            00:11:22:33:44:55  /proc/zorvhal/system.info      ok
manufacturer        0x0000             /proc/zorvhal/system.info      ok
services            -                  /tmp/system.cfg                permissions 0777: taken for none
environment         production         mgmt.kelo.env                  ok
environment_in_use  production         build and mgmt.kelo.env.force  ok
internet            -                  /var/run/system.internet       No such file or directory
dhcp_client         -                  /var/run/dhcpc.last_state      No such file or directory
ssh                 does not listen    /proc/net/tcp                  ok
gateway             192.0.2.254        route netlink                  ok
gateway_mac         -                  /proc/net/arp                  no complete entry
interface           -                  /proc/net/dev                  No such file or directory

$ printf 'MemTotal: 3000 kB\nMemAvailable: 1000 kB\n' >/proc/meminfo
$ zorvctl mem | sed '3,25d'; zorvctl mem --json | tail -c 24
MemTotal        3000
MemFree         0
used_percent    66.67
0,"used_percent":66.67}
$ printf 'ipv4 2 tcp src=192.0.2.1 dst=192.0.2.9 x\nipv4 2 udp src=192.0.2.2 dst=192.0.2.9 x\n' >table
$ cp table /proc/net/nf_conntrack; zorvctl conntrack -n 2
HOST       COUNT
192.0.2.9      2
192.0.2.1      1
$ zorvctl conntrack -n 1 --json
{"hosts":[{"host":"192.0.2.9","count":2}],"total":3}
