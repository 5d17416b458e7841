#!/usr/bin/env bash
# What strict players send: requests in any pieces, several at once, and nothing but OPTIONS for
# longer than a session may be silent. With KOVA_KEEP_ALIVE_SECONDS, 180 for instance, that lasts so
# long, with a session of a minute as players get it and OPTIONS every 50 s.
. "${KOVA_SOURCE_DIR:?}/tests/players/live.bash"
need python3

transcript() {
    timeout $((${KOVA_KEEP_ALIVE_SECONDS:-0} + 100)) python3 -B "$players/strict/transcripts.py" \
        "$1" "$url" "${@:2}" >"$work/$1.out" 2>"$work/$1.err"
}

if [[ -n ${KOVA_KEEP_ALIVE_SECONDS-} ]]; then
    start_live_host
    transcript keep-alive "$KOVA_KEEP_ALIVE_SECONDS" 50 &
    pids+=($!)
else
    start_live_host -i 2000
    for name in splits pipeline keep-alive silent; do
        transcript $name &
        pids+=($!)
    done
fi
players_end
cat "$work"/*.out
await_gone
[[ $(grep -c '^went .* silence$' "$work/host.log") == 1 ]] || fail "one was to end by its silence"
