#!/usr/bin/env bash
# FFmpeg's tools describe, decode and record a live stream over UDP without an error, with a login too.
. "${KOVA_SOURCE_DIR:?}/tests/players/live_ffmpeg.bash"
ffmpeg_plays_live udp
