"""What is said about key frames that are too far apart, or none."""

import unittest

from support import *

SECONDS = 14  # longer than is waited for a key frame, and several passes of the clip

warnings = {}


def coded(name, *arguments):
    """Twelve seconds of small pictures."""
    return media(name, "-f", "lavfi", "-i", "testsrc2=s=160x96:r=25:d=12", "-c:v", "libx264",
                 "-threads", "1", "-sc_threshold", "0", *arguments)


def setUpModule():
    inputs = {"ts": clip("ts"), "mkv": clip("mkv"), "flv": clip("flv"),
              "far": coded("far.mp4", "-g", "250", *NO_B),
              "open": coded("open.mp4", "-g", "25", "-bf", "2", "-x264-params", "open-gop=1")}
    program = Program("--status", "none", "--duration", str(SECONDS),
                      *[f"{uri}={source}" for uri, source in inputs.items()])
    with program:
        assert program.wait(SECONDS + 20) == 0, program.err()
        lines = program.out().splitlines()
    for uri in inputs:
        warnings[uri] = [line for line in lines if line.startswith(uri + ": warning: ")]


class KeyFrames(unittest.TestCase):
    def test_one_each_second_is_well_in_every_pass(self):
        for uri in ("ts", "mkv", "flv"):
            self.assertEqual(warnings[uri], [])

    @live_only
    def test_ten_seconds_apart_where_groups_are_kept(self):
        self.assertEqual(warnings["far"], [
            "far: warning: key frames are 10.0 s apart: what players see first may be as old. Let "
            "the encoder make one every second or two (-g 50, for x264 keyint=50)"])

    @live_only
    def test_recovery_points_are_as_good(self):
        self.assertEqual(warnings["open"], [])

    @classic_only
    def test_ten_seconds_apart(self):
        self.assertEqual(warnings["far"], [
            "far: warning: key frames (IDR) are 10.0 s apart: players wait up to 10.0 s for their "
            "first picture. Let the encoder make one every second or two (-g 50, for x264 "
            "keyint=50)"])

    @classic_only
    def test_open_groups_of_pictures(self):
        self.assertEqual(len(warnings["open"]), 2, warnings["open"])
        self.assertRegex(warnings["open"][0], r"no key frame \(IDR\) for 2\.\d s: players wait for "
                         r"the next one\. They cannot begin at the recovery points .*"
                         r"-x264-params open-gop=0:intra-refresh=0\)$")
        # Where the file begins again there is one.
        self.assertRegex(warnings["open"][1], r"key frames \(IDR\) are 12\.0 s apart")


if __name__ == "__main__":
    main()
