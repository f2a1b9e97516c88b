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
