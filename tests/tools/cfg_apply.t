# cfg apply: the file is changed as a whole, or not at all.
$ printf '# note\nb=1\na=1\na=2\n# misc\nB=3\n' >real.cfg; chmod 4640 real.cfg; ln -s real.cfg a.cfg
$ zorvctl cfg apply --set A=5 --dry-run a.cfg --json; head -1 a.cfg
{"changes":[{"key":"A","change":"changed","old":"1","new":"5"}],"written":false,"comments_dropped":2}
# note
$ zorvctl cfg apply --set A=4 --set 'n= x=y ' --set a=5 a.cfg | tail -2; zorvctl cfg apply --set a=5 a.cfg
added    n    -     x=y
2 comment lines dropped
nothing to change
$ xargs <a.cfg; echo *; stat -c %A real.cfg
# CFG Start b=3 a=5 a=2 n= x=y
a.cfg real.cfg
-rwSr-----
$ for text in a =1 ' a=1' '#a=1' '\ra=1' 'a=1\nb=1'; do # what could not be read back
>   zorvctl cfg apply --set "$(printf "$text")" a.cfg; done
zorvctl: --set: not KEY=VALUE: a
zorvctl: --set: the key is empty: =1
zorvctl: --set: the key has blanks around it:  a=1
zorvctl: --set: the line would be skipped as a comment: #a=1
zorvctl: --set: the line would be skipped as a comment: \x0da=1
zorvctl: --set: a line cannot hold a newline: a=1\x0ab=1
[2]
$ mkdir shut; echo a=1 >shut/a.cfg; cd shut; flock . zorvctl cfg apply --set a=2 a.cfg
zorvctl: /tmp/work/shut/: another process is changing a file there
[4]
$ chmod 444 a.cfg; setpriv --bounding-set=-all --inh-caps=-all zorvctl cfg apply --set a=2 a.cfg # without root's powers
zorvctl: a.cfg: Permission denied
[5]
$ mount --bind . .; mount -o remount,bind,ro "$PWD"; cd "$PWD"; zorvctl cfg apply --set a=2 a.cfg; grep -r . .; cd ..
zorvctl: a.cfg: Read-only file system
./a.cfg:a=1
$ seq -f 'wireless.%g.ssid=office' 1600 >before; mkdir full
$ mount -t tmpfs -o size=65536 full full; cd full; cp ../before a.cfg # holds one of its size, not two
$ zorvctl cfg apply --set a=1 a.cfg; ls -A; cmp a.cfg ../before; cd ..
zorvctl: a.cfg: left as it was: what was written does not read back at the key wireless.987.ssid
a.cfg
$ mkdir killed; cd killed; seq -f 'wireless.%g.ssid=office' 20000 >rest
$ { echo '# CFG Start'; echo round=0; cat rest; } >a.cfg
$ for round in $(seq 11 2 39); do # always a whole file; the gentler signal leaves no other
>   timeout -s KILL 0.0$((2 * round)) zorvctl cfg apply --set round=$round a.cfg; rm -f a.cfg.*
>   timeout -s TERM 0.0$((2 * round + 1)) zorvctl cfg apply --set round=0 a.cfg
>   tail -n +3 a.cfg | cmp - rest && [ "$(echo *)" = 'a.cfg rest said' ] || echo "torn: $(ls; head -3 a.cfg)"
> done >said 2>&1; grep torn said
[1]
