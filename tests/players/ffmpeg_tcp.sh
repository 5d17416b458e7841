#!/usr/bin/env bash
# FFmpeg's tools describe the stream and decode 10 s of it over TCP without an error.
. "${KOVA_SOURCE_DIR:?}/tests/players/play.bash"
ffmpeg_plays tcp
