# What an appliance's files say: its hardware, its configuration, its state, its log.
#
# lib/boot sources this, and has name, systemid, serialno, address, key, group, panic and own.
# shellcheck shell=bash disable=SC2154

make_hardware_files() {
    local mac
    mac=$(sed 's/../&:/g; s/:$//' <<<"$serialno")
    cat >/proc/zorvhal/system.info <<TEXT
vendorid=1f3d
systemid=$systemid
serialno=$serialno
eth0.macaddr=$mac
boardrevision=17
manufid=0042
mfgweek=2534
cpuid=2008a0${serialno:10}
device.anonid=$(printf 'device %s' "$serialno" | sha256sum | cut -c 1-16)
TEXT
    echo 'bomrev=0x00524101' >/proc/zorvhal/board
    echo false >/proc/zorvhal/status/IsDefault
    echo 6.6.55 >/usr/etc/.version
    echo 15189 >/usr/etc/.build
    echo scm_reftype=atag >/usr/lib/build.properties
}

make_configuration() {
    sed "s/@name@/$name/; s/@serialno@/$serialno/" "$own/system.cfg" >/tmp/system.cfg
    printf 'mgmt.kelo.env=prod\nmgmt.kelo.env.force=1\n' >/etc/persistent/cfg/mgmt
    cat >/run/zorv_protocol.info <<TEXT
pluvo.key=$key
pluvo.mcip=$group
TEXT
}

# What the daemons of a running unit have published.
make_state_files() {
    mkdir -p /run/report /run/guest/portal
    echo "$address" >/run/ipready.br0
    touch /run/ntp.ready
    echo 2 >/run/system.analytics.mode
    echo 1 >/run/system.analytics.coredump
    echo 1 >/run/system.internet
    echo bound >/run/dhcpc.last_state
}

# log TAG TEXT...: as the unit's syslog daemon has it.
log() {
    printf '%s %s %s: %s\n' "$(date '+%b %e %H:%M:%S')" "$name" "$1" "${*:2}" >>/var/log/messages
}

make_log() {
    log kernel "Booting on board $systemid"
    log kernel 'eth0: link becomes ready'
    log 'dhcpc[211]' "lease of $address obtained"
    if [ -n "$panic" ]; then
        cp "$own/oops" /.store/oops
    fi
    if [ -e /.store/oops ]; then
        log kernel 'a record of the crash before this start is kept, see oopsdump'
    fi
}

install_tools() {
    ln -s "$own/syswrapper.sh" /etc/syswrapper.sh
    ln -sf "$own/syswrapper.sh" "$own/oopsdump" "$own/logread" /usr/local/bin/
}

# The cloud host's names, and its authority as the only one.
trust_cloud() {
    cat /.store/cloud/hosts >>/etc/hosts
    cp /.store/cloud/ca.pem /etc/ssl/certs/ca-certificates.crt
}
