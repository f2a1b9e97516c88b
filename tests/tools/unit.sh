# What the transcripts of zorvctl stand on, with the tree's and the build's folder in $source and
# $build. They have the bridge of tests/support/device.h.
# shellcheck shell=sh disable=SC2016,SC2154 # programs are texts; the two are set
PATH=$build/tools/zorvctl:$PATH
mkdir -p /tmp/work
cd /tmp/work || exit

# cloud: runs the cloud host by the script on standard input, with its requests in cloud/received.
cloud() {
    mkdir -p cloud
    cat >cloud/script
    mkfifo cloud/ready
    "$build/sim/libexec/zorv-sim/zorv-cloud" cloud/script cloud >cloud/ready 2>&1 &
    read -r _ <cloud/ready # it says so
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

# whole_unit: an access point after set-up, on which nothing is off.
whole_unit() {
    mkdir -p /run/guest /run/report /sys/class/net/br0/bridge /etc/persistent/cfg
    put_files <<'END'
/proc/zorvhal/system.info|vendorid=1f3d\nsystemid=7e8b\nserialno=02a0f3000007\nboardrevision=3\neth0.macaddr=02:a0:f3:00:00:07
/proc/zorvhal/board|bomrev=2e8ff
/proc/zorvhal/status/IsDefault|false
/run/zorv_protocol.info|pluvo.key=000102030405060708090a0b0c0d0e0f\npluvo.mcip=239.255.90.90
/usr/etc/.version|6.6.55
/usr/etc/.build|15189
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
    program /etc/syswrapper.sh cat
    for name in syswrapper.sh logread oopsdump; do
        program "/usr/local/bin/$name" 'test -e /tmp/oops'
    done
}

# terminals: pseudo-terminals of the device's own.
terminals() {
    mkdir -p /dev/pts
    mount -t devpts -o newinstance,ptmxmode=0666 devpts /dev/pts
    ln -sf pts/ptmx /dev/ptmx
}

# hurry COMMAND...: runs it, and all it starts, with waits that take no time.
hurry() {
    LD_PRELOAD=$build/tests/tools/libhurry.so \
        ASAN_OPTIONS=$ASAN_OPTIONS:verify_asan_link_order=0 "$@"
}

# requests: the requests that the cloud host received since the last call, without most headers.
requests() {
    grep -ahsv '^\(Host\|User-Agent\|Accept\|Content-.*\|Expect\): ' cloud/received/* | tr -d '\r'
    rm -f cloud/received/*
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
    program /usr/local/bin/oopsdump 'case $1 in -e) test -s /run/oops ;; -c) : >/run/oops ;;
        *) cat /run/oops ;; esac'
}
