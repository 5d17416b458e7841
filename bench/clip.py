"""Records what a server sends of its first track, for kova_bare_server to send again."""

import re
import socket
import struct
import time


class Recorder:
    """A player over TCP."""

    def __init__(self, url, seconds):
        """seconds: for all that follows"""
        host, port = re.match(r"rtsp://([^:/]+):(\d+)/", url).groups()
        self.url = url
        self.end = time.monotonic() + seconds
        self.stream = socket.create_connection((host, int(port)), timeout=seconds)
        self.input = self.stream.makefile("rb")
        self.requests = 0

    def ask(self, method, url, lines=""):
        """Returns the head and the body of the answer."""
        self.requests += 1
        request = f"{method} {url} RTSP/1.0\r\nCSeq: {self.requests}\r\n{lines}\r\n"
        self.stream.sendall(request.encode())
        head = ""
        while not head.endswith("\r\n\r\n"):
            line = self.input.readline()
            if not line:
                raise RuntimeError(f"no answer to {method}")
            head += line.decode()
        if " 200 " not in head.split("\r\n", 1)[0]:
            raise RuntimeError(f"{method} was answered with {head}")
        size = re.search(r"\r\nContent-Length: *(\d+)", head, re.IGNORECASE)
        return head, self.input.read(int(size.group(1))) if size else b""

    def describe(self):
        """A stream that has just begun has no tracks yet."""
        while time.monotonic() < self.end:
            body = self.ask("DESCRIBE", self.url)[1]
            if b"a=rtpmap:" in body:
                return body
            time.sleep(0.1)
        raise RuntimeError("the stream does not begin")

    def packets(self):
        """The RTP packets of the first track, until the time is up."""
        while time.monotonic() < self.end:
            mark, channel, size = struct.unpack(">cBH", self.input.read(4))
            packet = self.input.read(size)
            if mark != b"$":
                raise RuntimeError("this is no frame")
            if channel == 0:
                yield packet


def is_key(packet):
    """Whether a key frame begins with it: with its slice, whole or cut, or parameter sets."""
    kind = packet[12] & 0x1F
    return (packet[13] & 0x1F if kind == 28 else kind) in (5, 7)


def group_of_pictures(packets, least):
    """The packets from one key frame to the next, of at least that many bytes: smaller groups are
    those before the bit rate was set."""
    group = []
    for packet in packets:
        new_unit = not group or packet[4:8] != group[-1][4:8]
        if new_unit and is_key(packet):
            if sum(map(len, group)) >= least:
                return group
            group = []
        if group or (new_unit and is_key(packet)):
            group.append(packet)
    raise RuntimeError("no group of pictures has come")


def record(url, path, least, seconds):
    """Writes one group of pictures, as bench/clip.h wants it, and returns its packets."""
    recorder = Recorder(url, seconds)
    recorder.ask("OPTIONS", url)
    description = recorder.describe()
    control = re.search(rb"\r\nm=.*?\r\na=control:(\S+)", description, re.DOTALL).group(1).decode()
    transport = "Transport: RTP/AVP/TCP;unicast;interleaved=0-1\r\n"
    head, _ = recorder.ask("SETUP", f"{url}/{control}", transport)
    session = re.search(r"\r\nSession: *([^;\r]+)", head).group(1)
    recorder.ask("PLAY", url, f"Session: {session}\r\n")
    packets = group_of_pictures(recorder.packets(), least)
    with open(path, "wb") as clip:
        for part in (description, *packets):
            clip.write(struct.pack(">H", len(part)) + part)
    return packets
