"""Every kind of input reaches players whole, with rising timestamps over the ends of the input."""

import subprocess
import threading
import unittest

from support import *

FRAME = 3600  # a picture's duration at 25 pictures a second and 90 kHz
SECONDS = 6

# Of frames at 48 kHz: in milliseconds, and as they are.
SOUND_STEPS = {1008, 1056} if CLASSIC else {1024}

program = None
recorded = {}  # URI: (session description, packets)


def setUpModule():
    """One process streams all inputs, and a player records each of them at the same time."""
    global program
    inputs = {name + "-in": clip(name) for name in ("mp4", "mkv", "ts", "flv", "h264", "aac")}
    inputs["joined"] = clip("h264") + "+" + clip("aac")
    inputs["b-mp4"] = b_frames()
    inputs["b-h264"] = b_frames("h264")
    inputs["trimmed"] = trimmed()
    inputs["sets-once"] = without_later_parameter_sets(clip("h264"), "once.h264")
    program = Program(*[f"{uri}={source}" for uri, source in inputs.items()])
    sample = Program()
    fifty = Program("--fps", "50", clip("h264"))
    threads = [threading.Thread(target=record, args=(uri, program, uri)) for uri in inputs]
    threads += [threading.Thread(target=record, args=("sample", sample, "live")),
                threading.Thread(target=record, args=("fifty", fifty, "live"))]
    for thread in threads:
        thread.start()
    for thread in threads:
        thread.join(60)
    sample.__exit__()
    fifty.__exit__()


def trimmed():
    """Cut without encoding: it begins with pictures before its start, which decoders need."""
    whole = media("whole.mp4", "-f", "lavfi", "-i", "testsrc2=s=320x180:r=25:d=3", "-f", "lavfi",
                  "-i", "sine=d=3:r=48000", "-c:v", "libx264", "-g", "38", *NO_B, *SOUND)
    return media("trimmed.mp4", "-ss", "1.2", "-i", whole, "-c", "copy")


def tearDownModule():
    program.__exit__()


def record(name, host, uri):
    sdp = host.await_ready(uri, 20)
    with Player(host, uri) as player:
        recorded[name] = sdp, player.play().packets(SECONDS)


def decoded(*arguments):
    """Checksums of the pictures that ffmpeg decodes; a message of ffmpeg is a failure."""
    result = subprocess.run(["ffmpeg", "-v", "error", "-nostdin", "-xerror", *arguments, "-map",
                             "0:v", "-fps_mode", "passthrough", "-f", "framemd5", "-"],
                            capture_output=True, text=True, timeout=60)
    assert result.returncode == 0 and result.stderr == "", result.stderr
    return [line.split(",")[-1].strip() for line in result.stdout.splitlines() if line[0] != "#"]


def probed(url):
    result = subprocess.run(["ffprobe", "-v", "error", "-rtsp_transport", "tcp", "-of",
                             "compact=nokey=1:print_section=0", "-show_entries",
                             "stream=codec_name,width,height,sample_rate,channels", url],
                            capture_output=True, text=True, timeout=30)
    assert result.stderr == "", result.stderr
    return sorted(result.stdout.split())


