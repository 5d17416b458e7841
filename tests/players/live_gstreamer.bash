# How GStreamer is judged. Sourced, not run.
. "${KOVA_SOURCE_DIR:?}/tests/players/live.bash"
sink=(fakesink sync=false)
pictures=100 # 4 s
sounds=188

# pipeline <name> <gst-launch's argument>...: until its frames have come. The log tells of every
# buffer, and of the warnings of all elements. What fails behind the end is rtspsrc's PAUSE, which is
# interrupted when the pipeline goes.
pipeline() {
    local name=$1
    shift
    GST_DEBUG=2,GST_SCHEDULING:5 GST_DEBUG_NO_COLOR=1 GST_DEBUG_FILE=$work/$name.log \
        timeout 60 gst-launch-1.0 -v "$@" >"$work/$name.err" 2>&1 </dev/null
    sed '/^Got EOS from element/Q' "$work/$name.err" | grep -A 5 '^ERROR' && return 1
    grep -q '^Got EOS from element' "$work/$name.err" && return
    echo "$name did not come to its end:"
    grep -v ' DEBUG ' "$work/$name.log" | tail -5
    return 1
}

# rtspsrc <name> <transport> <address>: decodes picture and sound, by their RTP times alone; the
# picture is kept as it came. No caps are named: gst-launch mixes up their filters when two pads come
# at once.
rtspsrc() {
    pipeline "$1" rtspsrc name=source protocols="$2" location="$3" buffer-mode=none \
        source. ! rtph264depay ! h264parse ! \
        video/x-h264,stream-format=byte-stream,alignment=au ! tee name=parsed \
        parsed. ! queue ! filesink location="$work/$1.h264" \
        parsed. ! queue ! avdec_h264 ! "${sink[@]}" name=picture num-buffers=$pictures \
        source. ! rtpmp4gdepay ! aacparse ! avdec_aac ! \
        "${sink[@]}" name=sound num-buffers=$sounds
}

# judge_pipeline <name> [sound rate] [fps]: no warning, and no frame missing. Warnings about the end
# do not count, nor those about what GStreamer makes of late arrivals on a busy machine.
judge_pipeline() {
    local end='(receive|PAUSE) interrupted$|Operation was cancelled|Could not send message'
    local late='too big, reset skew$|decreasing timestamp|elayed linking'
    ! grep -Ev " DEBUG +GST_SCHEDULING |$end|$late" "$work/$1.log" || fail "$1 complained"
    python3 "$players/check_pipeline.py" "$work/$1.log" $pictures $sounds \
        "${2:-48000}" "${3:-25}" || fail "$1 has gaps, or misses frames"
}

# wrong_pipeline <scheme>: a wrong password gets in nowhere
wrong_pipeline() {
    pipeline wrong uridecodebin uri="${wrong_url/rtsp:/$1:}" ! fakesink &&
        fail "a wrong password was good enough"
    grep -q 'Unauthorized (401)' "$work/wrong.err" || fail "wrong: $(cat "$work/wrong.err")"
}

# gstreamer_plays_live <transport>: rtspsrc and its depacketizers, without and with a login
gstreamer_plays_live() {
    local name
    need gst-launch-1.0 python3
    with_login
    rtspsrc open "$1" "$url" &
    pids+=($!)
    rtspsrc private "$1" "$private_url" &
    pids+=($!)
    players_end
    wrong_pipeline "rtsp${1:0:1}"
    for name in open private; do
        judge_pipeline $name
        grep -q '<sound:sink> calling .*, size 8192,' "$work/$name.log" ||
            fail "$name: no frames of 1,024 samples in stereo"
        judge_bytes $name $((pictures * 2 / 3))
    done
    await_gone
    all_said_goodbye "$1"
}
