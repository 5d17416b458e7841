"""What the library is given: whole access units, in the form, the order and the time it wants."""

import collections
import struct
import subprocess
import time
import unittest

from support import *

Push = collections.namedtuple("Push", "id timestamp clock data")


def setUpModule():
    subprocess.run(["cc", "-shared", "-fPIC", "-Wall", "-Werror", "-I",
                    os.path.join(os.environ["KOVA_SOURCE_DIR"], "include"), "-o",
                    path("record_pushes.so"), os.path.join(os.path.dirname(__file__),
                                                           "record_pushes.c")], check=True)


def start(name, *arguments, stdin=subprocess.DEVNULL):
    environment = dict(os.environ, LD_PRELOAD=path("record_pushes.so"), KOVA_PUSHES=path(name))
    return subprocess.Popen([PROGRAM, "--port", str(free_port()), *DOOR, "--status", "none",
                             "--duration", "5", *arguments], env=environment,
                            stdin=stdin, stdout=subprocess.DEVNULL)


def pushes(name):
    with open(path(name), "rb") as file:
        data = file.read()
    at, found = 0, []
    while at + 16 <= len(data):
        identity, timestamp, length, clock = struct.unpack("=IIII", data[at:at + 16])
        found.append(Push(identity, timestamp, clock, data[at + 16:at + 16 + length]))
        at += 16 + length
    return found


def kinds(unit):
    return [part[0] & 31 for part in re.split(rb"\x00?\x00\x00\x01", unit) if part]


def joined(name, *sources):
    """The files in a row: the clock steps where one ends."""
    with open(path(name), "wb") as made:
        for source in sources:
            with open(source, "rb") as one:
                made.write(one.read())
    return path(name)


