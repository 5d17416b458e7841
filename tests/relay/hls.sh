#!/usr/bin/env bash
# scripts/relay-hls waits for a stream, shows it in a browser, outlives the stream's absence, and
# ends cleanly.
. "${KOVA_SOURCE_DIR:?}/tests/support/checks.bash"
source_dir=${KOVA_SOURCE_DIR:?}
kovastream=${KOVA_BUILD_DIR:?}/kovastream
work=$(mktemp -d)
host_pid=
relay_pid=
watch_pid=

clean_up() {
    local status=$?
    [[ -z $watch_pid ]] || end 20 "$watch_pid"
    [[ -z $relay_pid ]] || end 20 "$relay_pid"
    [[ -z $host_pid ]] || end 20 "$host_pid"
    if ((status != 0)); then
        tail -n 20 "$work"/*.log
    fi
    rm -rf "$work"
    exit $status
}
trap clean_up EXIT

start_host() {
    : >"$work/host.json"
    timeout 100 "$kovastream" --port "$rtsp_port" --status json \
        "$source_dir/samples/clip.h264+$source_dir/samples/clip.aac" \
        >"$work/host.json" 2>>"$work/host.log" </dev/null &
    host_pid=$!
    await 20 grep -Eq '"status":"(idle|flowing)"' "$work/host.json" || fail "the host shows no stream"
}

relay_started() {
    grep -q '^Relaying' "$work/relay.log" || has_ended "$relay_pid"
}

need chromium curl ffmpeg python3
rtsp_port=$(free_port) || fail "no free port"

# A port that was free may be taken a moment later.
for ((attempt = 0; attempt < 5; attempt++)); do
    page_port=$(free_port) || fail "no free port"
    : >"$work/relay.log"
    timeout 150 "$source_dir/scripts/relay-hls" --port "$page_port" \
        "rtsp://127.0.0.1:$rtsp_port/live" >"$work/relay.log" 2>&1 </dev/null &
    relay_pid=$!
    await 120 relay_started || fail "the relay does not start"
    has_ended "$relay_pid" || break
    wait "$relay_pid"
    relay_pid=
    grep -q 'is taken' "$work/relay.log" || fail "the relay has ended"
done
[[ -n $relay_pid ]] || fail "no free port in five attempts"
page=http://127.0.0.1:$page_port

# The stream comes after the relay.
grep -q 'next attempt in 1 s' "$work/relay.log" ||
    await 10 grep -q 'next attempt in 1 s' "$work/relay.log" || fail "the relay tells of no attempt"
start_host
timeout 120 python3 -B "$source_dir/tests/relay/watch.py" "$page/" 5 "$work/back" \
    >"$work/watch.log" 2>&1 </dev/null &
watch_pid=$!
has_played() { grep -q ' s played: ' "$work/watch.log" || has_ended "$watch_pid"; }
await 100 has_played || fail "the page does not play"
has_ended "$watch_pid" && fail "the page does not play"

# header <path> <name>: of the answer to a GET
header() {
    curl -fsS -m 10 -o "$work/body" -D - "$page/$1" | tr -d '\r' | sed -n "s/^$2: //Ip"
}
# expect <path> <type> <caching>
expect() {
    local type caching
    type=$(header "$1" Content-Type)
    caching=$(header "$1" Cache-Control)
    [[ "$type; $caching" == "$2; $3" ]] || fail "$1: $type; $caching"
}
expect '' 'text/html; charset=utf-8' no-cache
expect hls.min.js text/javascript 'public, max-age=86400'
expect live.m3u8 application/vnd.apple.mpegurl no-cache
segment=$(grep -v '^#' "$work/body" | tail -n 1)
expect "$segment" video/mp2t 'public, max-age=3600, immutable'

# The same playlist and the open page go on when the stream has gone and come back.
end 20 "$host_pid" || fail "kovastream: status $?"
host_pid=
attempts=$(grep -c 'next attempt' "$work/relay.log")
another_try() { (($(grep -c 'next attempt' "$work/relay.log") > attempts)); }
await 20 another_try || fail "the relay did not notice that the stream has ended"
date +%s%3N >"$work/now"
mv "$work/now" "$work/back"
start_host
has_gone_on() { curl -fsS -m 10 "$page/live.m3u8" | grep -q '^#EXT-X-DISCONTINUITY$'; }
await 20 has_gone_on || fail "the playlist does not go on"
wait "$watch_pid" || fail "the page does not go on"
watch_pid=
cat "$work/watch.log"

mapfile -t children < <(pgrep -P "$(pgrep -P "$relay_pid")")
((${#children[@]} >= 2)) || fail "the relay has no children"
end 20 "$relay_pid" || fail "the relay: status $?"
relay_pid=
for pid in "${children[@]}"; do
    await 2 has_ended "$pid" || fail "the relay has left process $pid behind"
done
