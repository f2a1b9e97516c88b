# Small things for scripts: file, avg, hash, base64, json, url, capture, exec.
$ printf 'MemTotal:  1024 kB\nmode=ap\n' >table; zorvctl file get table MemTotal:; zorvctl file get table mode --json
1024
{"file":"table","found":true,"value":"ap"}
$ zorvctl file get none --default 7; zorvctl file add count -2 --json; zorvctl file set count 'two words'; cat count
7
{"file":"count","value":-2}
two words
$ mkdir full; mount -t tmpfs -o size=4096 full full; head -c 4096 /dev/zero >full/fill; zorvctl file set full/value 1
zorvctl: full/value: the value does not read back: 1
[5]
$ for line in hello 1234567890123456 0x1f; do echo $line >bad; zorvctl file add bad 1; cat bad; done
zorvctl: bad: not one number of at most 15 characters
hello
zorvctl: bad: not one number of at most 15 characters
1234567890123456
zorvctl: bad: not one number of at most 15 characters
0x1f
$ seq 20 | xargs -P 8 -I % zorvctl file add many 1 >sums; cat many; echo 999999999999999 >many; zorvctl file add many 1; cat many
20
zorvctl: many: the sum has more than 15 characters
999999999999999
$ head -c 70000 /dev/zero | tr '\0' x >long; zorvctl file get long | wc -c; zorvctl file get table none --json; zorvctl file get table ""
70001
{"file":"table","found":false,"value":null}
zorvctl: table: no value for 
[1]
$ echo 10 10 10 10 10 1000 10 10 10 10 10 | zorvctl avg --json; zorvctl avg </dev/null
{"count":11,"mean":100,"kept":10,"mean_of_kept":10,"outliers":[1000]}
zorvctl: standard input: no number
[1]

$ printf '\373\377\0' >bytes; zorvctl hash bytes | sha256sum -c; zorvctl hash --json - <bytes; zorvctl base64 encode --url --json <bytes
bytes: OK
{"digests":[{"file":"-","sha256":"3ee014c0a056411885c459e321176277f3c941ce35b820607f22742e84e84de2"}]}
{"file":"-","base64":"-_8A"}

$ name="$(printf 'a\\b\nc')"; echo 1 >"$name"; zorvctl hash "$name" bytes >sums; sha256sum sums "$name" bytes | sed 1d | diff sums -
$ zorvctl hash --check sums; echo 2 >"$name"; zorvctl hash -c sums --json; mv "$name" d; zorvctl hash -c - <sums; zorvctl hash -c bytes
\a\\b\nc: OK
bytes: OK
{"checks":[{"file":"a\\b\nc","result":"differs"},{"file":"bytes","result":"ok"}]}
a\b\x0ac: No such file or directory
bytes: OK
zorvctl: bytes:1: not a digest and a name
[5]
$ printf 00112233445566778899aabbccddeeff >key; zorvctl aes encrypt --key-file key --json --no-padding --iv 00000000000000000000000000000000 key
{"file":"key","iv":"00000000000000000000000000000000","size":32,"hex":"d6ab68138dc8836ecfe2a9f83b7910b16a61ace1a6f2a15f97ea6b7b5951a1a5"}
$ zorvctl aes encrypt --key-file key bytes | zorvctl aes decrypt --key-file key | cmp - bytes
$ zorvctl aes decrypt --key-file key key; zorvctl aes encrypt --key-file bytes key --json; zorvctl aes encrypt --key-file - </dev/null
zorvctl: key: no padding: another key or IV?
{"error":{"code":"not-a-key","message":"bytes: not a key of 16 bytes or 32 hexadecimal digits"}}
zorvctl: --key-file: the standard input is the FILE already (see: zorvctl aes encrypt --help)
[2]
$ zorvctl random 3 | grep -c '^[0-9a-f]\{6\}$'; zorvctl random --bytes 9 | wc -c; zorvctl random --text 12 --json | tr -d 'A-Za-z0-9'; zorvctl random 0
1
9
{"":""}
zorvctl: COUNT: "0" is not from 1 to 1048576 (see: zorvctl random --help)
[2]
$ printf 'Zm9v\r\n-_8\n' | zorvctl base64 decode --json; echo Zm8=Zm8= | zorvctl base64 decode --json
{"file":"-","size":5,"hex":"666f6ffbff"}
{"error":{"code":"not-base64","message":"-: not Base64 to its end"}}
[5]

$ echo '{"board":{"ports":[{"name":"lan 1"},{"name":"0x1f"}]},"up":true}' >a
$ zorvctl json get a board ports 1 name --int; zorvctl json get a board ports 1 --json
31
{"file":"a","found":true,"value":{"name":"0x1f"}}
$ zorvctl json get a board ports +0; printf '{\n"a":}' >a; zorvctl json get a a
zorvctl: a: no member board ports +0
zorvctl: a:2: unexpected token near '}'
[5]
$ printf '{"a":0.30000000000000004,"b":0.1,"c":5000000000}' >n; zorvctl json get n a; zorvctl json get n b; zorvctl json get n d --json
0.30000000000000004
0.1
{"file":"n","found":false,"value":null}
[1]
$ zorvctl json get n c --int
zorvctl: c: not an integer of 32 bits
[1]
$ zorvctl url encode 'a b&c'; zorvctl --json url resolve http://localhost:81; zorvctl url parse HTTPS://u@[fe80::1]:8080/a?b --json
a+b%26c
{"host":"localhost","address":"127.0.0.1","port":81}
{"url":"https://u@[fe80::1]:8080/a?b","scheme":"https","userinfo":"u","host":"fe80::1","port":8080,"path":"/a?b","https":true,"ipv6":true}

$ zorvctl capture --json --max 9 'seq 3; exit 3'
{"command":"seq 3; exit 3","output":"1\n2\n3\n","length":6,"full":false}
$ : >/usr/etc/syswrapper.sh; zorvctl exec explain set $(seq 49) --json | grep -o '"too_many":true\|"slot":49.*'
"too_many":true
"slot":49,"text":"48","passed":true},{"slot":50,"text":"49","passed":false}]}
$ program /etc/syswrapper.sh 'printf "<%s>" "$@"; echo'; zorvctl exec run 'a b' --json -- --json '[a,b]'
<a b><--json><[a,b]>
{"script":"/etc/syswrapper.sh","word":"a b","waited":true}

$ mkfifo go done; program /etc/syswrapper.sh 'read word <go; echo $word >done'; zorvctl exec run --no-wait set; echo on >go; cat done
on
$ chmod -x /etc/syswrapper.sh; zorvctl exec run set
zorvctl: /etc/syswrapper.sh: Permission denied
[5]
