#!/usr/bin/env bash
# GStreamer's rtspsrc takes 4 s of a live stream over TCP without a warning, with a login too.
. "${KOVA_SOURCE_DIR:?}/tests/players/live_gstreamer.bash"
gstreamer_plays_live tcp
