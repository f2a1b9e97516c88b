# What the reader of the manual has: an access point after set-up, an installed library, zorvctl.
# shellcheck shell=sh disable=SC2016,SC2154 # programs are texts; the two are set
for path in /run/kernel-proc/[a-z]*; do
    [ -e "/proc/${path##*/}" ] || ln -s "$path" /proc/
done
. "$source/tests/tools/unit.sh"
known_unit
cmake -DCMAKE_INSTALL_PREFIX=/usr/local -P "$build/src/cmake_install.cmake" >/dev/null
cp "$source/examples/system.cfg" /tmp
cp "$source/examples/system.cfg" .
export PKG_CONFIG_PATH=/usr/local/lib/pkgconfig LD_LIBRARY_PATH=/usr/local/lib
