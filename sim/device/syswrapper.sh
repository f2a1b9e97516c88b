#!/bin/sh
# The device's helper script.
case ${1-} in
save-config) # /etc/persistent is memory; this is what brings it to flash
    rm -rf /.store/new
    cp -a /etc/persistent /.store/new
    rm -rf /.store/persistent
    mv /.store/new /.store/persistent
    ;;
sensitive-data-filter) # for logs: passwords, keys and the second half of hardware addresses
    exec sed -E -e 's/((password|passphrase|passwd|psk|secret|key)[=:] ?)[^ ,;)]+/\1******/Ig' \
        -e 's/\b(([0-9a-f]{2}:){3})([0-9a-f]{2}:){2}[0-9a-f]{2}\b/\1**:**:**/Ig'
    ;;
systemcfg-sensitive-data-filter) # for system.cfg: the values of what is secret
    exec sed -E 's/^([^=#]*(password|passphrase|passwd|psk|secret|key)[^=.]*)=.*/\1=******/I'
    ;;
set-hostname)
    hostname "$2" && echo "$2" >/etc/hostname
    ;;
reload) ;;
*)
    echo "syswrapper.sh: unknown verb ${1-}" >&2
    exit 1
    ;;
esac
