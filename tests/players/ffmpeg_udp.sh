#!/usr/bin/env bash
# FFmpeg's tools describe the stream and decode picture and sound of it over UDP without an error.
. "${KOVA_SOURCE_DIR:?}/tests/players/host.bash"
need ffmpeg ffprobe
start_host

timeout 30 ffprobe -v error -rtsp_transport udp -of compact=nokey=1:print_section=0 \
    -show_entries stream=codec_name,profile,width,height,pix_fmt,sample_rate,channels \
    "$url" >"$work/probe" 2>"$work/ffprobe.err" </dev/null || fail "ffprobe: status $?"
judge ffprobe
expected='aac|LC|48000|2
h264|Main|640|360|yuv420p'
[[ $(cat "$work/probe") == "$expected" ]] || fail "ffprobe saw: $(cat "$work/probe")"

decode ffmpeg udp 9 || fail "ffmpeg: status $?: $(cat "$work/ffmpeg.err")"
judge_frames ffmpeg 9
