#!/usr/bin/env bash
# A GStreamer pipeline that writes MPEG-TS into a FIFO.
. "${KOVA_SOURCE_DIR:?}/tests/recipes/recipe.bash"
need ffmpeg ffprobe python3 gst-launch-1.0
start_recipe gstreamer-fifo
play 3
