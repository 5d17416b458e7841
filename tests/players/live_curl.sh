#!/usr/bin/env bash
# libcurl goes through a whole session of a live stream over TCP and over UDP, without and with a
# login, and the curl program has its one request answered.
. "${KOVA_SOURCE_DIR:?}/tests/players/live.bash"
. "$players/curl.bash"
with_login

[[ $(curl -s -S -i -m 10 "$url" 2>&1) == 'RTSP/1.0 200 OK'*'Public: '*DESCRIBE* ]] ||
    fail "curl got something else: $(curl -s -S -i -m 10 "$url" 2>&1)"

# go <name> <transport> <address> [user:password]
go() {
    timeout 60 "$work/curl_rtsp" "$2" "$3" track2 track1 4 2 "${@:4}" >"$work/$1.err" 2>&1
}

private=${private_url/$login@/}
go open_tcp tcp "$url" &
pids+=($!)
go open_udp udp "$url" &
pids+=($!)
go private_tcp tcp "$private" 'viewer:open sesame' &
pids+=($!)
go private_udp udp "$private" 'viewer:open sesame' &
pids+=($!)
go wrong tcp "$private" 'viewer:sesame' && fail "a wrong password was good enough"
grep -q ': 401, ' "$work/wrong.err" || fail "wrong: $(cat "$work/wrong.err")"
players_end
grep -h RTCP "$work"/*.err
await_gone
! grep '^went' "$work/host.log" | grep -v ' teardown$' || fail "a player did not say TEARDOWN"
