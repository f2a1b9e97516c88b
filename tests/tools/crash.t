# crash: what is reported, and why nothing is.
$ crash_unit; add_log a.tgz 0 '"send_attempts":2'; zorvctl crash report
zorvctl: the kernel holds no oops
[1]
$ echo 'BUG passphrase=very-private' >/run/oops; zorvctl crash report
zorvctl: https://crash.zorv.example/v1/kernel-crash: the report was not taken; -v tells why
[5]
$ rm /run/ntp.ready; zorvctl crash status | sed 5,18d
GATE     OPEN  FILE                            DETAIL
clock    no    /var/run/ntp.ready              the clock is not set: No such file or directory
address  yes   /var/run/ipready.br0            ready
mode     yes   /var/run/system.analytics.mode  on, anonymous
nothing is sent: the clock is not set: No such file or directory
kernel crash: to be reported
1 log: to be delivered
$ : >/run/ntp.ready; echo 0 >/run/system.analytics.mode; zorvctl crash report
zorvctl: /var/run/system.analytics.mode: reporting is off
[4]
$ rm /run/system.analytics.mode; zorvctl crash status --json
{"gates":[{"gate":"clock","open":true,"file":"/var/run/ntp.ready","detail":"ready"},{"gate":"address","open":true,"file":"/var/run/ipready.br0","detail":"ready"},{"gate":"mode","open":true,"file":"/var/run/system.analytics.mode","detail":"on, anonymous"}],"environment":"production","service":"https://crash.zorv.example","oops":true,"oops_reported":false,"oops_marker":"/var/run/last-crashlog.sent","dump_upload":false,"store":"/etc/persistent/isolation_logs/","store_logs":1,"store_size":10,"logs":[{"name":"a.tgz","size":10,"state":"prepared","attempts":2,"sent_to_net":false,"marker":false}],"reasons":["kernel crash: to be reported","1 log: to be delivered"]}
$ cloud <<END
> site crash.zorv.example
> answer POST /v1/crash holding "upload":true 200 {"upload_url":"https://crash.zorv.example/up"}
> answer * * 200 {}
> END
$ zorvctl crash report --dry-run >shown; grep passphrase shown; requests; ls /run/*.sent 2>/dev/null
  "crash_log": "BUG passphrase=*\n",
  "system_cfg": "wireless.1.passphrase=*\n",
[2]
$ zorvctl crash report; requests >sent; times='s/"[a-z]*_\?time":[^,]*//g'
reported to https://crash.zorv.example/v1/kernel-crash
$ sed 1,2d sent | tr -d ' \n' | sed "$times" >a; tr -d ' \n' <shown | sed "$times" | cmp - a
$ zorvctl crash report; zorvctl crash report --json; zorvctl crash status | grep ^kernel
reported already since the last reboot
{"url":"https://crash.zorv.example/v1/kernel-crash","state":"already-reported"}
kernel crash: reported since the last reboot
$ dump() { zorvctl crash dump --name hostapd --pid 812 --signal 11 "$@"; }; printf bytes >core
$ dump core; requests | grep -o '"upload":[a-z]*'; echo 1 >/run/system.analytics.coredump
reported without the bytes: no 1 in /var/run/system.analytics.coredump
"upload":false
$ dump --type app --crashes 3 core; requests | grep -o '^P.*\|"type":[^,]*\|"number[^,]*\|^bytes' | xargs
reported, 5 bytes were offered to the service
POST /v1/crash HTTP/1.1 type:app-crash number_of_crashes:3 PUT /up HTTP/1.1 bytes
$ zorvctl crash dump --name wifi0 --type ram --json; requests | grep -o '"dump_type":[^,}]*'
{"name":"wifi0","size":0,"upload":false}
"dump_type":"wifi0"
$ for name in 'a b' '' 'a"b' a/b; do dump --name "$name" 2>said; echo $?; done | xargs; cat said
2 2 2 2
zorvctl: --name: --name: only A-Z a-z 0-9 . _ - may be in it (see: zorvctl crash dump --help)
