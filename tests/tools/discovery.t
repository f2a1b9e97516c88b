# discovery: datagrams looked at, heard and sent.
$ key=000102030405060708090a0b0c0d0e0f # and "hello", of another implementation of AES and CRC-32
$ head=223344550202001000050007f0f1f2f3f4f5f6f7f8f9fafbfcfdfeff02a0f10000071230 crc=0b6b2f9e
$ text=c5fc2cbc3f0f1ad4f003707aa67b4c7f odd=fcf6a5a342707f8087acd2bc99799689 hello=$head$crc$text
$ printf "pluvo.key=$key\npluvo.mcip=239.255.90.90\n" >/run/zorv_protocol.info
$ decode() { zorvctl discovery decode --hex "$@"; }; changed() { decode $(echo $hello | sed $1); }
$ decode ${hello}00; decode $hello --last 0x123; changed s/^22/ff/; decode ${head}68c93758$odd --json
1: rejected: length (57 bytes, not the 56 of header and length field)
1: rejected: duplicate (sequence 291 is that of the last one)
1: rejected: magic (0xff334455, not 0x22334455)
{"datagrams":[{"failed":"padding","detail":"malformed, its last byte is 17","frame":1,"accepted":false}]}
[1]
$ changed s/0202/0201/; changed s/0202/0102/; changed s/0b6b/006b/; decode $hello
1: rejected: flag (0x01, not marked as encrypted)
1: rejected: version (1, not 2 or more)
1: rejected: CRC (0x0b6b2f9e, the header says 0x006b2f9e: another key, or damage)
1: 02:a0:f1:00:00:07 method 5 type 7 sequence 291: hello
$ pcap() { zorvctl discovery decode $source/fuzz/seeds/datagram_files/$1.pcap $2; }; pcap ip --json
{"datagrams":[{"sender":"02:a0:f1:00:00:07","method":5,"type":7,"sequence":291,"length":5,"text":"hello","frame":1,"accepted":true,"time":1700000000.5,"address":"192.0.2.11"}]}
$ for name in vlan_swapped any any2 ethernet cut unknown_link; do pcap $name; done 2>&1 | uniq -c
      4 1: 192.0.2.11 02:a0:f1:00:00:07 method 5 type 7 sequence 291: hello
      1 3: 192.0.2.11 02:a0:f1:00:00:07 method 5 type 7 sequence 292: with options
      1 zorvctl: .../cut.pcap: frame 1 is cut
      1 zorvctl: .../unknown_link.pcap: link type 105 is not supported
$ zorvctl discovery send --method 1 hello --json 2>/dev/null; zorvctl discovery init-check --json 2>/dev/null
{"error":{"code":"network","message":"the message could not be sent"}}
{"device":"00:00:00:00:00:00","group":"239.255.90.90","group_is_multicast":true,"bridge_address":null,"joined":false,"route_to_group":false}
[1]
$ echo 192.0.2.1 >/run/ipready.br0; ip route add 239.0.0.0/8 dev br0; zorvctl discovery init-check --json
{"device":"00:00:00:00:00:00","group":"239.255.90.90","group_is_multicast":true,"bridge_address":"192.0.2.1","joined":true,"route_to_group":true}
$ zorvctl discovery listen --timeout 0 --count 1 --json; zorvctl discovery send --method 1 $(seq -s '' 200)
{"messages":[]}
zorvctl: a message of 492 bytes would be cut by its receivers, who take 463
[4]
$ ip netns add far; ip link set far0 netns far; far() { nsenter --net=/run/netns/far "$@"; }
$ far ip link set far0 up; far ip addr add 192.0.2.2/24 dev far0; far ip route add 239.0.0.0/8 dev far0
$ mkfifo says; timeout 20 zorvctl -v discovery listen --count 3 --method 5 --method 6 >heard 2>says &
$ exec 3<says; while read -r line <&3; do case $line in *'init done') break;; esac; done
$ echo 192.0.2.2 >/run/ipready.br0; far zorvctl discovery send --method 4 other --plain >said
$ far zorvctl discovery send --method 5 --nul a --json
{"sent":[{"sequence":...,"bytes":56}]}
$ far zorvctl discovery send --method 6 --type 2 "$(printf 'a\033[2J\233\302\233 é\302\240€\342\202')" b | tail -1; wait $!; cat heard
...  56
00:00:00:00:00:00 method 5 type 0 sequence ...: a
00:00:00:00:00:00 method 6 type 2 sequence ...: a\x1b[2J\x9b\xc2\x9b é €\xe2\x82
00:00:00:00:00:00 method 6 type 2 sequence ...: b
