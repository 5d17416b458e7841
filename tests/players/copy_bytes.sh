#!/usr/bin/env bash
# What FFmpeg records without decoding, over UDP and over TCP, is byte for byte what was pushed.
. "${KOVA_SOURCE_DIR:?}/tests/players/host.bash"
need ffmpeg python3
start_host
for transport in udp tcp; do
    timeout 40 ffmpeg -nostdin -xerror -v error -rtsp_transport $transport -i "$url" -t 6 \
        -map 0:v -c copy -f h264 -y "$work/$transport.h264" 2>"$work/$transport.err" </dev/null &
    pids[${#pids[@]}]=$!
done
for pid in "${pids[@]}"; do
    wait "$pid" || fail "ffmpeg: status $?: $(cat "$work"/*.err)"
done
for transport in udp tcp; do
    judge $transport
    units=$(python3 "$players/compare_h264.py" "$clip_h264" "$work/$transport.h264" $((24 * 5))) ||
        fail "$transport: the recording differs"
    echo "$transport: $units"
done
