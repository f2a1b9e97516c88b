#!/usr/bin/env bash
# Runs what README.md and docs/*.md show at a simulated site, the blocks marked "run: site" of each, a
# text after the other: site.sh SOURCE_DIR BUILD_DIR
set -euo pipefail
source=$1 build=$2
work=$(mktemp -d)
export ZORV_SIM_STATE=$work/state PATH=$build/sim/bin:$build/tools/zorvctl:$PATH
trap 'zorv-sim down >/dev/null 2>&1 || :; rm -rf "$work"' EXIT
cd "$work"

for text in "$source"/README.md "$source"/docs/*.md; do
    awk '/^```/ { inside = /^```sh$/ && before == "<!-- run: site -->"; before = ""; next }
        inside { print }
        { before = $0 }' "$text" | tee -a all >commands
    echo "$text"
    bash -ex commands </dev/null
    zorv-sim down >/dev/null 2>&1 || : # where the text has not done so
done
[ -s all ]
