# lock: a command under a lock.
$ umount /proc; mkdir /run/report; zorvctl lock report -- sh -c 'zorvctl lock status; exit 7'
LOCK    PATH                          STATE               PID  PROCESS
report  /var/run/report               held                ...  zorvctl
inform  /var/run/inform-profile.lock  free, no such path    -  -
[7]
$ zorvctl --json lock inform -- sh -c 'zorvctl lock status --json; kill -TERM $$' 2>&1
{"locks":[{"lock":"report","path":"/var/run/report","state":"free"},{"lock":"inform","path":"/var/run/inform-profile.lock","state":"held","pid":...,"process":"zorvctl"}]}
{"lock":"inform","path":"/var/run/inform-profile.lock","exit_status":143}
[143]
$ exec 7</run/inform-profile.lock; flock 7; hurry zorvctl lock inform -- true
zorvctl[...]: [error] statistics.inform_profile_lock(): couldn't lock /var/run/inform-profile.lock
zorvctl: /var/run/inform-profile.lock: not to be had
[4]
$ mount --bind /dev/null /proc/locks; zorvctl lock status inform; umount /proc/locks # as in a container
LOCK    PATH                          STATE  PID  PROCESS
inform  /var/run/inform-profile.lock  held     -        -
$ exec 7<&-; mkfifo go; zorvctl lock report -- sh -c 'trap "echo told; exit 3" TERM; echo >go; for i in $(seq 500); do sleep 0.01; done' &
told
$ read word <go; zorvctl lock status report --no-header; zorvctl lock status inform; kill $!; wait $!
report  /var/run/report  held  ...  zorvctl
LOCK    PATH                          STATE  PID  PROCESS
inform  /var/run/inform-profile.lock  free     -        -
[3]
$ (zorvctl lock report -- sh -c 'echo $$ $PPID >go; exec sleep 60'; echo >go) 2>/dev/null &
$ read child parent <go; kill -KILL $parent; read word <go; flock -n /run/report echo lost; kill $child; zorvctl lock inform -- sh -c '[ 1 = 1 ] && echo "$@"' - '[a,b]'
[a,b]
