# How a site is started, found again and ended: the view from outside.
#
# A site is a process that is the first of a PID namespace, the holder: when it ends, the kernel
# ends every process of the site, and with them go their namespaces, interfaces, mounts and files.
# What `up` leaves outside of it is a folder with two files: "holder", its process number, and
# "lock", which is locked as long as a process of the site lives. lib/hold has the other half.
# shellcheck shell=bash

# shellcheck source-path=SCRIPTDIR source=lock.sh
. "$SIM_DATA/lib/lock.sh"

unset SIM_STATE # not what a caller may have exported
if [ -n "${ZORV_SIM_STATE-}" ]; then
    SIM_STATE=$ZORV_SIM_STATE
elif [ -n "${XDG_RUNTIME_DIR-}" ]; then
    SIM_STATE=$XDG_RUNTIME_DIR/zorv-sim
elif [ "$(id -u)" = 0 ]; then
    SIM_STATE=/run/zorv-sim
else
    SIM_STATE=/tmp/zorv-sim.$(id -u)
fi

# The ways into namespaces of one's own: first to be root, then to all the others. Root does without
# the first where the kernel has no namespaces for users.
choose_ways() {
    into_site=(unshare --net --mount --pid --ipc --uts --fork --kill-child --mount-proc --)
    to_root=()
    if unshare --user --map-root-user true 2>/dev/null; then
        to_root=(unshare --user --map-root-user --)
    elif [ "$(id -u)" != 0 ]; then
        fail 'the kernel lets ordinary users have no user namespaces'
    fi
}

is_up() {
    [ -O "$SIM_STATE/holder" ] && ! flock --nonblock --shared "$SIM_STATE/lock" true
}

end_start() {
    kill -KILL "$1" 2>/dev/null || true
    if open_lock "$SIM_STATE"; then
        remove_state "$SIM_STATE"
    fi
}

# Starts a site and waits until it is up; on any other end of this shell it ends too.
state_start() {
    local -a to_root into_site
    local line ready='' starter
    if is_up; then
        fail "a site is up already, see zorv-sim status"
    fi
    choose_ways
    exec {report}< <(exec setsid "$SIM_DATA/lib/hold" "$SIM_STATE" \
        "${to_root[@]}" "${into_site[@]}" 2>&1 </dev/null)
    starter=$!
    trap 'end_start "$starter"; exit 130' INT TERM HUP
    while read -r line <&"$report"; do
        if [ "$line" = ready ]; then
            ready=1
            break
        fi
        printf '%s\n' "$line" >&2
    done
    trap - INT TERM HUP
    [ -n "$ready" ] || fail 'the site does not come up'
}

# Runs a site for a command, in the foreground. The site ends with this shell, whatever ends it.
run_site() {
    local -a to_root into_site
    local site status
    choose_ways
    export SIM_FOLDER=$PWD
    cd /proc || return # see hold
    # A shell has its background processes ignore interrupts: the command shall not. Becoming root
    # makes the kernel forget the death signal, hence the order. A parent that is gone by then sends
    # none: so it is looked at once more, here and in init.
    # shellcheck disable=SC2016 # that shell expands it
    env --default-signal=INT,QUIT "${to_root[@]}" setpriv --pdeathsig KILL -- \
        sh -c '[ "$PPID" = "$1" ] && shift && SIM_PARENT=$$ exec "$@"' sh $$ \
        "${into_site[@]}" "$SIM_DATA/lib/init" "$@" <&0 &
    site=$!
    trap 'kill -KILL "$site"' TERM HUP
    trap : INT QUIT # the command has them too, and decides
    status=0
    wait "$site" || status=$?
    while kill -0 "$site" 2>/dev/null; do # it was but a signal that ended the waiting
        status=0
        wait "$site" || status=$?
    done
    exit "$status"
}

# Replaces this shell by a command inside the site.
enter_site() {
    if [ "${SIM_INSIDE-}" = 1 ]; then
        exec "$@"
    fi
    is_up || fail 'no site is up'
    local holder
    local -a into=(--net --mount --pid --ipc --uts --wd)
    holder=$(<"$SIM_STATE/holder")
    [ "/proc/$holder/ns/user" -ef /proc/self/ns/user ] || into+=(--user --preserve-credentials)
    exec nsenter --target "$holder" "${into[@]}" -- setpriv --pdeathsig TERM -- "$@"
}

# Ends the site, and waits until all of it is gone.
state_end() {
    [ "${SIM_INSIDE-}" != 1 ] || fail 'this site ends with the command it was started for'
    local was_up=''
    if open_lock "$SIM_STATE"; then
        if is_up; then
            was_up=1
            kill -KILL "$(<"$SIM_STATE/holder")"
        fi
        remove_state "$SIM_STATE" # also of a site that was killed together with its cleaner
    fi
    [ -n "$was_up" ] || fail 'no site is up'
}
