# The site, from inside: a switch, which is the router as well, and on it the cloud host and the
# appliances.
# shellcheck shell=bash
#
# Each of them is a process with namespaces of its own (lib/device, lib/cloud) and a folder in
# $SITE. They come up side by side: a member says "made PID" when it has its namespaces, gets a
# cable to the switch and the word to go on, and says "ready" when it can be talked to.
#
#   $SITE/NAME/pid       its first process
#   $SITE/NAME/stay      a FIFO: the word to go on comes here, and it reads here until the site ends
#   $SITE/NAME/store     what an appliance keeps over a restart
#   $SITE/appliances     the topology's rows, with the key and the present address filled in
#   $SITE/cloud/...      of the cloud host: script, ca.pem, hosts, outages, received/

export SITE=/run/site

# shellcheck source-path=SCRIPTDIR source=topology.sh
. "$SIM_DATA/lib/topology.sh"
# shellcheck source-path=SCRIPTDIR source=outage.sh
. "$SIM_DATA/lib/outage.sh"
# shellcheck source-path=SCRIPTDIR source=seal.sh
. "$SIM_DATA/lib/seal.sh"

misuse() {
    echo "zorv-sim: $*" >&2
    exit 2
}

declare -A member_says

# member_start NAME NAMESPACES... -- PROGRAM ARGUMENTS...: in a session of its own, so that no
# terminal of who starts it interrupts it.
member_start() {
    local name=$1 folder=$SITE/$1 says go
    mkdir -p "$folder"
    [ -e "$folder/stay" ] || mkfifo "$folder/stay"
    exec {go}<>"$folder/stay"
    exec {says}< <(exec setsid unshare "${@:2}" <&"$go" {go}<&-)
    exec {go}<&- # the member has it
    member_says[$name]=$says
}

# member_hear NAME WORD: waits until a member says so; the rest of its line goes to the variable
# heard. What else it says is a complaint.
member_hear() {
    local line word
    while read -r line <&"${member_says[$1]}"; do
        read -r word heard <<<"$line"
        [ "$word" != "$2" ] || return 0
        printf '%s\n' "$line" >&2
    done
    echo "zorv-sim: $1 does not come up" >&2
    return 1
}

# member_plug NAME MAC: gives a member its cable, and sends it on its way.
member_plug() {
    member_hear "$1" made
    echo "$heard" >"$SITE/$1/pid"
    ip -batch - <<TEXT
link add $1 type veth peer name eth0 address $2 netns $heard
link set $1 up master switch
TEXT
    echo go >"$SITE/$1/stay"
}

member_ready() {
    local says=${member_says[$1]}
    member_hear "$1" ready
    exec {says}<&-
}

# appliance_start NAME [panic]
appliance_start() {
    member_start "$1" --mount --pid --fork --kill-child -- \
        "$SIM_DATA/lib/device" "$1" ${2:+"$2"}
}

# appliance_plug NAME
appliance_plug() {
    local mac
    mac=$(awk -v name="$1" '$1 == name { gsub(/../, "&:", $3); print substr($3, 1, 17) }' \
        "$SITE/appliances")
    mkdir -p "$SITE/$1/store/cloud"
    cp "$SITE/cloud/hosts" "$SITE/cloud/ca.pem" "$SITE/$1/store/cloud"
    member_plug "$1" "$mac"
}

# for_appliances FUNCTION: calls it with the name of each.
for_appliances() {
    local name
    while read -r name _ <&5; do
        "$1" "$name"
    done 5<"$SITE/appliances"
}

# The rows with the site's key where they have none.
list_appliances() {
    local name systemid serialno address own_key key
    key=$(topology key)
    while read -r name systemid serialno address own_key; do
        echo "$name $systemid $serialno $address ${own_key:-$key}"
    done < <(topology appliance)
}

# What the appliances have of the build machine's /dev: the modes are not theirs to change. Terminals
# are their own.
make_dev_nodes() {
    local node
    mkdir "$SITE/dev"
    for node in null zero full random urandom tty; do
        : >"$SITE/dev/$node"
        mount --bind "/dev/$node" "$SITE/dev/$node"
    done
    "$SIM_PROGRAMS/zorv-seal" ro "$SITE"/dev/*
    mkdir "$SITE/dev/pts"
    mount -t devpts -o newinstance,ptmxmode=666 devpts "$SITE/dev/pts"
    ln -s pts/ptmx "$SITE/dev/ptmx"
    ln -s /proc/self/fd "$SITE/dev/fd"
    ln -s /proc/self/fd/0 "$SITE/dev/stdin"
    ln -s /proc/self/fd/1 "$SITE/dev/stdout"
    ln -s /proc/self/fd/2 "$SITE/dev/stderr"
}

# A folder of the machine's that the appliances may write, as /share.
make_share() {
    mkdir "$SITE/share"
    mount --rbind "$1" "$SITE/share"
    "$SIM_PROGRAMS/zorv-seal" nodev,nosuid "$SITE/share"
}

make_switch() {
    ip -batch - <<TEXT
link set lo up
link add switch type bridge mcast_snooping 0
link set switch up
address add $SIM_NETWORK.1/24 dev switch
TEXT
}

site_up() {
    mount -t tmpfs -o mode=755 tmpfs /run
    mkdir "$SITE" "$SITE/bin"
    ln -s "$SIM_COMMAND" "$SITE/bin/zorv-sim"
    mount -t sysfs -o ro sysfs /sys
    list_appliances >"$SITE/appliances"
    topology group >"$SITE/group"
    : >"$SITE/user" # what makes a user namespace
    if unshare --user --map-root-user true 2>/dev/null; then
        echo unshare --user --map-root-user -- >"$SITE/user"
    else
        echo 'zorv-sim: without user namespaces, a command that remounts gets through the seal' >&2
    fi
    make_machine
    list_changeable
    make_dev_nodes
    [ -z "$SIM_SHARE" ] || make_share "$SIM_SHARE"
    make_switch

    member_start cloud --mount -- "$SIM_DATA/lib/cloud" "$SIM_NETWORK.2"
    for_appliances appliance_start
    member_plug cloud 02:a0:f1:ff:00:02
    member_ready cloud
    for_appliances appliance_plug
    for_appliances member_ready
    if [ -n "$SIM_OUTAGES" ]; then
        # shellcheck disable=SC2086 # one word an outage
        set_outages "$SITE/cloud/outages" $SIM_OUTAGES
    fi
}
