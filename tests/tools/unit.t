# board, model, hw, status, mem, conntrack: what the unit is and how it does.

$ whole_unit; zorvctl board | grep 'newest\|Main'; zorvctl board --json
newest address block  2.3.6    yes     the unit's is 02:a0:f3
    1    9        9  Main    alone in its group
{"name":"Tarn Console","reason":"vendor 0x1f3d, system id 0x7e8b: a row of the board table","platform":"TARN-Console","system_id":"0x7e8b","cpu_mac":"02:a0:f3:00:00:07","cpuid":null,"board_revision":3,"bom_revision":"0x0002e8ff","country_code":null,"old_wifi":false,"fast_adopt":false,"ports":11,"main_port":9,"poe_budget":170,"poe_reason":"180 W, 10 W held back","accelerometer":false,"firmware_minimum":"2.3.6","beta_firmware":false,"firmware_rules":[{"rule":"table row","version":"2.0.0","raised":true,"reason":"the row of Tarn Console"},{"rule":"address block","version":null,"raised":false,"reason":"not a board of the first wireless firmware"},{"rule":"board revision","version":null,"raised":false,"reason":"no table for this board"},{"rule":"newest address block","version":"2.3.6","raised":true,"reason":"the unit's is 02:a0:f3"},{"rule":"bill of materials","version":null,"raised":false,"reason":"no table for this board"}],"port_list":[{"group":0,"phy":1,"port_id":1,"label":"LAN 1","main":null},{"group":0,"phy":2,"port_id":2,"label":"LAN 2","main":null},{"group":0,"phy":3,"port_id":3,"label":"LAN 3","main":null},{"group":0,"phy":4,"port_id":4,"label":"LAN 4","main":null},{"group":0,"phy":5,"port_id":5,"label":"LAN 5","main":null},{"group":0,"phy":6,"port_id":6,"label":"LAN 6","main":null},{"group":0,"phy":7,"port_id":7,"label":"LAN 7","main":null},{"group":0,"phy":8,"port_id":8,"label":"LAN 8","main":null},{"group":1,"phy":9,"port_id":9,"label":"Main","main":"alone in its group"},{"group":2,"phy":10,"port_id":10,"label":"SFP+ 1","main":null},{"group":3,"phy":11,"port_id":11,"label":"SFP+ 2","main":null}],"radio_list":[]}
$ for ids in '' 'vendorid=1f3e\nsystemid=7e8b' 'vendorid=1f3d\nsystemid=7e8c'; do
>   printf "$ids\n" >/proc/zorvhal/system.info; zorvctl board | grep ^reason; done
reason            an id is missing in system.info: the default record
reason            vendor 0x1f3e, system id 0x7e8b: another vendor: the default record
reason            vendor 0x1f3d, system id 0x7e8c: no row of the board table: the default record
$ zorvctl model | grep mesh
is_router_to_mesh     no
$ { printf '\002\240'; head -c 65534 /dev/zero | tr '\0' '\377'; } >EEPROM; zorvctl hw eeprom | head -1
00000000: 02 a0 ff ff ff ff ff ff ff ff ff ff ff ff ff ff
$ zorvctl hw eeprom --json --output saved; cmp EEPROM saved; zorvctl hw eeprom --output /dev/full
{"size":65536,"file":"saved"}
zorvctl: /dev/full: No space left on device
[5]
$ mkdir -p /proc/bus/pci; printf '01fd\t8086abcd\t10\n' >/proc/bus/pci/devices; zorvctl hw pci --vendor 8086 --json
{"devices":[{"place":"01:1f.5","vendor":"8086","device":"abcd","subsystem_vendor":"0000","subsystem_device":"0000","revision":0,"irq":16}]}
$ zorvctl hw outlets --json; zorvctl hw psu
{"error":{"code":"unavailable","message":"outlets: this device reports none"}}
zorvctl: supplies: this device reports none
[3]
$ ip route add default via 192.0.2.254 dev br0; chmod 777 /tmp/system.cfg; zorvctl status | grep 'services\|gateway'
services            -                  /tmp/system.cfg                permissions 0777: taken for none
gateway             192.0.2.254        route netlink                  ok
gateway_mac         -                  /proc/net/arp                  no complete entry
$ cp /run/kernel-proc/$$/net/dev /proc/net; zorvctl status br0 --json
{"sources":[{"fact":"version","value":"6.6.55.15189","source":"/usr/etc/.version, .build","state":"ok"},{"fact":"uptime","value":4711,"source":"/proc/uptime","state":"ok"},{"fact":"main_mac","value":"00:11:22:33:44:55","source":"/proc/zorvhal/system.info","state":"ok"},{"fact":"manufacturer","value":"0x0000","source":"/proc/zorvhal/system.info","state":"ok"},{"fact":"services","value":null,"source":"/tmp/system.cfg","state":"permissions 0777: taken for none"},{"fact":"environment","value":"production","source":"mgmt.kelo.env","state":"ok"},{"fact":"environment_in_use","value":"production","source":"build and mgmt.kelo.env.force","state":"ok"},{"fact":"internet","value":null,"source":"/var/run/system.internet","state":"No such file or directory"},{"fact":"dhcp_client","value":null,"source":"/var/run/dhcpc.last_state","state":"No such file or directory"},{"fact":"ssh","value":"does not listen","source":"/proc/net/tcp","state":"ok"},{"fact":"gateway","value":"192.0.2.254","source":"route netlink","state":"ok"},{"fact":"gateway_mac","value":null,"source":"/proc/net/arp","state":"no complete entry"},{"fact":"interface","value":"br0","source":"/proc/net/dev","state":"ok"},{"fact":"mac","value":"02:a0:f1:00:00:01","source":"SIOCGIFHWADDR","state":"ok"},{"fact":"address","value":"192.0.2.1","source":"SIOCGIFADDR","state":"ok"},{"fact":"netmask","value":"255.255.255.0","source":"SIOCGIFNETMASK","state":"ok"},{"fact":"interface_up","value":"yes","source":"SIOCGIFFLAGS","state":"ok"},{"fact":"link","value":"up","source":"ethtool","state":"ok"},{"fact":"speed","value":null,"source":"ethtool","state":"..."},{"fact":"received","value":"... bytes","source":"/proc/net/dev","state":"ok"},{"fact":"sent","value":"... bytes","source":"/proc/net/dev","state":"ok"}]}

$ printf 'MemTotal: 3000 kB\nMemAvailable: 1000 kB\n' >/proc/meminfo; zorvctl mem --json
{"MemTotal":3000,"MemFree":0,"MemAvailable":1000,"Buffers":0,"Cached":0,"Active":0,"Inactive":0,"Active(anon)":0,"Inactive(anon)":0,"Active(file)":0,"Inactive(file)":0,"Unevictable":0,"Mlocked":0,"Dirty":0,"Writeback":0,"AnonPages":0,"Mapped":0,"Shmem":0,"Slab":0,"SReclaimable":0,"SUnreclaim":0,"KernelStack":0,"PageTables":0,"CommitLimit":0,"Committed_AS":0,"used_percent":66.67}
$ printf 'ipv4 2 tcp src=192.0.2.1 dst=192.0.2.9 x\nipv4 2 udp src=192.0.2.2 dst=192.0.2.9 x\n' >/proc/net/nf_conntrack
$ zorvctl conntrack -n 1; zorvctl conntrack -n 1 --json
HOST       COUNT
192.0.2.9      2
{"hosts":[{"host":"192.0.2.9","count":2}],"total":3}
