# cfg: the questions.
$ cp $source/examples/system.cfg a.cfg; zorvctl cfg get a.cfg WIRELESS.1.passphrase --escaped
correct horse \"battery\" \$taple
$ zorvctl cfg get a.cfg led.night.begin --int --json; zorvctl cfg get a.cfg nothing --default '' --json
{"key":"led.night.begin","found":true,"value":22}
{"key":"nothing","found":false,"value":""}
$ zorvctl cfg get a.cfg nothing --uint --default 0x10; zorvctl cfg get a.cfg ppp.status --bool
16
no
[1]
$ printf '%s\n' "1.a=it's \\\$x; \`y" b.c=off >shell.cfg; eval "$(zorvctl cfg get shell.cfg --shell 1.a b.c)"; echo "$_1_a, $b_c"
it's \$x; `y, off
$ zorvctl cfg get --bool - B.C b.c --json <shell.cfg; zorvctl cfg get shell.cfg 1.a b.c x --default 1
{"values":[{"key":"B.C","found":true,"value":false},{"key":"b.c","found":true,"value":false}]}
1.a=it's \$x; `y
b.c=off
x=1
$ zorvctl cfg get shell.cfg 1.a x; zorvctl cfg diff - - <shell.cfg; zorvctl cfg get --shell shell.cfg b.c b_c
zorvctl: x: no such key
zorvctl: the standard input can be read once (see: zorvctl cfg diff --help)
zorvctl: --shell: b_c and b.c have one name (see: zorvctl cfg get --help)
[2]
$ zorvctl cfg get shell.cfg nothing --default 'a
> b'
zorvctl: --default: a value holds no newline: a\x0ab (see: zorvctl cfg get --help)
[2]
$ zorvctl cfg list a.cfg misc.; zorvctl cfg list a.cfg MISC.RACK --exact --json; zorvctl cfg list a.cfg nothing. --json
KEY                VALUE
misc.site.contact  +1-202-555-0143
misc.rack          E2-07
{"entries":[{"key":"misc.rack","value":"E2-07"}]}
{"entries":[]}
[1]
$ zorvctl cfg section a.cfg ntp. --postfix .status --enabled --json
{"entries":[{"key":"ntp.1.status","value":"enabled"},{"key":"ntp.2.status","value":"enabled"}]}
$ for option in vlan.1 'vlan.1.id --exact' 'vlan. --section --postfix .id --value 20' --json; do
>   zorvctl cfg count a.cfg $option; done | xargs
16 1 2 {count:265}
$ printf 'a=1\nb=1\nc=1\na.comment=x\n' >old.cfg; printf 'd=\nC=2\nA=1\na.comment=y\n' >new.cfg
$ zorvctl cfg diff old.cfg old.cfg --json; zorvctl cfg diff old.cfg new.cfg
{"changes":[]}
CHANGE   KEY  OLD  NEW
added    d    -
changed  C    1    2
removed  b    1    -
[1]
$ printf 'a=1\r\n\rb=2\nnothing\nA=2\n c =1\n=2\n # d = 3\ne=1\0 2\n# misc\na=4\nf=5' >odd.cfg
$ zorvctl cfg lint odd.cfg | awk '$2 != "region" { print $1, $2 }' | xargs
LINE KIND 1 carriage-return 2 carriage-return 3 no-equals 4 duplicate-key 5 blanks 6 empty-key 7 blanks 7 indented-comment 8 nul-byte 10 duplicate-key 11 no-newline the misc
$ printf 'a=1\n# miscellany\n\n  \nb=1' >odd.cfg; zorvctl cfg lint old.cfg; zorvctl cfg lint odd.cfg --json
no misc region
{"file":"odd.cfg","lines":5,"findings":[{"line":5,"kind":"no-newline","message":"the last line has no newline: a value loses its last byte","severity":"error","key":null}],"misc_line":2}
[1]
