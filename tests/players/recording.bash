# FFmpeg records streams with 48 kHz and with 44.1 kHz sound to MP4 over TCP without decoding them,
# and the sound alone once more. check_recording.py tells what is judged. For KOVA_RECORD_SECONDS,
# 30 by default; scripts/record-long sets more. Sourced with the server, classic or live; not run.
server=$1
[[ $server == live ]] || door=(--classic)
. "${KOVA_SOURCE_DIR:?}/tests/players/host.bash"
need ffmpeg ffprobe
seconds=${KOVA_RECORD_SECONDS:-30}
length=$((seconds + 12)) # of the streamed files: the players must be there before the end
rates=(48000 44100)

# The sound is noise, so that no two frames of it are alike. The encoder's own SEI, which the first
# picture has, is not sent: without it the streamed bytes are those in the file.
make_source() {
    ffmpeg -nostdin -v error -y -f lavfi -i "testsrc2=size=320x180:rate=25:duration=$length" \
        -f lavfi -i "anoisesrc=sample_rate=$1:duration=$length:color=pink:amplitude=0.3:seed=1" \
        -c:v libx264 -preset ultrafast -threads 1 -bf 0 -g 25 -bsf:v filter_units=remove_types=6 \
        -c:a aac -ac 2 -b:a 64k "$work/$1.mp4" </dev/null
}

# The live server sends parameter sets in band too, which the file has beside its pictures.
filter=()
[[ $server == classic ]] || filter=(-bsf:v filter_units=remove_types=7-8)

# record <rate> <name> <option>...
record() {
    local rate=$1 name=$2
    shift 2
    timeout $((seconds + 40)) ffmpeg -nostdin -xerror -v error -rtsp_transport tcp "$@" \
        -i "rtsp://127.0.0.1:$port/$rate" -t "$seconds" -c copy "${filter[@]}" -y "$work/$name.$rate.mp4" \
        2>"$work/$name.$rate.err" </dev/null &
    pids+=($!)
}

for rate in "${rates[@]}"; do
    make_source "$rate" &
    pids+=($!)
done
for pid in "${pids[@]}"; do
    wait "$pid" || fail "ffmpeg made no source: status $?"
done
pids=()

# Both streams have shown their parameters.
streams_are_ready() {
    local rate
    for rate in "${rates[@]}"; do
        grep -aEq "\"uri\":\"$rate\".*\"status\":\"(idle|flowing)\"" "$work/host.log" || return 1
    done
}

kovastream=$KOVA_BUILD_DIR/kovastream
[[ -x $kovastream ]] || fail "$kovastream is not built"
start_server '' streams_are_ready "$kovastream" --port PORT "${door[@]}" --once --status json --log /dev/null \
    "48000=$work/48000.mp4" "44100=$work/44100.mp4"
for rate in "${rates[@]}"; do
    record "$rate" both
    record "$rate" sound -allowed_media_types audio
done
for pid in "${pids[@]}"; do
    wait "$pid" || fail "ffmpeg: status $?: $(cat "$work"/*.err)"
done
pids=()
stop_host || fail "kovastream ended with status $?"
for rate in "${rates[@]}"; do
    judge "both.$rate"
    judge "sound.$rate"
    python3 "$players/check_recording.py" \
        "$work/$rate.mp4" "$work/both.$rate.mp4" "$work/sound.$rate.mp4" "$seconds" \
        "$server" || exit 1
done
