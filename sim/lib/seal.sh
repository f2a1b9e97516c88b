# The seal between a site and the machine it runs on: appliances and the cloud host see the machine's
# files, and change none of them.
#
# Its tree is a mount of its own, read-only all the way down. A member of the site makes its root of
# that and of memory, lets go of everything else, and becomes root of a user namespace below the
# site's: there the kernel holds on to what has been mounted so far, and how.
# shellcheck shell=bash

# Makes $SITE/machine: the machine's tree, without the kernel's folders and without /run, in which
# sockets would be a way to running programs; and $SITE/etc, a copy with what each appliance has of
# its own left out, as a file of another user's could not be changed in an overlay.
make_machine() {
    local name copying
    mkdir "$SITE/machine" "$SITE/void" "$SITE/void/site" "$SITE/etc"
    cp -a /etc/. "$SITE/etc" 2>/dev/null & # what the user may read of it
    copying=$!
    mount --rbind / "$SITE/machine"
    "$SIM_PROGRAMS/zorv-seal" ro,nodev "$SITE/machine"
    for name in dev proc sys run; do
        mount --bind "$SITE/void" "$SITE/machine/$name"
        mount -o remount,bind,ro "$SITE/machine/$name"
    done
    wait "$copying" || true
    rm -rf "$SITE"/etc/{hostname,hosts,nsswitch.conf,resolv.conf,persistent,ssl,syswrapper.sh}
    mkdir -p "$SITE/etc/ssl/certs"
    ln -s /.host/etc/ssl/openssl.cnf "$SITE/etc/ssl/"
}

# The folders of the machine that appliances may change, in memory, and what is mounted below them.
# None where the kernel has no overlays for user namespaces (before Linux 5.11).
list_changeable() {
    local place
    mkdir -p "$SITE/trial/view"
    : >"$SITE/changeable"
    [ "${ZORV_SIM_OVERLAYS-}" != no ] || return 0
    mount_overlay /etc "$SITE/etc" "$SITE/trial" "$SITE/trial/view" 2>/dev/null || return 0
    umount "$SITE/trial/view"
    printf '%s\n' /usr /home /opt /srv >"$SITE/changeable"
    while read -r _ _ _ _ place _; do
        printf -v place %b "$place"
        if [[ $place =~ ^/(usr|home|opt|srv)/ && -d $place && ! $place =~ [:,\\] ]]; then
            printf '%s\n' "$place" >>"$SITE/changeable"
        fi
    done </proc/self/mountinfo
}

# mount_overlay PLACE LOWER MEMORY VIEW: a view of the folder LOWER whose changes are in MEMORY.
mount_overlay() {
    local upper=$3/upper${1//\//+} work=$3/work${1//\//+}
    mkdir -p "$upper" "$work"
    mount -t overlay -o "lowerdir=$2,upperdir=$upper,workdir=$work,userxattr" overlay "$4"
}

# guard_proc FOLDER: leaves writable of a mounted /proc what belongs to processes and to the network.
# Root may write the rest even from within a user namespace, when it is root outside as well.
guard_proc() {
    local -a paths
    mapfile -t paths < <(find "$1" -mindepth 1 -maxdepth 1 -name '[a-z]*' \
        \( -type d -o -type f -perm /222 \) 2>/dev/null)
    "$SIM_PROGRAMS/zorv-seal" --bind ro "${paths[@]}"
    mount --bind "$1/sys/net" "$1/sys/net"
    mount -o remount,bind,rw,nosuid,nodev,noexec "$1/sys/net"
}

# become FOLDER NAMESPACES... -- PROGRAM ARGUMENTS...: makes the folder the root, and the process a
# program in there, behind the seal.
become() {
    local -a user
    read -ra user <"$SITE/user" || true # empty
    cd "$1" || return
    pivot_root . .
    umount --lazy .
    # In two steps, or the network's files would be nobody's.
    exec "${user[@]}" unshare --mount "${@:2}"
}
