# Helpers of the recipe tests: they run the very text that docs/recipes.md shows, in an empty
# directory, and play the stream that comes of it. Sourced, not run.
. "${KOVA_SOURCE_DIR:?}/tests/support/checks.bash"
recipes=${KOVA_SOURCE_DIR:?}/docs/recipes.md
clip_h264=${KOVA_SOURCE_DIR:?}/samples/clip.h264
clip_aac=${KOVA_SOURCE_DIR:?}/samples/clip.aac
work=$(mktemp -d)
pids=() # process groups in the background
cd "$work" || exit 1

clean_up() {
    local status=$? pid
    # Each is a timeout, which passes the signal on to its group. All at once first.
    for pid in "${pids[@]}"; do
        kill -TERM "$pid" 2>/dev/null
    done
    for pid in "${pids[@]}"; do
        await 10 has_ended "$pid" || kill -KILL "$pid"
    done
    if ((status != 0)); then
        tail -n 20 "$work"/*.log
    fi
    cd /
    rm -rf "$work"
    exit $status
}
trap clean_up EXIT

# recipe <name>: the text of the code block that follows the marker
recipe() {
    local text
    text=$(awk -v marker="<!-- recipe: $1 -->" '
        $0 == marker { found = 1; next }
        found && /^```/ { if (inside) exit; inside = 1; next }
        inside { print }' "$recipes")
    [[ -n $text ]] || fail "docs/recipes.md has no recipe $1"
    echo "$text"
}

# What a recipe calls kovastream is the one that was built, on a port that is free here.
# A port that was free may be taken a moment later: then the recipe is begun again.
provide_kovastream() {
    port=$(free_port) || fail "no free port"
    url=rtsp://127.0.0.1:$port/live
    mkdir -p bin
    cat >bin/kovastream <<END
#!/bin/sh
exec ${KOVA_BUILD_DIR:?}/kovastream --port $port --status json "\$@" >>$work/status.log 2>>$work/host.log
END
    chmod +x bin/kovastream
    PATH=$work/bin:$PATH
    : >status.log
    : >host.log
}

stream_is_there() { grep -Eq '"status":"(idle|flowing)"' status.log; }

# run_text <text>: in the background, for at most two minutes
run_text() {
    echo "$1" >recipe.sh
    timeout 120 bash recipe.sh >recipe.log 2>&1 </dev/null &
    pids[${#pids[@]}]=$!
}

# run_recipe <name>
run_recipe() {
    local text
    text=$(recipe "$1") || exit 1
    run_text "$text"
}

await_stream() { await 30 stream_is_there || fail "there is no stream"; }

status_is() { tail -n 1 status.log | grep -Eq "$1"; }

# await_status <pattern>: until the last line of status matches
await_status() { await 30 status_is "$1" || fail "the status is never $1"; }

# start_recipe <name>: until its stream is there
start_recipe() {
    provide_kovastream
    run_recipe "$1"
    await_stream
}

# make_film <seconds>: leaves film.avi, which nothing streams as it is
make_film() {
    ffmpeg -nostdin -v error -f lavfi -i "testsrc2=size=641x361:rate=30000/1001:duration=$1" \
        -f lavfi -i "sine=frequency=440:sample_rate=44100:duration=$1" \
        -pix_fmt yuvj422p -c:v mjpeg -c:a pcm_s16le -y film.avi >film.log 2>&1 </dev/null ||
        fail "film.avi cannot be made"
}

# start_device: another kovastream, with the sample clip; $device is its URL, which it keeps
start_device() {
    [[ -n ${device-} ]] || device_port=$(free_port) || fail "no free port"
    export device=rtsp://127.0.0.1:$device_port/live
    : >device.log
    timeout 120 "${KOVA_BUILD_DIR:?}/kovastream" --port "$device_port" --status json \
        "$clip_h264+$clip_aac" >device.log 2>device-host.log </dev/null &
    device_pid=$!
    pids[${#pids[@]}]=$device_pid
    await 10 grep -Eq '"status":"(idle|flowing)"' device.log || fail "the device does not stream"
}

stop_device() {
    kill -TERM "$device_pid"
    wait "$device_pid" || fail "the device: status $?"
}

# play <seconds>: picture and sound decode without a message, with as many frames as the time has,
# no B-frame, and a key frame in each second. The picture begins with the next key frame, up to a
# second behind the sound.
play() {
    local seconds=$1 pictures keys sounds kinds
    timeout 60 ffmpeg -nostdin -xerror -v error -rtsp_transport tcp -i "$url" \
        -map 0:v -map 0:a -fps_mode passthrough -t "$seconds" -f framecrc -y frames.txt \
        -map 0:v -c copy -t "$seconds" -y copy.mkv 2>play.log </dev/null ||
        fail "ffmpeg: status $?"
    [[ ! -s play.log ]] || fail "ffmpeg complained"
    pictures=$(grep -c '^0,' frames.txt)
    sounds=$(grep -c '^1,' frames.txt)
    kinds=$(ffprobe -v error -select_streams v -show_entries frame=pict_type -of csv=p=0 copy.mkv)
    keys=$(grep -c I <<<"$kinds")
    echo "$pictures pictures, $keys key frames, $sounds sound frames in $seconds s"
    ((pictures >= 20 * (seconds - 1) && pictures <= 31 * (seconds + 1))) || fail "pictures"
    ((sounds >= 45 * (seconds - 1) && sounds <= 49 * (seconds + 1))) || fail "sound"
    ((keys >= seconds - 1)) || fail "key frames"
    [[ $kinds != *B* ]] || fail "B-frames"
}
