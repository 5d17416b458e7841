# How FFmpeg's tools and mpv are judged over one transport, udp or tcp. Sourced, not run.
. "${KOVA_SOURCE_DIR:?}/tests/players/host.bash"

# ffmpeg_plays <transport>: describes the stream, and decodes 10 s of picture and sound
ffmpeg_plays() {
    local expected='aac|LC|48000|2
h264|Main|640|360|yuv420p'
    need ffmpeg ffprobe
    start_host
    timeout 30 ffprobe -v error -rtsp_transport "$1" -of compact=nokey=1:print_section=0 \
        -show_entries stream=codec_name,profile,width,height,pix_fmt,sample_rate,channels \
        "$url" >"$work/probe" 2>"$work/ffprobe.err" </dev/null || fail "ffprobe: status $?"
    judge ffprobe
    [[ $(cat "$work/probe") == "$expected" ]] || fail "ffprobe saw: $(cat "$work/probe")"
    decode ffmpeg "$1" 10 || fail "ffmpeg: status $?: $(cat "$work/ffmpeg.err")"
    judge_frames ffmpeg 10
}

# mpv_plays <transport>: plays 250 pictures, 10 s, with sound
mpv_plays() {
    local begin took
    need mpv
    start_host
    begin=$SECONDS
    timeout 60 mpv --no-config --vo=null --ao=null --rtsp-transport="$1" --frames=250 \
        --msg-level=all=error --log-file="$work/mpv.log" "$url" >"$work/mpv.err" 2>&1 </dev/null ||
        fail "mpv: status $?: $(cat "$work/mpv.err")"
    took=$((SECONDS - begin))
    judge mpv
    grep -F 'VO: [null] 640x360' "$work/mpv.log" || fail "no picture: $(tail "$work/mpv.log")"
    grep -F 'AO: [null] 48000Hz stereo' "$work/mpv.log" || fail "no sound: $(tail "$work/mpv.log")"
    echo "250 pictures in $took s"
    ((took >= 9 && took <= 40)) || fail "10 s of picture took $took s"
}
