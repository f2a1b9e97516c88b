# Small things for scripts: file, avg, hash, base64, json, url, capture, exec.
$ printf 'MemTotal:  1024 kB\nmode=ap\n' >table; zorvctl file get table MemTotal:
1024
$ zorvctl file get table mode --json; zorvctl file get none --default 7; zorvctl file add count -2 --json
{"file":"table","found":true,"value":"ap"}
7
{"file":"count","value":-2}
$ zorvctl file set count 'two words' --json; cat count; mkdir full; mount -t tmpfs -o size=4096 full full
{"file":"count","value":"two words"}
two words
$ head -c 4096 /dev/zero >full/fill; zorvctl file set full/value 1; zorvctl file add full/value 1
zorvctl: full/value: the value does not read back: 1
zorvctl: full/value: the value does not read back: 1
[5]
$ echo 10 10 10 10 10 1000 10 10 10 10 10 | zorvctl avg --json; zorvctl avg </dev/null
{"count":11,"mean":100,"kept":10,"mean_of_kept":10,"outliers":[1000]}
zorvctl: standard input: no number
[1]

$ printf abc >abc; printf '\373\377\0' >bytes; zorvctl hash - <abc
ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad  -
$ zorvctl hash abc bytes | sha256sum -c --quiet; zorvctl hash --json bytes
{"digests":[{"file":"bytes","sha256":"3ee014c0a056411885c459e321176277f3c941ce35b820607f22742e84e84de2"}]}
$ truncate -s 512M large; zorvctl hash large
zorvctl: large: 512 MiB or more have no digest
[5]
$ zorvctl base64 encode bytes; zorvctl base64 encode --url bytes; zorvctl base64 encode --json <bytes
+/8A
-_8A
{"file":"-","base64":"+/8A"}
$ head -c 1000 $build/tools/zorvctl/zorvctl >b; base64 b | zorvctl base64 decode | cmp - b
$ for text in 'Zm9v\r\n-_8\n' Zm9vY Zm8=Zm8=; do
>   printf -- "$text" | zorvctl base64 decode --json; done
{"file":"-","size":5,"hex":"666f6ffbff"}
{"error":{"code":"not-base64","message":"-: not Base64 to its end"}}
{"error":{"code":"not-base64","message":"-: not Base64 to its end"}}
[5]

$ echo '{"board":{"ports":[{"name":"lan 1"},{"name":"0x1f"}]},"up":true}' >a
$ zorvctl json get a board ports 0 name; zorvctl json get a board ports 1 name --int; zorvctl json get a up
lan 1
31
true
$ zorvctl --json json get a board ports 1; zorvctl json get a board ports +0
{"file":"a","value":{"name":"0x1f"}}
zorvctl: a: no member board ports +0
[1]
$ printf '{\n"a":}' >a; zorvctl json get a a
zorvctl: a:2: unexpected token near '}'
[5]
$ zorvctl url encode 'a b&c'; zorvctl url parse HTTPS://u@[fe80::1]:8080/a?b --json; zorvctl url parse myhost | head -3
a+b%26c
{"url":"https://u@[fe80::1]:8080/a?b","scheme":"https","userinfo":"u","host":"fe80::1","port":8080,"path":"/a?b","https":true,"ipv6":true}
url       http://myhost/
scheme    http
userinfo  -
$ printf '127.0.0.5 inform\n127.0.0.6 inform\n2001:db8::6 inform\n' >/etc/hosts
$ echo multi on >/etc/host.conf; zorvctl url resolve inform --json; zorvctl url resolve --ipv6 inform
{"host":"inform","address":"127.0.0.6","port":80}
2001:db8::6
$ zorvctl url resolve nowhere.invalid
zorvctl: nowhere.invalid: Temporary failure in name resolution
[5]

$ zorvctl capture --max 4 yes | xargs; zorvctl capture --json --max 9 'seq 3; exit 3'
y y
{"command":"seq 3; exit 3","output":"1\n2\n3\n","length":6,"full":false}
$ (ulimit -n 4; ASAN_OPTIONS=detect_leaks=0 zorvctl capture true) # a pipe wants two
zorvctl[...]: [error] libzorv_exec.popen_alloc_output(): open failed on 'true': Too many open files
zorvctl: true: cannot be started
[5]
$ : >/usr/etc/syswrapper.sh; zorvctl exec explain reload -- -f | grep -v o$
script      /usr/etc/syswrapper.sh
SLOT  TEXT                    PASSED
   0  /usr/etc/syswrapper.sh  yes
   1  reload                  yes
   2  -f                      yes
$ zorvctl exec explain set $(seq 49) --json | grep -o '"too_many":true\|"slot":49.*'
"too_many":true
"slot":49,"text":"48","passed":true},{"slot":50,"text":"49","passed":false}]}
$ program /etc/syswrapper.sh 'printf "<%s>\n" "$@"'; zorvctl exec run 'a b' -- --json
<a b>
<--json>
$ zorvctl --json exec run set 2>&1
<set>
{"script":"/etc/syswrapper.sh","word":"set","waited":true}
$ mkfifo go done; program /etc/syswrapper.sh 'read word <go; echo $word >done'
$ zorvctl exec run --no-wait set; echo on >go; cat done
on
