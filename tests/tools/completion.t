# What the shells offer behind a word of the command line: the program's own words.
$ ln -s /proc/self/fd /dev/fd; cp $source/tools/zorvctl/completions/* .; cat >offer.bash <<'END'
> . ./zorvctl.bash; COMP_WORDS=("$@") COMP_CWORD=$(($# - 1)); _zorvctl; echo "${COMPREPLY[*]-}"
> END
$ cat >offer.zsh <<'END' # _describe would match the word itself; here it prints the names
> _describe() { local -a names=(${${(P)2}%%:*}); print -r -- ${(M)names:#$words[CURRENT]*}; }
> _files() { print }; words=("$@") CURRENT=$#; . ./_zorvctl
> END
$ while IFS=: read -r words offered; do
>   [ "$(bash offer.bash zorvctl $words | tee said)" = "$offered" ] || echo "$words: $(cat said)"
>   ! command -v zsh >/dev/null || zsh -f offer.zsh zorvctl $words | diff said -; done <<'END'
> cf:cfg
> help cfg li:list lint
> --json -v cfg co:count
> cfg list a.cfg dev. --ex:--exact
> hash cf:
> exec run -- --he:
> no-such-family ge:
> END
