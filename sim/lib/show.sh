# What a site is and what its cloud received: for people, and as JSON.
# shellcheck shell=bash

# A request; a line that its body leaves open is ended.
show_request() {
    cat "$1"
    [ -z "$(tail -c 1 "$1")" ] || echo
}

# list_requests [--json]: what a client wrote is in it, so bytes that JSON has no place for are \u00XX.
list_requests() {
    shopt -s nullglob
    LC_ALL=C awk -v json="${1-}" '
        function text(bytes,    i, c, out) {
            for (i = 1; i <= length(bytes); i++) {
                c = substr(bytes, i, 1)
                plain = code[c] >= 32 && code[c] < 127 && c != "\"" && c != "\\"
                out = out (plain ? c : sprintf("\\u%04x", code[c]))
            }
            return "\"" out "\""
        }
        BEGIN { for (i = 1; i < 256; i++) code[sprintf("%c", i)] = i; separator = "{\"requests\":[" }
        FNR == 1 { method = $1; path = $2; host = ""; done = 0; number = FILENAME; sub(/.*\//, "", number) }
        done { next }
        tolower($1) == "host:" { sub(/\r$/, "", $2); host = $2 }
        $0 == "\r" {
            done = 1
            if (json) {
                printf "%s{\"number\":%d,\"method\":%s,\"host\":%s,\"path\":%s}", separator, number,
                    text(method), text(host), text(path)
                separator = ","
            } else
                print number, method, host path
        }
        END { if (json) print (separator == "," ? "" : separator) "]}" }
    ' "$SITE"/cloud/received/[0-9]*[0-9] </dev/null
}

order_received() {
    local -a requests
    local request
    case ${1-} in
    '' | --json) list_requests "$@" ;;
    last)
        shopt -s nullglob
        requests=("$SITE"/cloud/received/[0-9]*[0-9])
        [ ${#requests[@]} -gt 0 ] || misuse 'the cloud has received nothing'
        show_request "${requests[-1]}"
        ;;
    *)
        request=$SITE/cloud/received/$(printf %06d "$((10#$1))")
        [ -e "$request" ] || misuse "the cloud has received no request $1"
        show_request "$request"
        ;;
    esac
}

# link_of NAME: as `zorv-sim link` takes it.
link_of() {
    cat "$SITE/$1/link" 2>/dev/null || echo up
}

# hosts_state: a line for each host of the cloud, "HOST STATUS SECONDS-LEFT".
hosts_state() {
    outages_in_force "$SITE/cloud/outages" |
        awk -v hosts="$SITE/cloud/hosts" 'FILENAME != hosts { state[$1] = $2 " " $3; next }
            { print $2, ($2 in state ? state[$2] : "up 0") }' - "$SITE/cloud/hosts"
}

count_requests() {
    find "$SITE/cloud/received" -type f -name '*[0-9]' | wc -l
}

show_site() {
    local name systemid serialno address _ host state left
    printf '%-15s  %-15s  %-9s  %-13s  %s\n' APPLIANCE ADDRESS 'SYSTEM ID' 'SERIAL NUMBER' LINK
    while read -r name systemid serialno address _; do
        printf '%-15s  %-15s  %-9s  %-13s  %s\n' "$name" "$address" "$systemid" "$serialno" \
            "$(link_of "$name")"
    done <"$SITE/appliances"
    printf '\ncloud at %s, %d requests received\n' "$SIM_NETWORK.2" "$(count_requests)"
    while read -r host state left; do
        [ "$left" = 0 ] || state+=" for another $left s"
        printf '  %-30s  %s\n' "$host" "$state"
    done < <(hosts_state)
}

# Words of a topology need no escapes.
show_site_as_json() {
    local name systemid serialno address _ host state left separator=''
    printf '{"appliances":['
    while read -r name systemid serialno address _; do
        printf '%s{"name":"%s","address":"%s","systemid":"%s","serialno":"%s","link":"%s"}' \
            "$separator" "$name" "$address" "$systemid" "$serialno" "$(link_of "$name")"
        separator=,
    done <"$SITE/appliances"
    printf '],"cloud":{"address":"%s","requests":%d,"hosts":[' "$SIM_NETWORK.2" "$(count_requests)"
    separator=''
    while read -r host state left; do
        printf '%s{"name":"%s","status":"%s","seconds_left":%s}' "$separator" "$host" "$state" "$left"
        separator=,
    done < <(hosts_state)
    printf ']}}\n'
}

order_status() {
    if [ $# = 0 ]; then
        show_site
    else
        show_site_as_json
    fi
}
