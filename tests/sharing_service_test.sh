#!/bin/bash
# Usage: tests/sharing_service_test.sh PROGRAMS SCRATCH [EMULATOR...]
#
# A bad day of the service of examples/sharing: names that are taken, files that change, a store that is held, a server
# that goes away and clients that stop. Each function below is a case, named for what it expects; they run one after the
# other with one server.
# shellcheck source=tests/sharing_common.sh
. "$(dirname "$0")/sharing_common.sh"

# What is released is given back at once under the address checker too.
export ASAN_OPTIONS=${ASAN_OPTIONS-}:quarantine_size_mb=0:thread_local_quarantine_size_kb=0
pauses=(--retry-delay 10 --longest-delay 100)
held=''
trap 'kill -KILL $service $server $held 2>/dev/null || true' EXIT

# stopped: ends the service in order, which takes less than five seconds.
stopped() {
    local begin=$SECONDS
    ended "$service"
    ((SECONDS - begin <= 5)) || fail "a stop took $((SECONDS - begin)) s"
}

# file NAME SIZE: makes a file to be sent.
file() { head -c "$2" /dev/urandom >"sent/$1"; }
# submit FILE...: sends files; the request goes to $id.
submit() {
    id=$(share send "$@" --to 44:7700900123 | sed -n 's/^Request \([0-9]*\).*/\1/p')
}
# until_ COMMAND...: waits, ten seconds at most, until a command succeeds.
until_() {
    for _ in {1..100}; do
        ! "$@" >said 2>&1 || return 0
        sleep 0.1
    done
    fail "it was not seen that: $*; last: $(<said)"
}
says() { [[ $(share status "$1") == *"$2"* ]]; }
# get TOKEN FOLDER: fetches a share that may still be on its way here; the request goes to $got.
get() {
    until_ share get "$1" --into "$2"
    got=$(sed -n 's/^Request \([0-9]*\).*/\1/p' said)
}
token_of() { share status "$1" | sed -n 's/^  token //p'; }
sums() { find "$@" -type f -exec cksum {} + | cut -d ' ' -f 1,2 | sort; }

# The cases

equal_names_arrive_each_and_harm_no_file_that_is_there() {
    mkdir -p sent/again received/names
    file one.txt 3000 && file again/one.txt 4000 && file one.txt.part "10" && file .profile 20 && file $'a\e:b\xe2\x80\xae' 30
    echo mine | tee received/names/one.txt >received/names/one_1.txt.part
    submit sent/one.txt sent/again/one.txt sent/one.txt.part sent/.profile $'sent/a\e:b\xe2\x80\xae'
    share status "$id" --follow >said || fail "$(<said)"
    get "$(token_of "$id")" received/names
    share status "$got" --follow >said || fail "$(<said)"
    [[ $(LC_ALL=C ls -A received/names) == $'a__b_\none.txt\none.txt.part\none_1.txt\none_1.txt.part\none_2.txt\nprofile' ]] ||
        fail "there are $(ls -A received/names)"
    [[ $(cat received/names/one.txt received/names/one_1.txt.part) == $'mine\nmine' ]] || fail "a file was replaced"
    rm received/names/one.txt received/names/one_1.txt.part
    cmp <(sums received/names) <(sums sent) || fail "what came is not what was sent"

    # A second time, what is missing comes, and nothing twice.
    rm received/names/one_1.txt
    echo mine >received/names/profile
    get "$(token_of "$id")" received/names
    share status "$got" --follow >said || fail "$(<said)"
    [[ $(<said) == *'5 of 5 files'* && $(<received/names/profile) == mine ]] || fail "$(<said)"
    rm received/names/profile
    cmp <(sums received/names) <(sums sent) || fail "the second time, something else came"
}

