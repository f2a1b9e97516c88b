#!/bin/sh
# A program that has a parse() of its own, in the ways that docs/contracts.md tells of:
# names.sh CC OBJCOPY NM INCLUDE_DIR LIBRARY STATIC_LIBRARY
set -eu
cc=$1 objcopy=$2 nm=$3 include=$4 library=$5 static=$6
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
cd "$work"
LD_LIBRARY_PATH=$(dirname "$library"):$work
export LD_LIBRARY_PATH
link() { "$cc" "$@" && ./a.out; }

echo 'radio.1.channel=36' >file.cfg
echo 'int parse(const char *text) { return text[0]; }' >own.c
echo 'int channel(void); int parse(const char *); int main(void)
    { return parse("7") != 55 || channel() != 36; }' >main.c
echo 'int channel(void); int main(void) { return channel() != 36; }' >plain.c
cat >uses.c <<'END'
#include <zorv/cfg.h>
int channel(void) { return get_int32(parse("file.cfg"), -1, "radio.1.channel"); }
END
cat >loads.c <<'END'
#include <dlfcn.h>
#include <zorv/cfg.h>
int channel(void)
{
    void *zorv = dlopen("libzorv.so.1", RTLD_NOW | RTLD_LOCAL);
    __typeof__(parse) *read = (__typeof__(parse) *)dlsym(zorv, "parse");
    __typeof__(get_int32) *get = (__typeof__(get_int32) *)dlsym(zorv, "get_int32");
    return get(read("file.cfg"), -1, "radio.1.channel");
}
END
set -x # the last command shown is the one that failed
"$cc" -I"$include" -c own.c main.c plain.c uses.c loads.c
"$cc" -Dparse=own_parse -c -o own2.o own.c # a name of its own by the compiler, and by objcopy
"$objcopy" --redefine-sym parse=own_parse main.o main2.o
link main2.o own2.o uses.o "$library"
link main.o own.o loads.o -rdynamic
"$cc" -shared -fPIC -o libother.so own.c # the library that is named first has the name
link plain.o uses.o -Wl,--no-as-needed "$library" ./libother.so
if link plain.o uses.o -Wl,--no-as-needed ./libother.so "$library"; then exit 1; fi

"$nm" -g --defined-only "$static" | awk '$3 !~ /^_Z/ && NF == 3 { print $3, "zorv1_" $3 }' >names
"$objcopy" --redefine-syms=names "$static" libprefixed.a
"$objcopy" --redefine-syms=names uses.o uses2.o
link main.o own.o uses2.o libprefixed.a -ljansson
