"""What is wrong is said in one line that tells what to do, and the exit status is 1."""

import http.server
import re
import shlex
import socket
import subprocess
import threading
import unittest

from support import *


def run(*arguments, **more):
    return subprocess.run([PROGRAM, *arguments], capture_output=True, text=True, timeout=20,
                          stdin=subprocess.DEVNULL, **more)


class Refusals(unittest.TestCase):
    def refused(self, expected, *arguments):
        """The one line must contain every expected text."""
        result = run(*arguments)
        self.assertEqual(result.returncode, 1, result.stderr)
        lines = result.stderr.splitlines()
        self.assertEqual(len(lines), 1, result.stderr)
        self.assertTrue(lines[0].startswith("kovastream: "), lines[0])
        for text in expected:
            self.assertIn(text, lines[0])
        self.assertEqual(result.stdout, "")
        return lines[0]

    def test_options(self):
        for expected, arguments in (
                (["70000", "1 to 65535"], ["--port", "70000"]),
                (["0", "1 to 65535"], ["--port", "0"]),
                (["'many'"], ["--port", "many"]),
                (["1025", "1 to 1024"], ["--max-clients", "1025"]),
                (["'blue'", "line, players, json and none"], ["--status", "blue"]),
                (["'6'", "0 to 5"], ["--log-level", "6"]),
                (["'0'"], ["--fps", "0"]),
                (["'-1'"], ["--duration=-1"]),
                (["--bogus", "--help"], ["--bogus"]),
                (["--loop", "--once"], ["--loop", "--once"]),
                (["--classic", "--delay"], ["--classic", "--delay", "5"]),
                (["classic server", "--status line"], ["--classic", "--status", "players"]),
                (["'5-6'", "50000-50015"], ["--udp-ports", "5-6"]),
                (["1 pair of", "2 threads"], ["--udp-ports", "5001-5004", "--threads", "2"]),
                (["--password-file"], ["--user", "anna"]),
                (["'here'", "IPv4"], ["--address", "here"]),
                (["'224.0.0.1'", "this machine"], ["--address", "224.0.0.1"]),
                (["'255.255.255.255'", "this machine"], ["--address", "255.255.255.255"])):
            with self.subTest(arguments=arguments):
                self.refused(expected, *arguments)

    def test_names(self):
        a = clip()
        for expected, arguments in (
                (["two streams", "'live'", "main="], [a, "live=" + a]),
                (["'/x'"], ["/x=" + a]),
                (["'x'", "2 to 255"], ["x=" + a]),
                (["'x'", "2 to 1024"], ["--classic", "x=" + a]),
                (["'cam/track1'", "take its end for a track"], ["cam/track1=" + a]),
                (["'a b'", "letters"], ["a b=" + a]),
                (["Session"], ["mySession=" + a]),
                (["'live='"], ["live="]),
                (["standard input"], ["aa=-", "bb=-"])):
            with self.subTest(arguments=arguments):
                self.refused(expected, *arguments)

    def test_inputs_that_cannot_be_read(self):
        with open(path("text.mp4"), "w") as text:
            text.write("no media " * 1000)
        whole = media("front.mp4", "-i", clip(), "-c", "copy", "-movflags", "+faststart")
        with open(whole, "rb") as file, open(path("half.mp4"), "wb") as half:
            half.write(file.read()[:9000])
        with open(clip(), "rb") as file, open(path("headless.mp4"), "wb") as headless:
            headless.write(file.read()[:30000])
        for expected, name in (
                (["no file", "check the name"], "missing.mp4"),
                (["directory"], ""),
                (["text.mp4' is not media", "ffprobe"], "text.mp4"),
                (["headless.mp4' is not media", "broken"], "headless.mp4"),
        ):
            with self.subTest(name=name):
                self.refused(expected, "--strict", path(name))
        # Its index is whole, so it is seen only where it ends, when it is published already.
        result = run("--strict", "--port", str(free_port()), path("half.mp4"))
        self.assertEqual(result.returncode, 1)
        self.assertRegex(result.stderr, r"^kovastream: .*half.mp4' is (cut off|broken): .*\n$")

    def test_names_with_control_characters(self):
        self.refused(["no file 'no?file?[2J?'"], "--strict", "no\nfile\x1b[2J\x7f")

    def test_index_behind_the_media_in_a_pipe(self):
        with open(clip(), "rb") as pipe:
            result = subprocess.run([PROGRAM, "--port", str(free_port()), "-"], stdin=pipe,
                                    capture_output=True, text=True, timeout=20)
        self.assertEqual(result.returncode, 1)
        self.assertRegex(result.stderr, r"^kovastream: '-' cannot be .*mpegts.*\n$")

    def test_closed_descriptors(self):
        for closed in ("<&-", ">&-", "<&- >&-", "<&- >&- 2>&-"):
            with self.subTest(closed=closed):
                result = subprocess.run(
                    ["sh", "-c", f'exec "$0" --port {free_port()} --duration 1 "$1" {closed}',
                     PROGRAM, clip()], timeout=20)
                self.assertEqual(result.returncode, 0)
        result = subprocess.run(["sh", "-c", 'exec "$0" - <&-', PROGRAM], capture_output=True,
                                text=True, timeout=20)
        self.assertEqual(result.returncode, 1)
        self.assertRegex(result.stderr, r"^kovastream: '-' .*\n$")

    def test_log_without_a_reader(self):
        os.mkfifo(path("log.fifo"))
        self.refused(["log.fifo"], "--log", path("log.fifo"), clip())

    def test_encrypted(self):
        # With the first key the tracks look sound; with the others the encrypted sound reads as if
        # it had 15 and 35 channels, which is not what is wrong with it.
        for key in ("76a6c65c5ea762046bd749a2e632ccbb", "0000000000000000000000000000b99b",
                    "00000000000000000000000000038114"):
            with self.subTest(key=key):
                encrypted = media("encrypted.mp4", "-i", clip(), "-c", "copy", "-fflags",
                                  "+bitexact", "-encryption_scheme", "cenc-aes-ctr",
                                  "-encryption_key", key,
                                  "-encryption_kid", "a7e61c373e219033c21091fa607bf3b8")
                self.refused(["encrypted", "without protection"], "--strict", encrypted)

    def test_foreign_codecs_come_with_the_command_that_helps(self):
        picture = media("foreign picture.mp4", "-i", clip(), "-c:v", "mpeg4", "-c:a", "copy")
        sound = media("foreign.mkv", "-i", clip(), "-c:v", "copy", "-c:a", "ac3")
        many = media("many.mp4", "-i", clip(), "-c:v", "copy", "-c:a", "aac", "-ac", "6")
        for file, texts in ((picture, ["mpeg4", "ffmpeg -v error", "-c:a copy",
                                       "-c:v libx264 -pix_fmt yuv420p"]),
                            (sound, ["ac3", "-c:v copy", "-c:a aac"]),
                            (many, ["6 channels", "-c:v copy", "-ac 2"])):
            with self.subTest(file=file):
                line = self.refused(texts, "--strict", "--classic", file)
                command = re.search(r"(ffmpeg .*) \| kovastream -$", line).group(1)
                self.check_advice(shlex.split(command))

    def check_advice(self, command):
        encoder = subprocess.Popen(command, stdout=subprocess.PIPE, stdin=subprocess.DEVNULL,
                                   stderr=subprocess.DEVNULL)
        with Program("--classic", "-", stdin=encoder.stdout) as program:
            encoder.stdout.close()
            sdp = program.await_ready()
            self.assertIn("a=rtpmap:96 mpeg4-generic/48000/2", sdp)
            self.assertIn("a=rtpmap:97 H264/90000", sdp)
        encoder.terminate()
        encoder.wait(10)

    def test_addresses_of_an_unknown_kind(self):
        self.refused(["'foo://host/x'", "do not know 'foo://'", "-protocols"], "foo://host/x")

    def test_a_host_without_an_address(self):
        self.refused(["the name 'nohost.invalid' has no address", "DNS"], "--strict", "--port",
                     str(free_port()), "rtsp://nohost.invalid/x")

    def test_a_server_that_has_something_else(self):
        class Page(http.server.BaseHTTPRequestHandler):
            def do_GET(self):
                page = b"<!DOCTYPE html>\n<html><body>" + b"Nothing here.\n" * 300
                self.send_response(200)
                self.send_header("Content-Length", str(len(page)))
                self.end_headers()
                with contextlib.suppress(OSError):
                    self.wfile.write(page)

            def log_message(self, *_):
                pass

        with http.server.ThreadingHTTPServer(("127.0.0.1", 0), Page) as web:
            threading.Thread(target=web.serve_forever, daemon=True).start()
            address = f"http://127.0.0.1:{web.server_port}/page"
            self.refused([f"'{address}' answers, but not with media"], "--strict", "--port",
                         str(free_port()), address)
            web.shutdown()

    def test_port_and_address(self):
        with socket.socket() as other:
            other.bind(("", 0))
            other.listen(1)
            port = str(other.getsockname()[1])
            for door in ([], ["--classic"]):
                self.refused([f"port {port} is taken", "--port"], *door, "--port", port, clip())
        for door in ([], ["--classic"]):
            self.refused(["192.0.2.1", "not one of this machine"], *door, "--address",
                         "192.0.2.1", "--port", str(free_port()), clip())

    def test_password_file(self):
        with open(path("empty"), "w"):
            pass
        for expected, file in ((["/no/such/file", "cannot be read"], "/no/such/file"),
                               (["no password in its first line"], path("empty"))):
            with self.subTest(file=file):
                self.refused(expected, "--user", "anna", "--password-file", file, clip())

    def test_log_file(self):
        self.refused(["/no/such/log", "cannot be written"], "--log", "/no/such/log", clip())


class Answers(unittest.TestCase):
    def test_help_has_every_option_and_examples(self):
        result = run("--help")
        self.assertEqual((result.returncode, result.stderr), (0, ""))
        for text in ("--address", "--port", "8554", "--max-clients", "--loop", "--once", "--fps",
                     "--strict", "--duration", "--log-level", "--log ", "--status", "--version",
                     "--classic", "--delay", "--user", "--password-file", "--max-connections",
                     "--udp-ports", "--threads", "Examples:",
                     "| kovastream -", "mkfifo"):
            self.assertIn(text, result.stdout)

    def test_version(self):
        result = run("--version")
        self.assertEqual((result.returncode, result.stdout), (0, "kovastream 0.1.0\n"))


if __name__ == "__main__":
    main()
