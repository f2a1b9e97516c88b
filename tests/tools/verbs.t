# Every verb that the program lists has an example, an answer to nonsense, a transcript.
$ listed() { awk '/^[^ ]/ { on = $1 == "Subcommands:" } on && /^  [^ ]/ { print $1 }'; }
$ zorvctl --help | listed | while read -r family; do
>   zorvctl $family --help | listed | sed "s/^/$family /" | grep . || echo $family; done >verbs
$ wc -l <verbs
63
$ while read -r verb; do
>   zorvctl $verb --help | grep -A 1 '^Example:' | grep -q "^  .*zorvctl $verb\>" || echo "$verb: example"
>   [ "$(zorvctl $verb --json --no-such-option | cut -c -25)" = '{"error":{"code":"usage",' ] || echo "$verb: nonsense"
>   grep -q "^[$>] .*zorvctl \(--json \|-v \)*$verb\>" $source/tests/tools/*.t || echo "$verb: in no transcript"
> done <verbs
$ zorvctl --json cfg get --help
{"help":"Print the value of a key; exit 1 when there is none\nUsage: zorvctl cfg get [OPTIONS] FILE KEY\n\nPositionals:\n  FILE TEXT REQUIRED          The configuration file\n  KEY TEXT REQUIRED           The key; case does not matter\n\nCommon options:\n  -h,--help                   Show how it is used, with an example\n  --json                      Answer with exactly one JSON document\n  -v,--verbose                Show more of the library's messages; may be repeated\n\n\nOptions:\n  --default TEXT              Print this when there is no such value\n\n\nRead as, at most one of:\n  --escaped                   The value, for use between double quotes in a shell command\n  --bool                      A switch: exit 0 for on, 1 for off\n  --int                       A signed 32-bit number; 0x and a leading 0 tell its base\n  --uint                      An unsigned 32-bit number, likewise\n  --dec                       A signed 32-bit number in base 10\n  --int64                     A signed 64-bit number; 0x and a leading 0 tell its base\n\nExample:\n  zorvctl cfg get /tmp/system.cfg radio.1.mode\n"}
$ zorvctl --version
zorvctl 1.0.0
zorv_git_hash=<...>
zorv_git_tag=<...>
$ zorvctl --json --version
{"version":"1.0.0","git_hash":"...","git_tag":"..."}
