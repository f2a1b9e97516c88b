# cfg set and unset: keys change where lookups see them, and not a byte besides.
$ printf '# note\n\nb =1\nB=2\nnothing\n# misc\nc=1\nc=2\na=3\nx=10' >a.cfg; cp a.cfg before.cfg
$ printf '# more\n\nc=4\nn.1=  x=y ' | zorvctl cfg set -f a.cfg --from - A=8 b=7 a=9 x=10; diff before.cfg a.cfg
CHANGE   KEY  OLD  NEW
changed  c    2    4
added    n.1  -      x=y
changed  A    3    9
changed  b    1    7
the last line had no newline, and has one
not read, or not whole: 1 lines, which cfg lint names
3c3
< b =1
---
> b =7
8,10c8,11
< c=2
< a=3
< x=10
\ No newline at end of file
---
> c=4
> a=9
> x=10
> n.1=  x=y 
[1]
$ zorvctl cfg set -f a.cfg c=5 --json; zorvctl cfg unset -f a.cfg B gone X --dry-run; zorvctl cfg unset -f a.cfg B gone --json; xargs <a.cfg
{"changes":[{"key":"c","change":"changed","old":"4","new":"5"}],"written":true,"newline_added":false,"lines_unread":[{"line":5,"kind":"no-equals"}]}
CHANGE   KEY  OLD  NEW
removed  B    7      -
removed  X    10     -
not read, or not whole: 1 lines, which cfg lint names
{"changes":[{"key":"B","change":"removed","old":"7","new":null}],"written":true,"newline_added":false,"lines_unread":[{"line":3,"kind":"no-equals"}]}
# note nothing # misc c=1 c=5 a=9 x=10 n.1= x=y
$ zorvctl cfg unset -f a.cfg B; zorvctl cfg set a=1; cp a.cfg /tmp/system.cfg; zorvctl cfg set a=1 | head -2
nothing to change
not read, or not whole: 1 lines, which cfg lint names
zorvctl: /tmp/system.cfg: No such file or directory
CHANGE   KEY  OLD  NEW
changed  a    9    1
$ for words in '' a 'a= =1' '--from -' '--wait -1 a=1' '-f a.cfg/ a=1'; do
>   printf 'a=1\nb=2\r\n' | zorvctl cfg set $words; done; zorvctl cfg unset a=1
zorvctl: KEY=VALUE or --from is required (see: zorvctl cfg set --help)
zorvctl: setting: not KEY=VALUE: a (see: zorvctl cfg set --help)
zorvctl: setting: the key is empty: =1 (see: zorvctl cfg set --help)
zorvctl: standard input, line 2: the line ends with a carriage return
zorvctl: --wait: "-1" is not a number from 0 to 86400 (see: zorvctl cfg set --help)
zorvctl: a.cfg/: Not a directory
zorvctl: a key holds no "=": a=1 (see: zorvctl cfg unset --help)
[2]
$ printf 'a number 1..9\nb text, deprecated\n' >s.schema; zorvctl cfg set -f a.cfg --schema s.schema b=new a=10
zorvctl: a: "10" does not fit "number 1..9"
[4]
$ zorvctl cfg set -f a.cfg --schema s.schema a=8 b=new; echo a=10 | zorvctl cfg set -f a.cfg --from - --schema -
b: deprecated
CHANGE   KEY  OLD  NEW
changed  a    9    8
added    b    -    new
not read, or not whole: 1 lines, which cfg lint names
zorvctl: the standard input can be read once (see: zorvctl cfg set --help)
[2]
$ mkdir many; cd many; seq -f 'wireless.%g.ssid=office' 3000 >rest; { echo '# note'; echo round=0; cat rest; } >a.cfg
$ for delay in $(seq 0.0005 0.0005 0.03); do # killed anywhere, it leaves a whole file; the next one, no other
>   timeout -s KILL $delay zorvctl cfg set -f a.cfg round=$delay
>   [ "$(head -1 a.cfg)" = '# note' ] && tail -n +3 a.cfg | cmp - rest || echo "torn: $(head -3 a.cfg)"
> done >said 2>&1; grep torn said; zorvctl cfg set -f a.cfg --wait 9 round=0 >said; ls -A
a.cfg
rest
said
$ for key in $(seq 40); do zorvctl cfg set -f a.cfg --wait 60 k.$key=$key >>said 2>&1 & done; wait; zorvctl cfg count a.cfg k.
40
