# Every verb that the program lists has an example, an answer to nonsense, a transcript.
$ listed() { awk '/^[^ ]/ { on = $1 == "Subcommands:" } on && /^  [^ ]/ { print $1 }'; }
$ zorvctl --help | listed | while read -r family; do
>   zorvctl $family --help | listed | sed "s/^/$family /" | grep . || echo $family; done >verbs; wc -l <verbs
73
$ while read -r verb; do
>   zorvctl $verb --help | grep -A 1 '^Example:' | grep -q "^  .*zorvctl $verb\>" || echo "$verb: example"
>   [ "$(zorvctl $verb --json --no-such-option | cut -c -25)" = '{"error":{"code":"usage",' ] || echo "$verb: nonsense"
>   grep -q "^[$>] .*zorvctl \(--json \|-v \)*$verb\>" $source/tests/tools/*.t || echo "$verb: in no transcript"
> done <verbs
$ grep -oEh '`zorvctl( [a-z][a-z0-9-]*){1,2}' $source/README.md $source/docs/*.md | tr -d '`' | sort -u |
>   while read -r verb; do $verb --no-such-option 2>&1 | grep -q "(see: $verb --help)" || echo "$verb: no verb"; done
$ zorvctl --json model --help; zorvctl --json --version
{"help":"..."}
{"version":"1.0.0","git_hash":"...","git_tag":"..."}
$ while read -r words; do zorvctl $words; done <<'END' # who is blamed
> cfg gte a.cfg --defalt x
> --int cfg get a a
> cfg get a --defalt=x
> discovery listen --method 65536
> portal find --vlan 2x
> crash dump --type 4 --name a --pid 010 --signal
> top -d nan --help=1
> END
zorvctl: unknown word: gte; did you mean get? (see: zorvctl cfg --help)
zorvctl: --int belongs behind the verb (see: zorvctl cfg get --help)
zorvctl: unknown option: --defalt; did you mean --default? (see: zorvctl cfg get --help)
zorvctl: --method: "65536" is not a whole number from 0 to 65535 (see: zorvctl discovery listen --help)
zorvctl: --vlan: "2x" is not a whole number from -2147483648 to 2147483647 (see: zorvctl portal find --help)
zorvctl: --signal: the value is missing (see: zorvctl crash dump --help)
zorvctl: --help takes no value (see: zorvctl top --help)
[2]
