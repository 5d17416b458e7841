"""Judges what FFmpeg has recorded with -c copy, against the file that was streamed.

usage: check_recording.py source.mp4 recording.mp4 sound.mp4 seconds classic|live

recording.mp4 has picture and sound; sound.mp4 was recorded without the picture. Every packet of the
source is unlike all others, so each recorded packet is found there by its bytes. What is judged:

- Nothing is missing: each recorded track is a contiguous run of the source's packets, begins with a
  key frame, and lasts as long as the recording was to last, less three seconds for its beginning.
- In each track DTS and PTS rise strictly and are equal (there are no B-frames).
- No gap: from picture to picture it is exactly their 40 ms; from sound frame to sound frame their
  1024 samples within 3 ms (timestamps are whole milliseconds, and a sender report may correct up
  to 2 ms that the rounding has lost).
- Picture and sound stay together. A packet's delay is its time in the recording less its time in
  the source. The skew is the sound's delay less the picture's, both taken at the same moment of the
  source: what a viewer sees and hears apart. It must stay within 40 ms all the time, and is printed
  for the beginning and the end. Both tracks also end within 40 ms of each other.
- The sound alone. A player with one track heeds no sender reports: the times in sound.mp4 are the
  RTP timestamps. Those of the live server count samples, each exactly a frame behind the one
  before. The classic server rounds their steps, and they must be exactly those that the rounding
  gives. What they lack against the sample count is the drift; it must stay within 40 ms when a
  millisecond is a whole number of samples.

FFmpeg 5.1 leaves the first key frame without a time when it came in many fragments (it does so with
FFmpeg as the sender, too) and writes 0 instead: the time of the first picture is not judged.
"""
import json
import subprocess
import sys
from collections import Counter
from fractions import Fraction

SAMPLES = 1024  # of an AAC frame
TOGETHER = Fraction(40, 1000)
STREAM_START = 40000  # microseconds: kovastream's timestamp of the source's beginning


def fail(text):
    sys.exit(f'FAILED: {text}')


def milliseconds(time):
    return f'{float(time * 1000):.2f} ms'


class Track:
    """The packets of one track: times in units of time_base, and what tells them apart."""

    def __init__(self, path, kind):
        out = subprocess.run(
            ['ffprobe', '-v', 'error', '-select_streams', kind[0], '-show_data_hash', 'md5',
             '-show_entries', 'stream=time_base:packet=pts,dts,duration,flags,data_hash',
             '-of', 'json', path], check=True, timeout=300, stdout=subprocess.PIPE).stdout
        found = json.loads(out)
        self.name = f'{path}, {kind}'
        self.time_base = Fraction(found['streams'][0]['time_base'])
        self.packets = found['packets']
        self.hashes = [packet['data_hash'] for packet in self.packets]
        if any('pts' not in packet or 'dts' not in packet for packet in self.packets):
            fail(f'{self.name}: a packet without a time')
        self.pts = [packet['pts'] for packet in self.packets]
        self.dts = [packet['dts'] for packet in self.packets]

    def time(self, index):
        return self.pts[index] * self.time_base

    def end(self):
        return self.time(-1) + self.packets[-1]['duration'] * self.time_base


def find_run(source, recorded, seconds, rate):
    """The source's index of the first recorded packet; the rest follows it without a gap."""
    twice = [value for value, count in Counter(source.hashes).items() if count > 1]
    if twice:
        fail(f'{source.name}: {len(twice)} packets are not unlike all others')
    if len(recorded.hashes) < rate * (seconds - 3):
        fail(f'{recorded.name}: only {len(recorded.hashes)} packets')
    if recorded.hashes[0] not in source.hashes:
        fail(f'{recorded.name}: the first packet was never streamed')
    begin = source.hashes.index(recorded.hashes[0])
    expected = source.hashes[begin:begin + len(recorded.hashes)]
    for index, (found, wanted) in enumerate(zip(recorded.hashes, expected)):
        if found != wanted:
            fail(f'{recorded.name}: packet {index} is not the one behind packet {index - 1}')
    if len(expected) != len(recorded.hashes):
        fail(f'{recorded.name}: goes on behind the end of the source')
    if 'K' not in recorded.packets[0]['flags']:
        fail(f'{recorded.name}: does not begin with a key frame')
    return begin


