#!/usr/bin/env bash
# The example of the live interface serves what an encoder writes into it: ffprobe sees the picture,
# what FFmpeg records over UDP and over TCP is byte for byte what went in, the host is told of each
# player, and the example ends when its input does.
. "${KOVA_SOURCE_DIR:?}/tests/players/host.bash"
need ffmpeg ffprobe python3 stdbuf
camera=${KOVA_BUILD_DIR:?}/kova_live_camera
[[ -x $camera ]] || fail "$camera is not built"

# The sample clip again and again, at the pace of a camera. FFmpeg itself would not begin anew: it
# cannot seek in a bare stream.
clips() { while cat "$clip_h264"; do :; done 2>"$work/clips.err"; }
encoder() {
    echo $BASHPID >"$work/encoder.pid"
    exec ffmpeg -nostdin -v error -re -f h264 -i <(clips) -c copy -f h264 - 2>"$work/encoder.err"
}
encoded_camera() { exec "${host_runner[@]}" "$camera" "$1" < <(encoder); }
listens() { (: <"/dev/tcp/127.0.0.1/$port") 2>/dev/null; }
told() { (($(grep -c " $1\$" "$work/host.log") == $2)); }

start_server '' listens encoded_camera PORT
url=rtsp://127.0.0.1:$port/camera
seen=$(timeout 30 ffprobe -v error -rtsp_transport tcp -of compact=nokey=1:print_section=0 \
    -show_entries stream=codec_name,profile,width,height "$url" 2>"$work/ffprobe.err" </dev/null) ||
    fail "ffprobe: $(cat "$work/ffprobe.err")"
[[ $seen == 'h264|Main|640|360' ]] || fail "ffprobe saw: $seen"

for transport in udp tcp; do
    timeout 40 ffmpeg -nostdin -v error -rtsp_transport $transport -i "$url" -t 5 \
        -map 0:v -c copy -f h264 -y "$work/$transport.h264" 2>"$work/$transport.err" </dev/null &
    pids+=($!)
done
for pid in "${pids[@]}"; do
    wait "$pid" || fail "ffmpeg: status $?: $(cat "$work"/*.err)"
done
pids=()
for transport in udp tcp; do
    units=$(python3 "$players/compare_h264.py" "$clip_h264" "$work/$transport.h264" $((24 * 3))) ||
        fail "$transport: $units"
    echo "$transport: $units"
done
await 10 told came 3 && await 10 told went 3 || fail "the host told of: $(cat "$work/host.log")"

kill "$(cat "$work/encoder.pid")" || fail "the encoder ended: $(cat "$work/encoder.err")"
await 10 has_ended "$host_pid" || fail "it goes on without an input"
wait "$host_pid" || fail "its status was $?"
host_pid=
