#!/usr/bin/env bash
# A host on the (emulated) board streams; FFmpeg on this machine plays picture and sound of it over
# UDP and over TCP without an error, each player leaves nothing behind, and the host ends cleanly.
. "${KOVA_SOURCE_DIR:?}/tests/players/host.bash"
need ffmpeg
start_host
for transport in udp tcp; do
    decode "$transport" "$transport" 6 ||
        fail "ffmpeg, $transport: status $?: $(cat "$work/$transport.err")"
    judge_frames "$transport" 6
    await_status '^clients 0, ' 10
done
stop_host || fail "the host ended with status $?"
