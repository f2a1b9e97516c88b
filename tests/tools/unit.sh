# What the transcripts of zorvctl stand on: sourced in front of each by transcripts_test.cpp, with
# the tree's and the build's folder in $source and $build.
# shellcheck shell=sh disable=SC2016,SC2154 # programs are texts; the two are set
PATH=$build/tools/zorvctl:$PATH
mkdir -p /tmp/work
cd /tmp/work || exit

# kernel_proc: the kernel's own /proc, in place of one to fill.
kernel_proc() {
    umount /proc
}

# cloud: runs the cloud host by the script on standard input, with its requests in cloud/received.
cloud() {
    mkdir -p cloud
    cat >cloud/script
    mkfifo cloud/ready
    "$build/sim/libexec/zorv-sim/zorv-cloud" cloud/script cloud >cloud/ready 2>&1 &
    read -r word <cloud/ready
    [ "$word" = ready ] || exit
    cat cloud/ca.pem >/etc/ssl/certs/ca-certificates.crt
    cat cloud/hosts >>/etc/hosts
}

# program PATH TEXT: an executable of that text.
program() {
    printf '#!/bin/sh\n%s\n' "$2" >"$1"
    chmod +x "$1"
}

# put_files: writes files, from lines "PATH|TEXT", with the folders above them.
put_files() {
    while IFS='|' read -r path text; do
        mkdir -p "${path%/*}"
        printf '%b\n' "$text" >"$path"
    done
}

# known_unit: an access point after set-up.
known_unit() {
    put_files <<'END'
/proc/zorvhal/system.info|vendorid=1f3d\nsystemid=7e8b\nserialno=02a0f3000007\nboardrevision=3\neth0.macaddr=02:a0:f3:00:00:07
/proc/zorvhal/board|bomrev=2e8ff
/proc/zorvhal/status/IsDefault|false
/run/zorv_protocol.info|pluvo.key=000102030405060708090a0b0c0d0e0f\npluvo.mcip=239.255.90.90
/usr/etc/.version|6.6.55
/usr/etc/.build|15189
END
    program /etc/syswrapper.sh cat
}

# whole_unit: one on which nothing is off.
whole_unit() {
    known_unit
    mkdir -p /run/guest /run/report /sys/class/net/br0/bridge /etc/persistent/cfg
    put_files <<'END'
/proc/cpuinfo|processor	: 0
/proc/meminfo|MemTotal:         246820 kB
/proc/uptime|4711.20 9001.10
/proc/net/dev|Inter-|   Receive  |  Transmit
/proc/net/arp|IP address  HW type  Flags  HW address  Mask  Device
/proc/net/tcp|  sl  local_address rem_address   st
/proc/net/udp|  sl  local_address rem_address   st
/proc/net/unix|Num       RefCount Protocol Flags
/tmp/system.cfg|mgmt.kelo.env=prod
/run/ntp.ready|
/run/ipready.br0|192.0.2.1
/var/log/messages|
/usr/lib/build.properties|scm_reftype=atag
/etc/ssl/certs/ca-certificates.crt|-----BEGIN CERTIFICATE-----
END
    for name in syswrapper.sh logread oopsdump; do
        program "/usr/local/bin/$name" 'test -e /tmp/oops'
    done
}

# make_bridge: br0 at 192.0.2.1/24 with the port eth0, whose other end is far0, up and forwarding.
make_bridge() {
    ip link add br0 address 02:a0:f1:00:00:01 type bridge
    ip addr add 192.0.2.1/24 dev br0
    ip link add eth0 address 02:a0:f1:00:00:10 type veth peer name far0
    ip link set eth0 master br0
    for name in eth0 far0 br0; do
        ip link set "$name" up
    done
    until bridge link show dev eth0 | grep -q 'state forwarding'; do :; done
}

# hurry COMMAND...: runs it, and all it starts, with a sleep() that takes no time.
hurry() {
    LD_PRELOAD=$build/tests/tools/libhurry.so \
        ASAN_OPTIONS=$ASAN_OPTIONS:verify_asan_link_order=0 "$@"
}

# requests: the requests that the cloud host received since the last call, without most headers.
requests() {
    for name in cloud/received/*; do
        [ -e "$name" ] || return 0
        tr -d '\r' <"$name" | grep -av '^\(Host\|User-Agent\|Accept\|Content-.*\|Expect\): '
        rm "$name"
    done
}

# add_log NAME DAYS [META [finished]]: a log of ten bytes as the library leaves it, an hour short of
# that many days old.
add_log() {
    store=/etc/persistent/isolation_logs
    mkdir -p $store/meta ${store}_sent
    printf 0123456789 >"$store/$1"
    touch -d "@$(($(date +%s) - $2 * 86400 + 3600))" "$store/$1"
    [ -z "$3" ] || echo "{\"filename\":\"$1\",\"payload\":{},$3}" >"$store/meta/$1"
    [ -z "$4" ] || : >"${store}_sent/$1"
}

# crash_unit: the tools that crash reports are made with; the gates are open.
crash_unit() {
    whole_unit
    echo wireless.1.passphrase=very-private >/tmp/system.cfg
    program /usr/local/bin/syswrapper.sh '[ "$1" != save-config ] || echo saved >>/tmp/work/saves
        sed "s/passphrase=[^ ]*/passphrase=*/"'
    program /usr/local/bin/oopsdump 'case $1 in
        -e) test -s /run/oops ;;
        -c) : >/run/oops ;;
        *) cat /run/oops ;;
        esac'
}

# terminal: has the device lend terminals.
terminal() {
    mkdir /dev/pts
    mount -t devpts -o newinstance,ptmxmode=0666 devpts /dev/pts
    ln -sf pts/ptmx /dev/ptmx
}
