# How mpv is judged over one transport, udp or tcp. Sourced, not run.
. "${KOVA_SOURCE_DIR:?}/tests/players/live.bash"

# mpv_play <name> <transport> <address>: 125 pictures, 5 s, with sound
mpv_play() {
    timeout 60 mpv --no-config --vo=null --ao=null --rtsp-transport="$2" --frames=125 \
        --msg-level=all=error --log-file="$work/$1.log" "$3" >"$work/$1.err" 2>&1 </dev/null
}

# mpv_plays_live <transport>: without and with a login at once
mpv_plays_live() {
    local begin took name
    need mpv python3
    with_login
    begin=$SECONDS
    mpv_play open "$1" "$url" &
    pids+=($!)
    mpv_play private "$1" "$private_url" &
    pids+=($!)
    mpv_play wrong "$1" "$wrong_url" && fail "a wrong password was good enough"
    grep -q '401 Unauthorized' "$work/wrong.log" || fail "wrong: $(cat "$work/wrong.err")"
    players_end
    took=$((SECONDS - begin))
    for name in open private; do
        judge "$name"
        grep -F 'VO: [null] 640x360' "$work/$name.log" || fail "$name: no picture"
        grep -F 'AO: [null] 48000Hz stereo' "$work/$name.log" || fail "$name: no sound"
    done
    echo "125 pictures in $took s"
    ((took >= 4 && took <= 40)) || fail "5 s of picture took $took s"
    await_gone
    all_said_goodbye "$1"
}
