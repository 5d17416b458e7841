#!/usr/bin/env bash
# GStreamer's playbin and uridecodebin find out themselves how to play a live stream, over UDP and
# TCP, with and without a login.
. "${KOVA_SOURCE_DIR:?}/tests/players/live_gstreamer.bash"
need gst-launch-1.0 python3

# playbin <name> <address>
playbin() {
    pipeline "$1" playbin uri="$2" \
        video-sink="${sink[*]} name=picture num-buffers=$pictures" \
        audio-sink="${sink[*]} name=sound num-buffers=$sounds"
}

# uridecodebin <name> <address>
uridecodebin() {
    pipeline "$1" uridecodebin name=source uri="$2" \
        source. ! video/x-raw ! "${sink[@]}" name=picture num-buffers=$pictures \
        source. ! audio/x-raw ! "${sink[@]}" name=sound num-buffers=$sounds
}

with_login
playbin open "${url/rtsp:/rtspu:}" &
pids+=($!)
playbin private "${private_url/rtsp:/rtspt:}" &
pids+=($!)
uridecodebin decode_open "${url/rtsp:/rtspt:}" &
pids+=($!)
uridecodebin decode_private "${private_url/rtsp:/rtspu:}" &
pids+=($!)
players_end
for name in open private decode_open decode_private; do
    judge_pipeline $name
done
await_gone
[[ $(grep -c '^came .* udp$' "$work/host.log") == 2 ]] || fail "two were to play over UDP"
! grep '^went' "$work/host.log" | grep -v ' teardown$' || fail "a player did not say TEARDOWN"
