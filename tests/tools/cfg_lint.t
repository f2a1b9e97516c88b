# cfg lint with a schema: keys, values, severities, several files; and schemas that make no sense.
$ cp $source/examples/system.cfg a.cfg; installed=$source/tools/zorvctl/schemas/system.cfg.schema
$ zorvctl cfg lint --schema $installed a.cfg
LINE  KIND           SEVERITY  MESSAGE
 297  duplicate-key  note      radio.1.txpower: the value replaces that of line 27
 298  duplicate-key  note      wireless.5.status: the value replaces that of line 98
the misc region begins at line 294
[1]
$ zorvctl cfg lint --schema $installed --level warning a.cfg | tail -n 1
the misc region begins at line 294
$ echo pluvo.key=000102030405060708090a0b0c0d0e0f >info; zorvctl cfg lint --schema ${installed%/*}/zorv_protocol.info.schema info
LINE  KIND         SEVERITY  MESSAGE
   -  missing-key  error     pluvo.mcip: required, and not there
no misc region
[1]
$ cat >types.schema <<END
> # Each type, at both ends of its range.
> s.<n> switch
> n.<n> number 8..0x10
> o.<n> one of ap sta
> t.<n> text 2..3
> w.<n> word ..3
> a.<n> address
> ip.<n> ipv4
> six ipv6
> net.<n> network
> m.<n> mac
> END
$ printf '%s\n' s.1=Active 's.2= off' 'n.1= 8' n.2=0x10 n.3=010 n.4=+9 o.1=sta t.1=ab t.2=a=c \
>   w.1= w.2=abc a.1=192.0.2.1 a.2=2001:db8::1 ip.1=0.0.0.0 six=:: net.1=192.0.2.1/32 net.2=::/0 \
>   m.1=02:A0:f1:00:20:01 >good.cfg
$ zorvctl cfg lint --schema types.schema good.cfg
no misc region
$ printf '%s\n' s.1=yes s.2= n.1=7 n.2=17 n.3=08 n.4=9ms n.5=99999999999999999999 n.6= o.1=AP \
>   'o.2=ap sta' t.1=a t.2=abcd 'w.1=a c' a.1=192.0.2 'ip.1= 192.0.2.1' ip.2=::1 six=192.0.2.1 \
>   net.1=192.0.2.1/33 net.2=192.0.2.1/032 net.3=192.0.2.1 net.4=::/129 m.1=02-a0-f1-00-20-01 \
>   m.2=02:a0:f1:00:20:1 >bad.cfg
$ zorvctl cfg lint --schema types.schema bad.cfg | awk '$2 == "bad-value" && $3 == "error"' | wc -l
23
$ zorvctl cfg lint --schema types.schema bad.cfg | grep -E '^ .* (n.3|t.2):'
   5  bad-value  error     n.3: "08" does not fit "number 8..0x10"
  12  bad-value  error     t.2: a value of length 4 does not fit "text 2..3"
$ cat >site.schema <<END
> radio.*               closed
> radio.<n>.ext.*       open
> radio.status          switch
> radio.<n>.channel     number, required
> radio.<n>.band        one of 2g 5g, default 2g
> radio.9.band          one of 6g
> radio.9.channel       number ..9
> radio.<n>.vap.<n>.id  number, required
> system.name           text 1.., required
> snmp.user             text, deprecated, nobody reads it
> snmp.community        text, deprecated since 4.0, use snmp.users
> END
$ printf '%s\n' Radio.1.Channel=6 radio.1.chanel=6 radio.1.comment=attic radio.1.ext.chanel=6 \
>   radio.2.band=2g radio.9.band=2g radio.9.channel=1 radio.01.channel=1 radio.0.channel=1 \
>   'radio.<n>.channel=1' radio.1234567890.channel=1 radio.1.vap.3.ssid=x system.naem=x \
>   sistem.name=x snmp.user=x snmp.community=x >site.cfg
$ zorvctl cfg lint --schema site.schema site.cfg
LINE  KIND         SEVERITY  MESSAGE
   1  key-case     warning   Radio.1.Channel: readers that mind case look for radio.<n>.channel
   2  unknown-key  error     radio.1.chanel: not in the schema; did you mean radio.<n>.channel?
   6  bad-value    error     radio.9.band: "2g" does not fit "one of 6g"
   8  unknown-key  error     radio.01.channel: not in the schema
   9  unknown-key  error     radio.0.channel: not in the schema
  10  unknown-key  error     radio.<n>.channel: not in the schema
  11  unknown-key  error     radio.1234567890.channel: not in the schema
  12  unknown-key  error     radio.1.vap.3.ssid: not in the schema; did you mean radio.<n>.vap.<n>.id?
  13  unknown-key  note      system.naem: not in the schema; did you mean system.name?
  15  deprecated   warning   snmp.user: deprecated, nobody reads it
  16  deprecated   warning   snmp.community: deprecated since 4.0, use snmp.users
   -  missing-key  error     system.name: required, and not there
   5  missing-key  error     radio.2.channel: required, and not there
  12  missing-key  error     radio.1.vap.3.id: required, and not there
no misc region
[1]
$ printf '# misc\nsystem.name=a\nsystem.name=b' | zorvctl cfg lint --json --schema site.schema -
{"file":"-","lines":3,"findings":[{"line":3,"kind":"no-newline","message":"the last line has no newline: a value loses its last byte","severity":"error","key":null},{"line":3,"kind":"duplicate-key","message":"system.name: the value replaces that of line 2","severity":"note","key":"system.name"},{"line":3,"kind":"bad-value","message":"system.name: a value of length 0 does not fit \"text 1..\"","severity":"error","key":"system.name"}],"misc_line":1}
[1]
$ printf 'system.name=a\0\nsystem.name=\n' >nul.cfg; zorvctl cfg lint --schema site.schema nul.cfg good.cfg
nul.cfg:
LINE  KIND           SEVERITY  MESSAGE
   1  nul-byte       error     the line ends here for the parser, less the byte before the NUL
   1  bad-value      error     system.name: a value of length 0 does not fit "text 1.."
   2  duplicate-key  warning   system.name: kept, but lookups take line 1
   2  bad-value      error     system.name: a value of length 0 does not fit "text 1.."
no misc region
good.cfg:
LINE  KIND         SEVERITY  MESSAGE
   -  missing-key  error     system.name: required, and not there
no misc region
[1]
$ printf '# misc\nsystem.name=a\nsystem.name=b\n' >note.cfg; zorvctl cfg lint --json --level warning note.cfg good.cfg
{"files":[{"file":"note.cfg","lines":3,"findings":[{"line":3,"kind":"duplicate-key","message":"system.name: the value replaces that of line 2","severity":"note","key":"system.name"}],"misc_line":1},{"file":"good.cfg","lines":18,"findings":[],"misc_line":null}]}
$ printf '* closed\nsystem.name text' >all.schema; zorvctl cfg lint --schema all.schema note.cfg site.cfg | grep -c unknown-key
15
$ printf '# end' | zorvctl cfg lint --level error -
LINE  KIND        SEVERITY  MESSAGE
   1  no-newline  warning   the last line has no newline: a value loses its last byte
no misc region
$ while read -r line; do
>   printf '\n%b\n' "$line" >odd.schema; zorvctl cfg lint --schema odd.schema good.cfg 2>&1 | sed "s/.*odd.schema//"
> done <<END
> a
> a texts
> a one of
> a text 3..1
> a number 1..x
> a number 1..2 3
> a switch, must
> a number ..3, default 4
> a text, required, default b
> a.<n>.1 text
> a<n> text
> a..b text
> a. text
> .* closed
> a.* shut
> a.1.* closed
> a text\\nA text
> * open\\n* closed
> a\\0 text
> END
:2: type: none is told
:2: texts: no such type
:2: one of: no words follow
:2: 3..1: not a range, such as 1..13
:2: 1..x: not a range, such as 1..13
:2: 3: not understood here
:2: must: not required, default VALUE or deprecated
:2: 4: the default does not fit the type
:2: a: a required key has no default
:2: a.<n>.1: a number beside <n>
:2: a<n>: not a key, with <n> for an index
:2: a..b: not a key, with <n> for an index
:2: a.: not a key, with <n> for an index
:2: : not a key, with <n> for an index
:2: a.*: neither closed nor open
:2: a.1.*: a number, where only <n> may stand
:3: A: told before
:3: *: told before
:2: line: a NUL byte
$ zorvctl cfg lint --json --schema odd.schema good.cfg; zorvctl cfg lint --schema '' good.cfg
{"error":{"code":"schema","message":"odd.schema:2: line: a NUL byte"}}
zorvctl: : No such file or directory
[5]
