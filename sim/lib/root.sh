# The root of an appliance: folders of its own, and links to the build machine's for the rest.
#
# lib/device sources this, and sets name and store.
# shellcheck shell=bash disable=SC2154

# link_rest FOLDER: what a folder of the new root lacks is the build machine's. Symbolic links, such
# as /bin on many machines, stay what they are.
link_rest() {
    local path
    local -a links=() others=()
    for path in "$1"/*; do
        if [ -e ".$path" ] || [ -L ".$path" ]; then
            continue
        elif [ -L "$path" ]; then
            links+=("$path")
        else
            others+=("/.host$path")
        fi
    done
    [ ${#links[@]} = 0 ] || cp --no-dereference "${links[@]}" ".$1/"
    [ ${#others[@]} = 0 ] || ln -s "${others[@]}" ".$1/"
}

# expose PATH: makes a folder of the build machine's valid under its own name, also where it stands
# in a folder that the appliance has of its own.
expose() {
    local above=$1
    while [ -n "$above" ]; do
        if [ -L ".$above" ]; then # leads to the build machine as soon as that is at /.host
            return
        fi
        above=${above%/*}
    done
    [ -e ".$1" ] && return
    mkdir -p ".${1%/*}"
    ln -s "/.host$1" ".$1"
}

# The kernel's /proc takes no files, so /proc is a folder that leads there. enter adds processes.
make_proc() {
    local path
    local -a links=()
    mkdir .proc proc/zorvhal proc/zorvhal/status
    mount -t proc proc .proc
    for path in .proc/[a-z]*; do
        [ "$path" = .proc/sysrq-trigger ] || links+=("/$path")
    done
    ln -s "${links[@]}" proc/
}

make_dev() {
    mount --rbind "$SITE/dev" dev
    mount -t tmpfs tmpfs dev/shm
}

# make_root FOLDER: makes it, and goes there.
make_root() {
    local tree
    mount -t sysfs sysfs /sys # of this network namespace
    mount -t tmpfs -o mode=755 tmpfs "$1"
    cd "$1" || return
    mkdir -p .host dev proc sys run tmp root etc/ssl/certs \
        usr/etc usr/lib usr/local/bin var/log var/tmp
    chmod 1777 tmp var/tmp
    ln -s /run var/run
    cp -a "$store/persistent" etc/persistent
    mkdir -p etc/persistent/cfg
    make_network_files
    link_rest ''
    link_rest /etc
    link_rest /usr
    link_rest /usr/lib
    link_rest /usr/local
    link_rest /usr/local/bin
    while read -r -d : tree; do
        expose "$tree"
    done <<<"${ZORV_SIM_TREES-}:"
    make_dev
    mount --rbind /sys sys
    make_proc
    pivot_root . .host
    cd /
    ln -s "/.host$store" .store
}

# How names are looked up: in the file alone, and quickly in vain elsewhere.
make_network_files() {
    echo 'hosts: files dns' >etc/nsswitch.conf
    printf 'nameserver 127.0.0.1\noptions timeout:1 attempts:1\n' >etc/resolv.conf
    printf '127.0.0.1 localhost\n127.0.1.1 %s\n' "$name" >etc/hosts
    echo "$name" >etc/hostname
    ln -s /.host/etc/ssl/openssl.cnf etc/ssl/openssl.cnf
}

# The cloud host's names, and its authority as the only one.
trust_cloud() {
    cat "/.host$SITE/cloud/hosts" >>/etc/hosts
    cp "/.host$SITE/cloud/ca.pem" /etc/ssl/certs/ca-certificates.crt
}
