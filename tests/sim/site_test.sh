#!/usr/bin/env bash
# zorv-sim as its users have it: site_test.sh TEST BUILD_DIR
set -euo pipefail

build=$2 zorv_sim=$2/sim/bin/zorv-sim
source=$(readlink -f "$(dirname "$0")/../..")
work=$(mktemp -d)
export ZORV_SIM_STATE=$work/state TMPDIR=$work/tmp
mkdir "$TMPDIR"

# Every process of a site inherits descriptor 7, so that the end of the last one can be read from
# descriptor 8.
mkfifo "$work/lives"
# shellcheck disable=SC2094 # as intended
exec 6<>"$work/lives" 7>"$work/lives" 8<"$work/lives" 6>&-

trap '[ ! -e "$ZORV_SIM_STATE" ] || sim down || true; rm -rf "$work"' EXIT

sim() { "$zorv_sim" "$@"; }

fail() {
    echo "line ${BASH_LINENO[1]}: $*" >&2
    exit 1
}

# expect STATUS TEXT COMMAND...: a command's exit status, and a text that is in what it prints.
expect() {
    local status=0 output
    output=$("${@:3}" 2>&1) || status=$?
    [ "$status" = "$1" ] || fail "${*:3}: exit status $status, not $1: $output"
    [[ $output == *"$2"* ]] || fail "${*:3}: no '$2' in: $output"
}

