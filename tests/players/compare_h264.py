"""Compares an H.264 file that a player has recorded with the clip that was streamed in a loop.

usage: compare_h264.py clip.h264 recorded.h264 least_units

What is compared are the NAL units without parameter sets, SEI and delimiters. The recording must
be a contiguous run of the endlessly repeated clip, begin with a key frame, and have least_units.
"""
import re
import sys

NOT_COMPARED = {6, 7, 8, 9}  # SEI, SPS, PPS, access unit delimiter
KEY_FRAME = 5


def slices(path):
    with open(path, 'rb') as file:
        units = re.split(b'\x00\x00\x01', file.read())
    if units[0].strip(b'\x00'):
        sys.exit(f'{path}: does not begin with a start code')
    # A unit never ends in a zero byte: zeros in front of a start code belong to that.
    units = [unit.rstrip(b'\x00') for unit in units[1:]]
    return [unit for unit in units if unit[0] & 0x1F not in NOT_COMPARED]


def main():
    clip = slices(sys.argv[1])
    recorded = slices(sys.argv[2])
    if len(recorded) < int(sys.argv[3]):
        sys.exit(f'only {len(recorded)} units were recorded')
    if recorded[0][0] & 0x1F != KEY_FRAME:
        sys.exit(f'the recording begins with a unit of type {recorded[0][0] & 0x1F}')
    best = 0
    for begin in range(len(clip)):
        matched = 0
        while matched < len(recorded) and \
                recorded[matched] == clip[(begin + matched) % len(clip)]:
            matched += 1
        if matched == len(recorded):
            print(f'{matched} units equal those of the clip from number {begin} on')
            return
        best = max(best, matched)
    sys.exit(f'no run of the clip equals the recording: at best {best} of {len(recorded)} units')


main()
