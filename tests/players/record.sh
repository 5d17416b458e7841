#!/usr/bin/env bash
# What FFmpeg records of kovastream's streams, by the live server.
. "${KOVA_SOURCE_DIR:?}/tests/players/recording.bash" live
