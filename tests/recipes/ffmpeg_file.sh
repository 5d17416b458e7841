#!/usr/bin/env bash
# Any file: odd size, odd rate, 4:2:2, mono sound of 44.1 kHz.
. "${KOVA_SOURCE_DIR:?}/tests/recipes/recipe.bash"
need ffmpeg ffprobe python3
make_film 12
start_recipe ffmpeg-file
play 3