def check_times(track, first, step, tolerance):
    for name, times in ('DTS', track.dts), ('PTS', track.pts):
        for index in range(1, len(times)):
            if times[index] <= times[index - 1]:
                fail(f'{track.name}: {name} {times[index]} behind {times[index - 1]}')
    if track.pts != track.dts:
        fail(f'{track.name}: PTS and DTS differ')
    for index in range(first + 1, len(track.pts)):
        found = track.time(index) - track.time(index - 1)
        if abs(found - step) > tolerance:
            fail(f'{track.name}: {milliseconds(found)} from packet {index - 1} to {index}')


def skews(source, recorded, begins, first_picture):
    """The skew at every picture that has sound at its side."""
    sound_source, picture_source = source
    sound, picture = recorded
    at = 0
    for index in range(first_picture, len(picture.pts)):
        moment = picture_source.time(begins[1] + index)
        while at + 1 < len(sound.pts) and sound_source.time(begins[0] + at + 1) <= moment:
            at += 1
        if at + 1 < len(sound.pts) and sound_source.time(begins[0] + at) <= moment:
            yield (sound.time(at) - sound_source.time(begins[0] + at)) - \
                (picture.time(index) - moment)


def rounded_times(source, begin, count, rate):
    """The RTP timestamps that the rounding gives, from the first recorded packet on. Each push is
    stamped in whole milliseconds; each step of those becomes samples, rounded."""
    stamps = [(round(source.time(begin + index) * 1000000) + STREAM_START) // 1000
              for index in range(count)]
    times = [0]
    for index in range(1, count):
        times.append(times[-1] + (2 * (stamps[index] - stamps[index - 1]) * rate + 1000) // 2000)
    return times


def main():
    source_path, recording_path, sound_path, seconds = *sys.argv[1:4], int(sys.argv[4])
    exact = sys.argv[5] == 'live'
    source = Track(source_path, 'audio'), Track(source_path, 'video')
    recorded = Track(recording_path, 'audio'), Track(recording_path, 'video')
    alone = Track(sound_path, 'audio')
    rate = recorded[0].time_base.denominator
    begins = (find_run(source[0], recorded[0], seconds, Fraction(rate, SAMPLES)),
              find_run(source[1], recorded[1], seconds, 25))
    begin_alone = find_run(source[0], alone, seconds, Fraction(rate, SAMPLES))
    frame = Fraction(SAMPLES, rate)
    check_times(recorded[0], 0, frame, Fraction(3, 1000))
    check_times(recorded[1], 1, Fraction(40, 1000), 0)
    check_times(alone, 0, frame, Fraction(1, 1000))
    print(f'{rate} Hz: {len(recorded[1].pts)} pictures and {len(recorded[0].pts)} sound frames, '
          f'none missing')

    skew = list(skews(source, recorded, begins, 1))
    if len(skew) < 25 * (seconds - 4):
        fail(f'only {len(skew)} pictures have sound at their side')
    ends = recorded[0].end() - recorded[1].end()
    print(f'{rate} Hz: skew {milliseconds(skew[0])} at the beginning, {milliseconds(skew[-1])} at '
          f'the end, {milliseconds(min(skew))} to {milliseconds(max(skew))} between, drift '
          f'{milliseconds(skew[-1] - skew[0])}; sound ends {milliseconds(ends)} behind the picture')
    if max(map(abs, skew)) >= TOGETHER or abs(ends) >= TOGETHER:
        fail('picture and sound are not together')

    expected = [index * SAMPLES for index in range(len(alone.pts))] if exact else \
        rounded_times(source[0], begin_alone, len(alone.pts), rate)
    if [time - alone.pts[0] for time in alone.pts] != expected:
        fail(f'{alone.name}: other times than those of the samples or of their rounding')
    lasted = (len(alone.pts) - 1) * frame
    lost = lasted - (alone.time(-1) - alone.time(0))
    print(f'{rate} Hz: sound alone lacks {milliseconds(lost)} in {float(lasted):.1f} s')
    if rate % 1000 == 0 and abs(lost) >= TOGETHER:
        fail('sound alone drifts')


main()