class Containers(unittest.TestCase):
    def test_ffprobe_sees_the_tracks(self):
        video, audio = "h264|320|180", "aac|48000|2"
        for name, expected in (("mkv", [audio, video]), ("h264", [video]), ("aac", [audio])):
            with self.subTest(name=name):
                self.assertEqual(probed(program.url(name + "-in")), expected)

    def test_pictures_are_those_of_the_input(self):
        original = set(decoded("-i", clip()))
        self.assertEqual(len(original), 50)
        for name in ("mp4", "ts"):
            with self.subTest(name=name):
                sums = decoded("-rtsp_transport", "tcp", "-i", program.url(name + "-in"), "-t",
                               "3.6")
                # Each is one of the clip's, and over two seconds all of them come.
                self.assertGreaterEqual(len(sums), 50)
                self.assertEqual(set(sums), original)

    def test_every_container_gives_the_same_units(self):
        slices = annexb_units(clip("h264"))
        self.assertEqual(len(slices), 50)
        for name in ("mp4", "mkv", "ts", "flv", "h264"):
            with self.subTest(name=name):
                _, packets = recorded[name + "-in"]
                got = slices_of([p for p in packets if p.type == 97])
                self.assertGreater(len(got), 80)
                first = slices.index(got[0])
                self.assertEqual(got, ((slices[first:] + 4 * slices)[:len(got)]))

    def test_every_container_gives_the_same_sound(self):
        frames = {}
        for name in ("mp4", "mkv", "ts", "flv", "aac"):
            _, packets = recorded[name + "-in"]
            frames[name] = {packet.payload for packet in packets if packet.type == 96}
        self.assertGreater(len(frames["ts"]), 90)
        for name, some in frames.items():
            with self.subTest(name=name):
                # The frame that primes decoders is left out where the file says that it is one.
                self.assertLessEqual(some, frames["ts"])
                self.assertLessEqual(len(frames["ts"] - some), 1)


