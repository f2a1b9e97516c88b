# The simulated site: a switch, and appliances with namespaces of their own on it.
# shellcheck shell=bash
#
# Sourced inside the namespaces that sim/site makes. An appliance is a process that holds a network
# and a mount namespace: in there, the bridge br0 with the cable eth0 to the switch, and a root of
# its own with hardware files in /proc/zorvhal, /tmp/system.cfg, /var/run/ipready.br0 and
# /var/run/zorv_protocol.info. The build machine's programs show through; its files are in /.host.

SITE=/run/site # one folder a device

# wait_carrier INTERFACE [on DEVICE]: waits until an interface, here or on a device, is up. Another
# look follows each change of an interface, and each tenth of a second in which there was none: the
# one that matters may have come before the monitor listened.
wait_carrier() {
    local -a at=("${@:2}")
    local looks
    for ((looks = 0; looks < 100; looks++)); do
        [ "$("${at[@]}" cat "/sys/class/net/$1/operstate")" != up ] || return 0
        read -r -t 0.1 _ || true
    done < <("${at[@]}" ip monitor link)
    echo "$1 does not come up" >&2
    return 1
}

# The words of a topology's lines that begin with a word.
topology() {
    awk -v word="$2" '$1 == word { $1 = ""; print substr($0, 2) }' "$1"
}

# device_up NAME SYSTEMID SERIALNO ADDRESS KEY GROUP
device_up() {
    local name=$1 address=$4 folder=$SITE/$1 pid
    mkdir -p "$folder/root"
    mkfifo "$folder/ready" "$folder/stay"
    unshare --net --mount -- "$SIM_DIR/lib/device" "$folder" "$@" &
    pid=$!
    echo "$pid" >"$folder/pid"
    read -r _ <"$folder/ready"
    ip link add "$name" type veth peer name eth0 netns "$pid"
    ip link set "$name" up master switch
    on "$name" sh -ec '
        ip link set lo up
        ip link add br0 type bridge mcast_snooping 0
        ip link set eth0 up master br0
        ip link set br0 up'
    set_address "$name" "$address"
    wait_carrier "$name"
    wait_carrier br0 on "$name"
}

# set_address DEVICE ADDRESS: gives br0 an address in place of its old one, and says so in the file
# that daemons read.
set_address() {
    # shellcheck disable=SC2016 # the device's shell expands it
    on "$1" sh -ec '
        ip address flush dev br0
        ip address add "$1/24" dev br0
        ip route replace default dev br0
        echo "$1" >/var/run/ipready.br0' set_address "$2"
}

site_up() {
    local key group name systemid serialno address own_key
    mount -t tmpfs tmpfs /run
    mkdir "$SITE"
    mount -t sysfs sysfs /sys
    ip link set lo up
    ip link add switch type bridge mcast_snooping 0
    ip link set switch up
    key=$(topology "$1" key)
    group=$(topology "$1" group)
    while read -r name systemid serialno address own_key; do
        device_up "$name" "$systemid" "$serialno" "$address" "${own_key:-$key}" "$group"
    done < <(topology "$1" device)
}
