"""Judges the frames that a GStreamer pipeline got, from its log.

usage: check_pipeline.py log pictures sounds rate fps

The sinks are named picture and sound, and the log has GST_SCHEDULING. Each frame is behind
the one before it, and none says that something is missing in front of it or broken. Times follow
the player's clock, slowly: what they run off by in all is little. Over TCP rtspsrc takes all tracks
for beginning at once; one that did not would run off by what it was late. One of the two sinks has
had all its frames; over TCP rtspsrc ends the other one then. When GStreamer says that it took late
arrivals for another time, its times are not looked at.
"""
import re
import sys

BUFFER = re.compile(r'<(picture|sound):sink> calling chainfunction .* pts (\d+):(\d+):([\d.]+),'
                    r'.* flags 0x([0-9a-f]+)')
LATE = re.compile('reset skew|decreasing timestamp')
DISCONT, CORRUPTED, GAP = 0x40, 0x100, 0x800
MOST_OFF = 0.2


def judge(name, frames, wanted, step, in_time):
    print(f'{len(frames)} frames of {name}')
    if len(frames) < wanted * 2 // 3:
        sys.exit(f'FAILED: {len(frames)} frames of {name}')
    for number in range(1, len(frames)):
        time, flags = frames[number]
        if flags & (DISCONT | CORRUPTED | GAP):
            sys.exit(f'FAILED: frame {number} of {name} has flags {flags:#x}')
        if in_time and time <= frames[number - 1][0]:
            sys.exit(f'FAILED: frame {number} of {name} is not behind the one before it')
    off = frames[-1][0] - frames[0][0] - (len(frames) - 1) * step
    if in_time and abs(off) > MOST_OFF:
        sys.exit(f'FAILED: {name} is off by {off:.3f} s')


def main():
    pictures, sounds, rate, fps = map(int, sys.argv[2:])
    frames = {'picture': [], 'sound': []}
    with open(sys.argv[1], encoding='utf-8', errors='replace') as log:
        lines = log.readlines()
        in_time = not any(LATE.search(line) for line in lines)
        for match in filter(None, map(BUFFER.search, lines)):
            name, hours, minutes, seconds, flags = match.groups()
            time = int(hours) * 3600 + int(minutes) * 60 + float(seconds)
            frames[name].append((time, int(flags, 16)))
    if len(frames['picture']) != pictures and len(frames['sound']) != sounds:
        sys.exit('FAILED: it ended early')
    judge('picture', frames['picture'], pictures, 1 / fps, in_time)
    judge('sound', frames['sound'], sounds, 1024 / rate, in_time)


main()
