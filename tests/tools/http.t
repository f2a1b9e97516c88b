# http: one request, and what became of it.
$ printf '%s\n' 'site cloud.test' 'site expired.test expired' 'hidden-site hidden.test' 'name hidden.test 127.0.0.1' \
>   'answer * /a 201 0123456789' "answer * /odd 200 $(printf 'a\tb\033[1m\302\233')" "answer * /big 200 $(printf %01048577d)" | cloud
$ request() { zorvctl http --json "$@"; }; request get https://hidden.test/a --doh --max 4; request get https://cloud.test/none
{"method":"GET","url":"https://hidden.test/a","status":201,"result":0,"name":"CURLE_OK","meaning":"No error","received":10,"kept":4,"resolver":"doh","body":"0123"}
{"method":"GET","url":"https://cloud.test/none","status":404,"result":0,"name":"CURLE_OK","meaning":"No error","received":0,"kept":0,"resolver":"system","body":""}
[1]
$ request get https://cloud.test/a --doh --doh-fallback --trace | grep -o '"resolver.*'; request get https://expired.test/
zorvctl[...]: [debug] curl_simple.curl_simple(): GET 'https://cloud.test/a' failed: [6] 
"resolver":"doh","result":6,"name":"CURLE_COULDNT_RESOLVE_HOST","ms":...},{"resolver":"system","result":0,"name":"CURLE_OK","ms":...}],"method":"GET","url":"https://cloud.test/a","status":201,"result":0,"name":"CURLE_OK","meaning":"No error","received":10,"kept":10,"resolver":"system","body":"0123456789"}
{"method":"GET","url":"https://expired.test/","status":0,"result":60,"name":"CURLE_PEER_FAILED_VERIFICATION","meaning":"SSL peer certificate or SSH remote key was not OK","received":0,"kept":0,"resolver":"system","body":""}
[5]
$ zorvctl http get https://cloud.test/a; zorvctl http get https://cloud.test/a -o got -H 'X-C: 3' --json | grep -o '"kept.*'; cat got; zorvctl http get -o none https://cloud.test/none
0123456789"kept":10,"resolver":"system","file":"got"}
0123456789zorvctl: https://cloud.test/none: status 404
[1]
$ zorvctl http get https://cloud.test/big -o none; zorvctl http get https://cloud.test/big --max 3; ls none
zorvctl: https://cloud.test/big: the body has 1048577 bytes, and 1048576 are kept without --max
000ls: cannot access 'none': No such file or directory
[2]
$ terminals; for verb in get post; do script -qefc "zorvctl http $verb https://cloud.test/odd" /dev/null </dev/null | tail -n 1 | tr -d '\r'; done
a	b\x1b[1m\xc2\x9ba	b\x1b[1m\xc2\x9b
$ rm cloud/received/*; printf 'a\0b' >body; zorvctl http post https://cloud.test/a --data @body | tail -3
resolver  system

0123456789
$ zorvctl http put https://cloud.test/a --data text --header 'X-A: 1' --header 'X-B: 2' >said; requests | tr '\0' 0
POST /a HTTP/1.1

a0b
PUT /a HTTP/1.1
X-A: 1
X-B: 2

text
$ for so in /usr/lib/*/libcurl.so.4; do mount --bind /dev/null "$(readlink -f "$so")"; done; zorvctl http get https://cloud.test/a --report | sed -n '4,6p'
zorvctl[...]: [error] curl_simple.curl_simple(): No HTTP without libcurl.so.4: .../libcurl.so.4: file too short
result    2
name      CURLE_FAILED_INIT
meaning   Failed initialization
