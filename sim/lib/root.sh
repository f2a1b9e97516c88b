# The root of an appliance: folders of its own, views of the build machine's that it may change in
# memory, and links to the sealed tree of that for the rest.
#
# lib/device sources this, and sets name, folder and store.
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
    guard_proc .proc
    for path in .proc/[a-z]*; do
        [ "$path" = .proc/sysrq-trigger ] || links+=("/$path")
    done
    ln -s "${links[@]}" proc/
}

make_dev() {
    local path
    mkdir .dev
    mount --rbind "$SITE/dev" .dev
    for path in .dev/*; do
        ln -s "/$path" dev/
    done
    mkdir dev/shm
    mount -t tmpfs tmpfs dev/shm
}

# make_changeable: the machine's folders that the appliance may change in memory; without overlays,
# folders of its own with links in them.
make_changeable() {
    local place memory=$folder/memory
    local -a folders=()
    if ! [ -s "$SITE/changeable" ]; then
        cp -a "$SITE/etc" .
        mkdir -p usr/etc usr/lib usr/local/bin
        link_rest /usr
        link_rest /usr/lib
        link_rest /usr/local
        link_rest /usr/local/bin
        return
    fi
    mount -t tmpfs -o mode=755 tmpfs "$memory"
    for place in /usr/* /usr/local/*; do # so that an ordinary user's appliance may change them
        [ -L "$place" ] || ! [ -d "$place" ] || folders+=("$memory/upper+usr${place#/usr}")
    done
    mkdir -p "$memory"/upper+usr/{etc,lib,local/bin} "${folders[@]}"
    mkdir etc
    mount_overlay /etc "$SITE/etc" "$memory" etc
    while read -r place; do
        [ -L "$place" ] || ! [ -d "$place" ] || show_changeable "$place"
    done <"$SITE/changeable"
}

# show_changeable PLACE: where a file system can be in no overlay, read-only.
show_changeable() {
    mkdir -p ".$1"
    mount_overlay "$1" "$SITE/machine$1" "$memory" ".$1" 2>/dev/null ||
        mount --rbind "$SITE/machine$1" ".$1"
}

# make_root FOLDER: makes it, and goes there.
make_root() {
    local tree
    mount -t tmpfs -o mode=755 tmpfs "$1"
    cd "$1" || return
    mkdir -p .host .store dev proc sys run tmp root var/log var/tmp
    chmod 1777 tmp var/tmp
    ln -s /run var/run
    mount --rbind "$SITE/machine" .host
    mount --bind "$store" .store
    if [ -d "$SITE/share" ]; then
        mkdir share
        mount --rbind "$SITE/share" share
    fi
    make_changeable
    mkdir -p .store/persistent etc/persistent
    cp -a .store/persistent/. etc/persistent
    mkdir -p etc/persistent/cfg
    make_network_files
    link_rest ''
    while read -r -d : tree; do
        expose "$tree"
    done <<<"${ZORV_SIM_TREES-}:"
    make_dev
    mount --bind /sys sys
    make_proc
}

# How names are looked up: in the file alone, and quickly in vain elsewhere.
make_network_files() {
    echo 'hosts: files dns' >etc/nsswitch.conf
    printf 'nameserver 127.0.0.1\noptions timeout:1 attempts:1\n' >etc/resolv.conf
    printf '127.0.0.1 localhost\n127.0.1.1 %s\n' "$name" >etc/hosts
    echo "$name" >etc/hostname
}
