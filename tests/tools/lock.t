# lock: a command under a lock.
$ kernel_proc; mkdir /run/report
$ zorvctl lock report -- sh -c 'zorvctl lock status; zorvctl lock status --json; exit 7'
LOCK    PATH                          STATE               PID  PROCESS
report  /var/run/report               held                  7  zorvctl
inform  /var/run/inform-profile.lock  free, no such path    -  -
{"locks":[{"lock":"report","path":"/var/run/report","state":"held","pid":7,"process":"zorvctl"},{"lock":"inform","path":"/var/run/inform-profile.lock","state":"free, no such path"}]}
[7]
$ zorvctl lock status
LOCK    PATH                          STATE               PID  PROCESS
report  /var/run/report               free                  -        -
inform  /var/run/inform-profile.lock  free, no such path    -        -
$ zorvctl --json lock inform -- sh -c 'echo aside >&2; kill -TERM $$'
aside
{"lock":"inform","path":"/var/run/inform-profile.lock","exit_status":143}
[143]
$ zorvctl --json lock inform -- echo aside 2>&1 >document; cat document
aside
{"lock":"inform","path":"/var/run/inform-profile.lock","exit_status":0}
$ zorvctl lock inform -- no-such-command
zorvctl: no-such-command: No such file or directory
[5]
$ flock /run/inform-profile.lock zorvctl lock inform -- true # the eleven seconds of its caller
zorvctl[20]: [error] statistics.inform_profile_lock(): couldn't lock /var/run/inform-profile.lock
zorvctl: /var/run/inform-profile.lock: not to be had
[4]
