#!/usr/bin/env bash
# What a host can set: NAL units pushed behind lengths, their parameter sets told beforehand and never
# pushed, sound without ADTS headers, a newcomer gets the picture group at hand from memory,
# everything leaves 300 ms late, small packets, several threads. Players notice nothing but that: the
# same pictures and sound arrive whole, with the parameter sets, and the strict reader gets frames of
# sound in fragments.
. "${KOVA_SOURCE_DIR:?}/tests/players/live.bash"
. "$players/live_clips.bash"
need ffmpeg ffprobe python3
make_noise 44100 11 -b:a 512k -aac_coder fast
make_b_pictures 10
start_live_host -P -r -g -d 300 -m 600 -t 3 -T "$times"
for transport in udp tcp; do
    record_live $transport $transport 4 "$url" &
    pids+=($!)
    timeout 60 python3 -B "$players/strict/strict_reader.py" $transport "$url" --most 600 --pause \
        --step=10800,-7200,3600,14400,7200 >"$work/strict_$transport.out" \
        2>"$work/strict_$transport.err" &
    pids+=($!)
done
players_end
cat "$work"/strict_*.out
for transport in udp tcp; do
    judge_live $transport 4 44100
    judge_bytes $transport 240
    python3 "$players/compare_sound.py" "$work/noise.frames" "$work/$transport.sound" 150 ||
        fail "$transport: other sound than was pushed"
done
await_gone
