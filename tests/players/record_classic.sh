#!/usr/bin/env bash
# What FFmpeg records of kovastream's streams, by the classic server.
. "${KOVA_SOURCE_DIR:?}/tests/players/recording.bash" classic
