#!/bin/bash
# Usage: tests/sharing_test.sh PROGRAMS SCRATCH [EMULATOR...]
#
# The sharing service of examples/sharing end to end: files go to the server and come back while service and server are
# killed on the way and chunks fail, and what must be refused is. Every wait is for something that happens.
# shellcheck source=tests/sharing_common.sh
. "$(dirname "$0")/sharing_common.sh"

# However slow the machine: at the chunks where it hangs, the server waits for what is done here, or for the time-out.
start_server 0 --refuse 2 --cut 6 --hang 4,8,11
pauses=(--retry-delay 60)
start_service

# A file that is empty, names that are no text or could be taken for something else, and files of some chunks.
: >sent/empty
files=(sent/empty 'sent/[a,b]' $'sent/\e[31m\xe2\x80\xaetxt.exe' $'sent/a \'quote\', a "quote" and \xff\xfe.bin' sent/one.bin sent/two.bin)
for file in "${files[@]:1}"; do
    head -c 200000 /dev/urandom >"$file"
done
share send "${files[@]}" --to 44:7700900123,1:2025550123 --follow=35 >said &
follower=$!
until id=$(sed -n 's/^Request \([0-9]*\):.*/\1/p' said) && [[ -n $id ]]; do sleep 0.01; done

# Who follows connects again to the next service, and waits for nothing that is paused.
share status "$id" --follow=15 >/dev/null
killed "$service"
start_service
wait "$follower" || fail "the follower ended with $?"
share status "$id" --follow >paused &
follower=$!
share pause "$id"
! wait "$follower" || fail "the follower takes a pause for the end"
grep -q "share resume $id" paused || fail "it does not say that the request is paused"
share status "$id" | grep -q "^Request $id: paused" || fail "the request is not paused"
! share pause "$id" 2>/dev/null || fail "a request was paused twice"
share resume "$id"
share status "$id" --follow=50 >/dev/null
killed "$server"
start_server "$port" --rate 300K
share status "$id" --follow >/dev/null || fail "not every file arrived"

# Each chunk began where what had arrived ended.
awk 'FNR == 1 { at = open = 0 }
     $1 == "begin" { if (!open && $2 != at) exit 1; from = $2; open = 1 }
     $1 == "end" { at = $2; open = 0 }' server/uploads/*/record || fail "the server's record has a gap, or bytes twice"

# What came back, in the order in which it was sent.
token=$(share status "$id" | sed -n 's/^  token //p')
get() {
    until got=$(share get "$token" --into received 2>/dev/null); do sleep 0.1; done
    got=${got#Request }
}
get
share status "$got" --follow >/dev/null || fail "not every file came back"
mapfile -d '' paths < <(share status "$got" --paths0)
[[ ${#paths[@]} -eq ${#files[@]} ]] || fail "${#paths[@]} files came back"
for i in "${!files[@]}"; do
    cmp -- "${files[i]}" "${paths[i]}" || fail "${files[i]} came back changed"
done
[[ -z $(find received -name '*.part') ]] || fail "something half-written is left"

# A push message that is no share does no harm to the next one, whose names would lead elsewhere.
mailbox=server/push/447700900123
head -c 300 "$mailbox/1" >"$mailbox/2"
sed 's|one.bin|../ne.b|' "$mailbox/1" | sed "s|$token|${token//[0-9a-f]/0}|g" >"$mailbox/3"
token=${token//[0-9a-f]/0}
killed "$server"
start_server "$port" --rate 300K # and it finds them
get
share status "$got" --follow >/dev/null || fail "the other share did not come"
share inbox >said
grep -q '^1 push message could not be read' said || fail "the broken push message was not noticed"
grep -qF '  \x1b[31m\u202etxt.exe, ' said || fail "a name is not escaped: $(<said)"
[[ -f received/ne.b && ! -e ne.b ]] || fail "a name led out of the folder"

# What is refused, and with which code.
refused() {
    local said status=0
    said=$("${@:3}" 2>&1 >/dev/null) || status=$?
    [[ $status -eq $1 && $said == *"$2"* ]] || fail "${*:3}: $status, $said"
}
refused 1 '(-9)' share send sent/nothing --to 44:7700900123
refused 2 'send needs --to' share send sent/one.bin
refused 1 '(-1)' share send sent/one.bin --to nobody
refused 1 'another sharingd' "${emulator[@]}" "$programs/sharingd" --state device
refused 3 '(-4)' "${emulator[@]}" "$programs/share" --state sent status

# A file that is overwritten while it is sent is given up, and does not keep the other from arriving.
head -c 400000 /dev/urandom >sent/changing.bin
id=$(share send sent/changing.bin sent/two.bin --to 44:7700900123 | sed -n 's/^Request \([0-9]*\):.*/\1/p')
head -c 400000 /dev/urandom >sent/changing.bin
! share status "$id" --follow >said || fail "a file that has changed was sent"
[[ $(<said) == *'shared, 1 of 2 files'*'changing.bin: The file has changed'* ]] || fail "$(<said)"

# Both end in order, and leave nothing half-said: under a sanitizer a leak would show.
ended "$service"
ended "$server"
trap - EXIT
