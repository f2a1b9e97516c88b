#!/bin/sh
# The interface of the last release is still there: names may have been added, nothing else has
# changed: baseline.sh BASELINE LIBRARY. At a release the library becomes the baseline:
# baseline.sh --renew BASELINE LIBRARY HEADERS
set -eu
if [ "$1" = --renew ]; then
    exec abidw --exported-interfaces-only --headers-dir "$4" --drop-private-types --no-show-locs \
        --no-corpus-path --no-comp-dir-path --out-file "$2" "$3"
fi
# Without --headers-dir: the baseline has no places, and every type would count as private.
abidiff --exported-interfaces-only --no-added-syms "$1" "$2"
