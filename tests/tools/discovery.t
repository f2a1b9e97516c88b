# discovery: datagrams looked at, heard and sent.
$ zorvctl discovery init-check
zorvctl[5]: [error] zorv_protocol.zorv_protocol_init(): Unable to access /var/run/zorv_protocol.info: No such file or directory
zorvctl[5]: [error] zorv_protocol.zorv_protocol_init(): could not start zorv-protocol
zorvctl: discovery could not be started
[3]
$ key=000102030405060708090a0b0c0d0e0f # and "hello", of another implementation of AES and CRC-32
$ head=223344550202001000050007f0f1f2f3f4f5f6f7f8f9fafbfcfdfeff02a0f100000712300b6b2f9e
$ hello=${head}c5fc2cbc3f0f1ad4f003707aa67b4c7f
$ printf "pluvo.key=$key\npluvo.mcip=239.255.90.90\n" >/run/zorv_protocol.info
$ zorvctl discovery decode --hex $hello; zorvctl discovery decode --hex $hello --json
1: 02:a0:f1:00:00:07 method 5 type 7 sequence 291: hello
{"datagrams":[{"sender":"02:a0:f1:00:00:07","method":5,"type":7,"sequence":291,"length":5,"text":"hello","frame":1,"accepted":true}]}
$ for arguments in ${hello}00 "$hello --last 0x123" ff${hello#??} "$hello --key ${key#??}00" \
>   "$(echo $hello | sed s/0202/0201/)" "$(echo $hello | sed s/0202/0102/)" "$(echo $head | sed s/0010/0000/)" \
>   ${head%????????}68c93758fcf6a5a342707f8087acd2bc99799689; do zorvctl discovery decode --hex $arguments; done
1: rejected: length (57 bytes, not the 56 of header and length field)
1: rejected: duplicate (sequence 291 is that of the last one)
1: rejected: magic (0xff334455, not 0x22334455)
1: rejected: CRC (0x06cbc5f2, the header says 0x0b6b2f9e: another key, or damage)
1: rejected: flag (0x01, not marked as encrypted)
1: rejected: version (1, not 2 or more)
1: rejected: length (there is no payload)
1: rejected: padding (malformed, its last byte is 17)
[1]
$ for name in ethernet vlan_swapped any any2 ip cut unknown_link; do
>   zorvctl discovery decode $source/fuzz/seeds/datagram_files/$name.pcap; done
1: 192.0.2.11 02:a0:f1:00:00:07 method 5 type 7 sequence 291: hello
3: 192.0.2.11 02:a0:f1:00:00:07 method 5 type 7 sequence 292: with options
1: 192.0.2.11 02:a0:f1:00:00:07 method 5 type 7 sequence 291: hello
1: 192.0.2.11 02:a0:f1:00:00:07 method 5 type 7 sequence 291: hello
1: 192.0.2.11 02:a0:f1:00:00:07 method 5 type 7 sequence 291: hello
1: 192.0.2.11 02:a0:f1:00:00:07 method 5 type 7 sequence 291: hello
zorvctl: /work/wt/tools/fuzz/seeds/datagram_files/cut.pcap: frame 1 is cut
zorvctl: /work/wt/tools/fuzz/seeds/datagram_files/unknown_link.pcap: link type 105 is not supported
[5]
$ cd $source/fuzz/seeds/datagram_files; zorvctl discovery decode ethernet.pcap --json; cd /tmp/work
{"datagrams":[{"sender":"02:a0:f1:00:00:07","method":5,"type":7,"sequence":291,"length":5,"text":"hello","frame":1,"accepted":true,"time":1700000000.5,"address":"192.0.2.11"},{"sender":"02:a0:f1:00:00:07","method":5,"type":7,"sequence":292,"length":12,"text":"with options","frame":3,"accepted":true,"time":1700000000.5,"address":"192.0.2.11"}]}

$ zorvctl discovery init-check
zorvctl[33]: [error] zorv_protocol.zorv_multicast_socket_deinit(): unable to drop membership, Cannot assign requested address
device              00:00:00:00:00:00
group               239.255.90.90
group_is_multicast  yes
bridge_address      -
joined              no
route_to_group      no
[1]
$ zorvctl discovery send --method 1 hello
zorvctl[34]: [error] zorv_protocol.zorv_protocol_send(): failed to send message (method: 1, type: 0, len: 56), Network is unreachable
zorvctl[34]: [error] zorv_protocol.zorv_multicast_socket_deinit(): unable to drop membership, Cannot assign requested address
zorvctl: the message could not be sent
[5]
$ make_bridge; echo 192.0.2.1 >/run/ipready.br0; ip route add 239.0.0.0/8 dev br0
$ zorvctl discovery init-check --json
{"device":"00:00:00:00:00:00","group":"239.255.90.90","group_is_multicast":true,"bridge_address":"192.0.2.1","joined":true,"route_to_group":true}
$ zorvctl discovery listen --timeout 0.01
$ zorvctl discovery listen --timeout 0.01 --count 1 --json
{"messages":[]}
[1]
$ ip netns add far; ip link set far0 netns far; far() { ip netns exec far "$@"; }
$ far ip link set far0 up; far ip addr add 192.0.2.2/24 dev far0; far ip route add 239.0.0.0/8 dev far0
$ mkfifo says
$ timeout 20 zorvctl -v discovery listen --count 3 --method 5 --method 6 >heard 2>says & exec 3<says
$ while read -r line <&3; do case $line in *'init done') break;; esac; done
$ echo 192.0.2.2 >/run/ipready.br0
$ far zorvctl discovery send --method 4 'other method'; far zorvctl discovery send --method 5 --nul a --json
SEQUENCE  BYTES
    3319     56
{"sent":[{"sequence":478,"bytes":56}]}
$ odd=$(printf 'a\033[2J\233\302\233 \303\251\302\240\342\202\254\342\202')
$ far zorvctl discovery send --method 6 --type 2 "$odd" b
SEQUENCE  BYTES
     694     72
     695     56
$ wait $!; cat heard
00:00:00:00:00:00 method 5 type 0 sequence 478: a
00:00:00:00:00:00 method 6 type 2 sequence 694: a\x1b[2J\x9b\xc2\x9b é €\xe2\x82
00:00:00:00:00:00 method 6 type 2 sequence 695: b
