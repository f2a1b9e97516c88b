# Outages of the cloud's services, as the cloud host reads them: a file of lines, "HOST STATUS
# UNTIL", UNTIL in milliseconds of the epoch. It is replaced as a whole, and read at each request.
# shellcheck shell=bash

# host_names NAME: the host names of a service, or the name itself when it is one already.
host_names() {
    awk -v name="$1" '$1 == name { for (i = 2; i <= NF; i++) print $i; found = 1 }
        END { if (!found && name ~ /\./) print name }' "$SIM_PROGRAMS/services"
}

# milliseconds DURATION
milliseconds() {
    [[ $1 =~ ^([0-9]{1,9})(ms|s|m|h)$ ]] || return 1
    local number=$((10#${BASH_REMATCH[1]}))
    case ${BASH_REMATCH[2]} in
    ms) echo "$number" ;;
    s) echo $((number * 1000)) ;;
    m) echo $((number * 60000)) ;;
    h) echo $((number * 3600000)) ;;
    esac
}

# outage_lines NAME:STATUS:DURATION: the lines of an outage that begins now. One that is off has
# ended already.
outage_lines() {
    local name status duration names length host
    IFS=: read -r name status duration <<<"$1"
    if [ "$status" = off ]; then
        status=200 duration=0ms
    fi
    names=$(host_names "$name")
    [ -n "$names" ] || misuse "$1: no service is called $name"
    [[ $status =~ ^([1-5][0-9][0-9]|reset|silent)$ ]] ||
        misuse "$1: the status is an HTTP status, reset or silent"
    length=$(milliseconds "$duration") || misuse "$1: the duration is a number and ms, s, m or h"
    for host in $names; do
        echo "$host $status $(($(date +%s%3N) + length))"
    done
}

# set_outages FILE NAME:STATUS:DURATION...: adds outages to a file, in place of older ones of the
# same hosts.
set_outages() {
    local file=$1 order
    shift
    (
        flock 9
        for order; do
            outage_lines "$order"
        done >"$file.new"
        awk 'NR == FNR { newer[$1]; print; next } !($1 in newer)' "$file.new" "$file" \
            >"$file.both"
        mv "$file.both" "$file"
        rm "$file.new"
    ) 9>>"$file.lock"
}

# outages_in_force FILE: prints HOST STATUS and the seconds left.
outages_in_force() {
    awk -v now="$(date +%s%3N)" '$3 > now { printf "%s %s %.1f\n", $1, $2, ($3 - now) / 1000 }' "$1"
}
