# top: once where there is no terminal, live on one.
$ program on-terminal 'stty rows 24 cols 80; tty >tty; TERM=linux exec zorvctl top -d 0.1'
$ program shows 'until [ $(grep -aos "$1" seen | wc -l) -ge $2 ]; do :; done'
$ export ASAN_OPTIONS=detect_leaks=0 # it looks into /proc
$ mount -t tmpfs proc /proc; ln -s /run/kernel-proc/self /proc; mkdir -p /proc/7/fd /proc/net; terminals
$ echo '7 (init) S 1 2 3 4 5 6 7 8 9 10 11 12 13 14 15 16 17 18 19 4096 1 0' >/proc/7/stat
$ printf 'MemTotal: 3000 kB\nMemAvailable: 1000 kB\n' >/proc/meminfo; printf '/sbin/init ' >/proc/7/cmdline
$ zorvctl top --json
zorvctl[...]: [error] libzorv_proc.get_top_conntrack_hosts(): Failed to open '/proc/net/nf_conntrack': No such file or directory
{"memory":{"MemTotal":3000,"MemFree":0,"MemAvailable":1000,"Buffers":0,"Cached":0,"Active":0,"Inactive":0,"Active(anon)":0,"Inactive(anon)":0,"Active(file)":0,"Inactive(file)":0,"Unevictable":0,"Mlocked":0,"Dirty":0,"Writeback":0,"AnonPages":0,"Mapped":0,"Shmem":0,"Slab":0,"SReclaimable":0,"SUnreclaim":0,"KernelStack":0,"PageTables":0,"CommitLimit":0,"Committed_AS":0,"used_percent":66.67},"hosts":null,"processes":[{"pid":7,"ppid":1,"stat":"S","rss":4,"vsz":4,"fd_count":0,"comm":"init","cmdline":"/sbin/init"}]}

$ zorvctl top -n 2 -d 0.1 --no-header 2>/dev/null | uniq -c
      1 memory  66.7 % of 3000 kB used, 1000 kB available
      1 
      1 7  1  S  4  4  0  init  /sbin/init
      1 
      1 memory  66.7 % of 3000 kB used, 1000 kB available
      1 
      1 7  1  S  4  4  0  init  /sbin/init
$ echo 'ipv4 2 tcp src=192.0.2.1 dst=192.0.2.9 x' >/proc/net/nf_conntrack; mkfifo keys
$ script -qefc ./on-terminal seen <keys >drawn & exec 3>keys; ./shows '66.7 %' 1
$ sed 's/7 (init)/3001 (newcomer)/' /proc/7/stat >stat; mkdir /proc/3001; mv stat /proc/3001; ./shows newcomer 1
$ stty -F $(cat tty) rows 10 cols 40; ./shows 'FD COUNT' 2
$ printf xq >&3; wait $!
