"""What turns out to be unusable only when it is read is refused by name."""

import unittest

from support import *


def changed(name, *codecs):
    """A clip and, on tracks of its own, another one with other codecs."""
    other = media("other-" + name, "-i", clip("ts"), *codecs, "-streamid", "0:300", "-streamid",
                  "1:301")
    with open(path(name), "wb") as made:
        for part in (clip("ts"), other):
            with open(part, "rb") as one:
                made.write(one.read())
    return path(name)


class CodecsThatChange(unittest.TestCase):
    def check(self, file, text, *arguments):
        with open(file, "rb") as whole, Program("--status", "none", "--strict", *arguments,
                                                stdin=whole) as host:
            self.assertEqual(host.wait(30), 1)
            self.assertEqual(len(host.err().splitlines()), 1, host.err())
            self.assertIn(text, host.err())

    def test_picture(self):
        file = changed("picture.ts", "-c:a", "copy", "-c:v", "mpeg2video")
        text = "its picture changes to mpeg2video in mid-stream, only H.264 can be streamed"
        for source in (file, "-"):
            with self.subTest(source=source):
                self.check(file, text, source)

    def test_sound(self):
        file = changed("sound.ts", "-c:v", "copy", "-c:a", "ac3")
        text = "its sound changes to ac3 in mid-stream, only AAC can be streamed"
        for source in (file, "-"):
            with self.subTest(source=source):
                self.check(file, text, source)


class Covers(unittest.TestCase):
    def test_the_cover_of_an_album_is_no_picture(self):
        cover = media("cover.jpg", "-f", "lavfi", "-i", "color=s=64x64:d=1", "-frames:v", "1")
        song = media("song.m4a", "-i", clip("aac"), "-i", cover, "-map", "0", "-map", "1", "-c",
                     "copy", "-disposition:v", "attached_pic")
        with Program(song) as program:
            sdp = program.await_ready()
        self.assertIn("m=audio", sdp)
        self.assertNotIn("m=video", sdp)


class TwoInputs(unittest.TestCase):
    def test_sound_named_before_picture(self):
        with Program("--strict", clip("aac") + "+" + clip("h264")) as host:
            self.assertEqual(host.wait(30), 1)
            self.assertIn("has sound and no picture: of two inputs the one with the picture stands "
                          "in front, PICTURE+SOUND", host.err())

    def test_two_pictures(self):
        with Program("--strict", clip("h264") + "+" + clip("h264")) as host:
            self.assertEqual(host.wait(30), 1)
            self.assertIn("has a picture and no sound: of two inputs the one with the sound stands "
                          "behind, PICTURE+SOUND", host.err())


if __name__ == "__main__":
    main()
