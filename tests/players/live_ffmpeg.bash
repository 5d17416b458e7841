# How FFmpeg is judged over one transport, udp or tcp. Sourced, not run.
. "${KOVA_SOURCE_DIR:?}/tests/players/live.bash"

# ffmpeg_plays_live <transport>: describes the stream, and decodes picture and sound, without and
# with a login; a wrong password is refused.
ffmpeg_plays_live() {
    local expected='h264|Main|640|360|yuv420p
aac|LC|48000|2'
    need ffmpeg ffprobe python3
    with_login
    record_live open "$1" 4 "$url" &
    pids+=($!)
    record_live private "$1" 4 "$private_url" &
    pids+=($!)
    timeout 30 ffprobe -v error -rtsp_transport "$1" -of compact=nokey=1:print_section=0 \
        -show_entries stream=codec_name,profile,width,height,pix_fmt,sample_rate,channels \
        "$url" >"$work/probe" 2>"$work/ffprobe.err" </dev/null || fail "ffprobe: status $?"
    judge ffprobe
    [[ $(cat "$work/probe") == "$expected" ]] || fail "ffprobe saw: $(cat "$work/probe")"
    players_end
    for name in open private; do
        judge_live $name 4
        judge_bytes $name 60
    done
    is_refused "$1" "$wrong_url"
    is_refused "$1" "${private_url/$login@/}"
    await_gone
    all_said_goodbye "$1"
    await 5 figures_are '.*refused logins 1$' || fail "the wrong password was not counted once"
}
