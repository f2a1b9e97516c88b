# doctor: a whole unit, and what becomes of each fault of one.
$ whole_unit; zorvctl doctor
crash reports go to https://crash.zorv.example
traces go to https://trace.zorv.example

WHAT          STATE       WHERE                               DETAIL
...
mode          open        /var/run/system.analytics.mode      on, anonymous
...
crash logs    none        /etc/persistent/isolation_logs/     none in the store

THING                                    STATE   DETAIL              WITHOUT
/proc/zorvhal/system.info systemid       ok      Tarn Console        -
...
/etc/persistent/cfg/mgmt                 absent  not there           management keys are those of ...
...

healthy
$ zorvctl doctor --json | grep -o '^.*"clock"[^}]*\|{"thing":"oops[^}]*\|{"thing":"/proc/mtd[^}]*\|}],"hea.*'
{"reports":{"sent":true,"service":"https://crash.zorv.example","reason":null},"traces":{"sent":true,"service":"https://trace.zorv.example","reason":null},"sending":[{"what":"clock","state":"open","where":"/var/run/ntp.ready","detail":"ready","fault":false
{"thing":"oopsdump","path":"oopsdump","key":null,"required":true,"state":"ok","detail":"","readers":"crash status, crash report","without":null
{"thing":"/proc/mtd","path":"/proc/mtd","key":null,"required":false,"state":"absent","detail":"not there","readers":"hw eeprom","without":"no EEPROM (CONFIG_MTD)"
}],"healthy":true}
$ sending() { zorvctl doctor --json >page; echo $? $(grep -o "\"what\":\"$1\".[^}]*" page); }
$ rm /run/ntp.ready; sending clock; : >/run/ntp.ready
1 "what":"clock","state":"shut","where":"/var/run/ntp.ready","detail":"the clock is not set: No such file or directory","fault":true
$ echo 0 >/run/system.analytics.mode; zorvctl doctor | sed '/^[WT]/,/^$/d'; rm /run/system.analytics.mode # a choice
crash reports: nothing is sent: reporting is off
traces: nothing is sent: reporting is off

something is off
$ echo mgmt.kelo.env=stage >/tmp/system.cfg; sending service; : >/etc/ssl/certs/ca-certificates.crt
0 "what":"service","state":"stage","where":"https://crash.stage.zorv.example","detail":"as configured","fault":false
$ sending certificates; echo -----BEGIN CERTIFICATE----- >/etc/ssl/certs/ca-certificates.crt; : >/tmp/oops
1 "what":"certificates","state":"unfit","where":"/etc/ssl/certs/ca-certificates.crt","detail":"none in it: no service is trusted","fault":true
$ sending kernel.crash; : >/run/last-crashlog.sent; sending kernel.crash; rm /usr/local/bin/oopsdump
0 "what":"kernel crash","state":"pending","where":"/var/run/last-crashlog.sent","detail":"to be reported","fault":false
0 "what":"kernel crash","state":"reported","where":"/var/run/last-crashlog.sent","detail":"marked as reported: not again before the next reboot","fault":false
$ sending kernel.crash; zorvctl doctor | sed '1,/^Off/d'; program /usr/local/bin/oopsdump 'exit 1'
1 "what":"kernel crash","state":"unknown","where":"oopsdump","detail":"no oopsdump to tell","fault":true
  oopsdump: missing (not on PATH): a crash of the kernel is not found; see: crash status, crash report
something is off
$ add_log a.tgz 0; sending crash.logs
0 "what":"crash logs","state":"ok","where":"/etc/persistent/isolation_logs/","detail":"1 to be delivered","fault":false
$ for meta in '"sent_to_analytics":true,"send_attempts":4' '"send_attempts":4' '"sent_to_analytics":true,"send_attempts":5'; do
>   add_log a.tgz 0 "$meta"; echo $(sending crash.logs | grep -o '^.\|"detail.*'); done
0 "detail":"1 delivered","fault":false
1 "detail":"1 failed, to be tried again","fault":true
1 "detail":"1 given up after five failed attempts","fault":true
$ add_log a.tgz 0 '"send_attempts":1' finished; sending crash.logs | grep -o '"detail.*'
"detail":"1 finished before the service had it","fault":true
