#!/bin/sh
# The version script, the headers and the shared object name the same functions and objects, and
# the shared object is what a small device can carry: exports.sh CC NM READELF SOURCE_DIR LIBRARY
set -eu
cc=$1 nm=$2 readelf=$3 source=$4 library=$5
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
export LC_ALL=C

sed -n '/global:/,/local:/s/^ *\([A-Za-z_0-9]*\);$/\1/p' "$source/src/libzorv.map" >"$work/map"

# What the headers declare: their own lines of the preprocessed text, less attributes, bodies of
# structures and types; of a function the word before the parenthesis, of an object the last one.
for header in "$source"/include/zorv/*.h; do
    echo "#include <zorv/${header##*/}>" | "$cc" -std=c11 -I "$source/include" -E -xc -
done | awk '
    /^# [0-9]+ "/ { ours = $3 ~ /\/zorv\/[a-z0-9_]+\.h"$/ }
    /^#/ || !ours { next }
    { text = text " " $0 }
    END {
        gsub(/__attribute__ *\(\([^()]*(\([^()]*\))?[^()]*\)\)/, "", text)
        while (gsub(/\{[^{}]*\}/, ";", text)) ;
        count = split(text, declarations, ";")
        for (i = 1; i <= count; ++i) {
            d = declarations[i]
            if (d ~ /typedef|_Static_assert|static / || d !~ /\(|extern /)
                continue
            sub(/\(\*/, "", d)
            sub(/ *[(\[)].*/, "", d)
            sub(/ *$/, "", d)
            sub(/.*[ *]/, "", d)
            print d
        }
    }' | sort -u >"$work/headers"

"$nm" -D --defined-only "$library" | sed -n 's/.* [BDRTVW] \([^@]*\).*/\1/p' | sort >"$work/library"

set -x # the last command shown is the one that failed
sort "$work/map" | diff - "$work/headers"
sort "$work/map" | diff - "$work/library"

"$readelf" --wide -d -l -S -p .note.dlopen "$library" >"$work/elf"
if sed -n 's/.*(NEEDED).*\[\(.*\)\]/\1/p' "$work/elf" | grep -Evx -e 'lib(c|m)\.so\.6|libjansson\.so\.4' \
    -e 'libevent_core-2\.1\.so\.7|libz\.so\.1|ld-linux-.*'; then exit 1; fi
# One pointer is the compiler's own; more are static constructors.
for has in '(SONAME).*\[libzorv\.so\.1\]' GNU_RELRO 'FLAGS.*NOW' "\.init_array .* 000008 " \
    '|@FDO$' '\[{"soname":\["libcurl\.so\.4"\],.*}\]$'; do
    grep -q "$has" "$work/elf"
done
if grep '(TEXTREL)' "$work/elf"; then exit 1; fi
