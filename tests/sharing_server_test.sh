#!/bin/bash
# Usage: tests/sharing_server_test.sh PROGRAMS SCRATCH [EMULATOR...]
#
# The server of examples/sharing as clients meet it, honest, broken and hostile ones. Each function below is a case,
# named for what it expects; they run one after the other on one server.
# shellcheck source=tests/sharing_common.sh
. "$(dirname "$0")/sharing_common.sh"

# expect STATUS CURL-ARGUMENT...: sends a request; the headers of the answer go to ./headers, its body to ./body.
expect() {
    local status
    status=$(curl --silent --max-time 20 --dump-header headers --output body --write-out '%{http_code}' \
        --header 'Expect:' "${@:2}" --header 'Tus-Resumable: 1.0.0') || true
    [[ $status == "$1" ]] || fail "answered $status, not $1, to ${*:2}: $(<body)"
}
header() {
    sed -n "s/^$1: \(.*\)\r$/\1/p" headers
}
# create LENGTH: makes an upload, whose path goes to $file.
create() {
    expect 201 --request POST --header "Upload-Length: $1" "$url"
    file=$(header Location)
}
# patch STATUS OFFSET BYTES [CURL-ARGUMENT...]: sends a chunk of $file.
patch() {
    expect "$1" --request PATCH --header 'Content-Type: application/offset+octet-stream' \
        --header "Upload-Offset: $2" --data-binary "$3" "${@:4}" "$root$file"
}
offset_is() {
    expect 200 --head "$root$file"
    [[ $(header Upload-Offset) == "$1" ]] || fail "the offset is $(header Upload-Offset), not $1"
}
# raw TEXT: sends what no honest client sends; the connection is ${line}.
raw() {
    exec {line}<>"/dev/tcp/127.0.0.1/$port"
    printf '%b' "$1" >&"$line"
}
raw_patch() {
    raw "PATCH $file HTTP/1.1\r\nHost: me\r\nTus-Resumable: 1.0.0\r\nUpload-Offset: 0\r
Content-Type: application/offset+octet-stream\r\n$1"
}

