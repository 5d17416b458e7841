"""Streams are independent: an input that is not there, or breaks, is waited for, and the others go
on."""

import os
import shutil
import signal
import subprocess
import time
import unittest

from support import *


def place(source, name):
    """Puts a copy there in one step, as a whole file."""
    shutil.copy(source, path(name + ".part"))
    os.rename(path(name + ".part"), path(name))


def half():
    """A file with a whole index that ends in the middle."""
    whole = media("front.mp4", "-i", clip(), "-c", "copy", "-movflags", "+faststart")
    with open(whole, "rb") as file, open(path("half.mp4"), "wb") as made:
        made.write(file.read()[:os.path.getsize(whole) * 2 // 3])
    return path("half.mp4")


class Files(unittest.TestCase):
    def test_a_missing_file_is_waited_for(self):
        name = path("later.mp4")
        with Program("one=" + clip(), "two=" + name) as program:
            line = f"two: waiting for the input: there is no file '{name}': check the name\n"
            await_text(program, line)
            program.await_ready("one", 20)
            # Tried more than once, and said once.
            time.sleep(3.5)
            self.assertEqual(program.out().count("waiting for the input"), 1)
            place(clip(), "later.mp4")
            program.await_ready("two", 30)
            program.signal(signal.SIGTERM)
            self.assertEqual(program.wait(), 0)
            self.assertEqual(program.err(), "")

    def test_both_of_two_joined_files_are_waited_for(self):
        with Program(path("late.h264") + "+" + path("late.aac")) as program:
            await_text(program, "late.h264': check the name")
            await_text(program, "late.aac': check the name")
            place(clip("h264"), "late.h264")
            place(clip("aac"), "late.aac")
            sdp = program.await_ready("live", 30)
            self.assertIn("m=audio", sdp)
            self.assertIn("m=video", sdp)

    def test_a_file_that_cannot_be_streamed_is_waited_for(self):
        foreign = media("foreign.avi", "-i", clip(), "-c:v", "mpeg4", "-an")
        place(foreign, "changing")
        with Program(path("changing")) as program:
            await_text(program, "only H.264 can be streamed; transcode it:  ffmpeg ")
            place(clip(), "changing")
            program.await_ready("live", 30)

    def test_a_file_that_breaks_while_it_loops(self):
        place(clip(), "breaking.mp4")
        with Program("one=" + clip(), "two=" + path("breaking.mp4")) as program:
            program.await_ready("two", 20)
            place(half(), "breaking.mp4")
            await_text(program, "two: waiting for the input: '" + path("breaking.mp4") + "' is ")
            with Player(program, "one") as player:
                self.assertGreater(len(player.play().packets(3)), 20)
            # Its good part is streamed meanwhile; the fault is said once.
            time.sleep(4)
            self.assertIsNone(program.process.poll())
            self.assertEqual(program.out().count("waiting for the input"), 1, program.out())


class Ends(unittest.TestCase):
    def test_strict_ends_at_a_missing_file(self):
        result = subprocess.run([PROGRAM, "--strict", "--port", str(free_port()), "one=" + clip(),
                                 "two=" + path("nothing.mp4")], capture_output=True, text=True,
                                timeout=20, stdin=subprocess.DEVNULL)
        self.assertEqual((result.returncode, result.stdout), (1, ""))
        self.assertEqual(result.stderr, f"kovastream: there is no file '{path('nothing.mp4')}': "
                                        "check the name\n")

    def test_a_stream_that_fails_for_good_ends_alone(self):
        long = media("eight.mp4", "-stream_loop", "3", "-i", clip(), "-c", "copy")
        with open(clip(), "rb") as pipe, \
                Program("--once", "bad=-", "good=" + long, stdin=pipe) as program:
            await_text(program, "mpegts - | kovastream -\n")
            program.await_ready("good")
            with Player(program, "good") as player:
                self.assertGreater(len(player.play().packets(3)), 5)
            self.assertEqual(program.wait(30), 1)
            self.assertRegex(program.err(), r"^kovastream: '-' cannot be .*mpegts.*\n$")


    def test_every_stream_that_fails_for_good_says_why(self):
        place(half(), "first.mp4")
        place(half(), "second.mp4")
        with Program("--once", "one=" + path("first.mp4"),
                     "two=" + path("second.mp4")) as program:
            self.assertEqual(program.wait(30), 1)
            said = program.out() + program.err()
            for name in ("first.mp4", "second.mp4"):
                self.assertEqual(said.count(f"'{path(name)}' is cut off: it has "), 1, said)
            # The last one ends the program.
            self.assertEqual(program.err().count("\n"), 1)
            self.assertEqual(program.err()[:13], "kovastream: '")


class Networks(unittest.TestCase):
    def test_a_device_that_is_not_there_is_waited_for(self):
        port = free_port()
        with Program(f"rtsp://127.0.0.1:{port}/live") as program:
            await_text(program, "waiting for the input: 'rtsp://")
            with Program(clip(), port=port) as device:
                device.await_ready()
                program.await_ready("live", 40)


if __name__ == "__main__":
    main()
