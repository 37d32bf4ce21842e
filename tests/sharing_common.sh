# shellcheck shell=bash
# What the tests of examples/sharing have in common, sourced with their arguments: PROGRAMS SCRATCH [EMULATOR...]
set -euo pipefail
programs=$1 scratch=$2 this=$(realpath "$0")
emulator=("${@:3}")
case='the preparations' service='' server='' pauses=()
rm -rf "$scratch"
mkdir -p "$scratch/sent" "$scratch/received"
cd "$scratch"

fail() {
    echo "FAILED in $case: $*"
    grep -av QUILLO_COMMON ./*.log | tail -n 40
    exit 1
}
share() { "${emulator[@]}" "$programs/share" --state device "$@"; }

# start NAME COMMAND...: starts a program; its first line goes to $line, its id to $started.
start() {
    exec {output}< <(exec "${emulator[@]}" "$programs/$2" "${@:3}" 2>>"$1.log")
    started=$!
    read -r line <&"$output" || fail "the $1 did not start"
    exec {output}<&-
}
# start_server PORT [OPTION...]
# shellcheck disable=SC2034 # $root is for the test
start_server() {
    start server sharing-server --folder server --port "$@"
    server=$started url=$line root=${line%/files} port=${line##*:} port=${port%%/*}
}
# start_service: with the options in $pauses
start_service() {
    start service sharingd --state device --server "$url" --chunk 16K --timeout 2 "${pauses[@]}"
    service=$started
}
killed() {
    kill -KILL "$1"
    wait "$1" || true
}
ended() {
    kill "$1"
    wait "$1" || fail "a program ended with $?"
}
trap 'kill -KILL $service $server 2>/dev/null || true' EXIT

# run_cases: runs the functions that follow "# The cases" in the test, in their order.
run_cases() {
    local cases
    mapfile -t cases < <(sed -n '/^# The cases/,$ s/^\([a-z_]*\)() {$/\1/p' "$this")
    for case in "${cases[@]}"; do
        "$case"
    done
    case='the end'
}
