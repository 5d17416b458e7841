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
        self.thread = threading.Thread(target=self.serve_forever)
        self.thread.start()

    def close(self):
        self.shutdown()
        self.server_close()
        self.thread.join()


class Handler(http.server.BaseHTTPRequestHandler):
    def do_GET(self):
        self.server.times.append(time.monotonic())
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


if __name__ == "__main__":
    main()
