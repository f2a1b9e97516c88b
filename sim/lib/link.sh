# The cables between the switch and the appliances: good ones, poor ones (zorv-wire), and none.
# shellcheck shell=bash

# read_link WORDS...: "down", or how poor it is: the variables delay (milliseconds) and loss (percent).
# Nothing of both is "up".
read_link() {
    delay=0 loss=0
    case $# in
    1) [[ $1 =~ ^(up|down)$ ]] && return ;;
    2 | 4)
        while [ $# -gt 0 ]; do
            case $1 in
            delay) delay=$(milliseconds "$2") && ((delay <= 10000)) ;;
            loss) loss=${2%\%} && [[ $2 =~ ^([0-9]|[1-9][0-9]|100)%$ ]] ;;
            *) false ;;
            esac || break
            shift 2
        done
        [ $# -gt 0 ] || return 0
        ;;
    esac
    misuse "a link is up, down, delay DURATION (to 10s), loss PERCENT%, or both"
}

# wire_name NAME: the interface that a poor cable of an appliance ends at, before the switch.
wire_name() {
    awk -v name="$1" '$1 == name { print "wire." NR }' "$SITE/appliances"
}

# lay_good_cable NAME: whatever it was before.
lay_good_cable() {
    ip link delete "$(wire_name "$1")" 2>/dev/null || : # ends its zorv-wire, too
    ip link set "$1" master switch arp on up
    rm -f "$SITE/$1/link"
}

# set_link NAME WORDS...: without ARP the switch does not answer at the port that is not a part of it
# for now.
set_link() {
    local name=$1 wire delay loss said
    shift
    read_link "$@"
    lay_good_cable "$name"
    [ "$*" != up ] || return 0
    if [ "$*" = down ]; then
        ip link set "$name" down
    else
        wire=$(wire_name "$name")
        ip -batch - <<TEXT
link add $wire type veth peer name $wire.s
link set $wire.s up master switch
link set $wire arp off up promisc on
link set $name nomaster arp off promisc on
TEXT
        read -r said < <(exec setsid "$SIM_PROGRAMS/zorv-wire" "$name" "$wire" "$delay" "$loss")
        [ "$said" = ready ]
    fi
    echo "$*" >"$SITE/$name/link"
}
