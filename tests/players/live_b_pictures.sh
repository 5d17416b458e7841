#!/usr/bin/env bash
# Pictures of several slices, with B pictures among them, which are shown in another order than they
# are sent: FFmpeg and GStreamer get them whole over UDP and TCP and show each in its turn.
. "${KOVA_SOURCE_DIR:?}/tests/players/live_gstreamer.bash"
. "$players/live_clips.bash"
need ffmpeg ffprobe gst-launch-1.0 python3
make_b_pictures 10
start_live_host -T "$times"
for transport in udp tcp; do
    record_live $transport $transport 4 "$url" &
    pids+=($!)
    rtspsrc gstreamer_$transport $transport "$url" &
    pids+=($!)
    timeout 60 python3 -B "$players/strict/strict_reader.py" $transport "$url" \
        --step=10800,-7200,3600,14400,7200 >"$work/strict_$transport.out" \
        2>"$work/strict_$transport.err" &
    pids+=($!)
done
players_end
cat "$work"/strict_*.out
for transport in udp tcp; do
    judge_live $transport 4
    judge_bytes $transport 240
    judge_pipeline gstreamer_$transport
    judge_bytes gstreamer_$transport 240
done
await_gone
