"""Pipes are waited for, signals end the program, and everything is torn down."""

import json
import select
import signal
import socket
import subprocess
import threading
import time
import unittest

from support import *


def feed(test, source, target):
    """Starts an encoder's stand-in, which does not outlive the test."""
    writer = subprocess.Popen(["ffmpeg", "-v", "error", "-nostdin", "-y", "-i", source, "-c",
                               "copy", "-f", "mpegts", target])
    test.addCleanup(writer.wait)
    test.addCleanup(writer.kill)
    return writer


class Pipes(unittest.TestCase):
    def test_fifo_goes_on_with_its_next_writer(self):
        os.mkfifo(path("camera"))
        with Program("--status", "json", "cam=" + path("camera")) as program:
            # The server is there before the encoder is.
            await_text(program, '"status":"opening"')
            with Player(program, "cam") as player:
                self.assertEqual(player.sdp, "")
            first = feed(self, clip(), path("camera"))
            program.await_ready("cam")
            with Player(program, "cam") as player:
                player.play()
                self.assertEqual(first.wait(30), 0)
                await_quiet(program)
                second = feed(self, clip(), path("camera"))
                taken = []
                end = time.time() + 40
                while time.time() < end and sum(steps(taken, 97)) <= 2.5 * 90000:
                    taken += player.packets(0.5)
                self.assertEqual(second.wait(30), 0)
            stamps = [packet.timestamp for packet in taken if packet.type == 97]
            self.assertEqual(stamps, sorted(stamps))
            # Where the second one begins, the picture waits for the end of the first one's sound.
            others = [step for step in steps(taken, 97) if step != 3600]
            self.assertLessEqual(len(others), 1, others)
            self.assertLess(max(steps(taken, 97)), 2 * 3600)
            # The second writer's two seconds came too.
            self.assertGreater(stamps[-1] - stamps[0], 2.5 * 90000)
            program.signal(signal.SIGINT)
            self.assertEqual(program.wait(), 0)
            # Its address, and that it is stopping.
            said = [line for line in program.err().splitlines() if "from other" not in line]
            self.assertEqual(len(said), 2, said)

    def test_a_pipe_that_stalls_is_waited_for(self):
        with open(clip("ts"), "rb") as file:
            data = file.read()
        with Program("--status", "json", "-", stdin=subprocess.PIPE) as program:
            pipe = program.process.stdin
            pipe.write(data)
            pipe.flush()
            program.await_ready()
            with Player(program) as player:
                player.play()
                before = player.packets(4)
                await_quiet(program)
                self.assertIsNone(program.process.poll())
                # Two seconds were all there was; the rest comes now, its clock begun anew.
                pipe.write(data)
                pipe.close()
                # Until the program's end.
                after = player.packets(40)
            self.assertGreater(len(steps(after, 97)), 40)
            self.assertEqual(program.wait(), 0)
            both = [packet.timestamp for packet in before + after if packet.type == 97]
            self.assertEqual(both, sorted(both))
            # All were sent, and in their own time: not one after the other at once.
            self.assertLess(max(steps(before + after, 97)), 10 * 3600)

    def test_the_end_while_nothing_comes(self):
        os.mkfifo(path("silent"))
        with Program("--status", "json", path("silent")) as program:
            await_text(program, '"status":"opening"')
            program.signal(signal.SIGTERM)
            self.assertEqual(program.wait(20), 0)


class Link:
    """A TCP link to a port that can die: its connections stay open and carry nothing any more."""

    def __init__(self, port):
        self.target = port
        self.listener = socket.create_server(("127.0.0.1", 0))
        self.port = self.listener.getsockname()[1]
        self.pairs = {}
        self.dead = []
        self.ending = False
        self.thread = threading.Thread(target=self.run)
        self.thread.start()

    def run(self):
        while not self.ending:
            readable, _, _ = select.select([self.listener, *self.pairs], [], [], 0.1)
            for end in readable:
                if end is self.listener:
                    one = self.listener.accept()[0]
                    other = socket.create_connection(("127.0.0.1", self.target), 5)
                    self.pairs.update({one: other, other: one})
                elif end in self.pairs:
                    other = self.pairs[end]
                    try:
                        data = end.recv(65536)
                        other.sendall(data)
                    except OSError:
                        data = b""
                    if not data:
                        for closed in (end, other):
                            del self.pairs[closed]
                            closed.close()

    def die(self):
        self.dead, self.pairs = list(self.pairs), {}

    def close(self):
        self.ending = True
        self.thread.join()
        for end in [self.listener, *self.pairs, *self.dead]:
            end.close()


class Networks(unittest.TestCase):
    def test_source_that_falls_silent_is_connected_anew(self):
        with Program(clip()) as device:
            device.await_ready()
            link = Link(device.port)
            self.addCleanup(link.close)
            with Program("--status", "json", f"rtsp://127.0.0.1:{link.port}/live") as program:
                program.await_ready(seconds=20)
                link.die()
                flowing, silent = 0, False
                end = time.time() + 40
                while time.time() < end and not (silent and flowing > 2):
                    time.sleep(0.5)
                    rates = [json.loads(line)["fps"] for line in program.out().splitlines()]
                    silent = 0 in rates[1:]
                    flowing = len([rate for rate in rates[rates.index(0, 1):] if rate > 20]) \
                        if silent else 0
                self.assertTrue(silent)
                self.assertGreater(flowing, 2, program.out())


class Signals(unittest.TestCase):
    def test_players_are_let_go(self):
        for number in (signal.SIGINT, signal.SIGTERM):
            with self.subTest(number=number), Program(clip()) as program:
                program.await_ready()
                with Player(program) as player:
                    self.assertGreater(len(player.play().packets(1.5)), 0)
                    begin = time.time()
                    program.signal(number)
                    player.packets(30)
                    self.assertLess(time.time() - begin, 25, "the connection stayed open")
                self.assertEqual(program.wait(), 0)
                self.assertEqual(program.err(), "")

    @classic_only  # the live one has ended before there could be a second one
    def test_second_interrupt_ends_at_once(self):
        with Program(clip()) as program:
            program.await_ready()
            program.signal(signal.SIGINT)
            time.sleep(0.2)
            self.assertIsNone(program.process.poll())
            program.signal(signal.SIGINT)
            self.assertEqual(program.wait(5), 128 + signal.SIGINT)

    @live_only
    def test_players_are_let_go_within_a_second(self):
        with Program(clip()) as program:
            program.await_ready()
            with Player(program) as player:
                self.assertGreater(len(player.play().packets(1.5)), 0)
                begin = time.monotonic()
                program.signal(signal.SIGTERM)
                player.packets(30)
                self.assertLess(time.monotonic() - begin, 10)
            self.assertEqual(program.wait(), 0)
            self.assertIn("stopping: players are let go (Ctrl-C again ends at once)\n",
                          program.out())

    def test_ignored_hangup_stays_ignored(self):
        started = signal.signal(signal.SIGHUP, signal.SIG_IGN)
        try:
            program = Program(clip())
        finally:
            signal.signal(signal.SIGHUP, started)
        with program:
            program.await_ready()
            program.signal(signal.SIGHUP)
            with Player(program) as player:
                self.assertGreater(len(player.play().packets(4)), 0)
            # An end that was begun takes a while.
            self.assertNotIn("stopping", program.out())
            self.assertIsNone(program.process.poll())

    def test_duration(self):
        begin = time.time()
        with Program("--duration", "1.5", clip()) as program:
            self.assertEqual(program.wait(30), 0)
        self.assertGreaterEqual(time.time() - begin, 1.5)


if __name__ == "__main__":
    main()
