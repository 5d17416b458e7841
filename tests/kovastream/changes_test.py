"""What players were told about a stream and what comes afterwards: where the input changes in
between, the stream is published anew."""

import os
import re
import shutil
import subprocess
import time
import unittest

from support import *

ANEW = "published anew"
LARGE = "H.264 640x360"


def large(extension="mp4"):
    """The clip in another size, with sound at another rate."""
    made = media("large.mp4", "-f", "lavfi", "-i", "testsrc2=s=640x360:r=25:d=6", "-f", "lavfi",
                 "-i", "sine=d=6:r=44100", *PICTURE, *NO_B, *SOUND)
    if extension == "mp4":
        return made
    only = {"h264": ["-an"], "aac": ["-vn"]}.get(extension, [])
    return media("large." + extension, "-i", made, "-c", "copy", *only)


def joined(name, *files):
    with open(path(name), "wb") as whole:
        for file in files:
            with open(file, "rb") as part:
                shutil.copyfileobj(part, whole)
    return path(name)


def sets_of(raw):
    """The first SPS and PPS of a raw H.264 file."""
    with open(raw, "rb") as file:
        parts = re.split(rb"\x00?\x00\x00\x01", file.read())
    return [next(part for part in parts if part and part[0] & 31 == kind) for kind in (7, 8)]


def feed(test, source, target):
    writer = subprocess.Popen(["ffmpeg", "-v", "error", "-nostdin", "-y", "-i", source, "-c",
                               "copy", "-f", "mpegts", target])
    test.addCleanup(writer.wait)
    test.addCleanup(writer.kill)
    return writer


class Changes(unittest.TestCase):
    def check_new(self, program, uri="live"):
        """The stream is there again, with the description of what comes now."""
        sdp = program.await_ready(uri, 20)
        self.assertEqual(parameter_sets(sdp), sets_of(large("h264")))
        with Player(program, uri) as player:
            got = slices_of([packet for packet in player.play().packets(3) if packet.type == 97])
        slices = annexb_units(large("h264"))
        self.assertGreater(len(got), 5)
        self.assertTrue(set(got) <= set(slices))

    @live_only
    def test_players_go_on_over_another_size(self):
        both = joined("sizes-live.h264", *2 * [clip("h264")], *3 * [large("h264")])
        with Program(both) as program:
            program.await_ready()
            with Player(program) as early:
                got = [unit for _, unit in units(early.play().packets(9))]
            self.check_new(program)
            self.assertNotIn(ANEW, program.out())
        before, after = set(annexb_units(clip("h264"))), set(annexb_units(large("h264")))
        slices = [unit for unit in got if unit[0] & 31 in (1, 5)]
        self.assertTrue(set(slices) <= before | after)
        self.assertGreater(len(set(slices) & after), 20)
        # The sets that it needs stand in front of the first picture that needs them.
        first = next(at for at, unit in enumerate(got) if unit in after)
        sets = [unit for unit in got[:first] if unit[0] & 31 in (7, 8)][-2:]
        self.assertEqual(sets, sets_of(large("h264")))

    @classic_only
    def test_two_sizes_joined(self):
        both = joined("sizes.h264", clip("h264"), *3 * [large("h264")])
        with Program(both) as program:
            program.await_ready()
            with Player(program) as early:
                early.play()
                await_text(program, "live: the picture has other parameter sets: published anew "
                                    f"({LARGE}); its players have to connect again\n")
                self.check_new(program)
                # Only its own pictures reached the early one, though more are there.
                got = [unit for _, unit in units(early.packets(2))]
            self.assertTrue(set(got) <= set(annexb_units(clip("h264"))))

    def test_a_file_that_is_replaced_while_it_loops(self):
        shutil.copy(clip(), path("replaced.mp4"))
        with Program(path("replaced.mp4")) as program:
            program.await_ready()
            shutil.copy(large(), path("next.mp4"))
            os.rename(path("next.mp4"), path("replaced.mp4"))
            await_text(program, f"{ANEW} ({LARGE}, AAC 44100 Hz, 2 channels);")
            self.check_new(program)
            sdp = program.await_ready()
            self.assertIn("a=rtpmap:96 mpeg4-generic/44100/2", sdp)
            time.sleep(8)  # over the end of the new one
            self.assertEqual(program.out().count(ANEW), 1, program.out())

    def test_the_next_writer_of_a_fifo(self):
        os.mkfifo(path("change"))
        with Program("--status", "json", "cam=" + path("change")) as program:
            feed(self, clip(), path("change")).wait(20)
            program.await_ready("cam")
            await_quiet(program)
            feed(self, clip(), path("change")).wait(20)
            time.sleep(2)
            await_quiet(program)
            # The same again is nothing new.
            self.assertNotIn(ANEW, program.err())
            feed(self, large(), path("change"))
            await_text(program, f"{ANEW} ({LARGE}, AAC 44100 Hz, 2 channels);")
            sdp = program.await_ready("cam")
            self.assertEqual(parameter_sets(sdp), sets_of(large("h264")))
            self.assertEqual(program.err().count(ANEW), 1, program.err())

    def test_a_writer_without_sound(self):
        os.mkfifo(path("silent"))
        with Program("--status", "json", path("silent")) as program:
            feed(self, clip(), path("silent")).wait(20)
            program.await_ready()
            await_quiet(program)
            feed(self, clip("h264"), path("silent"))
            await_text(program, "live: other tracks have come: published anew (H.264 320x180);")
            sdp = program.await_ready()
            self.assertNotIn("m=audio", sdp)

    def test_a_relay_whose_source_comes_back_different(self):
        port = free_port()
        with Program(clip(), port=port) as first, \
                Program(f"rtsp://127.0.0.1:{port}/live") as relay:
            first.await_ready()
            relay.await_ready(seconds=40)
            first.signal(15)
            self.assertEqual(first.wait(), 0)
            with Program(large(), port=port):
                await_text(relay, f"{ANEW} ({LARGE}, AAC 44100 Hz, 2 channels);", 60)
                self.check_new(relay)

    def test_another_sample_rate(self):
        both = joined("rates.aac", clip("aac"), *3 * [large("aac")])
        with Program(both) as program:
            program.await_ready()
            await_text(program, "live: the sound has another format: published anew (AAC 44100 "
                                "Hz, 2 channels); its players have to connect again\n")
            self.assertIn("a=rtpmap:96 mpeg4-generic/44100/2", program.await_ready())

    def test_sets_of_a_container_that_holds_them_apart(self):
        # FLV has them in a record of their own; the second file's begins with one.
        first, second = clip("flv"), large("flv")
        with open(first, "rb") as one, open(second, "rb") as two:
            data = one.read() + two.read()[13:]  # without its file header
        with open(path("both.flv"), "wb") as both:
            both.write(data)
        with Program(path("both.flv")) as program:
            program.await_ready()
            if CLASSIC:
                await_text(program, f"{ANEW} ({LARGE}")
            await_text(program, "AAC 44100 Hz, 2 channels);")
            self.check_new(program)


if __name__ == "__main__":
    main()
