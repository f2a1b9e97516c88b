# crash prune: the oldest of the logs that are done with, and none that is in work.
$ crash_unit; umount /proc; unfinished='"sent_to_analytics":true' delivered="$unfinished,\"sent_to_net\":true"
$ add_log a.tgz 9 "$delivered,\"send_attempts\":5" finished; add_log b.tgz 8 $delivered finished
$ add_log c.tgz 1 $delivered finished; add_log d.tgz 20 $unfinished
$ add_log e.tgz 30 '"send_attempts":2' finished; add_log f.tgz 30 '"send_attempts":2'
$ files() { find /etc/persistent -type f | cut -d / -f 4- | sort | xargs; }; files >before
$ for options in '--keep 2' '--keep 0' '--keep 2 --unfinished' '--max-age 8' '--max-age 7' '--max-size 41' '--max-size 40'; do
>   echo "$options:" $(zorvctl crash prune --dry-run --json $options | grep -o '[a-z]*.tgz'); done | paste -s -d ,; files | cmp - before
--keep 2: a.tgz,--keep 0: a.tgz b.tgz c.tgz,--keep 2 --unfinished: d.tgz a.tgz,--max-age 8: a.tgz,--max-age 7: a.tgz b.tgz,--max-size 41: a.tgz b.tgz,--max-size 40: a.tgz b.tgz
$ mkdir here; mount --rbind /proc here; mount -t tmpfs list /proc; ln -s $PWD/here/self /proc # for AddressSanitizer
$ ASAN_OPTIONS=detect_leaks=0 zorvctl crash prune --keep 0; umount /proc; files | cmp - before
zorvctl: /proc: lists no processes
$ zorvctl crash prune --keep 1; zorvctl crash prune --keep 0 --unfinished --json; files; xargs <saves # once each: flash wears out
NAME   SIZE  STATE
a.tgz    10  given-up
b.tgz    10  delivered
2 of 6 logs, 20 bytes removed
1 kept for the local management, which has not finished them
{"removed":[{"name":"d.tgz","size":10,"state":"delivered","attempts":0,"sent_to_net":false,"marker":false},{"name":"c.tgz","size":10,"state":"delivered","attempts":0,"sent_to_net":true,"marker":true}],"dry_run":false,"size":20,"in_work":0,"unfinished":0}
isolation_logs/e.tgz isolation_logs/f.tgz isolation_logs/meta/e.tgz isolation_logs/meta/f.tgz isolation_logs_sent/e.tgz
saved saved

$ rm -r $store*; add_log a.tgz 2 $delivered finished; add_log b.tgz 1 $delivered finished
$ add_log killed.tgz 1 $delivered finished; rm $store/killed.tgz # by a prune that was killed
$ flock $store/meta/a.tgz zorvctl crash prune --keep 0 --json; files
{"removed":[{"name":"b.tgz","size":10,"state":"delivered","attempts":0,"sent_to_net":true,"marker":true}],"dry_run":false,"size":10,"in_work":1,"unfinished":0}
isolation_logs/a.tgz isolation_logs/meta/a.tgz isolation_logs_sent/a.tgz
$ exec 7<$store; hurry zorvctl crash prune --keep 0 7<&- # a walk that has read the names
zorvctl: /etc/persistent/isolation_logs/: in use by another process
[4]
$ exec 7<&-; zorvctl crash prune --keep 0 >said; find /etc/persistent -type f
$ printf 'site crash.zorv.example\nanswer POST * 200\n' | cloud; for i in $(seq 10); do add_log done-$i $i $unfinished; done
$ for i in $(seq 4); do echo "text $i" >log.txt; tar -czf $store/new-$i.tgz log.txt; done
$ for verb in deliver 'prune --keep 5 --unfinished' deliver; do
>   zorvctl crash $verb >said 2>&1 & processes="$processes $!"; done; wait $processes
$ zorvctl crash prune --keep 2 --unfinished >said; files | wc -w; requests | grep -o 'text [0-9]*' | sort -V | xargs
4
text 1 text 2 text 3 text 4
