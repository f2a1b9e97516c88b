#!/bin/sh
# Each public header compiles alone, as C and as C++, and zorv.h includes it:
# headers.sh CC CXX INCLUDE_DIR
set -eu
cc=$1 cxx=$2 include=$3
warnings='-Wall -Wextra -Wpedantic -Wconversion -Wshadow -Werror'

set -x # the last command shown is the one that failed
for header in "$include"/zorv/*.h; do
    name=zorv/${header##*/}
    unit="#include <$name>
int not_empty;"
    # shellcheck disable=SC2086 # the warnings are words
    echo "$unit" | "$cc" -std=c99 -pedantic $warnings -I "$include" -fsyntax-only -xc -
    # shellcheck disable=SC2086
    echo "$unit" | "$cxx" -std=c++20 $warnings -I "$include" -fsyntax-only -xc++ -
    case $name in
    zorv/zorv.h | zorv/api.h) ;;
    *) grep -qx "#include <$name>" "$include/zorv/zorv.h" ;;
    esac
done
