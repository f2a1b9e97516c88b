# What the shells offer behind a word of the command line: the program's own words.
$ cat >offer.bash <<'END'
> . $source/tools/zorvctl/completions/zorvctl.bash
> COMP_WORDS=("$@") COMP_CWORD=$(($# - 1))
> _zorvctl
> echo "${COMPREPLY[*]-}"
> END
$ cat >offer.zsh <<'END' # _describe would match the word itself; here it prints the names
> _describe() { local -a names=(${${(P)2}%%:*}); print -r -- ${(M)names:#$words[CURRENT]*}; }
> _files() { print }
> words=("$@") CURRENT=$#
> . $source/tools/zorvctl/completions/_zorvctl
> END
$ ln -s /proc/self/fd /dev/fd; export source
$ while read -r words; do
>   bash offer.bash zorvctl $words >offered; echo "$words: $(cat offered)"
>   ! command -v zsh >/dev/null || zsh -f offer.zsh zorvctl $words | diff - offered
> done <<END
> cf
> cfg ge
> cfg li
> --json -v cfg co
> cfg get --esc
> cfg list file.cfg dev. --ex
> hash cf
> exec run -- --he
> no-such-family ge
> END
cf: cfg
cfg ge: get
cfg li: list lint
--json -v cfg co: count
cfg get --esc: --escaped
cfg list file.cfg dev. --ex: --exact
hash cf: 
exec run -- --he: 
no-such-family ge: 
