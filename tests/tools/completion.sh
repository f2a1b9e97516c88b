#!/usr/bin/env bash
# What the shells offer behind a word of zorvctl's command line: completion.sh FOLDER_OF_ZORVCTL
# bash always, zsh where there is one.
# shellcheck disable=SC2034,SC2317 # the completion functions read the arrays; in_SHELL is called so
set -euo pipefail
PATH=$1:$PATH
completions=$(dirname "$(readlink -f "$0")")/../../tools/zorvctl/completions
# shellcheck source-path=SCRIPTDIR source=../../tools/zorvctl/completions/zorvctl.bash
. "$completions/zorvctl.bash"
failed=0

in_bash() {
    local COMPREPLY=() COMP_WORDS=("$@") COMP_CWORD=$(($# - 1))
    _zorvctl
    echo "${COMPREPLY[*]-}"
}

# _describe would match the word itself; here it prints the names that begin with it.
in_zsh() {
    # shellcheck disable=SC2016 # zsh expands it
    zsh -f -c '
        _describe() {
            local -a names=(${${(P)2}%%:*})
            print -r -- ${(M)names:#$words[CURRENT]*}
        }
        _files() { print }
        words=("${@:2}") CURRENT=$(($# - 1))
        . $1' zsh "$completions/_zorvctl" "$@"
}

# offers EXPECTED WORD...: the last word is the one being typed.
offers() {
    local expected=$1 shell offered
    shift
    for shell in "${shells[@]}"; do
        offered=$("in_$shell" zorvctl "$@")
        [ "$offered" = "$expected" ] && continue
        echo "$shell: zorvctl $*: offers '$offered', not '$expected'"
        failed=1
    done
}

shells=(bash)
! command -v zsh >/dev/null || shells+=(zsh)
offers 'cfg' cf
offers 'get' cfg ge
offers 'list lint' cfg li
offers 'count' --json -v cfg co
offers '--escaped' cfg get --esc
offers '--exact' cfg list file.cfg dev. --ex
offers '' hash cf # a file, not a family
offers '' exec run -- --he
offers '' no-such-family ge
exit $failed
