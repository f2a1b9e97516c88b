# cfg apply: the file is changed as a whole, or not at all.
$ printf '# note\nb=1\na=1\na=2\n# misc\nB=3\n' >real.cfg; chmod 4640 real.cfg; ln -s real.cfg a.cfg
$ zorvctl cfg apply --set A=5 --dry-run a.cfg --json
{"changes":[{"key":"A","change":"changed","old":"1","new":"5"}],"written":false,"comments_dropped":2}
$ head -1 a.cfg
# note
$ zorvctl cfg apply --set A=4 --set 'n= x=y ' --set a=5 a.cfg
CHANGE   KEY  OLD  NEW
changed  A    1    5
added    n    -     x=y
2 comment lines dropped
$ cat a.cfg; ls -A; stat -c %A real.cfg
# CFG Start
b=3
a=5
a=2
n= x=y 
a.cfg
real.cfg
-rwSr-----
$ zorvctl cfg apply --set a=5 a.cfg --json
{"changes":[],"written":false,"comments_dropped":0}
$ zorvctl cfg apply --set a=5 a.cfg
nothing to change

$ echo a=1 >b.cfg # what could not be read back
$ for setting in a =1 ' a=1' 'a	=1' '#a=1' "$(printf '\ra=1')" "$(printf 'a=1\nb=1')" "a=1
> "; do zorvctl cfg apply --set "$setting" b.cfg; echo $?; done; cat b.cfg
zorvctl: --set: not KEY=VALUE: a
2
zorvctl: --set: the key is empty: =1
2
zorvctl: --set: the key has blanks around it:  a=1
2
zorvctl: --set: the key has blanks around it: a\x09=1
2
zorvctl: --set: the line would be skipped as a comment: #a=1
2
zorvctl: --set: the line would be skipped as a comment: \x0da=1
2
zorvctl: --set: a line cannot hold a newline: a=1\x0ab=1
2
zorvctl: --set: a line cannot hold a newline: a=1\x0a
2
a=1
$ for odd in ' # a = 1\n' ' \ra=1\n'; do
>   printf "$odd" >odd.cfg; cp odd.cfg before
>   zorvctl cfg apply --set b=1 odd.cfg; echo $?; cmp odd.cfg before; done
zorvctl: odd.cfg: left as it was: what was written does not read back at the key # a
5
zorvctl: odd.cfg: left as it was: what was written does not read back at the key \x0da
5

$ mkdir shut; echo a=1 >shut/a.cfg; cd shut
$ flock . zorvctl cfg apply --set a=2 a.cfg
zorvctl: /tmp/work/shut/: another process is changing a file there
[4]
$ humbly() { setpriv --bounding-set=-all --inh-caps=-all "$@"; } # without root's powers, for good
$ chmod 555 .; humbly zorvctl cfg apply --set a=2 a.cfg
zorvctl: /tmp/work/shut/a.cfg.KXBkzy: Permission denied
[5]
$ chmod 755 .; chmod 444 a.cfg; humbly zorvctl cfg apply --set a=2 a.cfg
zorvctl: a.cfg: Permission denied
[5]
$ mount --bind . . && mount -o remount,bind,ro "$PWD" && cd "$PWD"
$ zorvctl cfg apply --set a=2 a.cfg
zorvctl: a.cfg: Read-only file system
[5]
$ ls -A; cat a.cfg; cd ..
a.cfg
a=1

$ mkdir full; mount -t tmpfs -o size=65536 full full; cd full # holds one of its size, not two
$ { echo '# CFG Start'; seq -f 'wireless.%g.ssid=office' 1600; } >a.cfg; cp a.cfg ../before
$ zorvctl cfg apply --set a=1 a.cfg
zorvctl: a.cfg: left as it was: what was written does not read back at the key wireless.987.ssid
[5]
$ cd ..; umount full; cd full; cp ../before a.cfg; (ulimit -f 64; zorvctl cfg apply --set a=1 a.cfg)
zorvctl: a.cfg: left as it was: what was written does not read back at the key wireless.1303.ssid
[5]
$ ls -A; cmp a.cfg ../before
a.cfg
$ cd ..; mkdir killed; cd killed; seq -f 'wireless.%g.ssid=office' 20000 >rest
$ { echo '# CFG Start'; echo round=0; cat rest; } >a.cfg
$ for round in $(seq 11 40); do
>   signal=KILL; [ $((round % 2)) = 0 ] || signal=TERM
>   timeout -s $signal 0.0$((round * 2)) zorvctl cfg apply --set round=$round a.cfg
>   tail -n +3 a.cfg | cmp - rest || head -3 a.cfg
>   [ $signal = KILL ] || ls | grep -v 'a.cfg$\|rest\|said'
>   rm -f a.cfg.*; done >said 2>&1; grep -v "Killed\|^c\|^C" said
[1]
