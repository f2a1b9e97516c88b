# cfg: the questions.
$ cp $source/examples/system.cfg a.cfg; echo '# nothing' >empty.cfg
$ zorvctl cfg get a.cfg WIRELESS.3.ssid
handsets
$ zorvctl cfg get a.cfg radio.1.txpower # of the misc region, behind another
11
$ zorvctl cfg get a.cfg wireless.1.passphrase --escaped
correct horse \"battery\" \$taple
$ zorvctl cfg get a.cfg led.night.begin --int --json
{"key":"led.night.begin","found":true,"value":22}
$ zorvctl cfg get a.cfg nothing --uint --default 0x10
16
$ zorvctl cfg get a.cfg nothing --default '' --json
{"key":"nothing","found":false,"value":""}
$ zorvctl cfg get a.cfg ppp.status --bool
no
[1]
$ zorvctl cfg get a.cfg nothing
zorvctl: nothing: no such key
[1]
$ zorvctl cfg list a.cfg misc.
KEY                VALUE
misc.site.contact  +1-202-555-0143
misc.rack          E2-07
$ zorvctl cfg list a.cfg MISC.RACK --exact --json
{"entries":[{"key":"misc.rack","value":"E2-07"}]}
$ zorvctl cfg list a.cfg nothing. --json
{"entries":[]}
[1]
$ for option in '' vlan.1 'vlan.1.id --exact' 'wireless. --section --postfix .status --enabled' \
>   'vlan. --section --postfix .id --value 20'; do zorvctl cfg count a.cfg $option; done
265
16
1
5
2
$ zorvctl cfg count empty.cfg --json
{"count":0}
$ zorvctl cfg section a.cfg ntp. --postfix .status --enabled
KEY           VALUE
ntp.1.status  enabled
ntp.2.status  enabled
$ echo vlan1=1 >vlan.cfg; zorvctl cfg section -v vlan.cfg vlan --json # in the former form
zorvctl[24]: [warn ] cfg.process_cfg_section(): deprecated prefix doesn't end with '.': '%s' => 'vlan'
{"entries":[{"key":"vlan1","value":"1"}]}

$ printf 'a=1\nb=1\nc=1\na.comment=x\n' >old.cfg; printf 'd=\nC=2\nA=1\na.comment=y\n' >new.cfg
$ zorvctl cfg diff old.cfg new.cfg
CHANGE   KEY  OLD  NEW
added    d    -
changed  C    1    2
removed  b    1    -
[1]
$ zorvctl cfg diff old.cfg new.cfg --json
{"changes":[{"key":"d","change":"added","old":null,"new":""},{"key":"C","change":"changed","old":"1","new":"2"},{"key":"b","change":"removed","old":"1","new":null}]}
[1]
$ zorvctl cfg diff old.cfg old.cfg --json
{"changes":[]}

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
$ zorvctl cfg lint odd.cfg --json | grep -o '"misc_line.*\|"line":1,[^}]*'
"line":1,"kind":"carriage-return","message":"the carriage return stays in the text"
"misc_line":9}
$ printf 'a=1\n# miscellany\n\n  \nb=1\n' >good.cfg; zorvctl cfg lint good.cfg --json
{"file":"good.cfg","lines":5,"findings":[],"misc_line":2}
