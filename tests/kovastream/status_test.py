"""What is shown while it streams: on a terminal, in a pipe, as JSON, in a log file."""

import fcntl
import json
import os
import pty
import re
import select
import signal
import struct
import subprocess
import termios
import time
import unittest

from support import *

STATUS = (r"\d:\d\d:\d\d  \d+\.\d fps  \d+ kbit/s in  \d+ clients?  \d+ kbit/s out  "
          r"(getting ready|no viewers|streaming|no input|no input yet)")
FIELDS = {"time": str, "uri": str, "position": float, "fps": float, "in_kbps": float,
          "clients": int, "out_kbps": int, "status": str}


plain = None  # takes its time while the others run


def setUpModule():
    global plain
    plain = Program("--duration", "10.5", clip())


def tearDownModule():
    plain.__exit__()


class Json(unittest.TestCase):
    def test_an_object_per_second_and_stream(self):
        with Program("--status", "json", "--duration", "7", "one=" + clip(),
                     "two=" + clip("h264")) as program:
            program.await_ready("one")
            with Player(program, "one") as player:
                player.play().packets(4)
            self.assertEqual(program.wait(), 0)
            objects = [json.loads(line) for line in program.out().splitlines()]
            # The library's lines are not lost, and stand elsewhere.
            self.assertIn("Payload Id: 97", program.err().splitlines())
        for entry in objects:
            self.assertEqual({name: type(value) for name, value in entry.items()}, FIELDS)
            self.assertRegex(entry["time"], r"^\d{4}-\d\d-\d\dT\d\d:\d\d:\d\dZ$")
            self.assertIn(entry["status"], ("opening", "not_ready", "idle", "flowing", "stalled",
                                            "waiting", "ended"))
        one = [entry for entry in objects if entry["uri"] == "one"]
        two = [entry for entry in objects if entry["uri"] == "two"]
        self.assertEqual((len(one), len(two)), (6, 6))
        self.assertEqual([entry["clients"] for entry in two], [0] * 6)
        served = [entry for entry in one if entry["status"] == "flowing"]
        self.assertGreaterEqual(len(served), 2)
        self.assertEqual(max(entry["clients"] for entry in served), 1)
        self.assertGreater(max(entry["out_kbps"] for entry in served), 0)
        self.assertTrue(any(entry["status"] == "idle" for entry in two))
        for entry in one[1:]:
            self.assertAlmostEqual(entry["fps"], 25, delta=5)
        positions = [entry["position"] for entry in one]
        self.assertAlmostEqual(positions[-1] - positions[0], 5, delta=1)


class Position(unittest.TestCase):
    def test_is_that_of_the_furthest_track(self):
        # All pictures of two seconds, and then a second of sound.
        media("apart.mp4", "-i", clip("h264"), "-i", clip("aac"), "-c:v", "copy", "-filter_complex",
              "[1:a]atrim=end=1[a]", "-map", "0:v", "-map", "[a]", *SOUND, "-movflags",
              "empty_moov+default_base_moof", "-frag_duration", "10000000")
        os.mkfifo(path("nobody"))
        with open(path("apart.mp4"), "rb") as apart:
            with Program("--once", "--status", "json", "--duration", "8", "one=-",
                         "two=" + path("nobody"), stdin=apart) as program:
                self.assertEqual(program.wait(30), 0)
                objects = [json.loads(line) for line in program.out().splitlines()]
        ended = [entry for entry in objects if (entry["uri"], entry["status"]) == ("one", "ended")]
        self.assertGreater(len(ended), 0, objects)
        # It begins at 0.04; encoders prime decoders with a frame of sound.
        for entry in ended:
            self.assertAlmostEqual(entry["position"], 0.04 + 49 * 0.04, delta=0.03)


class Plain(unittest.TestCase):
    def test_a_line_every_ten_seconds(self):
        self.assertEqual(plain.wait(20), 0)
        lines = plain.out().splitlines()
        self.assertEqual(plain.err(), "")
        status = [line for line in lines if "kbit/s in" in line]
        self.assertEqual(len(status), 1, lines)
        self.assertRegex(status[0], "^live  " + STATUS + "$")
        self.assertIn(f"rtsp://127.0.0.1:{plain.port}/live  (H.264 320x180, AAC 48000 Hz, "
                      "2 channels)", lines)
        self.assertNotIn("\x1b", "".join(lines))

    def test_a_reader_that_is_gone_ends_the_program(self):
        process = subprocess.Popen([PROGRAM, "--port", str(free_port()), "--status", "json",
                                    clip()], stdout=subprocess.PIPE, stderr=subprocess.PIPE,
                                   text=True)
        self.assertIn('"uri":"live"', process.stdout.readline())
        process.stdout.close()
        self.assertEqual(process.wait(15), 1)
        self.assertIn("nobody reads standard output", process.stderr.read().splitlines()[-1])
        process.stderr.close()


class LogFile(unittest.TestCase):
    def test_the_librarys_lines_and_level(self):
        with Program("--log", path("library.log"), "--log-level", "4", "--status", "none",
                     "--duration", "2", clip()) as program:
            self.assertEqual(program.wait(), 0)
            self.assertEqual(len(program.out().splitlines()), 1, program.out())
        with open(path("library.log")) as log:
            text = log.read()
        self.assertRegex(text, r"Payload Id: 96\nSSRC: [0-9a-f]+\n(.*\n)*Payload Id: 97\n")
        # A line of level 4, with its stamp.
        self.assertRegex(text, r"(?m)^\d{4}/\d\d/\d\d \d\d:\d\d:\d\d pListenProc, Leave thread$")


