#!/usr/bin/env bash
# The recipes whose hardware is not here: the shell understands them, FFmpeg knows their options and
# formats, and with test pictures in place of the devices the webcam's recipe streams.
. "${KOVA_SOURCE_DIR:?}/tests/recipes/recipe.bash"
need ffmpeg ffprobe python3

for name in webcam raspberry-pi encoder-remote; do
    recipe "$name" >recipe.sh
    bash -n recipe.sh 2>recipe.log || fail "the recipe $name is no shell text"
    grep -q 'kovastream' recipe.sh || fail "the recipe $name does not stream"
done

# kovastream's own options, the same in both: it takes them, and a camera's raw pictures.
for name in raspberry-pi encoder-remote; do
    [[ $(recipe "$name") == *' kovastream --fps 25 -' ]] || fail "$name: other options"
done
provide_kovastream
timeout 30 bin/kovastream --fps 25 - <"$clip_h264" &
pids[${#pids[@]}]=$!
await_stream
kill -TERM $!
wait $! || fail "kovastream: status $?"

# Each input's options in front of it, as FFmpeg's demuxer knows them.
text=$(recipe webcam)
known=$(ffmpeg -hide_banner -h demuxer=v4l2 2>&1)
for option in input_format framerate video_size; do
    [[ $text == *"-$option "* ]] || fail "the webcam's recipe has no -$option"
    [[ $known == *"-$option "* ]] || fail "FFmpeg's V4L2 knows no -$option"
done
known=$(ffmpeg -hide_banner -demuxers 2>&1)
[[ $known == *' alsa '* ]] || fail "FFmpeg knows no ALSA"

camera='-f v4l2 -input_format mjpeg -framerate 30 -video_size 1280x720 -i /dev/video0'
microphone='-f alsa -thread_queue_size 1024 -i default'
[[ $text == *"$camera"*"$microphone"* ]] || fail "the webcam's recipe names other devices"
text=${text/"$camera"/-re -f lavfi -i testsrc2=size=1280x720:rate=30}
text=${text/"$microphone"/-re -f lavfi -thread_queue_size 1024 -i sine=sample_rate=44100}
provide_kovastream
run_text "$text"
await_stream
play 3
