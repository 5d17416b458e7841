"""What the tests of kovastream share: media made by ffmpeg, the program under test, and a player
that takes RTP apart. Every wait has an end."""

import atexit
import base64
import contextlib
import os
import random
import re
import shutil
import signal
import socket
import struct
import subprocess
import tempfile
import time
import unittest

PROGRAM = os.path.join(os.environ["KOVA_BUILD_DIR"], "kovastream")
SAMPLES = os.path.join(os.environ["KOVA_SOURCE_DIR"], "samples")
# Every script streams through the live server; those that ctest runs for the classic one too have
# this set to "classic" then.
CLASSIC = os.environ.get("KOVA_DOOR") == "classic"
DOOR = ["--classic"] if CLASSIC else []
WORK = tempfile.mkdtemp(prefix="kovastream-")
atexit.register(shutil.rmtree, WORK, True)
os.environ["LC_ALL"] = "C"

# Two seconds of picture with a key frame every second, and sound.
SOURCES = ["-f", "lavfi", "-i", "testsrc2=s=320x180:r=25:d=2", "-f", "lavfi", "-i",
           "sine=d=2:r=48000"]
PICTURE = ["-c:v", "libx264", "-g", "25", "-threads", "1"]
NO_B = ["-bf", "0"]
SOUND = ["-c:a", "aac", "-ac", "2", "-b:a", "64k"]


classic_only = unittest.skipUnless(CLASSIC, "of the classic server alone")
live_only = unittest.skipIf(CLASSIC, "of the live server alone")


def path(name):
    return os.path.join(WORK, name)


def ffmpeg(*arguments):
    subprocess.run(["ffmpeg", "-v", "error", "-nostdin", "-y", *arguments], check=True, timeout=60)


def media(name, *arguments):
    """Makes a file once and returns its path."""
    if not os.path.exists(path(name)):
        ffmpeg(*arguments, path(name))
    return path(name)


def clip(extension="mp4"):
    made = media("clip.mp4", *SOURCES, *PICTURE, *NO_B, *SOUND)
    if extension == "mp4":
        return made
    only = {"h264": ["-an"], "aac": ["-vn"]}.get(extension, [])
    return media("clip." + extension, "-i", made, "-c", "copy", *only)


def b_frames(extension="mp4"):
    made = media("b.mp4", *SOURCES, *PICTURE, "-bf", "3", *SOUND)
    if extension == "mp4":
        return made
    return media("b." + extension, "-i", made, "-c", "copy", "-an")


def free_port():
    """Below the ports that the system gives to clients: those of tests that run beside this one
    could be given this port before the server has it."""
    for port in random.sample(range(20000, 32000), 100):
        with socket.socket() as probe:
            with contextlib.suppress(OSError):
                probe.bind(("", port))
                return port
    raise RuntimeError("no free port")


class Program:
    """A running kovastream. Its output goes to files."""

    def __init__(self, *arguments, stdin=subprocess.DEVNULL, port=None):
        self.port = port or free_port()
        self.files = [tempfile.TemporaryFile("w+", dir=WORK) for _ in range(2)]
        self.process = subprocess.Popen([PROGRAM, "--port", str(self.port),
                                         *DOOR, *arguments],
                                        stdin=stdin, stdout=self.files[0], stderr=self.files[1])

    def out(self):
        return self._text(0)

    def err(self):
        return self._text(1)

    def _text(self, index):
        with open(f"/proc/self/fd/{self.files[index].fileno()}", errors="replace") as again:
            return again.read()

    def url(self, uri="live"):
        return f"rtsp://127.0.0.1:{self.port}/{uri}"

    def await_ready(self, uri="live", seconds=10):
        """Waits until the stream has a description, and returns it."""
        end = time.time() + seconds
        while time.time() < end and self.process.poll() is None:
            with contextlib.suppress(OSError):
                with Player(self, uri) as player:
                    if player.sdp:
                        return player.sdp
            time.sleep(0.05)
        raise AssertionError(f"no description of {uri}: {self.process.poll()} {self.err()}")

    def signal(self, number):
        self.process.send_signal(number)

    def wait(self, seconds=30):
        return self.process.wait(seconds)

    def __enter__(self):
        return self

    def __exit__(self, *_):
        if self.process.poll() is None:
            self.process.send_signal(signal.SIGTERM)
            try:
                self.process.wait(10)
            except subprocess.TimeoutExpired:
                self.process.kill()
                self.process.wait()
                raise AssertionError("kovastream did not end on SIGTERM") from None
        for file in self.files:
            file.close()


class Packet:
    def __init__(self, data):
        self.marker = data[1] >> 7
        self.type = data[1] & 0x7F
        self.sequence, self.timestamp = struct.unpack(">HI", data[2:8])
        self.payload = data[12:]
        self.arrival = time.monotonic()


