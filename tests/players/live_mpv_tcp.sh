#!/usr/bin/env bash
# mpv plays 5 s of a live stream's picture and sound over TCP without an error, with a login too.
. "${KOVA_SOURCE_DIR:?}/tests/players/live_mpv.bash"
mpv_plays_live tcp