a_fetch_that_is_killed_counts_whole_or_not_at_all() {
    mkdir -p sent/many received/many
    for i in {1..40}; do file "many/$i" 9000; done
    submit sent/many/*
    share status "$id" --follow >said || fail "$(<said)"
    until_ share get "$(token_of "$id")" --into received
    for pause in 0.01 0.03 0.06 0.1 0.2; do
        share get "$(token_of "$id")" --into received/many >/dev/null 2>&1 &
        sleep "$pause"
        killed "$service"
        wait $! || true
        start_service
    done
    get "$(token_of "$id")" received/many
    share status "$got" --follow >said || fail "$(<said)"
    [[ $(<said) == *'complete, 40 of 40 files'* ]] || fail "$(<said)"
    find received/many -empty >left # made just before a kill: not provably the service's, but named
    while read -r name; do
        grep -q "left, since it may be somebody else's: .*/${name##*/}$" service.log || fail "$name was left silently"
        rm "$name"
    done <left
    cmp <(sums received/many) <(sums sent/many) || fail "a file is missing, or there twice"
}

a_store_that_is_held_is_not_taken_for_an_empty_one() {
    local database=device/apps/quillo.service/data/.quillo_service.db
    hold() {
        coproc { exec sqlite3 $database; }
        held=$COPROC_PID
        printf '.timeout 5000\n%s\n.print held\n' "$1" >&"${COPROC[1]}"
        read -r line <&"${COPROC[0]}"
    }
    hold 'BEGIN EXCLUSIVE; DELETE FROM unique_data WHERE 0;'
    ! share send sent/one.txt --to 44:7700900123 >said 2>&1 || fail "it was sent: $(<said)"
    says "$id" 'shared, 40 of 40 files' || fail "what is in the store was not seen: $(share status "$id")"
    stopped
    killed "$held"
    hold 'PRAGMA locking_mode = EXCLUSIVE; BEGIN EXCLUSIVE; DELETE FROM unique_data WHERE 0;'
    ! "${emulator[@]}" "$programs/sharingd" --state device --server "$url" 2>>service.log ||
        fail "the service started on a held store"
    killed "$held"
    start_service
    submit sent/one.txt
    share status "$id" --follow >said || fail "$(<said)"
}

an_outage_longer_than_all_retries_is_waited_for() {
    killed "$server"
    file late.bin 50000
    submit sent/late.bin
    until_ says "$id" 'cannot be reached'
    sleep 1.5 # with these pauses all retries would be over
    says "$id" 'retry' && fail "it counted as a failure: $(share status "$id")"
    start_server "$port"
    share status "$id" --follow >said || fail "$(<said)"
}

an_upload_that_the_server_has_forgotten_is_sent_again() {
    file forgotten.bin 300000
    killed "$server"
    start_server "$port" --rate 100K
    submit sent/forgotten.bin
    share status "$id" --follow=10 >said
    share pause "$id"
    killed "$server"
    rm -r server/uploads/*
    start_server "$port"
    share resume "$id"
    share status "$id" --follow >said || fail "$(<said)"
}

what_is_no_longer_the_file_is_given_up_and_the_rest_is_sent() {
    file pipe.bin 100000 && file other.bin 20000 && file touched.bin 100000
    killed "$server"
    submit sent/pipe.bin sent/touched.bin sent/other.bin
    rm sent/pipe.bin
    mkfifo sent/pipe.bin
    file touched.bin 100000
    start_server "$port"
    ! share status "$id" --follow >said || fail "all three were sent"
    [[ $(<said) == *'1 of 3 files'*'pipe.bin: There is something else'*'touched.bin: The file has changed'* ]] ||
        fail "$(<said)"
    stopped
    rm sent/pipe.bin
    start_service
}

clients_that_come_and_go_leave_nothing_behind() {
    local before after
    measure() { echo "$(find "/proc/$service/fd" | wc -l) $(awk '/VmRSS/ { print $2 }' "/proc/$service/status")"; }
    call() {
        seq "$1" | xargs -P 4 -I {} gdbus call --address unix:path=device/sharingd.socket --dest quillo.Sharing \
            --object-path /quillo/Sharing --method quillo.Sharing.Recent >/dev/null
    }
    call 50
    read -ra before <<<"$(measure)"
    call 500
    # shellcheck disable=SC2317 # it is called by until_
    has_closed_all() { (($(find "/proc/$service/fd" | wc -l) <= before[0])); }
    until_ has_closed_all
    read -ra after <<<"$(measure)"
    ((after[1] < before[1] * 5 / 4)) || fail "the memory went from ${before[1]} to ${after[1]} kB"
}

a_client_that_does_not_read_holds_nobody_up() {
    local client
    file shown.bin 2000000
    killed "$server"
    start_server "$port" --rate 2M
    submit sent/shown.bin
    "${emulator[@]}" "$programs/share" --state device status "$id" --follow >/dev/null &
    client=$!
    share status "$id" --follow=10 >/dev/null
    kill -STOP "$client"
    share status "$id" --follow >said || fail "$(<said)"
    submit sent/shown.bin
    share status "$id" --follow=10 >/dev/null
    stopped
    kill -KILL "$client"
    start_service
}

start_server 0
start_service
run_cases
stopped
ended "$server"
trap - EXIT