class Player:
    """Speaks RTSP over one connection and takes RTP interleaved."""

    def __init__(self, program, uri="live"):
        self.url = program.url(uri)
        self.socket = socket.create_connection(("127.0.0.1", program.port), 20)
        self.buffer = b""
        self.count = 0
        self.session = None
        self.request("OPTIONS", self.url)
        self.sdp = self.request("DESCRIBE", self.url)[1]

    def request(self, method, url, *headers):
        self.count += 1
        self.socket.settimeout(20)
        lines = [f"{method} {url} RTSP/1.0", f"CSeq: {self.count}", *headers]
        self.socket.sendall(("\r\n".join(lines) + "\r\n\r\n").encode())
        while b"\r\n\r\n" not in self.buffer or self.buffer[:1] == b"$":
            if self._frame() is None:
                self._receive()
        head, _, self.buffer = self.buffer.partition(b"\r\n\r\n")
        head = head.decode()
        length = re.search(r"Content-Length: (\d+)", head)
        size = int(length.group(1)) if length else 0
        while len(self.buffer) < size:
            self._receive()
        body, self.buffer = self.buffer[:size].decode(), self.buffer[size:]
        return head, body

    def _receive(self):
        data = self.socket.recv(65536)
        if not data:
            raise ConnectionError("the server closed the connection")
        self.buffer += data

    def _frame(self):
        """The next interleaved frame as (channel, data), or None when it is not complete."""
        if len(self.buffer) < 4 or self.buffer[:1] != b"$":
            return None
        size = 4 + struct.unpack(">H", self.buffer[2:4])[0]
        if len(self.buffer) < size:
            return None
        frame, self.buffer = self.buffer[:size], self.buffer[size:]
        return frame[1], frame[4:]

    def tracks(self):
        """The controls of its tracks; that of the whole stream stands in front of them."""
        return re.findall(r"a=control:(track\S+)", self.sdp)

    def play(self):
        for channel, track in enumerate(self.tracks()):
            headers = [f"Transport: RTP/AVP/TCP;unicast;interleaved={2 * channel}-{2 * channel + 1}"]
            if self.session:
                headers.append(f"Session: {self.session}")
            head, _ = self.request("SETUP", f"{self.url}/{track}", *headers)
            self.session = re.search(r"Session: ([^;\s]+)", head).group(1)
        self.request("PLAY", self.url, f"Session: {self.session}")
        return self

    def packets(self, seconds):
        """The RTP packets of so many seconds, or until the server closes the connection."""
        end = time.time() + seconds
        taken = []
        while time.time() < end:
            frame = self._frame()
            if frame is not None:
                if frame[0] % 2 == 0:
                    taken.append(Packet(frame[1]))
                continue
            try:
                self.socket.settimeout(max(0.01, end - time.time()))
                self._receive()
            except (TimeoutError, OSError, ConnectionError):
                break
        return taken

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self.socket.close()


def await_text(program, text, seconds=30):
    """Waits until the program has printed the text, while it runs."""
    end = time.time() + seconds
    while text not in program.out() + program.err():
        if time.time() > end or program.process.poll() is not None:
            raise AssertionError(f"no {text!r}: {program.out()} {program.err()}")
        time.sleep(0.05)


def await_quiet(program, seconds=40):
    """Waits until the one stream of a program with --status json has had no input for two seconds:
    all that a pipe has had is read, and its next writer does not append to it."""
    end = time.time() + seconds
    while '"status":"waiting"' not in program.out()[-500:].rpartition("{\"time\"")[2]:
        if time.time() > end:
            raise AssertionError(f"input goes on: {program.out()[-500:]}")
        time.sleep(0.1)


def units(packets):
    """The NAL units of H.264 packets, as (timestamp, unit) in order of arrival."""
    whole = []
    fragment = b""
    for packet in packets:
        kind = packet.payload[0] & 31
        if kind == 24:
            at = 1
            while at < len(packet.payload):
                size = struct.unpack(">H", packet.payload[at:at + 2])[0]
                whole.append((packet.timestamp, packet.payload[at + 2:at + 2 + size]))
                at += 2 + size
        elif kind == 28:
            if packet.payload[1] & 0x80:
                fragment = bytes([packet.payload[0] & 0xE0 | packet.payload[1] & 31])
            fragment += packet.payload[2:]
            if packet.payload[1] & 0x40:
                whole.append((packet.timestamp, fragment))
        else:
            whole.append((packet.timestamp, packet.payload))
    return whole


def annexb_units(file):
    """The slices of a raw H.264 file."""
    with open(file, "rb") as raw:
        parts = re.split(rb"\x00?\x00\x00\x01", raw.read())
    return [part for part in parts if part and part[0] & 31 in (1, 5)]


def slices_of(packets):
    """The slices among the units of H.264 packets. The classic server sends nothing else."""
    return [unit for _, unit in units(packets) if CLASSIC or unit[0] & 31 in (1, 5)]


def without_later_parameter_sets(file, name):
    """Writes the H.264 file anew with the first SPS and PPS only."""
    with open(file, "rb") as raw:
        parts = [part for part in re.split(rb"\x00?\x00\x00\x01", raw.read()) if part]
    seen = set()
    kept = []
    for part in parts:
        kind = part[0] & 31
        if kind not in (7, 8) or kind not in seen:
            kept.append(part)
        seen.add(kind)
    with open(path(name), "wb") as made:
        made.write(b"".join(b"\0\0\0\1" + part for part in kept))
    return path(name)


def steps(packets, track):
    """Differences of the track's successive timestamps, repeated ones left out."""
    stamps = [packet.timestamp for packet in packets if packet.type == track]
    return [after - before for before, after in zip(stamps, stamps[1:]) if after != before]


def parameter_sets(sdp):
    sets = re.search(r"sprop-parameter-sets=([^;\r]*)", sdp).group(1)
    return [base64.b64decode(part) for part in sets.split(",")]


def main():
    unittest.main(verbosity=2)
