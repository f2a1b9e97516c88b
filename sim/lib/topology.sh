# Topologies: which appliances a site has. A small file of lines, "#" begins a comment:
#
#   group ADDRESS                                the discovery group
#   key KEY                                      the site's discovery key
#   appliance NAME SYSTEMID SERIALNO ADDRESS [KEY]
#   cloud LINE                                   one more line of the cloud host's script
#
# All addresses are in one network, SIM_NETWORK: the router is 1 there, the cloud host 2.
# shellcheck shell=bash

SIM_NETWORK=192.0.2

# The rest of a topology's lines that begin with a word.
topology() {
    awk -v word="$1" '$1 == word { sub(/^[ \t]*[^ \t]+[ \t]*/, ""); print }' <<<"$SIM_TOPOLOGY"
}

is_address() {
    [[ $1 =~ ^"$SIM_NETWORK"\.([1-9][0-9]{0,2})$ ]] &&
        ((BASH_REMATCH[1] > 2 && BASH_REMATCH[1] < 255))
}

# make_topology COUNT: access points ap1 and on, all of one board.
make_topology() {
    local number
    printf 'group 239.255.90.90\nkey 6f2b0d3c5a9e47718d40b1c2e3f4a596\n'
    for ((number = 1; number <= $1; number++)); do
        printf 'appliance ap%d 7e8b 02a0f10000%02x %s.%d\n' \
            "$number" "$number" "$SIM_NETWORK" $((10 + number))
    done
}

# is_appliance NAME SYSTEMID SERIALNO ADDRESS [KEY]: a name becomes that of an interface as well.
is_appliance() {
    [ $# -ge 4 ] && [[ $1 =~ ^[a-z][a-z0-9-]{0,14}$ && ! $1 =~ ^(cloud|switch|lo)$ ]] &&
        [[ $2 =~ ^[0-9a-f]{4}$ && $3 =~ ^[0-9a-f]{12}$ && ${5-} =~ ^([0-9a-f]{32})?$ ]] &&
        is_address "$4"
}

# read_topology FILE: prints a topology that has been looked over. FILE is a path, or the name of
# one that comes along.
read_topology() {
    local file=$1 row count=0 repeated
    local -a words
    [ -f "$file" ] || [[ $file == */* ]] || file=$SIM_DATA/topologies/$file
    [ -r "$file" ] || misuse "no topology $1"
    SIM_TOPOLOGY=$(sed 's/[ \t]*#.*//; /^[ \t]*$/d' "$file")
    [ -n "$(topology group)" ] || misuse "$1: no group"
    [ -n "$(topology key)" ] || misuse "$1: no key"
    row=$(grep -vE '^[ \t]*(group|key|appliance|cloud)[ \t]' <<<"$SIM_TOPOLOGY" || true)
    [ -z "$row" ] || misuse "$1: unknown line: $row"
    while read -ra words; do
        is_appliance "${words[@]}" || misuse "$1: not an appliance: ${words[*]}"
        count=$((count + 1))
    done < <(topology appliance)
    ((count >= 1 && count <= 32)) || misuse "$1: $count appliances, not 1 to 32"
    repeated=$(topology appliance |
        awk '$1 in seen || $4 in seen { print $1 } { seen[$1]; seen[$4] }')
    [ -z "$repeated" ] || misuse "$1: the name or the address is another's too: $repeated"
    printf '%s\n' "$SIM_TOPOLOGY"
}
