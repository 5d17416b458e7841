"""Compares the sound that a player has recorded with the clip that was streamed.

usage: compare_sound.py clip.frames recorded.frames least

Both are what FFmpeg's framecrc muxer writes of copied packets; no two packets of the clip are alike.
The recording must be a contiguous run of the clip and have that many packets.
"""
import sys


def packets(path):
    """Size and checksum of each."""
    with open(path, encoding='ascii') as file:
        lines = [line.split(',') for line in file if not line.startswith('#')]
    return [(fields[4].strip(), fields[5].strip()) for fields in lines]


def main():
    clip, recorded = packets(sys.argv[1]), packets(sys.argv[2])
    if len(set(clip)) != len(clip):
        sys.exit('the clip has packets that are alike')
    if len(recorded) < int(sys.argv[3]):
        sys.exit(f'only {len(recorded)} packets')
    if recorded[0] not in clip:
        sys.exit('the first packet was never streamed')
    begin = clip.index(recorded[0])
    if clip[begin:begin + len(recorded)] != recorded:
        sys.exit(f'no run of the clip from packet {begin} on')
    print(f'{len(recorded)} packets equal those of the clip from number {begin} on')


main()
