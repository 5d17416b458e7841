#!/usr/bin/env bash
# FFmpeg pulls from one kovastream into another.
. "${KOVA_SOURCE_DIR:?}/tests/recipes/recipe.bash"
need ffmpeg ffprobe python3
start_device
start_recipe cascade-pipe
# What the second one gets begins with a key frame and a gap, as with every player.
await_status '"fps":2[4-9]'
play 3