# What a machine could keep of a site.
traces() {
    cat /sys/class/net/*/address
    cut -d ' ' -f 3- /proc/self/mountinfo
    ls -A "$work" "$TMPDIR"
}

# The last process of the site has ended, and all is as it was. No sooner is there an end to read,
# since whatever is left would hold descriptor 7.
nothing_left() {
    exec 7>&-
    read -r -t 60 -u 8 || [ $? = 1 ] || fail 'processes are left'
    exec 7>"$work/lives"
    diff <(traces) - <<<"$before" || fail 'something is left'
}

# report HOST: "=" and the HTTP status that the attic gets for a crash report; 0 for none.
report() {
    sim exec ap1 zorvctl http post "https://$1/v1/crash" --data '{"upload": true}' |
        awk '$1 == "status" { print "=" $2 }' || true # no status is a bad one for the tool
}

test_comes_up_and_goes_down() {
    expect 1 'no site is up' sim exec ap1 true
    expect 0 '' sim up
    expect 1 'is up already' sim up
    expect 0 'ap2              192.0.2.12' sim status
    expect 0 ap2 sim exec ap2 hostname
    expect 7 '' sim exec ap1 sh -c 'exit 7'
    expect 2 'no appliance is called ap3' sim exec ap3 true
    expect 0 serialno=02a0f1000002 sim exec ap2 cat /proc/zorvhal/system.info
    expect 0 'ap2              healthy: ' sim doctor
    sim exec ap2 rm /run/ntp.ready
    expect 1 'ap2              /var/run/ntp.ready: missing' sim doctor
    expect 1 '"appliance":"ap2","doctor":{"reports":{"sent":false,' sim doctor --json
    sim exec ap2 touch /run/ntp.ready
    expect 0 zorv-sim.1 sim exec ap1 bash -c 'exec -a zorv-sim.1 cat /proc/self/cmdline'
    # A command ends with its exec; each appliance sees its own processes.
    "$zorv_sim" exec ap1 sh -c 'touch /run/daemon; exec sleep 1000' &
    until sim exec ap1 test -e /run/daemon; do :; done
    expect 0 'sleep 1000' sim exec ap1 zorvctl ps --name sleep
    expect 1 '' sim exec ap2 zorvctl ps --name sleep
    kill $!
    until ! sim exec ap1 zorvctl ps --name sleep >/dev/null; do :; done
    expect 0 '' sim down
    nothing_left
}

test_its_holder_or_the_parent_is_killed() {
    local holder
    for killed in holder parent; do
        sim up
        sim exec ap1 setsid sh -c 'echo 1 >/run/daemon; exec sleep 1000' >/dev/null 2>&1 &
        until sim exec ap1 test -s /run/daemon; do :; done
        holder=$(<"$ZORV_SIM_STATE/holder")
        [ $killed = holder ] || holder=$(awk '$1 == "PPid:" { print $2 }' "/proc/$holder/status")
        kill -KILL "$holder"
        nothing_left
    done
}

test_a_run_is_ended_by_a_signal() {
    local status
    for signal in INT TERM HUP KILL; do
        set -m # in a process group of its own, as a terminal makes it
        "$zorv_sim" run -- bash -c "zorv-sim exec ap1 true; echo >'$work/ready'; sleep 1000" &
        set +m
        site=$!
        read -r _ <"$work/ready"
        [ $signal != INT ] || site=-$site # a terminal sends it to all
        kill "-$signal" -- "$site"
        status=0
        wait "${site#-}" || status=$?
        [ "$status" -gt 128 ] || fail "$signal: exit status $status"
        nothing_left
    done
}

test_a_run_gives_its_command_the_site() {
    expect 7 'ap1' sim run -- bash -c 'zorv-sim exec ap1 hostname; exit 7'
    expect 127 'no-such-program' sim run -- no-such-program
    expect 1 'ends with the command' sim run -- zorv-sim down
    nothing_left
}

test_the_cloud_answers_and_fails() {
    local url
    sim up --outage crash:500:1h --outage trace:reset:1h
    expect 0 =500 report crash.zorv.example
    expect 0 =500 report crash.stage.zorv.example
    expect 0 =0 report trace.zorv.example
    sim outage crash:503:2s
    until [ "$(report crash.zorv.example)" = =200 ]; do :; done
    expect 0 '{"upload": true}' sim received last
    sim outage trace:off
    expect 0 =200 report trace.zorv.example
    expect 1 'resolver  doh' sim exec ap1 zorvctl http get --report --doh https://crash.zorv.example/
    expect 0 'status    202' sim exec ap1 zorvctl http put https://trace.zorv.example/traces
    url=$(sim exec ap1 zorvctl http post https://crash.zorv.example/v1/crash \
        --data '{"upload":true}' | sed -n 's/{"upload_url":"\(.*\)"}/\1/p')
    expect 0 'status    200' sim exec ap1 zorvctl http put "$url" --data bytes
    expect 0 'PUT crash.zorv.example/upload/' sim received
}

test_a_restart_keeps_what_was_saved() {
    sim up
    expect 1 '' sim exec ap1 oopsdump -e
    sim exec ap1 sh -c 'echo a >/etc/persistent/saved; syswrapper.sh save-config
        echo b >/etc/persistent/lost'
    sim reboot ap1 --panic
    expect 0 '' sim exec ap1 cmp /etc/persistent/saved - <<<a
    expect 2 '' sim exec ap1 ls /etc/persistent/lost
    expect 0 'admin password=******' sim exec ap1 sh -c \
        'oopsdump -e && oopsdump | syswrapper.sh sensitive-data-filter'
    sim exec ap1 oopsdump -c
    expect 1 '' sim exec ap1 oopsdump -e
}

test_a_cable_is_poor_or_pulled() {
    sim up
    sim link ap1 delay 20ms loss 1%
    expect 0 =200 report trace.zorv.example
    sim link ap2 down
    expect 0 0 sim exec ap2 cat /sys/class/net/eth0/carrier
    expect 0 'crash.zorv.example              up' sim status
    expect 0 '"link":"down"}],"cloud":{"address":"192.0.2.2","requests":1,' sim status --json
    expect 0 '[{"number":1,"method":"POST","host":"trace.zorv.example","path":"/v1/crash"}]' \
        sim received --json
    sim reboot ap1
    sim link ap2 up
    expect 1 '' sim exec ap2 grep -q 0 /sys/class/net/eth0/carrier
    expect 0 =200 report trace.zorv.example
    sim down
    nothing_left
}

test_bad_orders_are_refused() {
    expect 2 'no group' sim run --topology /dev/null -- true
    expect 2 'no topology nowhere' sim up --topology nowhere
    expect 2 'no service is called web' sim up --outage web:500:1s
    expect 2 'the status is' sim up --outage crash:5000:1s
    expect 2 'the duration is' sim up --outage crash:500:1
    expect 2 'a link is up, down' sim link ap1 loss 101%
    [ ! -e "$ZORV_SIM_STATE" ] || fail 'something was started'
}

# Who is root on an appliance remounts what there is, and then writes wherever the machine could be:
# files of this test alone, and settings as they are, should there be a way.
test_the_machine_is_sealed() {
    local mark=here-was-$$ folder=$work/folder said
    mkdir "$folder" "$work/share"
    echo intact >"$folder/file"
    install /dev/stdin "$folder/tool" <<<$'#!/bin/sh\necho "tool: $(cat file)"'
    cd "$folder"
    for overlays in yes no; do
        ZORV_SIM_OVERLAYS=$overlays sim up --share "$work/share"
        PATH=$folder:$PATH expect 0 'tool: intact' sim exec ap1 tool
        sim push ap1 tool "$folder/file" /usr/local/bin
        expect 0 'tool: intact' sim exec ap1 sh -ec 'cd /usr/local/bin; tool; rm /etc/group
            echo x >>/etc/passwd; echo x >/usr/lib/x; echo shared >/share/said'
        # shellcheck disable=SC2016 # the shells there expand it
        for name in ap1 cloud; do
            said=$(sim exec $name sh -c '
                for place in / $(cut -d " " -f 5 /proc/self/mountinfo); do
                    mount -o remount,bind,rw,dev "$place"; mount -o remount,rw "$place"
                    [ "${place#/.host}" = "$place" ] || umount -l "$place"
                done
                for place in / /* /.host/* "$1" "/.host$1"; do echo x >"$place/$2"; done
                rm -rf "$1" "/.host$1" "/.host${1%/*}/share"
                settings=/proc/sys/kernel/core_pattern
                cat $settings >$settings && echo settings
                unshare -pf --mount-proc sh -c "cat $settings >$settings" && echo settings
                mount -t sysfs sysfs /mnt && echo sysfs; chmod 666 /dev/null && echo modes
                ls -d /.host/proc/1 /.host/dev/null
                echo over' attack "$folder" "$mark" 2>/dev/null)
            [ "$said" = over ] || fail "$name: $said"
        done
        expect 0 $'intact\nshared' cat "$folder/file" "$work/share/said"
        [ -z "$(find -H / /* . -maxdepth 1 -name $mark -print -delete 2>&-)" ] || fail written
        sim down
    done
}

# What README.md and docs/*.md show at a site, the guides' programs in the reader's folder.
test_the_manual_shows_what_is_so() {
    export PATH=$build/sim/bin:$build/tools/zorvctl:$PATH
    cp "$build"/tests/docs/first_{daemon,report} "$work"
    for text in "$source"/README.md "$source"/docs/*.md; do
        grep -qx '<!-- run: site -->' "$text" || continue
        (cd "$work" && "$source/scripts/run-page" "$text" 'run: site' >said) || fail "$text"
        sim down >/dev/null 2>&1 || : # where the text has not done so
        cat "$work/said" >>"$work/all"
    done
    expect 0 $'from now on I am attic\nattic' cat "$work/all"
    expect 0 'delivered         1' cat "$work/all"
}

mkfifo "$work/ready"
before=$(traces)
"test_$1"