class Tracks(unittest.TestCase):
    def test_video_alone_keeps_its_id(self):
        sdp, packets = recorded["h264-in"]
        self.assertIn("m=video 0 RTP/AVP 97\r\n", sdp)
        self.assertNotIn("m=audio", sdp)
        self.assertEqual({packet.type for packet in packets}, {97})

    def test_sound_alone(self):
        sdp, packets = recorded["aac-in"]
        self.assertIn("m=audio 0 RTP/AVP 96\r\n", sdp)
        self.assertNotIn("m=video", sdp)
        self.assertEqual({packet.type for packet in packets}, {96})
        # At 48 kHz milliseconds are whole samples; a frame lasts 21.33 of them.
        self.assertEqual(set(steps(packets, 96)), SOUND_STEPS)

    def test_sample_without_input(self):
        sdp, packets = recorded["sample"]
        self.assertLess(sdp.index("m=audio 0 RTP/AVP 96"), sdp.index("m=video 0 RTP/AVP 97"))
        self.assertEqual({packet.type for packet in packets}, {96, 97})

    def test_two_inputs_joined(self):
        sdp, packets = recorded["joined"]
        self.assertLess(sdp.index("m=audio 0 RTP/AVP 96"), sdp.index("m=video 0 RTP/AVP 97"))
        self.assertEqual({packet.type for packet in packets}, {96, 97})
        check_steps(self, packets)

    def test_pictures_before_the_start_of_a_trimmed_file(self):
        _, packets = recorded["trimmed"]
        pictures = steps(packets, 97)
        self.assertGreater(len(pictures), 76)  # so that the file's end is among them
        self.assertGreater(min(pictures), 0)
        self.assertLess(max(pictures), 3 * FRAME)

    def test_rate_of_raw_video(self):
        self.assertEqual(set(steps(recorded["fifty"][1], 97)), {FRAME // 2})

    def test_parameter_sets_that_the_encoder_wrote_once(self):
        sdp, packets = recorded["sets-once"]
        self.assertEqual([unit[0] & 31 for unit in parameter_sets(sdp)], [7, 8])
        self.assertEqual(parameter_sets(sdp), parameter_sets(recorded["h264-in"][0]))
        self.assertGreater(len(packets), 80)


def check_steps(test, packets):
    """Every step is a picture's or a frame's. Where an input of two seconds begins again, the
    picture waits for the end of the sound, which ends less than two frames later."""
    pictures, sounds = steps(packets, 97), steps(packets, 96)
    others = [step for step in pictures if step != FRAME]
    test.assertGreater(len(pictures), 80)
    test.assertLessEqual(len(others), 3, pictures)
    for step in others:
        test.assertTrue(FRAME < step < 2 * FRAME, step)
    for step in sounds:
        test.assertTrue(0 < step < 3 * 1056, step)
    test.assertLessEqual(len([step for step in sounds if step not in SOUND_STEPS]), 3, sounds)


class Time(unittest.TestCase):
    def test_rising_without_a_jump_over_the_end_of_a_file(self):
        for name in ("mp4", "mkv", "ts", "flv"):
            with self.subTest(name=name):
                _, packets = recorded[name + "-in"]
                check_steps(self, packets)
                numbers = [packet.sequence for packet in packets if packet.type == 97]
                self.assertEqual(numbers, list(range(numbers[0], numbers[0] + len(numbers))))

    def test_video_alone_does_not_jump_at_all(self):
        self.assertEqual(set(steps(recorded["h264-in"][1], 97)), {FRAME})

    def test_b_frames_are_shown_in_their_order(self):
        for name in ("b-mp4", "b-h264"):
            with self.subTest(name=name):
                stamps = list(dict.fromkeys(
                    p.timestamp for p in recorded[name][1] if p.type == 97))
                self.assertNotEqual(stamps, sorted(stamps), "no picture is out of order")
                # Each place is taken once; of the last ones some are still to come.
                shown = sorted(stamps)[:-4]
                apart = [b - a for a, b in zip(shown, shown[1:])]
                self.assertGreater(len(apart), 75)
                self.assertLessEqual(len([step for step in apart if step != FRAME]), 3, apart)
                self.assertLess(max(apart), 2 * FRAME)

    def test_real_time(self):
        for name in ("mp4-in", "h264-in", "joined"):
            with self.subTest(name=name):
                packets = [packet for packet in recorded[name][1] if packet.type == 97]
                media = (packets[-1].timestamp - packets[0].timestamp) / 90000
                clock = packets[-1].arrival - packets[0].arrival
                self.assertGreater(media, 3)
                self.assertLess(abs(media - clock), 0.7)


class Once(unittest.TestCase):
    def test_everything_goes_out_before_the_end(self):
        with Program("--once", clip("h264")) as host:
            host.await_ready()
            with Player(host) as player:
                sent = slices_of(player.play().packets(10))
            self.assertEqual(host.wait(), 0)
            self.assertEqual(host.err(), "")
        self.assertGreater(len(sent), 20)
        # All from some key frame to the very last picture.
        self.assertEqual(sent, annexb_units(clip("h264"))[-len(sent):])
        self.assertEqual(sent[0][0] & 31, 5)


class LargeSound(unittest.TestCase):
    @live_only
    def test_frames_of_every_length_are_sent(self):
        with Program(padded(clip("aac"), 1100)) as host:
            host.await_ready()
            with Player(host) as player:
                packets = player.play().packets(4)
            self.assertNotIn("warning", host.out())
        # Length and two AU headers in front; every second frame is so large.
        large = [packet for packet in packets if len(packet.payload) == 4 + 1100 - 7]
        self.assertGreater(len(large), 40)
        self.assertGreater(len(large), len(packets) // 2 - 5)
        self.assertEqual(set(steps(packets, 96)) - SOUND_STEPS, set())

    @classic_only
    def test_frames_that_cannot_be_sent_are_said_once(self):
        with Program("--duration", "3", padded(clip("aac"), 1100)) as host:
            self.assertEqual(host.wait(), 0)
            warnings = [line for line in host.out().splitlines() if "warning" in line]
            self.assertEqual(len(warnings), 1, warnings)
            self.assertIn("1024 to 2047 bytes", warnings[0])
            self.assertIn("-b:a 128k", warnings[0])


def padded(file, size):
    """Every second ADTS frame made that large."""
    with open(file, "rb") as raw:
        data = raw.read()
    made, at, large = b"", 0, False
    while at + 7 <= len(data):
        length = (data[at + 3] & 3) << 11 | data[at + 4] << 3 | data[at + 5] >> 5
        frame = bytearray(data[at:at + length])
        if large:
            frame += bytes(size - length)
            frame[3] = frame[3] & 0xFC | size >> 11
            frame[4] = size >> 3 & 0xFF
            frame[5] = (size & 7) << 5 | frame[5] & 31
        made += frame
        large = not large
        at += length
    with open(path("padded.aac"), "wb") as out:
        out.write(made)
    return path("padded.aac")


if __name__ == "__main__":
    main()
