# What the chapters are told with. A step that does not do what it shows ends the demo.
#
# A chapter runs in an empty folder of its own. Its commands run at the site of the topology "demo".
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

# take STATUS COMMAND...: runs what has just been shown, and shows what it prints; it must end with
# the status.
take() {
    local expected=$1 status=0
    shift
    echo >>../steps
    "$@" >output 2>&1 </dev/null || status=$?
    cat output
    [ "$status" -eq 0 ] || printf '(exit status %d)\n' "$status"
    [ "$status" -eq "$expected" ] || fail "its exit status is $status, not $expected"
}

# step STATUS COMMAND: a command beside the site.
step() {
    printf '\n$ %s\n' "$2"
    take "$1" bash -c "$2"
}

# at APPLIANCE STATUS COMMAND: a command on an appliance, at home there.
at() {
    printf '\n%s# %s\n' "$1" "$3"
    take "$2" zorv-sim exec "$1" bash -o pipefail -c "cd; $3"
}

# quietly APPLIANCE COMMAND: the same, for what the story takes for granted.
quietly() {
    zorv-sim exec "$1" bash -ec "cd; $2"
}

# expect TEXT...: the output of the last step holds each text.
expect() {
    local text
    for text; do
        grep -qF -e "$text" output || fail "its output lacks: $text"
    done
}

# expect_not TEXT: the output of the last step does not.
expect_not() {
    ! grep -qF -e "$1" output || fail "its output holds: $1"
}

# expect_output TEXT: the output of the last step is the text and nothing else.
expect_output() {
    [ "$(cat output)" = "$1" ] || fail "its output is not: $1"
}

# listen APPLIANCE ARGUMENTS...: starts a discovery listener, and waits until it has joined the group.
# What it hears goes to APPLIANCE.heard; what the library says meanwhile is read by await.
listen() {
    hear "$1" listen "${@:2}"
}

# hear APPLIANCE VERB ARGUMENTS...: the same for any verb of discovery that listens.
hear() {
    listening=$1
    mkfifo "$listening.says"
    printf '\n%s# zorvctl -v discovery %s &\n' "$listening" "${*:2}"
    # shellcheck disable=SC2016 # the appliance's shell expands it
    zorv-sim exec "$listening" sh -c 'echo $$ >/run/listener; exec zorvctl -v discovery "$@"' \
        listen "${@:2}" >"$listening.heard" 2>"$listening.says" </dev/null &
    listener=$!
    exec {says}<"$listening.says"
    rm "$listening.says"
    await 'zorv_protocol init done'
}

# await TEXT: waits until the listener's library has said it, and shows it; NOT that it has heard a
# message.
await() {
    local line
    while read -r line <&"$says"; do
        if [[ $line = *"$1"* ]]; then
            printf '%s: %s\n' "$listening" "$line"
            return
        fi
    done
    fail "the listener never says: $1"
}

# heard APPLIANCE TEXT...: shows what the listener has heard until it ended; these and no other lines.
heard() {
    wait "$listener" || fail 'the listener has not heard enough'
    exec {says}<&-
    sed "s/^/$1: /" "$1.heard" | tee output
    [ "$(wc -l <output)" -eq $(($# - 1)) ] || fail 'that is another number of messages'
    expect "${@:2}"
}
