# cfg: the questions.
$ cp $source/examples/system.cfg a.cfg; zorvctl cfg get a.cfg WIRELESS.3.ssid
handsets
$ zorvctl cfg get a.cfg wireless.1.passphrase --escaped; zorvctl cfg get a.cfg led.night.begin --int --json
correct horse \"battery\" \$taple
{"key":"led.night.begin","found":true,"value":22}
$ zorvctl cfg get a.cfg nothing --uint --default 0x10; zorvctl cfg get a.cfg nothing --default '' --json
16
{"key":"nothing","found":false,"value":""}
$ zorvctl cfg get a.cfg ppp.status --bool
no
[1]
$ zorvctl cfg list a.cfg misc.
KEY                VALUE
misc.site.contact  +1-202-555-0143
misc.rack          E2-07
$ zorvctl cfg list a.cfg MISC.RACK --exact --json; zorvctl cfg list a.cfg nothing. --json
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
$ zorvctl cfg lint odd.cfg
LINE  KIND              MESSAGE
   1  carriage-return   the carriage return stays in the text
   2  carriage-return   a line that begins with a carriage return is skipped
   3  no-equals         a line without "=" is skipped
   4  duplicate-key     A: kept, but lookups take line 1
   5  blanks            blanks around the key are dropped; those of the value stay
   6  empty-key         the value has no key
   7  blanks            blanks around the key are dropped; those of the value stay
   7  indented-comment  this is no comment: "#" is not the first byte of the line
   8  nul-byte          the line ends here for the parser, less the byte before the NUL
  10  duplicate-key     a: the value replaces that of line 1
  11  no-newline        the last line has no newline: a value loses its last byte
the misc region begins at line 9
[1]
$ printf 'a=1\n# miscellany\n\n  \nb=1' >odd.cfg; zorvctl cfg lint old.cfg; zorvctl cfg lint odd.cfg --json
no misc region
{"file":"odd.cfg","lines":5,"findings":[{"line":5,"kind":"no-newline","message":"the last line has no newline: a value loses its last byte"}],"misc_line":2}
[1]
