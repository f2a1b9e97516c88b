# The lock of a site's folder, on descriptor 9: to have it is to know that nothing of the site lives.
# shellcheck shell=bash

# open_lock STATE: false when there is none, or none any more.
open_lock() {
    [ -O "$1/lock" ] && { exec 9<"$1/lock"; } 2>/dev/null
}

# is_locked_folder STATE: whether the lock is that of the folder that stands there now.
is_locked_folder() {
    [ "$1/lock" -ef /proc/self/fd/9 ]
}

# remove_state STATE: waits for the lock, and removes the folder: at once, for another site may be
# about to take the place, or has taken it already.
remove_state() {
    flock 9
    if is_locked_folder "$1"; then
        mv "$1" "$1.gone"
        rm -rf "$1.gone"
    fi
    exec 9<&-
}
