#!/usr/bin/env bash
# mpv plays 6 s of picture and sound over UDP without an error.
. "${KOVA_SOURCE_DIR:?}/tests/players/host.bash"
need mpv
start_host

begin=$SECONDS
timeout 40 mpv --no-config --vo=null --ao=null --rtsp-transport=udp --frames=150 \
    --msg-level=all=error --log-file="$work/mpv.log" "$url" >"$work/mpv.err" 2>&1 </dev/null ||
    fail "mpv: status $?: $(cat "$work/mpv.err")"
took=$((SECONDS - begin))
judge mpv
grep -F 'VO: [null] 640x360' "$work/mpv.log" || fail "no picture: $(tail "$work/mpv.log")"
grep -F 'AO: [null] 48000Hz stereo' "$work/mpv.log" || fail "no sound: $(tail "$work/mpv.log")"
echo "150 pictures in $took s"
((took >= 5 && took <= 20)) || fail "6 s of picture took $took s"
