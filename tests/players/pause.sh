#!/usr/bin/env bash
# Pausing, with mpv over UDP and over TCP at once. There is no PAUSE in RTSP here. mpv's own pause
# only takes no data: for some seconds the system's buffers hold it, and mpv goes on where it was.
# For longer, a player stops and connects anew: it is gone from the count, comes back, and plays
# what is live. Another player goes on undisturbed meanwhile.
. "${KOVA_SOURCE_DIR:?}/tests/players/host.bash"
need ffmpeg mpv
transports=(udp tcp)

# ask <transport> <json list>: has mpv run a command, and prints what it answers to it
ask() {
    timeout 10 python3 - "$work/$1.socket" "$2" <<'END'
import json, socket, sys
with socket.socket(socket.AF_UNIX) as mpv:
    mpv.connect(sys.argv[1])
    for number, command in enumerate((["disable_event", "all"], json.loads(sys.argv[2]))):
        mpv.sendall(json.dumps({"command": command, "request_id": number}).encode() + b"\n")
    for line in mpv.makefile():
        answer = json.loads(line)
        if answer.get("request_id") == 1:
            print(answer.get("data", ""))
            sys.exit(answer["error"] != "success")
END
}

tell_both() {
    local transport
    for transport in "${transports[@]}"; do
        ask "$transport" "$1" >"$work/answer" 2>&1 || fail "$transport: $1: $(cat "$work/answer")"
    done
}

position() { ask "$1" '["get_property", "time-pos"]'; }

# await_position <transport> <seconds>: waits until mpv has played further than that
await_position() {
    local at='' tries
    for ((tries = 0; tries < 100; tries++)); do
        at=$(position "$1" 2>/dev/null)
        [[ $at =~ ^[0-9] ]] && awk "BEGIN { exit !($at > $2) }" && return 0
        sleep 0.2
    done
    fail "$1: mpv does not play on from $2 s: $at; $(cat "$work/$1.err")"
}

start_host
# Without timeout, which would interrupt it twice. It ends by itself.
ffmpeg -nostdin -xerror -v error -rtsp_transport tcp -i "$url" -t 120 -map 0:v -map 0:a \
    -fps_mode passthrough -f framecrc -y "$work/other.frames" 2>"$work/other.err" </dev/null &
other=$!
pids+=("$other")
for transport in "${transports[@]}"; do
    timeout 120 mpv --no-config --idle --vo=null --ao=null --rtsp-transport="$transport" \
        --msg-level=all=error --input-ipc-server="$work/$transport.socket" "$url" \
        >"$work/$transport.err" 2>&1 </dev/null &
    pids+=($!)
done
await_status '^clients 3, [1-9][0-9]* kbit/s, flowing$' 15

declare -A paused
for transport in "${transports[@]}"; do
    await_position "$transport" 1
done
tell_both '["set_property", "pause", true]'
for transport in "${transports[@]}"; do
    paused[$transport]=$(position "$transport")
done
sleep 3
await_status '^clients 3, [1-9][0-9]* kbit/s, flowing$' 5
for transport in "${transports[@]}"; do
    at=$(position "$transport")
    echo "$transport: paused at ${paused[$transport]}, 3 s later at $at"
    [[ $at == "${paused[$transport]}" ]] || fail "$transport: mpv played on"
done
tell_both '["set_property", "pause", false]'
for transport in "${transports[@]}"; do
    await_position "$transport" "${paused[$transport]} + 2"
done

tell_both '["stop"]'
await_status '^clients 1, [1-9][0-9]* kbit/s, flowing$' 15
sleep 1
tell_both "[\"loadfile\", \"$url\"]"
await_status '^clients 3, [1-9][0-9]* kbit/s, flowing$' 15
for transport in "${transports[@]}"; do
    await_position "$transport" 2
done
tell_both '["quit"]'
for transport in "${transports[@]}"; do
    wait "${pids[1]}" || fail "mpv over $transport: status $?: $(cat "$work/$transport.err")"
    judge "$transport"
    unset 'pids[1]'
    pids=("${pids[@]}")
done

kill -INT "$other" || fail "the other player had ended: $(cat "$work/other.err")"
wait "$other"
judge_whole other
await_status '^clients 0, 0 kbit/s, idle$' 10
