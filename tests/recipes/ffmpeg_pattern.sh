#!/usr/bin/env bash
# The test picture with its tone.
. "${KOVA_SOURCE_DIR:?}/tests/recipes/recipe.bash"
need ffmpeg ffprobe python3
start_recipe ffmpeg-pattern
play 3
