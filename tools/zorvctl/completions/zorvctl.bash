# Completion of zorvctl for bash. The words come from the program's own --help, and are never behind it.
# shellcheck shell=bash

# What a help text on standard input lists: subcommands, or options.
_zorvctl_listed() {
    awk -v what="$1" '
        /^[^ ]/ { listing = $1 == "Subcommands:" }
        what == "subcommands" && listing && /^  [^ ]/ { print $1 }
        what == "options" && /^ +-/ {
            count = split($1, names, ",")
            for (i = 1; i <= count; ++i)
                if (names[i] ~ /^--/)
                    print names[i]
        }'
}

_zorvctl() {
    local program=${COMP_WORDS[0]} current=${COMP_WORDS[COMP_CWORD]} help word
    local -a path=()
    help=$("$program" --help 2>/dev/null) || return
    for word in "${COMP_WORDS[@]:1:COMP_CWORD-1}"; do
        case $word in
        --) return ;;
        -* | help) continue ;;
        esac
        _zorvctl_listed subcommands <<<"$help" | grep -qxF -e "$word" || break
        path+=("$word")
        help=$("$program" "${path[@]}" --help 2>/dev/null) || return
    done
    local kind=subcommands
    [[ $current != -* ]] || kind=options
    mapfile -t COMPREPLY < <(compgen -W "$(_zorvctl_listed "$kind" <<<"$help")" -- "$current")
}

# Where nothing is listed a file is meant, as everywhere.
complete -o bashdefault -o default -F _zorvctl zorvctl
