#!/usr/bin/env bash
# mpv plays 10 s of picture and sound over UDP without an error.
. "${KOVA_SOURCE_DIR:?}/tests/players/play.bash"
mpv_plays udp
