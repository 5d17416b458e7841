"""What is shown while it streams: on a terminal, in a pipe, as JSON, in a log file."""

import fcntl
import json
import os
import pty
import re
import select
import signal
import socket
import struct
import subprocess
import termios
import time
import unittest

from support import *

STATUS = (r"(getting ready|no viewers   |streaming    |no input     |no input yet )  "
          r"\d:\d\d:\d\d  \d+\.\d fps  \d+ of 32 clients  \d+ kbit/s in  \d+ kbit/s out")
FIELDS = {"time": str, "uri": str, "position": float, "fps": float, "in_kbps": float,
          "clients": int, "out_kbps": int, "status": str, "max_clients": int, **({} if CLASSIC else {"players": list})}
STOPPING = ("stopping: players are let go, which takes a second or two (Ctrl-C again ends at once)"
            if CLASSIC else "stopping: players are let go (Ctrl-C again ends at once)")


plain = None  # takes its time while the others run


def setUpModule():
    global plain
    plain = Program(clip())
    plain.begin = time.monotonic()


def tearDownModule():
    plain.__exit__()


class Json(unittest.TestCase):
    def test_an_object_per_second_and_stream(self):
        with Program("--status", "json", "--log-level", "3", "one=" + clip(),
                     "two=" + clip("h264")) as program:
            program.await_ready("one")
            with Player(program, "one") as player:
                player.play().packets(5)
            await_text(program, '"uri":"two","position":5.')
            program.signal(signal.SIGTERM)
            self.assertEqual(program.wait(), 0)
            objects = [json.loads(line) for line in program.out().splitlines()]
            # The library's lines are not lost, and stand elsewhere.
            self.assertRegex(program.err(), r"(?m)^Payload Id: 97$" if CLASSIC else
                             r"(?m)^\d{4}/\d\d/\d\d \d\d:\d\d:\d\d 127\.0\.0\.1:\d+ plays one$")
        for entry in objects:
            self.assertEqual({name: type(value) for name, value in entry.items()}, FIELDS)
            self.assertRegex(entry["time"], r"^\d{4}-\d\d-\d\dT\d\d:\d\d:\d\dZ$")
            self.assertIn(entry["status"], ("opening", "not_ready", "idle", "flowing", "stalled",
                                            "waiting", "ended"))
        one = [entry for entry in objects if entry["uri"] == "one"]
        two = [entry for entry in objects if entry["uri"] == "two"]
        self.assertEqual(len(one), len(two))
        self.assertGreater(len(one), 4)
        self.assertEqual({entry["clients"] for entry in two}, {0})
        self.assertEqual({entry["max_clients"] for entry in one + two}, {32})
        served = [entry for entry in one if entry["status"] == "flowing"]
        self.assertGreaterEqual(len(served), 1)
        self.assertEqual(max(entry["clients"] for entry in served), 1)
        self.assertGreater(max(entry["out_kbps"] for entry in served), 0)
        self.assertTrue(any(entry["status"] == "idle" for entry in two))
        # A busy machine makes single seconds differ.
        rates = sorted(entry["fps"] for entry in one[1:])
        self.assertAlmostEqual(rates[len(rates) // 2], 25, delta=5)
        positions = [entry["position"] for entry in one]
        self.assertAlmostEqual(positions[-1] - positions[0], len(one) - 1, delta=2)

    def test_no_burst_after_a_pause(self):
        with Program("--status", "json", clip()) as program:
            await_text(program, '"position":1.')
            program.signal(signal.SIGSTOP)
            time.sleep(6)
            program.signal(signal.SIGCONT)
            before = program.out().count("\n")
            end = time.time() + 30
            while program.out().count("\n") < before + 3 and time.time() < end:
                time.sleep(0.1)
            seconds = [json.loads(line)["time"] for line in program.out().splitlines()]
        self.assertGreaterEqual(len(seconds), before + 3)
        self.assertLessEqual(max(seconds.count(second) for second in seconds), 2, seconds)

    def test_a_full_disk_ends_nothing(self):
        with open("/dev/full", "w") as full:
            process = subprocess.Popen([PROGRAM, "--port", str(free_port()), *DOOR, "--status", "json",
                                        "--duration", "4", clip()], stdout=full,
                                       stderr=subprocess.PIPE, text=True)
            _, said = process.communicate(timeout=30)
        self.assertEqual(process.returncode, 0, said)
        self.assertEqual(said.count("kovastream: standard output cannot be written: No space left "
                                    "on device; lines are left out meanwhile\n"), 1, said)


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
        await_text(plain, "kbit/s in", 60)
        lines = plain.out().splitlines()
        most = (time.monotonic() - plain.begin) / 10
        self.assertEqual(plain.err(), "")
        status = [line for line in lines if "kbit/s in" in line]
        self.assertLessEqual(len(status), most, lines)
        self.assertRegex(status[0], "^live  " + STATUS + "$")
        self.assertIn(f"rtsp://127.0.0.1:{plain.port}/live  (H.264 320x180, AAC 48000 Hz, "
                      "2 channels)", lines)
        others = [line for line in lines if line.endswith("  (from other machines)")]
        own = own_address()
        self.assertEqual(others, [f"rtsp://{own}:{plain.port}/live  (from other machines)"]
                         if own else [])
        # Nothing of the library's.
        self.assertEqual(len(lines), 1 + len(others) + len(status), lines)
        self.assertNotIn("\x1b", "".join(lines))

    def test_a_reader_that_is_gone_ends_the_program(self):
        process = subprocess.Popen([PROGRAM, "--port", str(free_port()), *DOOR, "--status", "json",
                                    clip()], stdout=subprocess.PIPE, stderr=subprocess.PIPE,
                                   text=True)
        self.assertIn('"uri":"live"', process.stdout.readline())
        process.stdout.close()
        self.assertEqual(process.wait(15), 1)
        self.assertIn("nobody reads standard output", process.stderr.read().splitlines()[-1])
        process.stderr.close()


def own_address():
    """From which far machines are spoken to; None without a way to them."""
    with socket.socket(socket.AF_INET, socket.SOCK_DGRAM) as probe:
        with contextlib.suppress(OSError):
            probe.connect(("192.0.2.1", 9))
            return probe.getsockname()[0]
    return None


class Lines(unittest.TestCase):
    def visited(self, *arguments):
        """What is printed while a player comes and goes, but for the streams' addresses."""
        with Program("--status", "none", *arguments, clip()) as program:
            program.await_ready()
            with Player(program) as player:
                player.play().packets(1)
                player.request("TEARDOWN", player.url, f"Session: {player.session}")
            program.signal(signal.SIGTERM)
            self.assertEqual(program.wait(), 0)
            return [line for line in program.out().splitlines() if "rtsp://" not in line]

    def test_a_visit_leaves_no_line(self):
        self.assertEqual(self.visited(), [STOPPING])
        self.assertEqual(self.visited("--log-level", "0"), [STOPPING])

    @live_only
    def test_the_librarys_lines_when_asked_for(self):
        # A callback may come while the end is already being said.
        said = [line for line in self.visited("--log-level", "3") if line != STOPPING]
        self.assertEqual(len(said), 2, said)
        stamp = r"^\d{4}/\d\d/\d\d \d\d:\d\d:\d\d 127\.0\.0\.1:\d+ "
        self.assertRegex(said[0], stamp + "plays live$")
        self.assertRegex(said[1], stamp + "said goodbye: live$")

    @classic_only
    def test_all_lines_when_asked_for(self):
        said = self.visited("--log-level", "1")
        self.assertIn("Payload Id: 97", said)
        self.assertTrue(any(line.startswith("Rtsp Client, Addr: ") for line in said), said)
        self.assertTrue(any("connection closed !!!" in line for line in said), said)

    @classic_only
    def test_failures_are_shown(self):
        # A peer that resets its connection while it plays makes a sending thread fail.
        with Program("--status", "none", clip()) as program:
            program.await_ready()
            player = Player(program).play()
            player.packets(1)
            player.socket.setsockopt(socket.SOL_SOCKET, socket.SO_LINGER,
                                     struct.pack("ii", 1, 0))
            player.socket.close()
            await_text(program, "(Connection reset by peer)")
            self.assertRegex(program.out(), r"(?m)^\d{4}/\d\d/\d\d \d\d:\d\d:\d\d \w+, .*"
                                            r"\(Connection reset by peer\)$")

    def test_the_maximum_of_players_is_said(self):
        with Program("--status", "none", "--max-clients", "1", clip()) as program:
            program.await_ready()
            with Player(program) as player:
                player.play()
                await_text(program, "the maximum of 1 player is reached: further ones are refused "
                                    "(--max-clients)\n")
                with Player(program) as refused:
                    head, _ = refused.request("SETUP", f"{refused.url}/{refused.tracks()[1]}",
                                              "Transport: RTP/AVP/TCP;unicast;interleaved=0-1")
                    self.assertIn(" 403 " if CLASSIC else " 503 ", head.splitlines()[0])
                # Nothing more is said while it stays so.
                time.sleep(2.5)
            self.assertEqual(program.out().count("the maximum"), 1)

    def test_the_maximum_of_players_is_said_again(self):
        with Program("--status", "json", "--max-clients", "1", clip()) as program:
            program.await_ready()
            for times in (1, 2):
                with Player(program) as player:
                    player.play()
                    end = time.time() + 30
                    while program.err().count("the maximum of 1 player") < times:
                        self.assertLess(time.time(), end, program.err())
                        player.packets(0.1)
                end = time.time() + 30
                while '"clients":0' not in program.out().splitlines()[-1]:
                    self.assertLess(time.time(), end, program.out()[-300:])
                    time.sleep(0.1)


class LogFile(unittest.TestCase):
    @live_only
    def test_lines_without_an_end_of_their_own(self):
        with Program("--log", path("live.log"), "--log-level", "4", "--status", "none",
                     clip()) as program:
            program.await_ready()
            program.signal(signal.SIGTERM)
            self.assertEqual(program.wait(), 0)
            self.assertNotIn("DESCRIBE", program.out())
        with open(path("live.log")) as log:
            self.assertRegex(log.read(), r"(?m)^\d{4}/\d\d/\d\d \d\d:\d\d:\d\d 127.0.0.1:\d+ DESCRIBE live$")

    @classic_only
    def test_the_librarys_lines_and_level(self):
        with Program("--log", path("library.log"), "--log-level", "4", "--status", "none",
                     clip()) as program:
            program.await_ready()
            program.signal(signal.SIGTERM)
            self.assertEqual(program.wait(), 0)
            self.assertNotIn("Payload Id", program.out())
        with open(path("library.log")) as log:
            text = log.read()
        self.assertRegex(text, r"Payload Id: 96\n(.*\n)*SSRC: [0-9a-f]+\n(.*\n)*Payload Id: 97\n")
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
            os.execv(PROGRAM, [PROGRAM, "--port", str(self.port), *DOOR, *arguments])
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

    @live_only
    def test_status_stays_below_lines_of_callbacks(self):
        screen = self.start(2, "--log-level", "4", "one=" + clip(), "two=" + clip())
        with socket.create_connection(("127.0.0.1", self.port), 5) as player:
            for number in range(20):
                player.sendall(f"OPTIONS rtsp://x/{('one', 'two')[number % 2]} RTSP/1.0\r\n"
                               f"CSeq: {number}\r\n\r\n".encode())
                self.assertIn(b"200 OK", player.recv(4096))
            self.read(2.5, screen)
        self.end(screen)
        lines = screen.lines
        shown = [i for i, line in enumerate(lines) if " fps " in line or "viewers" in line]
        self.assertEqual(len(shown), 2, lines[-8:])
        # All of them, whole and above the status.
        for uri in ("one", "two"):
            requests = [i for i, line in enumerate(lines) if line.endswith(f" OPTIONS {uri}")]
            self.assertEqual(len(requests), 10, lines)
            self.assertLess(requests[-1], shown[0])

    @classic_only
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
            self.assertRegex(lines[line], f"^{uri}  (no viewers   |getting ready)  0:00:")
            self.assertLess(len(lines[line]), self.WIDTH)
        text = "\n".join(lines)
        for number in range(20):
            self.assertIn(f"X: ?[2J{number:04}end", text)
        # Whole lines of the library above it.
        self.assertEqual(len(re.findall(r"(?m)^Payload Id: \d\d$", text)), 4)
        self.assertEqual(len(re.findall(r"(?m)^SSRC: [0-9a-f]+$", text)), 4)
        self.assertLess(text.rindex("SSRC: "), text.index(lines[shown[0]]))

    @classic_only  # the live one's lines have no control characters
    def test_what_players_send_commands_no_terminal(self):
        for arguments in (["--status", "none"], ["--status", "json"]):
            with self.subTest(arguments=arguments):
                self.port = free_port()
                self.process, self.terminal = pty.fork()
                if self.process == 0:
                    os.environ["TERM"] = "xterm"
                    os.execv(PROGRAM, [PROGRAM, "--port", str(self.port), *DOOR, "--log-level", "4",
                                       *arguments, clip()])
                self.addCleanup(self.kill)
                self.await_text("rtsp://127.0.0.1:")
                with socket.create_connection(("127.0.0.1", self.port), 5) as player:
                    player.sendall(b"OPTIONS rtsp://x/live RTSP/1.0\r\nCSeq: 1\r\n"
                                   b"X: \x1b]0;title\x07\r\n\r\n")
                    self.assertIn(b"200 OK", player.recv(4096))
                shown = self.await_text("title")
                self.assertIn("X: ?]0;title?", shown)
                self.assertNotIn("\x1b", shown)
                self.end(Screen())

    def await_text(self, text):
        """What the terminal has got when the text has come."""
        shown = ""
        end = time.time() + 20
        while not re.search(text + r".*\n", shown):
            self.assertLess(time.time(), end, shown)
            if select.select([self.terminal], [], [], 0.2)[0]:
                shown += os.read(self.terminal, 65536).decode()
        return shown

    @classic_only
    def test_repeated_lines_are_counted(self):
        screen = self.start(1, "--log-level", "2", "one=" + clip())
        # Waits for its PLAY: the library prints a line per packet.
        with socket.create_connection(("127.0.0.1", self.port), 5) as player:
            player.sendall(b"SETUP rtsp://x/one/trackID=97 RTSP/1.0\r\nCSeq: 1\r\n"
                           b"Transport: RTP/AVP/TCP;unicast;interleaved=0-1\r\n\r\n")
            self.assertIn(b"200 OK", player.recv(4096))
            end = time.time() + 60
            while self.repeats(screen) <= 30 and time.time() < end:
                self.read(0.5, screen)
            # The count comes with the status, not only with the next line.
            self.assertGreater(self.repeats(screen), 30)
        self.end(screen)
        text = "\n".join(screen.lines)
        # Printed again only behind another line.
        self.assertNotIn("Client Waiting !!!\nClient Waiting !!!", text)

    @staticmethod
    def repeats(screen):
        text = "\n".join(screen.lines)
        return sum(map(int, re.findall(r"(?m)^  \((\d+) more of this line\)$", text)))

    def resize(self, screen, width):
        """As terminals do: what is too long for them now goes on in further rows."""
        rows = []
        for line in screen.lines:
            rows += [line[at:at + width] for at in range(0, max(1, len(line)), width)]
        screen.row += len(rows) - len(screen.lines)
        screen.lines = rows
        fcntl.ioctl(self.terminal, termios.TIOCSWINSZ, struct.pack("HHHH", 24, width, 0, 0))

    def test_the_state_stays_when_the_terminal_is_narrowed(self):
        uri = "entrance/north/camera"
        screen = self.start(2, f"{uri}={clip()}", "two=" + clip())
        self.read(1.5, screen)
        self.resize(screen, 40)
        self.read(2.5, screen)
        lines = screen.lines[-3:-1]
        # No row of an earlier, wider status is left.
        shown = [line for line in screen.lines if "no viewers" in line or "getting" in line]
        self.assertEqual(shown, lines, screen.lines)
        self.assertNotIn("fps", "".join(screen.lines))
        for line, name in zip(lines, (uri, "two")):
            self.assertRegex(line, f"^{name} +(no viewers|getting ready)( |$)")
            self.assertLess(len(line), 40)
        # Narrower than the name and the state: the name is cut.
        self.resize(screen, 24)
        self.read(2.5, screen)
        lines = screen.lines[-3:-1]
        self.assertRegex(lines[-2], "^entrance  (no viewers|getting ready)$")
        self.assertRegex(lines[-1], "^two       (no viewers|getting ready)$")
        self.end(screen)


if __name__ == "__main__":
    main()
