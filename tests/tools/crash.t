# crash: what is reported, and why nothing is.
$ crash_unit; echo 'BUG passphrase=very-private' >/run/oops; zorvctl crash report
zorvctl: https://crash.zorv.example/v1/kernel-crash: the report was not taken; -v tells why
[5]
$ rm /run/ntp.ready; zorvctl crash status | grep "clock\|:"; : >/run/ntp.ready
clock    no    /var/run/ntp.ready              the clock is not set
service        https://crash.zorv.example
nothing is sent: the clock is not set
kernel crash: to be reported
logs: none
$ add_log a.tgz 0 '"send_attempts":2'; zorvctl crash status --json
{"gates":[{"gate":"clock","open":true,"file":"/var/run/ntp.ready","detail":"ready"},{"gate":"address","open":true,"file":"/var/run/ipready.br0","detail":"ready"},{"gate":"mode","open":true,"file":"/var/run/system.analytics.mode","detail":"on, anonymous"}],"environment":"production","service":"https://crash.zorv.example","oops":true,"oops_reported":false,"oops_marker":"/var/run/last-crashlog.sent","dump_upload":false,"store":"/etc/persistent/isolation_logs/","store_logs":1,"store_size":10,"logs":[{"name":"a.tgz","size":10,"state":"prepared","attempts":2,"sent_to_net":false,"marker":false}],"reasons":["kernel crash: to be reported","1 log: to be delivered"]}
$ url=https://crash.zorv.example/up; printf '%s\n' 'site crash.zorv.example' \
>   'answer POST /v1/crash holding "upload":true 200 {"upload_url":"'$url'"}' 'answer * * 200 {}' | cloud
$ zorvctl crash report --dry-run >shown; grep passphrase shown; requests; ls /run | grep sent
  "crash_log": "BUG passphrase=*\n",
  "system_cfg": "wireless.1.passphrase=*\n",
[1]
$ zorvctl crash report; requests | sed 1,2d | tr -d ' \n' >sent; zorvctl crash report --json
reported to https://crash.zorv.example/v1/kernel-crash
{"url":"https://crash.zorv.example/v1/kernel-crash","state":"already-reported"}
$ times='s/"[a-z]*_\?time":[^,]*//g'; sed "$times" sent >a; tr -d ' \n' <shown | sed "$times" | cmp - a
$ zorvctl crash clear; cat /run/last-crashlog.txt; zorvctl crash clear --json
cleared; kept in /var/run/last-crashlog.txt
BUG passphrase=very-private
{"error":{"code":"not-found","message":"the kernel holds no oops"}}
[1]
$ dump() { zorvctl crash dump --name hostapd --pid 812 --signal 11 "$@"; }; printf bytes >core; dump core
reported without the bytes: no 1 in /var/run/system.analytics.coredump
$ echo 1 >/run/system.analytics.coredump; dump --type app --crashes 3 core
reported, 5 bytes were offered to the service
$ zorvctl crash dump --name wifi0 --type ram --json
{"name":"wifi0","size":0,"upload":false}
$ requests | grep -o '^P.*\|"type":[^,]*\|"number[^,]*\|"dump_type":[^,}]*\|"upload":[a-z]*\|^bytes' | xargs
POST /v1/crash HTTP/1.1 type:core-dump upload:false number_of_crashes:1 POST /v1/crash HTTP/1.1 type:app-crash upload:true number_of_crashes:3 PUT /up HTTP/1.1 bytes POST /v1/crash HTTP/1.1 type:ram-dump upload:false dump_type:wifi0
