#!/bin/sh
# What is installed serves a C program, through pkg-config and through CMake:
# install.sh CC CMAKE SOURCE_DIR BUILD_DIR
set -eu
cc=$1 cmake=$2 source=$3 build=$4
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

# Not `cmake --install`, which notes the files in the build tree: that may be another user's.
"$cmake" "-DCMAKE_INSTALL_PREFIX=$work" -P "$build/src/cmake_install.cmake" >/dev/null
PKG_CONFIG_PATH=$(dirname "$(find "$work" -name zorv.pc)")
LD_LIBRARY_PATH=$(dirname "$PKG_CONFIG_PATH")
export PKG_CONFIG_PATH LD_LIBRARY_PATH

answers() {
    "$1" 2>&1 | grep -E '\[info \] demo\.main\(\): zorv_git_hash=<[0-9a-f]{40}>$'
}

# shellcheck disable=SC2046 # the flags are words
"$cc" -std=c11 -o "$work/five_lines" "$source/tests/abi/five_lines.c" \
    $(pkg-config --cflags --libs zorv)
answers "$work/five_lines"
# shellcheck disable=SC2046
"$cc" -std=c11 -o "$work/static" "$source/tests/abi/five_lines.c" \
    $(pkg-config --static --cflags --libs zorv | sed 's/-lzorv/-l:libzorv.a/')
answers "$work/static"

env -u PKG_CONFIG_PATH "$cmake" -G Ninja -S "$source/tests/abi/consumer" -B "$work/consumer" \
    "-DCMAKE_C_COMPILER=$cc" "-DCMAKE_PREFIX_PATH=$work" >/dev/null
"$cmake" --build "$work/consumer" >/dev/null
answers "$work/consumer/consumer"
