# crash: the store of logs.
$ crash_unit; zorvctl crash logs; zorvctl crash deliver; ls /etc/persistent
no log to deliver
cfg
$ sent='"sent_to_analytics":true'; add_log a.tgz 0 $sent',"sent_to_net":true' finished; add_log b.tgz 0 $sent
$ add_log c.tgz 0 $sent',"send_attempts":5'; add_log d.tgz 0 '"send_attempts":2'; mkfifo $store/pipe.tgz $store/meta/gone.tgz
$ add_log e.tgz 0; printf '{"filename": "e.t' >$store/meta/e.tgz; add_log f.tgz 0; echo {} >$store/meta/f.tgz
$ zorvctl crash logs; zorvctl crash logs --json | cut -c -160
NAME   SIZE  STATE       ATTEMPTS  SENT TO NET  MARKER
a.tgz    10  delivered          0  yes          yes
b.tgz    10  delivered          0  no           no
c.tgz    10  given-up           5  no           no
d.tgz    10  prepared           2  no           no
e.tgz    10  new                0  no           no
f.tgz    10  no-payload         0  no           no
{"store":"/etc/persistent/isolation_logs/","size":60,"logs":[{"name":"a.tgz","size":10,"state":"delivered","attempts":0,"sent_to_net":true,"marker":true},{"name
$ pack() { echo "$2" >log.txt; mkdir -p $store; tar -czf $store/$1 log.txt; }; rm -r $store*; pack a.tgz broken
$ zorvctl crash next --file out | grep type; cmp out $store/a.tgz
    "type": "vwire_disconnect",
$ zorvctl crash finish a.tgz; zorvctl crash finish a.tgz; zorvctl crash finish meta; xargs <saves
finished a.tgz
zorvctl: a.tgz: finished before
zorvctl: meta: no such log
saved saved
$ rm -r $store*; pack a.tgz broken; pack b.tgz whole
$ printf '%s\n' 'site crash.zorv.example' 'answer POST /v1/crash holding broken 500' 'answer POST * 200' | cloud
$ zorvctl crash deliver --uplink QX-4 2>/dev/null | sort; requests | grep -o '"uplink_model":[^,]*' | uniq -c
a.tgz  failed, attempt 1 of 5
b.tgz  delivered
      2 "uplink_model":"QX-4"

$ rm $store/b.tgz; sed -i 's/"send_attempts": *1/"send_attempts":4/' $store/meta/a.tgz; zorvctl crash deliver
a.tgz  given up after 5 attempts
[5]
$ rm $store/a.tgz; pack c.tgz whole; : >$store/meta/c.tgz # in work elsewhere
$ exec 7<$store/meta/c.tgz; flock 7; hurry zorvctl crash deliver --json
{"logs":[{"name":"c.tgz","result":"passed-over","attempts":0}],"counts":{"delivered":0,"failed":0,"given-up":0,"passed-over":1}}
[5]
