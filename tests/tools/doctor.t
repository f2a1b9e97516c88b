# doctor: a whole unit, and what becomes of each fault of one.
$ whole_unit; rm /usr/local/bin/oopsdump; zorvctl doctor --all
crash reports go to https://crash.zorv.example
traces go to https://trace.zorv.example

WHAT          STATE       WHERE                               DETAIL
...

THING                                    STATE    DETAIL              CONSEQUENCE
/proc/zorvhal/system.info systemid       ok       Tarn Console        -
...

Off:
  kernel crash: unknown (no oopsdump to tell)
  oopsdump: missing (not on PATH): a crash of the kernel is not found; see: crash status, crash report
something is off
[1]
$ echo 0 >/run/system.analytics.mode; zorvctl doctor; whole_unit; rm /run/system.*; zorvctl doctor
crash reports: nothing is sent: reporting is off
traces: nothing is sent: reporting is off
kernel crash: unknown (no oopsdump to tell)
oopsdump: missing (not on PATH): a crash of the kernel is not found; see: crash status, crash report
something is off; but 56 of 57 things are right
healthy: crash reports go to https://crash.zorv.example, traces go to https://trace.zorv.example, 57 of 57 things are right
$ zorvctl doctor --watch 0.1 --json 2>/dev/null | head -n 2 | grep -c '^{.*"healthy":true}$'
2
$ whole_unit; zorvctl doctor --json | grep -o '^.*"clock"[^}]*\|{"thing":"/proc/mtd[^}]*\|}],"hea.*'
{"reports":{"sent":true,"service":"https://crash.zorv.example","reason":null},"traces":{"sent":true,"service":"https://trace.zorv.example","reason":null},"sending":[{"what":"clock","state":"open","where":"/var/run/ntp.ready","detail":"ready","fault":false
{"thing":"/proc/mtd","path":"/proc/mtd","key":null,"required":false,"state":"absent","detail":"not there","readers":["hw eeprom"],"without":"no EEPROM (CONFIG_MTD)"
}],"healthy":true}
$ info=/proc/zorvhal/system.info site=/run/zorv_protocol.info log='add_log a.tgz 0' sent='"sent_to_analytics":true'
$ key=pluvo.key=000102030405060708090a0b0c0d0e0f group=pluvo.mcip=239.255.90.90
$ while IFS='|' read -r command findings; do # each command on a whole unit: what is not as it was, and the status
>   rm -rf /run/system.* /run/dhcpc* /run/last* /etc/persistent/iso* /tmp/oops; whole_unit; eval "$command"
>   zorvctl doctor --json >page; echo $? >status; found=$(grep -o '{"\(what\|thing\)":[^}]*}' page | sed '
>     /"state":"\(ok\|open\|none\|absent\|production\)"/d
>     s/{"[a-z]*":"\([^"]*\)".*"state":"\([^"]*\)".*"detail":"\(.*\)","\(fault\|readers\)".*/\1: \2 (\3)/' |
>     cat - status | xargs -d '\n'); [ "$found" = "$findings" ] || printf '%s\n' "$command|$found"; done <<'END'
> :|0
> rm /run/ntp.ready|clock: shut (the clock is not set) /var/run/ntp.ready: missing (not there) 1
> echo 0 >/run/system.analytics.mode|mode: shut (reporting is off) 1
> : >/etc/ssl/certs/ca-certificates.crt|certificates: unfit (none in it: no service is trusted) 1
> : >/tmp/oops; : >/run/last-crashlog.sent|kernel crash: reported (marked as reported: not again before the next reboot) 0
> $log '"send_attempts":4'|crash logs: failed (1 failed, to be tried again) 1
> $log $sent',"send_attempts":5'|crash logs: failed (1 given up after five failed attempts) 1
> $log '"send_attempts":1' finished|crash logs: failed (1 finished before the service had it) 1
> sed -i /systemid/d $info|/proc/zorvhal/system.info systemid: missing (vendorid or systemid is not in it) 1
> sed -i s/7e8b/0bad/ $info|/proc/zorvhal/system.info systemid: unfit (vendor 0x1f3d, system id 0x0bad: no board of the table) 1
> printf "pluvo.key=0001\n$group\n" >$site|/var/run/zorv_protocol.info pluvo.key: unfit (4 digits in place of 32) 1
> printf "${key%?}z\n$group\n" >$site|/var/run/zorv_protocol.info pluvo.key: unfit (not hexadecimal) 1
> printf "$key\npluvo.mcip=192.0.2.9\n" >$site|/var/run/zorv_protocol.info pluvo.mcip: unfit (192.0.2.9: not a multicast address) 1
> echo off >/run/system.analytics.mode|/var/run/system.analytics.mode: unfit (no number) 1
> printf '\001\n' >/usr/etc/.version|/usr/etc/.version: unfit (\u0001: not a version) 1
> : >/usr/lib/build.properties|service: dev (the build is no release) /usr/lib/build.properties scm_reftype: unfit (no such key) 1
> END
