# What the chapters are told with. A step that does not do what it shows ends the demo.
# shellcheck shell=bash
set -euo pipefail

chapter() {
    printf '\n== %s ==\n' "$*"
}

say() {
    printf '\n%s\n' "$*"
}

fail() {
    printf 'The step above failed: %s\n' "$*" >&2
    exit 1
}

# step STATUS COMMAND: shows the command line and what it prints; it must end with the status.
step() {
    local status=0
    printf '\n$ %s\n' "$2"
    bash -c "$2" >output 2>&1 || status=$?
    cat output
    [ "$status" -eq 0 ] || printf '(exit status %d)\n' "$status"
    [ "$status" -eq "$1" ] || fail "its exit status is $status, not $1"
}

# expect TEXT...: the output of the last step holds each text.
expect() {
    local text
    for text; do
        grep -qF -e "$text" output || fail "its output lacks: $text"
    done
}

# expect_output TEXT: the output of the last step is the text and nothing else.
expect_output() {
    [ "$(cat output)" = "$1" ] || fail "its output is not: $1"
}