class Pushes(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        # In this form the parameter sets stand beside the pictures, not among them.
        beside = media("beside.nut", "-i", clip(), "-an", "-c", "copy", "-bsf:v",
                       "h264_mp4toannexb")
        later = media("later.ts", "-i", clip(), "-c", "copy", "-output_ts_offset", "3")
        inputs = {"mp4": clip(), "ts": clip("ts"), "nut": beside, "late": clip("flv"),
                  "once": without_later_parameter_sets(clip("h264"), "once.h264"),
                  "joined": joined("joined.ts", *3 * [clip("ts")]),
                  # Back to before the beginning of the whole.
                  "back": joined("back.ts", later, *2 * [clip("ts")])}
        hosts = [start(name, source) for name, source in inputs.items()]
        cls.codes = [host.wait(30) for host in hosts]
        cls.taken = {name: pushes(name) for name in inputs}

    def test_exit_status(self):
        self.assertEqual(self.codes, [0] * len(self.taken))

    def test_parameter_sets_in_every_key_frame(self):
        for name, taken in self.taken.items():
            with self.subTest(name=name):
                keys = [kinds(push.data) for push in taken if 5 in kinds(push.data)]
                self.assertGreaterEqual(len(keys), 4)
                for key in keys:
                    self.assertLess(key.index(7), key.index(5))
                    self.assertLess(key.index(8), key.index(5))

    def test_one_access_unit_each(self):
        for name, taken in self.taken.items():
            with self.subTest(name=name):
                for push in taken:
                    if push.id == 97:
                        self.assertRegex(push.data[:4], rb"^\x00?\x00\x00\x01")
                        self.assertEqual(len([k for k in kinds(push.data) if k in (1, 5)]), 1)

    @live_only
    def test_one_sound_frame_each_as_it_is(self):
        whole = [push.data for push in self.taken["ts"] if push.id == 96]
        self.assertGreater(len(whole), 180)
        for frame in whole:
            self.assertEqual(frame[:2], b"\xff\xf1")
        # The containers that hold the configuration apart have no headers.
        for name in ("mp4", "late"):
            with self.subTest(name=name):
                frames = [push.data for push in self.taken[name] if push.id == 96]
                self.assertGreater(len(frames), 180)
                self.assertLessEqual(set(frames), {frame[7:] for frame in whole})

    @classic_only
    def test_one_sound_frame_each_with_its_header(self):
        for name in ("mp4", "ts", "late"):
            with self.subTest(name=name):
                frames = [push.data for push in self.taken[name] if push.id == 96]
                self.assertGreater(len(frames), 180)
                for frame in frames:
                    size = len(frame)
                    # AAC LC, 48 kHz, two channels, no CRC.
                    self.assertEqual(frame[:7], bytes(
                        [0xFF, 0xF1, 0x4C, 0x80 | size >> 11, size >> 3 & 0xFF,
                         (size & 7) << 5 | 0x1F, 0xFC]))

    def test_timestamps_start_above_zero_and_rise(self):
        for name, taken in self.taken.items():
            for track in (96, 97):
                with self.subTest(name=name, track=track):
                    stamps = [push.timestamp for push in taken if push.id == track]
                    if stamps:
                        self.assertGreater(stamps[0], 0)
                        self.assertLess(stamps[0], 200)
                        self.assertEqual(stamps, sorted(set(stamps)))

    def test_the_frame_that_primes_decoders_is_left_out(self):
        # It lies before the beginning of the file, where the first picture is.
        for track in (96, 97):
            self.assertEqual(next(push.timestamp for push in self.taken["mp4"]
                                  if push.id == track), 40)

    def test_pushed_in_time(self):
        for name, taken in self.taken.items():
            with self.subTest(name=name):
                # At most 0.1 s ahead of the first one, and what the clocks round.
                ahead = [(push.timestamp - taken[0].timestamp) - (push.clock - taken[0].clock)
                         for push in taken]
                self.assertLess(max(ahead), 150)
                self.assertGreater(min(ahead), -3000)
                self.assertGreater(taken[-1].timestamp, 4000)

    def test_both_tracks_come_together(self):
        for name in ("mp4", "ts", "late", "joined", "back"):
            with self.subTest(name=name):
                last = {96: 0, 97: 0}
                for push in self.taken[name]:
                    last[push.id] = push.timestamp
                    self.assertLess(abs(last[96] - last[97]), 700)

    def test_nothing_is_lost_where_the_clock_of_a_file_steps_back(self):
        for name in ("joined", "back"):
            for track in (96, 97):
                with self.subTest(name=name, track=track):
                    stamps = [push.timestamp for push in self.taken[name] if push.id == track]
                    self.assertGreater(stamps[-1], 4000)
                    apart = [after - before for before, after in zip(stamps, stamps[1:])]
                    self.assertGreater(min(apart), 0)
                    self.assertLess(max(apart), 100)


class UnevenFiles(unittest.TestCase):
    def test_the_longer_track_is_sent_to_its_end(self):
        one = media("one.ts", "-i", clip("ts"), "-t", "1", "-c", "copy", "-an")
        two = media("uneven.mkv", "-i", one, "-i", clip(), "-map", "0:v", "-map", "1:a", "-c",
                    "copy")
        self.assertEqual(start("uneven", "--once", two).wait(60), 0)
        last = {push.id: push.timestamp for push in pushes("uneven")}
        self.assertLess(last[97], 1200)
        self.assertGreater(last[96], 1950)


class LargeFiles(unittest.TestCase):
    def test_nothing_is_lost_behind_what_is_read_ahead_at_most(self):
        # Noise, which does not get smaller: 20 MB.
        noise = media("noise.mkv", "-f", "rawvideo", "-s", "640x360", "-r", "25", "-pix_fmt",
                      "yuv420p", "-i", "/dev/urandom", "-f", "lavfi", "-i", "sine=r=48000",
                      "-t", "2.4", "-c:v", "libx264", "-preset", "ultrafast", "-qp", "0", "-bf",
                      "0", "-g", "25", *SOUND)
        self.assertGreater(os.path.getsize(noise), 18 * 1024 * 1024)
        host = start("noise", "--once", noise)
        self.addCleanup(host.wait)
        self.addCleanup(host.kill)
        self.assertEqual(host.wait(60), 0)
        taken = pushes("noise")
        self.assertEqual(len(slices(taken)), 60)
        self.assertGreater(len([push for push in taken if push.id == 96]), 108)
        last = {96: 0, 97: 0}
        for push in taken:
            last[push.id] = push.timestamp
            self.assertLess(abs(last[96] - last[97]), 300)


def slices(taken):
    return [part for push in taken if push.id == 97
            for part in re.split(rb"\x00?\x00\x00\x01", push.data)
            if part and part[0] & 31 in (1, 5)]


class RawPipes(unittest.TestCase):
    def test_no_picture_stays_behind_in_the_probing(self):
        with open(clip("h264"), "rb") as file:
            data = file.read()
        # A camera's first half second, and then nothing more: its pictures are passed on.
        ends = [unit.start() for unit in re.finditer(rb"\x00\x00\x01[\x41\x61\x01\x65]", data)]
        host = start("camera", "-", stdin=subprocess.PIPE)
        try:
            host.stdin.write(data[:ends[12]])
            host.stdin.flush()
            end = time.time() + 20
            while time.time() < end and host.poll() is None:
                if os.path.exists(path("camera")) and len(slices(pushes("camera"))) > 9:
                    break
                time.sleep(0.1)
            # The program ends by its --duration, and the pipe is open until then.
            host.wait(30)
        finally:
            host.stdin.close()
            host.kill()
            host.wait()
        self.assertGreaterEqual(len(slices(pushes("camera"))), 10)

    def test_nothing_is_lost_of_a_file_that_comes_at_once(self):
        with open(clip("h264"), "rb") as film:
            self.assertEqual(start("film", "-", stdin=film).wait(30), 0)
        taken = pushes("film")
        self.assertEqual(slices(taken), annexb_units(clip("h264")))
        self.assertEqual([push.timestamp for push in taken], list(range(40, 2040, 40)))
        self.assertGreater(taken[-1].clock - taken[0].clock, 1700)


if __name__ == "__main__":
    main()
