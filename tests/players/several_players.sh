#!/usr/bin/env bash
# Players on both transports at once do not disturb each other, nor does one that is killed: over
# TCP it is gone from the count as soon as its connection breaks.
. "${KOVA_SOURCE_DIR:?}/tests/players/host.bash"
need ffmpeg
start_host

names=(udp_1 udp_2 tcp_1 tcp_2)
for name in "${names[@]}"; do
    decode "$name" "${name%_*}" 10 &
    pids[${#pids[@]}]=$!
done
ffmpeg -nostdin -v error -rtsp_transport tcp -i "$url" -t 60 -map 0 -f null - \
    2>"$work/victim.err" </dev/null &
victim=$!
pids[${#pids[@]}]=$victim

await_status '^clients 5, [1-9][0-9]* kbit/s, flowing$' 15
kill -KILL "$victim" || fail "the victim had ended by itself: $(cat "$work/victim.err")"
wait "$victim" 2>/dev/null
await_status '^clients 4, [1-9][0-9]* kbit/s, flowing$' 10

for i in "${!names[@]}"; do
    wait "${pids[$i]}" || fail "${names[$i]}: status $?: $(cat "$work/${names[$i]}.err")"
done
for name in "${names[@]}"; do
    judge_frames "$name" 10
done
await_status '^clients 0, 0 kbit/s, idle$' 10
