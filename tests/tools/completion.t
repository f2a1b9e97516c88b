# What the shells offer behind a word of the command line: the program's own words.
$ ln -s /proc/self/fd /dev/fd; cp $source/tools/zorvctl/completions/* .; cat >offer.bash <<'END'
> . ./zorvctl.bash; COMP_WORDS=("$@") COMP_CWORD=$(($# - 1)); _zorvctl; echo "${COMPREPLY[*]-}"
> END
$ cat >offer.zsh <<'END' # _describe would match the word itself; here it prints the names
> _describe() { local -a names=(${${(P)2}%%:*}); print -r -- ${(M)names:#$words[CURRENT]*}; }
> _files() { print }; words=("$@") CURRENT=$#; . ./_zorvctl
> END
$ offer() { echo "$@:" $(bash offer.bash zorvctl "$@" | tee offered)
>   ! command -v zsh >/dev/null || zsh -f offer.zsh zorvctl "$@" | diff offered -; }
$ offer cf; offer cfg ge; offer cfg li; offer --json -v cfg co; offer cfg get --esc; offer cfg list a.cfg dev. --ex
cf: cfg
cfg ge: get
cfg li: list lint
--json -v cfg co: count
cfg get --esc: --escaped
cfg list a.cfg dev. --ex: --exact
$ offer hash cf; offer exec run -- --he; offer no-such-family ge
hash cf:
exec run -- --he:
no-such-family ge:
