#!/usr/bin/env bash
# Sound of 44.1 kHz in frames of more than 1,024 bytes arrives whole over UDP and TCP: FFmpeg gets the very frames that were pushed and decodes them, each 1,024 samples
# behind the one before it; so does GStreamer, and a strict reader takes every packet.
. "${KOVA_SOURCE_DIR:?}/tests/players/live_gstreamer.bash"
. "$players/live_clips.bash"
need ffmpeg ffprobe gst-launch-1.0 python3
make_noise 44100 11 -b:a 512k -aac_coder fast
large=$(awk -F ', *' '!/^#/ && $5 > 1024' "$work/noise.frames" | wc -l)
((large > 200)) || fail "the encoder made only $large frames of more than 1,024 bytes"
start_live_host -l # the picture behind lengths, parameter sets and all
for transport in udp tcp; do
    record_live $transport $transport 4 "$url" &
    pids+=($!)
    timeout 60 python3 -B "$players/strict/strict_reader.py" $transport "$url" \
        >"$work/strict_$transport.out" 2>"$work/strict_$transport.err" &
    pids+=($!)
done
rtspsrc gstreamer udp "$url" &
pids+=($!)
players_end
cat "$work"/strict_*.out
for transport in udp tcp; do
    judge_live $transport 4 44100
    python3 "$players/compare_sound.py" "$work/noise.frames" "$work/$transport.sound" 150 ||
        fail "$transport: other sound than was pushed"
done
judge_pipeline gstreamer 44100
await_gone
