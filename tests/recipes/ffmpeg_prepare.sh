#!/usr/bin/env bash
# A file that is encoded once, and then looped by kovastream.
. "${KOVA_SOURCE_DIR:?}/tests/recipes/recipe.bash"
need ffmpeg ffprobe python3
make_film 2
start_recipe ffmpeg-prepare
play 3