class Screen:
    """As much of a terminal as is used: lines, the cursor, erasing below it. All lines that
    ever scrolled by stay."""

    def __init__(self):
        self.lines = [""]
        self.row = 0
        self.column = 0

    def write(self, text):
        at = 0
        while at < len(text):
            code = re.compile(r"\x1b\[(\d*)([A-Z])").match(text, at)
            if code is not None:
                if code.group(2) == "A":
                    self.row -= int(code.group(1))
                    assert self.row >= 0, "above the screen"
                elif code.group(2) == "J":
                    self.lines = self.lines[:self.row] + [self.lines[self.row][:self.column]]
                else:
                    raise AssertionError(code.group(0))
                at = code.end()
                continue
            if text[at] == "\n":
                self.row += 1
                if self.row == len(self.lines):
                    self.lines.append("")
            elif text[at] == "\r":
                self.column = 0
            else:
                line = self.lines[self.row].ljust(self.column)
                self.lines[self.row] = line[:self.column] + text[at] + line[self.column + 1:]
                self.column += 1
            at += 1


class Terminal(unittest.TestCase):
    WIDTH = 60

    def start(self, streams, *arguments):
        """Starts it and waits until so many streams show pictures; returns the screen."""
        self.port = free_port()
        self.process, self.terminal = pty.fork()
        if self.process == 0:
            os.environ["TERM"] = "xterm"
            os.execv(PROGRAM, [PROGRAM, "--port", str(self.port), *arguments])
        self.addCleanup(self.kill)
        fcntl.ioctl(self.terminal, termios.TIOCSWINSZ, struct.pack("HHHH", 24, self.WIDTH, 0, 0))
        screen = Screen()
        end = time.time() + 15
        while sum(bool(re.search(r"[1-9]\d*\.\d fps", line)) for line in screen.lines) < streams:
            self.assertLess(time.time(), end, screen.lines[-8:])
            self.read(0.2, screen)
        return screen

    def kill(self):
        """Where a test has failed, it may run yet."""
        if self.process is not None:
            os.kill(self.process, signal.SIGKILL)
            os.waitpid(self.process, 0)

    def read(self, seconds, screen):
        end = time.time() + seconds
        while time.time() < end:
            if not select.select([self.terminal], [], [], max(0, end - time.time()))[0]:
                break
            try:
                data = os.read(self.terminal, 65536)
            except OSError:
                return
            if not data:
                return
            screen.write(data.decode())

    def end(self, screen):
        os.write(self.terminal, b"\x03")  # Ctrl-C
        self.read(15, screen)
        _, status = os.waitpid(self.process, 0)
        self.process = None
        os.close(self.terminal)
        self.assertEqual(os.waitstatus_to_exitcode(status), 0)

    def test_status_stays_below_whole_lines(self):
        screen = self.start(2, "--log-level", "4", "one=" + clip(), "two=" + clip())
        # Requests of a player print many lines; one of them tries to move the cursor.
        with socket.create_connection(("127.0.0.1", self.port), 5) as player:
            for number in range(20):
                player.sendall(f"OPTIONS rtsp://x/one RTSP/1.0\r\nCSeq: {number}\r\n"
                               f"X: \x1b[2J{number:04}end\r\n\r\n".encode())
                self.assertIn(b"200 OK", player.recv(4096))
            self.read(2.5, screen)
        self.end(screen)
        lines = screen.lines
        shown = [i for i, line in enumerate(lines) if "fps" in line]
        # One line per stream, cut to the width, and nothing of earlier ones is left.
        self.assertEqual(len(shown), 2, lines[-8:])
        for line, uri in zip(shown, ("one", "two")):
            self.assertTrue(lines[line].startswith(uri + "  0:00:"), lines[line])
            self.assertLess(len(lines[line]), self.WIDTH)
        text = "\n".join(lines)
        for number in range(20):
            self.assertIn(f"X: ?[2J{number:04}end", text)
        # Whole lines of the library above it.
        self.assertEqual(len(re.findall(r"(?m)^Payload Id: \d\d$", text)), 4)
        self.assertEqual(len(re.findall(r"(?m)^SSRC: [0-9a-f]+$", text)), 4)
        self.assertLess(text.index("SSRC: "), text.index("two  0:00:"))

    def test_repeated_lines_are_counted(self):
        screen = self.start(1, "one=" + clip())
        # Waits for its PLAY: the library prints a line per packet.
        with socket.create_connection(("127.0.0.1", self.port), 5) as player:
            player.sendall(b"SETUP rtsp://x/one/trackID=97 RTSP/1.0\r\nCSeq: 1\r\n"
                           b"Transport: RTP/AVP/TCP;unicast;interleaved=0-1\r\n\r\n")
            self.assertIn(b"200 OK", player.recv(4096))
            self.read(3.5, screen)
        self.end(screen)
        text = "\n".join(screen.lines)
        counts = [int(count) for count in re.findall(r"(?m)^  \((\d+) more of this line\)$", text)]
        self.assertGreater(sum(counts), 30)
        # Printed again only behind another line.
        self.assertNotIn("Client Waiting !!!\nClient Waiting !!!", text)
        self.assertLessEqual(text.count("Client Waiting !!!"), 5)


if __name__ == "__main__":
    main()
