#!/usr/bin/env bash
# One kovastream pulls from another, and goes on when that one has gone and come back.
. "${KOVA_SOURCE_DIR:?}/tests/recipes/recipe.bash"
need ffmpeg ffprobe python3
start_device
start_recipe cascade
# What the second one gets begins with a key frame and a gap, as with every player.
await_status '"fps":2[4-9]'
play 3

stop_device
await_status '"fps":0\.0'
start_device
await_status '"fps":2[4-9]'
