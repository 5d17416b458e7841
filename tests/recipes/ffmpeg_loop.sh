#!/usr/bin/env bash
# A file of two seconds, again and again.
. "${KOVA_SOURCE_DIR:?}/tests/recipes/recipe.bash"
need ffmpeg ffprobe python3
make_film 2
start_recipe ffmpeg-loop
play 3
