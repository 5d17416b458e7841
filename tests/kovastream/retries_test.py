"""A source that fails again and again is tried seldom, and said once."""

import http.server
import threading
import time
import unittest

from support import *


class Server(http.server.ThreadingHTTPServer):
    """Serves one file, whatever is asked for and without ranges, and notes when."""

    def __init__(self, file):
        super().__init__(("127.0.0.1", 0), Handler)
        with open(file, "rb") as whole:
            self.body = whole.read()
        self.times = []
        self.refuses = False
        self.thread = threading.Thread(target=self.serve_forever)
        self.thread.start()

    def close(self):
        self.shutdown()
        self.server_close()
        self.thread.join()


class Handler(http.server.BaseHTTPRequestHandler):
    def do_GET(self):
        self.server.times.append(time.monotonic())
        if self.server.refuses:
            self.send_error(404)
            return
        self.send_response(200)
        self.send_header("Content-Length", str(len(self.server.body)))
        self.end_headers()
        with contextlib.suppress(OSError):
            self.wfile.write(self.server.body)

    def log_message(self, *_):
        pass


class Servers(unittest.TestCase):
    def serve(self, file):
        server = Server(file)
        self.addCleanup(server.close)
        return server

    def play(self, server, seconds):
        with Program("--status", "none", "--duration", str(seconds),
                     f"http://127.0.0.1:{server.server_port}/clip") as host:
            self.assertEqual(host.wait(seconds + 30), 0, host.err())
            return [line for line in host.out().splitlines() if line.startswith("live: ")]

    def test_index_at_the_end_without_ranges(self):
        server = self.serve(clip())
        lines = self.play(server, 9)
        self.assertEqual(len(lines), 1, lines)
        self.assertIn("cannot be read", lines[0])
        self.assertIn("MP4 has to have its index in front", lines[0])
        self.assertIn("-movflags +faststart", lines[0])
        # FFmpeg asks more than once each time. At most four tries fit into nine seconds.
        self.assertGreaterEqual(len(server.times), 2)
        self.assertLess(len(server.times), 40)

    def test_short_films_are_not_asked_for_more_than_once_a_second(self):
        server = self.serve(media("short.ts", "-i", clip("ts"), "-t", "0.2", "-c", "copy"))
        self.assertEqual(self.play(server, 4), [])
        self.assertGreaterEqual(len(server.times), 2)
        self.assertLessEqual(len(server.times), 5)

    def test_after_it_has_worked_the_first_pause_is_short_and_the_failure_is_news(self):
        server = self.serve(media("short.ts", "-i", clip("ts"), "-t", "0.2", "-c", "copy"))
        server.refuses = True
        with Program("--status", "none",
                     f"http://127.0.0.1:{server.server_port}/clip") as host:
            self.await_tries(server, 4)  # the next pause is of eight seconds
            self.assertEqual(host.out().count("404"), 1, host.out())
            server.refuses = False
            await_text(host, "rtsp://", 60)
            server.refuses = True
            before = len(server.times)
            self.await_tries(server, before + 3)
            self.assertEqual(host.out().count("404"), 2, host.out())
        # One may have been under way; of the last two at least one is behind a pause of a second.
        apart = [after - at for at, after in zip(server.times[before:], server.times[before + 1:])]
        self.assertLess(min(apart[:2]), 6)

    def await_tries(self, server, count):
        end = time.time() + 60
        while len(server.times) < count:
            self.assertLess(time.time(), end, server.times)
            time.sleep(0.05)


if __name__ == "__main__":
    main()
