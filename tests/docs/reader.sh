# What the reader of the manual has: an access point after set-up, an installed library, zorvctl.
# shellcheck shell=sh disable=SC2154 # the two folders are set
. "$source/tests/tools/unit.sh"
whole_unit
rm -r /run/report /usr/local/bin/oopsdump # of which it shows the lack
for path in /run/kernel-proc/[a-z]*; do
    rm -rf "/proc/${path##*/}"
    ln -s "$path" /proc/
done
for part in src tools/zorvctl; do
    cmake -DCMAKE_INSTALL_PREFIX=/usr/local -P "$build/$part/cmake_install.cmake" >/dev/null
done
tee system.cfg <"$source/examples/system.cfg" >/tmp/system.cfg
export PKG_CONFIG_PATH=/usr/local/lib/pkgconfig LD_LIBRARY_PATH=/usr/local/lib
