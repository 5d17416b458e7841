#!/usr/bin/env bash
# Raw picture and sound in two FIFOs; FFmpeg writes the sample clip as a camera's encoder would.
. "${KOVA_SOURCE_DIR:?}/tests/recipes/recipe.bash"
need ffmpeg ffprobe python3
provide_kovastream
run_recipe encoder-fifos
fifos_are_there() { [[ -p video.fifo && -p audio.fifo ]]; }
await 10 fifos_are_there || fail "there are no FIFOs"
timeout 120 ffmpeg -nostdin -v error -re -stream_loop -1 -i "$clip_h264" \
    -re -stream_loop -1 -i "$clip_aac" -map 0:v -c copy -f h264 -y video.fifo \
    -map 1:a -c copy -f adts -y audio.fifo >encoder.log 2>&1 </dev/null &
pids[${#pids[@]}]=$!
await_stream
play 3