# number VALUE [BYTES], text TEXT: the fields of an encoded share. share FILE RECIPIENTS: an encoded share.
number() {
    local i
    for ((i = 0; i < ${2-4}; ++i)); do printf '%b' "\\x$(printf %02x $(($1 >> 8 * i & 255)))"; done
}
text() {
    number ${#1}
    printf %s "$1"
}
share() {
    text '' && text words && text files && text +447700900123 && text "$2" && number 0 8 && number 1
    text "$1" && text '' && text '' && text '' && text name && text '' && text '' && number 0 16
}
# post STATUS KEY-DIGIT FILE RECIPIENTS
post() {
    share "$3" "$4" >message
    expect "$1" --header "Share-Key: ${2}0000000000000000000000000000000" --data-binary @message "$root/shares"
}
messages_of() {
    find "server/push/$1" -type f 2>/dev/null | wc -l
}

# The cases

an_upload_arrives_in_chunks_and_is_handed_out_in_ranges() {
    create 10
    [[ $(header Upload-Expires) == *GMT ]] || fail "it does not say when the upload expires"
    patch 204 0 01234
    patch 409 3 34567
    expect 404 "$root$file" # before it is whole
    offset_is 5
    patch 204 5 56789 --request POST --header 'X-HTTP-Method-Override: PATCH'
    for range in 0-9:0123456789 3-4:34 8-:89 -3:789 7-99:789; do
        expect 206 --range "${range%:*}" "$root$file"
        [[ $(<body) == "${range#*:}" ]] || fail "range ${range%:*} is $(<body)"
    done
    expect 416 --range 10- "$root$file"
    [[ $(curl --silent --head "$root$file") == *' 412 '* ]] || fail "it takes what is not tus"
    expect 404 --path-as-is "$root/files/../../server/lock"
}

a_chunk_beyond_the_length_is_refused_and_leaves_nothing() {
    expect 413 --request POST --header 'Upload-Length: 99999999999' "$url"
    create 5
    patch 204 0 01
    patch 413 2 234567
    patch 413 2 234567 --header 'Transfer-Encoding: chunked'
    offset_is 2
    head -c 150000 /dev/zero >large # comes in several pieces
    create 100000
    patch 413 0 @large --header 'Transfer-Encoding: chunked'
    offset_is 0
}

what_arrived_of_a_broken_chunk_counts() {
    local chunk
    for chunk in "Transfer-Encoding: chunked\r\n\r\n3\r\nabc\r\nthis is no length\r\n" "Content-Length: 9\r\n\r\nabc"; do
        create 9
        raw_patch "$chunk"
        until [[ -s server/uploads/${file#/files/}/bytes ]]; do sleep 0.01; done
        offset_is 3 # and the earlier chunk ends there
        (printf 'too late' >&"$line") 2>/dev/null || true
        ! grep -q ' 204 ' <&"$line" || fail "a broken chunk was answered as if it were whole"
        patch 204 3 defghi
        exec {line}<&-
        expect 200 "$root$file"
        [[ $(<body) == abcdefghi ]] || fail "$(<body) arrived"
    done
}

lies_about_lengths_are_refused_at_once() {
    local lie
    create 9
    for lie in 'Content-Length: 99999999999999999999' 'Content-Length: -1' 'Content-Length: 9000000000' \
        "X: $(head -c 70000 /dev/zero | tr '\0' x)"; do
        raw_patch "$lie\r\n\r\n"
        grep -Eq '^HTTP/1.1 (4|5)' <&"$line" || fail "it takes ${lie::40}"
        exec {line}<&-
    done
    offset_is 0
}

a_share_is_made_once_and_pushed_once_to_each() {
    create 4
    patch 204 0 data
    touch --date '47 hours ago' "server/uploads/${file#/files/}/bytes"
    post 201 a "$file" '+447700900123, +12025550123, +447700900123'
    [[ -n $(find "server/uploads/${file#/files/}/bytes" -mmin -60) ]] || fail "its file expires before it"
    local token expires
    token=$(header Contents-Token) expires=$(header Expires-Milliseconds)
    killed "$server"
    start_server 0
    post 201 a "$file" '+447700900123, +12025550123'
    [[ $token-$expires == $(header Contents-Token)-$(header Expires-Milliseconds) ]] || fail "it is another share"
    expect 200 "$root/push/447700900123?after=0"
    [[ $(header Push-Number) == 1 ]] || fail "its push message is $(header Push-Number)"
    grep -q "$token" body || fail "the push message is of another share"
    [[ $(messages_of 447700900123)$(messages_of 12025550123) == 11 ]] || fail "it was pushed again"
    post 201 b "$file" +447700900123
    expect 200 "$root/push/447700900123?after=1"
    [[ $(header Contents-Token) != "$token" && $(header Push-Number) == 2 ]] || fail "a new key gave the old share"
}

a_share_that_can_never_be_accepted_reaches_nobody() {
    create 4
    post 400 c "$file" +999000001 # which is not finished
    patch 204 0 data
    for recipients in '+999000001, +99900000199900000199900000199900000199900000199900' '+999000001, nobody' ''; do
        post 400 c "$file" "$recipients"
        [[ $(<body) == *.* ]] || fail "it does not say why"
    done
    post 400 c /files/../lock +999000001
    expect 400 --header "Share-Key: c" --data-binary @message "$root/shares"
    head -c 30 message >half
    expect 400 --header "Share-Key: ${file#/files/}" --data-binary @half "$root/shares"
    head -c 5M /dev/zero >large
    expect 413 --header "Share-Key: ${file#/files/}" --header 'Transfer-Encoding: chunked' --data-binary @large "$root/shares"
    [[ $(messages_of 999000001) == 0 ]] || fail "it was pushed"
}

a_share_that_counts_is_completed_by_the_next_server() {
    killed "$server"
    mv server/shares/a0000000000000000000000000000000 server/plans/
    rm server/push/12025550123/1
    start_server 0
    [[ $(messages_of 447700900123)$(messages_of 12025550123) == 21 ]] || fail "its push messages are not there once"
}

a_thumbnail_is_what_the_picture_carries() {
    # A JPEG file with an Exif segment, whose second directory says where the thumbnail lies: 9 bytes at 44.
    printf '\xff\xd8\xff\xe1\x00\x3dExif\0\0II*\0\x08\0\0\0\0\0\x0e\0\0\0\x02\0\x01\x02\x04\0\x01\0\0\0\x2c\0\0\0' >picture
    printf '\x02\x02\x04\0\x01\0\0\0\x09\0\0\0\0\0\0\0thumbnail\xff\xda\0\x02\xff\xd9' >>picture
    create "$(stat --format %s picture)"
    patch 204 0 @picture
    post 201 d "$file" +12025550123
    expect 200 "$root/thumbnails/${file#/files/}"
    [[ $(<body) == thumbnail ]] || fail "it is $(<body)"
}

uploads_expire_and_are_removed() {
    create 4
    local unfinished=$file
    create 4
    patch 204 0 data
    touch --date '47 hours ago' "server/uploads/${file#/files/}/bytes"
    expect 200 "$root$file"
    touch --date '49 hours ago' server/uploads/*/bytes server/shares/* server/push/*/*
    expect 410 "$root$file"
    expect 410 --head "$root$unfinished"
    post 400 e "$file" +12025550123
    ended "$server"
    start_server 0 --timeout 1 # it removes them at its start
    expect 410 --head "$root$file"
    [[ -z $(find server/uploads server/shares -name bytes -o -name '*0000') ]] || fail "expired bytes are left"
    [[ $(messages_of 12025550123) == 1 ]] || fail "the last message of a device keeps its count"
    file=/files/${file//[0-9]/a}
    expect 404 --head "$root/files/0123456789abcdef0123456789abcdef"
}

slow_clients_hold_up_nobody_and_are_let_go() {
    local drips=() i
    for ((i = 0; i < 40; ++i)); do
        raw "POST /files HTTP/1.1\r\nHost: me\r\nX-Drip"
        drips+=("$line")
    done
    for ((i = 0; i < 200; ++i)); do
        raw "GET /push/447700900$((100 + i))?after=9 HTTP/1.1\r\nHost: me\r\n\r\n"
    done
    create 4
    patch 204 0 data --max-time 1
    for line in "${drips[@]}"; do
        i=0
        read -r -t 5 -u "$line" || i=$?
        [[ $i == 1 ]] || fail "its connection is not closed (read ended with $i)"
    done
    # A push message ends the wait of its device, of no other.
    curl --silent --max-time 10 --output pushed "$root/push/999000002?after=0" &
    post 201 f "$file" +999000002
    wait $! || true
    grep -q words pushed || fail "the message did not come"
}

many_requests_leave_memory_and_descriptors_as_they_were() {
    used() {
        awk '/VmRSS/ { print $2 }' "/proc/$server/status"
        find "/proc/$server/fd" | wc -l
    }
    ask() {
        curl --silent --head --header 'Tus-Resumable: 1.0.0' "$root/files/0000000000000000000000000000[$1]" >/dev/null
    }
    local before after
    ask 1000-2999
    mapfile -t before < <(used)
    ask 1000-9999
    mapfile -t after < <(used)
    ((after[0] <= before[0] + 512 && after[1] <= before[1] + 2)) || fail "${before[*]} became ${after[*]}"
}

a_stop_waits_for_nobody() {
    raw "GET /push/447700900123?after=9 HTTP/1.1\r\nHost: me\r\n\r\n"
    raw "POST /files HTTP/1.1\r\nHost: me\r\nContent-Length: 100\r\n\r\nhalf"
    SECONDS=0
    ended "$server"
    ((SECONDS < 5)) || fail "the server took $SECONDS s"
    [[ -z $(find server ! -perm 0700 ! -perm 0600) ]] || fail "others may look at $(find server ! -perm 0700 ! -perm 0600)"
}

start_server 0
run_cases
trap - EXIT
