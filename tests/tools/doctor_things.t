# doctor: each thing that is missing or unfit, while nothing else is off.
$ whole_unit
$ off() { zorvctl doctor >page; [ $? = 1 ] && sed -n '1,/^Off:$/d; s/^  //p' page; }
$ put() { rm -rf "$1"; [ "$2" = none ] || printf "$2" >"$1"; }
$ info=/proc/zorvhal/system.info site=/var/run/zorv_protocol.info
$ ids='vendorid=1f3d\nsystemid=7e8b\n' serial='serialno=02a0f3000007\n'
$ mac='eth0.macaddr=02:a0:f3:00:00:07\n' key='pluvo.key=000102030405060708090a0b0c0d0e0f\n'
$ while IFS='|' read -r path text finding; do # nothing but that is off
>   eval "path=$path text=\"$text\" finding=\"$finding\""
>   rm -rf kept; cp -a "$path" kept 2>/dev/null; put "$path" "$text"; off >found
>   case $(cat found) in "$finding"*) ;; *) echo "$path, $text: $(cat found)" ;; esac
>   [ "$(wc -l <found)" = 1 ] || cat found
>   rm -rf "$path"; [ ! -e kept ] || cp -a kept "$path"
> done <<'END'
> $info|$serial$mac|$info systemid: missing (vendorid or systemid is not in it): no known board
> $info|vendorid=1f3d\nsystemid=0bad\n$serial$mac|$info systemid: unfit (vendor 0x1f3d, system id 0x0bad: no
> $info|$ids${serial}eth0.macaddr=02-a0\n|$info eth0.macaddr: unfit (02-a0: not a MAC address): the main MAC
> /proc/zorvhal/board|garbage\n|/proc/zorvhal/board bomrev: unfit (no bomrev in it)
> /tmp/system.cfg|half a li|$path: unfit (no entries)
> $site|pluvo.mcip=239.255.90.90\n|$site pluvo.key: missing (no such key): discovery does not start
> $site|pluvo.key=0001\npluvo.mcip=239.255.90.90\n|$site pluvo.key: unfit (4 digits in place of 32): disc
> $site|pluvo.key=z${key#*=0}pluvo.mcip=239.255.90.90\n|$site pluvo.key: unfit (not hexadecimal): disco
> $site|${key}pluvo.mcip=192.0.2.9\n|$site pluvo.mcip: unfit (192.0.2.9: not a multicast
> /var/run/ipready.br0|0.0.0.0\n|$path: unfit (0.0.0.0: no address yet)
> /var/run/system.analytics.mode|off\n|$path: unfit (no number): reports are anon
> /var/run/system.uplink_ifname|eth9\n|$path: unfit (eth9: no such interface)
> /var/run/dhcpc.last_state|bind\n|$path: unfit (bind: no state of the DHCP
> /var/run/report|none|$path: missing (not there): the report lock
> /usr/etc/.version|\001\n|$path: unfit (\\x01: not a version)
> /usr/lib/build.properties||$path scm_reftype: unfit (no such key): no release
> /etc/syswrapper.sh|none|$path: missing (nor in /usr/etc): no system
> /usr/local/bin/syswrapper.sh|none|syswrapper.sh: missing (not on PATH): reports
> /proc/net/tcp|garbage\n|$path: unfit (its first line lacks \"local_address\"): TCP sockets are unknown
> END
$ chmod 000 /usr/etc/.build; setpriv --securebits +noroot zorvctl doctor | grep '^  .*Permission'
  /usr/etc/.build: unfit (Permission denied): the firmware's version is unknown.0; see: status, crash, trace
$ chmod 644 /usr/etc/.build
