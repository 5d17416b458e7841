"""A strict player of a live stream with one H.264 and one AAC track.

usage: strict_reader.py tcp|udp rtsp://host:port/path [option]...
    --seconds N           how long it plays (4)
    --most N              the largest RTP packet that may come (1,400)
    --step N[,N]...       the picture's timestamp steps that may be (3600), -N: back
    --login NAME:PASSWORD --algorithm MD5|SHA-256
    --pause               says PAUSE after that time, and PLAY once more

Every answer, the description, every RTP packet and every RTCP compound must be what the RFCs have,
nothing may be missing, and times and counts must agree with each other. It ends at the first thing
that is not so.
"""
import argparse
import random
import re
import select
import socket
import time
import urllib.parse

import rtcp
import rtp
import sdp
from rtsp import PUBLIC, Client, Login, check

TOGETHER = 0.2  # seconds that picture and sound may arrive apart


class Player:
    """One session, and what comes for it."""

    def __init__(self, options):
        self.options = options
        address = urllib.parse.urlsplit(options.url)
        self.host = address.hostname
        login = None
        if options.login:
            login = Login(*options.login.split(':', 1), options.algorithm)
        self.client = Client(self.host, address.port, login, self.take_frame)
        self.own = random.getrandbits(32)
        self.tracks, self.receivers, self.reports = [], [], []
        self.sockets, self.servers = [], []  # per track: RTP, RTCP
        self.playing = False

    def open(self):
        answer = self.client.request('OPTIONS', self.options.url)
        check(PUBLIC <= set(answer.one('Public', '').split(', ')), f'Public {answer.one("Public")}')
        answer = self.client.request('DESCRIBE', self.options.url, 'Accept: application/sdp')
        self.base = answer.one('Content-Base')
        check(self.base == self.options.url + '/', f'Content-Base {self.base}')
        check(answer.one('Content-Type') == 'application/sdp', 'the content type')
        check(answer.one('Content-Length') == str(len(answer.body)), 'Content-Length')
        self.tracks = sdp.parse(answer.body, self.client.socket.getpeername()[0])
        check(sorted(track.kind for track in self.tracks) == ['audio', 'video'], 'the tracks')
        for number, track in enumerate(self.tracks):
            self.set_up(number, track)
        check(self.client.session, 'no session')
        self.picture = next(one for one in self.receivers if one.track.kind == 'video')

    def set_up(self, number, track):
        if self.options.transport == 'tcp':
            asked = f'RTP/AVP/TCP;unicast;interleaved={2 * number}-{2 * number + 1}'
        else:
            self.sockets.append(self.open_pair())
            port = self.sockets[-1][0].getsockname()[1]
            asked = f'RTP/AVP;unicast;client_port={port}-{port + 1}'
        answer = self.client.request('SETUP', self.base + track.control, f'Transport: {asked}')
        transport = answer.one('Transport', '')
        check(transport.startswith(asked + ';'), f'{transport} for {asked}')
        rest = dict(one.split('=', 1) for one in transport[len(asked) + 1:].split(';'))
        check(re.fullmatch('[0-9A-Fa-f]{8}', rest.get('ssrc', '')), f'the SSRC in {transport}')
        if self.options.transport == 'udp':
            ports = re.fullmatch(r'(\d+)-(\d+)', rest.get('server_port', ''))
            check(ports and int(ports[1]) % 2 == 0 and int(ports[2]) == int(ports[1]) + 1,
                  f'the ports in {transport}')
            check(rest.get('source') == self.client.socket.getpeername()[0], transport)
            self.servers.append([(rest['source'], int(port)) for port in ports.groups()])
        step = self.options.step if track.kind == 'video' else [1024]
        receiver = rtp.Receiver(track, int(rest['ssrc'], 16), self.options.most, step)
        self.receivers.append(receiver)
        self.reports.append(rtcp.Reports(receiver, self.options.transport == 'tcp'))

    @staticmethod
    def open_pair():
        while True:
            pair = [socket.socket(socket.AF_INET, socket.SOCK_DGRAM) for _ in range(2)]
            port = random.randrange(20000, 60000, 2)
            try:
                for offset, one in enumerate(pair):
                    one.setsockopt(socket.SOL_SOCKET, socket.SO_RCVBUF, 1 << 20)
                    one.bind(('', port + offset))
                return pair
            except OSError:
                for one in pair:
                    one.close()

    def take_frame(self, channel, data):
        check(self.options.transport == 'tcp', 'a frame of a UDP player')
        check(channel < 2 * len(self.tracks), f'channel {channel}')
        self.take(channel // 2, channel % 2, data)

    def take(self, number, is_rtcp, data):
        check(self.playing, 'media of a player that does not play')
        if is_rtcp:
            self.reports[number].take(data)
        else:
            check(not self.reports[number].ended, 'RTP behind BYE')
            if self.options.transport == 'tcp':
                check(self.tracks[number].kind == 'video' or self.picture.first,
                      'sound in front of the first picture')
            self.receivers[number].take(data, time.monotonic())

    def take_datagrams(self, seconds):
        """Takes what comes within that time. RTP first: its report may have come with it."""
        places = {one: (number, kind) for number, pair in enumerate(self.sockets)
                  for kind, one in enumerate(pair)}
        ready, _, _ = select.select(list(places), [], [], max(seconds, 0))
        for one in sorted(ready, key=lambda one: places[one][1]):
            data, source = one.recvfrom(65536)
            number, kind = places[one]
            check(source == self.servers[number][kind], f'media from {source}')
            self.take(number, kind, data)
        return bool(ready)

    def wait(self, seconds):
        """Takes media for so long, and reports every second."""
        end = time.monotonic() + seconds
        while time.monotonic() < end:
            slice_end = min(end, time.monotonic() + 1)
            if self.options.transport == 'tcp':
                self.client.frames_until(slice_end)
            else:
                while time.monotonic() < slice_end:
                    self.take_datagrams(slice_end - time.monotonic())
            self.report()

    def report(self):
        for number, reports in enumerate(self.reports):
            if reports.receiver.sequence is None:
                continue
            data = reports.answer(self.own)
            if self.options.transport == 'tcp':
                head = b'$' + bytes([2 * number + 1]) + len(data).to_bytes(2, 'big')
                self.client.send(head + data)
            else:
                self.sockets[number][1].sendto(data, self.servers[number][1])

    def play(self):
        self.playing = True
        for receiver in self.receivers:
            receiver.first = receiver.sequence = receiver.timestamp = None
        answer = self.client.request('PLAY', self.base, 'Range: npt=now-')
        check(answer.one('Range') == 'npt=now-', f'Range {answer.one("Range")}')
        infos = answer.one('RTP-Info', '').split(',')
        check(len(infos) == len(self.tracks), f'RTP-Info {infos}')
        self.promised = []
        for track, info in zip(self.tracks, infos):
            found = re.fullmatch(r'url=([^;]+)(?:;seq=(\d+);rtptime=(\d+))?', info)
            check(found and found[1] == self.base + track.control, f'RTP-Info {info}')
            self.promised.append(found[2] and (int(found[2]), int(found[3])))

    def judge_promises(self):
        for promise, receiver in zip(self.promised, self.receivers):
            check(receiver.first, f'no {receiver.track.kind}')
            check(promise in (None, receiver.first), f'RTP-Info has {promise}')

    def judge(self, seconds):
        for receiver, reports in zip(self.receivers, self.reports):
            kind = receiver.track.kind
            rate = 25 if kind == 'video' else receiver.track.clock / 1024
            print(f'{kind}: {receiver.units} units in {receiver.packets} packets, '
                  f'{reports.count} reports')
            check(rate * (seconds - 1.5) < receiver.units < rate * (seconds + 1.5) + 30,
                  f'{receiver.units} units of {kind} in {seconds} s')
            check(reports.count >= 2, f'{reports.count} reports of {kind}')
        apart = [receiver.jitter_free - reports.origin
                 for receiver, reports in zip(self.receivers, self.reports)]
        check(abs(apart[0] - apart[1]) < TOGETHER,
              f'picture and sound are {apart[0] - apart[1]:.3f} s apart')
        check(len({reports.name for reports in self.reports}) == 1, 'two CNAMEs for one stream')

    def pause(self):
        self.client.request('PAUSE', self.base)
        while self.options.transport == 'udp' and self.take_datagrams(0):
            pass
        self.playing = False
        if self.options.transport == 'tcp':
            self.client.frames_until(time.monotonic() + 0.5)
        else:
            check(not self.take_datagrams(0.5), 'media of a player that does not play')

    def close(self):
        self.client.request('TEARDOWN', self.base)
        end = time.monotonic() + 10
        while not all(reports.ended for reports in self.reports):
            check(time.monotonic() < end, 'no BYE')
            if self.options.transport == 'udp':
                self.take_datagrams(1)
            else:
                self.client.frames()
                if not all(reports.ended for reports in self.reports):
                    self.client.read_more()
        # The session is gone, the connection goes on.
        self.client.send(self.client.text('GET_PARAMETER', self.base))
        check(self.client.answer(self.client.cseq).status == 454, 'the session is there still')
        self.client.close()


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument('transport', choices=['tcp', 'udp'])
    parser.add_argument('url')
    parser.add_argument('--seconds', type=float, default=4)
    parser.add_argument('--most', type=int, default=1400)
    parser.add_argument('--step', default='3600')
    parser.add_argument('--login')
    parser.add_argument('--algorithm', default='SHA-256', choices=['MD5', 'SHA-256'])
    parser.add_argument('--pause', action='store_true')
    options = parser.parse_args()
    options.step = [int(step) % 2**32 for step in options.step.split(',')]
    player = Player(options)
    player.open()
    player.play()
    player.wait(options.seconds)
    player.judge_promises()
    player.judge(options.seconds)
    if options.pause:
        player.pause()
        player.play()
        player.wait(1.5)
        player.judge_promises()
    player.close()


if __name__ == '__main__':
    main()
