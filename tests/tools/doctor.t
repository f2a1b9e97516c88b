# doctor: a whole unit, and what becomes of each fault of one.
$ whole_unit; zorvctl doctor
crash reports go to https://crash.zorv.example
traces go to https://trace.zorv.example

WHAT          STATE       WHERE                               DETAIL
clock         open        /var/run/ntp.ready                  ready
address       open        /var/run/ipready.br0                ready
mode          open        /var/run/system.analytics.mode      on, anonymous
service       production  https://crash.zorv.example          as configured
certificates  ok          /etc/ssl/certs/ca-certificates.crt  there are some
kernel crash  none        /var/run/last-crashlog.sent         none to report
crash logs    none        /etc/persistent/isolation_logs/     none in the store

THING                                    STATE   DETAIL              WITHOUT
/proc/zorvhal/system.info systemid       ok      Tarn Console        -
...
/etc/persistent/cfg/mgmt                 absent  not there           management keys are those of ...
...

healthy
$ zorvctl doctor --json | cut -c -92; zorvctl doctor --json | tail -c 17 # one line
{"reports":{"sent":true,"service":"https://crash.zorv.example","reason":null},"traces":{"sen
,"healthy":true}
$ zorvctl doctor --json | grep -o '"sending":[^}]*\|{"thing":"oops[^}]*\|{"thing":"/proc/mtd[^}]*'
"sending":[{"what":"clock","state":"open","where":"/var/run/ntp.ready","detail":"ready","fault":false
{"thing":"oopsdump","path":"oopsdump","key":null,"required":true,"state":"ok","detail":"","readers":"crash status, crash report","without":null
{"thing":"/proc/mtd","path":"/proc/mtd","key":null,"required":false,"state":"absent","detail":"not there","readers":"hw eeprom","without":"no EEPROM (CONFIG_MTD)"
$ echo bound >/run/dhcpc.last_state
$ echo 1 >/run/system.analytics.mode; echo lo >/run/system.uplink_ifname # the optional, and sane
$ zorvctl doctor | tail -1
healthy

$ sending() { zorvctl doctor --json >page; echo $? $(grep -o "\"what\":\"$1\".[^}]*" page); }
$ rm /run/ntp.ready; sending clock; zorvctl doctor | head -2
1 "what":"clock","state":"shut","where":"/var/run/ntp.ready","detail":"the clock is not set: No such file or directory","fault":true
crash reports: nothing is sent: the clock is not set: No such file or directory
traces go to https://trace.zorv.example
$ echo 0 >/run/system.analytics.mode; : >/run/ntp.ready; zorvctl doctor | sed '/^[WT]/,/^$/d' # a choice
crash reports: nothing is sent: reporting is off
traces: nothing is sent: reporting is off

something is off
$ echo mgmt.kelo.env=stage >/tmp/system.cfg; sending service
1 "what":"service","state":"stage","where":"https://crash.stage.zorv.example","detail":"as configured","fault":false
$ rm /run/system.analytics.mode; echo scm_reftype=branch >/usr/lib/build.properties; sending service
0 "what":"service","state":"stage","where":"https://crash.stage.zorv.example","detail":"as configured","fault":false
$ : >/etc/ssl/certs/ca-certificates.crt; sending certificates
1 "what":"certificates","state":"unfit","where":"/etc/ssl/certs/ca-certificates.crt","detail":"none in it: no service is trusted","fault":true
$ echo -----BEGIN CERTIFICATE----- >/etc/ssl/certs/ca-certificates.crt; : >/tmp/oops; sending kernel.crash
0 "what":"kernel crash","state":"pending","where":"/var/run/last-crashlog.sent","detail":"to be reported","fault":false
$ : >/run/last-crashlog.sent; sending kernel.crash; rm /tmp/oops; sending kernel.crash
0 "what":"kernel crash","state":"reported","where":"/var/run/last-crashlog.sent","detail":"marked as reported: not again before the next reboot","fault":false
0 "what":"kernel crash","state":"none","where":"/var/run/last-crashlog.sent","detail":"marked as reported: another one before the next reboot is not","fault":false
$ rm /usr/local/bin/oopsdump; sending kernel.crash; zorvctl doctor | sed '1,/^Off/d'
1 "what":"kernel crash","state":"unknown","where":"oopsdump","detail":"no oopsdump to tell","fault":true
  oopsdump: missing (not on PATH): a crash of the kernel is not found; see: crash status, crash report
something is off
$ program /usr/local/bin/oopsdump 'exit 1'; store=/etc/persistent/isolation_logs
$ mkdir -p $store/meta ${store}_sent; : >$store/a.tgz; sending crash.logs
0 "what":"crash logs","state":"ok","where":"/etc/persistent/isolation_logs/","detail":"1 to be delivered","fault":false
$ for meta in '{"payload":{},"sent_to_analytics":true,"send_attempts":4}' \
>   '{"payload":{},"send_attempts":4}' '{"payload":{},"sent_to_analytics":true,"send_attempts":5}' \
>   {} '{"payload":{},"send_attempts":1}'; do
>   [ "${meta#*:1}" = "$meta" ] || : >${store}_sent/a.tgz
>   echo "$meta" >$store/meta/a.tgz; echo $(sending crash.logs | grep -o '^.\|"detail.*')
> done
0 "detail":"1 delivered","fault":false
1 "detail":"1 failed, to be tried again","fault":true
1 "detail":"1 given up after five failed attempts","fault":true
1 "detail":"1 passed over, the meta has no payload","fault":true
1 "detail":"1 finished before the service had it","fault":true
