# cfg apply: the file is changed as a whole, or not at all.
$ printf '# note\nb=1\na=1\na=2\n# misc\nB=3\n' >real.cfg; chmod 4640 real.cfg; ln -s real.cfg a.cfg
$ zorvctl cfg apply --set A=5 --dry-run a.cfg --json; head -1 a.cfg
{"changes":[{"key":"A","change":"changed","old":"1","new":"5"}],"written":false,"newline_added":false,"comments_dropped":2,"lines_dropped":[]}
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
zorvctl: --set: not KEY=VALUE: a (see: zorvctl cfg apply --help)
zorvctl: --set: the key is empty: =1 (see: zorvctl cfg apply --help)
zorvctl: --set: the key has blanks around it:  a=1 (see: zorvctl cfg apply --help)
zorvctl: --set: the line would be skipped as a comment: #a=1 (see: zorvctl cfg apply --help)
zorvctl: --set: the line would be skipped as a comment: \x0da=1 (see: zorvctl cfg apply --help)
zorvctl: --set: a line cannot hold a newline: a=1\x0ab=1 (see: zorvctl cfg apply --help)
[2]
$ mkdir shut; echo a=0 >shut/a.cfg; chmod 1777 shut; cd shut # what others hold or put there stops nobody
$ flock . flock a.cfg zorvctl cfg apply --set a=1 a.cfg | tail -1
changed  a    0    1
$ : >.a.cfg.zorvctl; flock .a.cfg.zorvctl zorvctl cfg apply --set a=2 a.cfg | tail -1; rm .a*
changed  a    1    2
$ mkdir .a.cfg.zorvctl; flock .a.cfg.zorvctl zorvctl cfg apply --set a=3 --wait 0.1 a.cfg; ls -A
zorvctl: a.cfg: another process is changing it
.a.cfg.zorvctl
a.cfg
$ echo half >.a.cfg.zorvctl/new; zorvctl cfg apply --set a=1 a.cfg | tail -1; ls -A # of one that was killed
changed  a    2    1
a.cfg
$ chmod 444 a.cfg; setpriv --bounding-set=-all --inh-caps=-all zorvctl cfg apply --set a=2 a.cfg # without root's powers
zorvctl: a.cfg: Permission denied
[5]
$ mount --bind . .; mount -o remount,bind,ro "$PWD"; cd "$PWD"; zorvctl cfg apply --set a=2 a.cfg; grep -r = .; cd ..
zorvctl: a.cfg: Read-only file system
./a.cfg:a=1
$ seq -f 'wireless.%g.ssid=office' 1600 >before; mkdir full
$ mount -t tmpfs -o size=65536 full full; cd full; cp ../before a.cfg # holds one of its size, not two
$ zorvctl cfg apply --set a=1 a.cfg; ls -A; cmp a.cfg ../before; cd ..
zorvctl: /tmp/work/full/a.cfg: left as it was: No space left on device
a.cfg
$ printf 'a=1\n\rb=2\nnothing\n\r\n\n' >odd.cfg; printf 'c=3\0 4\nx=10' >>odd.cfg
$ zorvctl cfg apply --set a=1 odd.cfg; xargs <odd.cfg; zorvctl cfg apply --set a=1 odd.cfg --json
nothing to change
the last line had no newline, and has one
lines dropped, or what the parser does not keep of them:
LINE  KIND
   2  carriage-return
   3  no-equals
   6  nul-byte
# CFG Start a=1 c= x=10
{"changes":[],"written":false,"newline_added":false,"comments_dropped":0,"lines_dropped":[]}
$ mkdir killed; cd killed; seq -f 'wireless.%g.ssid=office' 20000 >rest
$ { echo '# CFG Start'; echo round=0; cat rest; } >a.cfg
$ for round in $(seq 11 2 39); do # always a whole file; the gentler signal leaves no other
>   timeout -s KILL 0.0$((2 * round)) zorvctl cfg apply --set round=$round a.cfg
>   zorvctl cfg apply --wait 9 --set round=1 a.cfg
>   timeout -s TERM 0.0$((2 * round + 1)) zorvctl cfg apply --set round=0 a.cfg
>   tail -n +3 a.cfg | cmp - rest && [ "$(ls -A | xargs)" = 'a.cfg rest said' ] || echo "torn: $(ls -A; head -3 a.cfg)"
> done >said 2>&1; grep torn said
[1]
