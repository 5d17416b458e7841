#!/usr/bin/env bash
# libcurl goes through a whole session over TCP and over UDP. The curl program can only ask
# "OPTIONS *", which names no stream and is refused.
. "${KOVA_SOURCE_DIR:?}/tests/players/host.bash"
. "$players/curl.bash"
start_host

refused=$(curl -s -S -i -m 10 "$url" 2>&1)
[[ $refused == *'CSeq'* ]] || fail "curl did not miss the CSeq of a refusal: $refused"

for transport in tcp udp; do
    timeout 60 "$work/curl_rtsp" $transport "$url" trackID=96 trackID=97 10 2 \
        >"$work/$transport.out" 2>&1 &
    pids+=($!)
done
for transport in tcp udp; do
    wait "${pids[0]}" || fail "curl_rtsp over $transport: status $?: $(cat "$work/$transport.out")"
    pids=("${pids[@]:1}")
    cat "$work/$transport.out"
done
await_status '^clients 0, 0 kbit/s, idle$' 10
