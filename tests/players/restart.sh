#!/usr/bin/env bash
# Players that retry, as a shell loop with FFmpeg and as mpv with --loop-playlist=force, come back
# by themselves when the host ends and is started again on the same port, and then play without an
# error. What they were playing before ends for them without an error too.
. "${KOVA_SOURCE_DIR:?}/tests/players/host.bash"
need ffmpeg mpv
transports=(udp tcp)

# retry <transport>: plays until the host ends, then retries until it has played 5 s; after that
# the last attempt's frames and messages are at hand
retry() {
    local attempt seconds=60 # less than 60 s are played before the host ends
    for attempt in {1..60}; do
        [[ -e $work/ended ]] && seconds=5
        if decode "$1" "$1" "$seconds" && ((seconds == 5)); then
            echo "$1: attempt $attempt plays"
            return 0
        fi
        if ((attempt == 1)); then
            cp "$work/$1.err" "$work/$1.first.err"
            cp "$work/$1.frames" "$work/$1.first.frames"
        fi
        sleep 0.5
    done
    return 1
}

start_host
for transport in "${transports[@]}"; do
    retry "$transport" &
    pids+=($!)
done
timeout 120 mpv --no-config --vo=null --ao=null --rtsp-transport=tcp --loop-playlist=force \
    --msg-level=all=error --log-file="$work/mpv.log" "$url" >"$work/mpv.err" 2>&1 </dev/null &
mpv=$!
pids+=("$mpv")
await_status '^clients 3, [1-9][0-9]* kbit/s, flowing$' 15
sleep 3
stop_host || fail "the host ended with status $?"
: >"$work/ended"
sleep 1.5
start_host_again
for transport in "${transports[@]}"; do
    wait "${pids[0]}" ||
        fail "ffmpeg over $transport does not come back: $(cat "$work/$transport.err")"
    pids=("${pids[@]:1}")
    judge_whole "$transport.first"
    judge_frames "$transport" 5
done

# mpv has been back for about as long. While it plays, it reports no error.
kill "$mpv" || fail "mpv has ended: $(tail "$work/mpv.log")"
wait "$mpv"
awk '/first video frame after restart/ { starts++; plays = 1 }
    /EOF code:/ { plays = 0 }
    plays && /\]\[[ef]\]/ { print; bad = 1 }
    END { print "mpv: played " starts " times"; exit bad || starts != 2 }' "$work/mpv.log" ||
    fail "mpv does not come back, or has errors"
await_status '^clients 0, 0 kbit/s, idle$' 10
