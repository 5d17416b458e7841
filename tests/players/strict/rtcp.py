"""Checks the RTCP of one track by RFC 3550, and writes receiver reports."""
import struct
import time

from rtsp import check

SR, RR, SDES, BYE = 200, 201, 202, 203
FROM_1900 = 2208988800


def split(compound):
    """The packets of a compound: (count, type, bytes behind the header)."""
    packets, at = [], 0
    while at < len(compound):
        check(at + 8 <= len(compound), f'{len(compound)} bytes are no compound')
        check(compound[at] & 0xE0 == 0x80, 'not version 2, or padded')
        end = at + 4 + 4 * int.from_bytes(compound[at + 2:at + 4], 'big')
        check(end <= len(compound), 'an RTCP packet is longer than its compound')
        packets.append((compound[at] & 31, compound[at + 1], compound[at + 4:end]))
        at = end
    return packets


class Reports:
    """The sender reports of one track, whose RTP packets `receiver` has."""

    def __init__(self, receiver, ordered):
        self.receiver, self.ordered = receiver, ordered
        self.count, self.ended, self.name = 0, False, None
        self.origin = None  # wall clock of media time 0, as reports have it
        self.last, self.last_arrived = 0, 0.0

    def take(self, compound):
        check(not self.ended, 'RTCP behind BYE')
        packets = split(compound)
        kinds = [kind for _, kind, _ in packets]
        check(kinds in ([SR, SDES], [SR, SDES, BYE]), f'a compound of {kinds}')
        self.take_report(*packets[0])
        self.take_description(*packets[1])
        if len(packets) == 3:
            count, _, body = packets[2]
            check(count == 1 and len(body) == 4, 'BYE of several, or with more in it')
            check(int.from_bytes(body, 'big') == self.receiver.ssrc, 'BYE of another SSRC')
            self.ended = True
        self.count += 1

    def take_report(self, blocks, _, body):
        check(blocks == 0 and len(body) == 24, 'a sender report with more in it')
        ssrc, seconds, fraction, timestamp, packets, octets = struct.unpack('>6I', body)
        check(ssrc == self.receiver.ssrc, 'a report of another SSRC')
        wall = seconds - FROM_1900 + fraction / 2**32
        check(abs(wall - time.time()) < 1, f'NTP is off by {wall - time.time():.3f} s')
        # Over UDP a report may pass packets, or they it.
        got = self.receiver.packets
        check(packets == got if self.ordered else abs(packets - got) < 100,
              f'{packets} packets are reported, {got} came')
        if packets < len(self.receiver.octets):
            check(octets == self.receiver.octets[packets], f'{octets} octets are reported')
        self.take_time(wall, timestamp)
        self.last = (seconds & 0xFFFF) << 16 | fraction >> 16
        self.last_arrived = time.monotonic()

    def take_time(self, wall, timestamp):
        """All reports tell of one clock, which is that of the packets."""
        if self.receiver.sequence is None:
            return
        passed = (timestamp - self.receiver.epoch + 2**31) % 2**32 - 2**31
        origin = wall - passed / self.receiver.track.clock
        if self.origin is not None:
            check(abs(origin - self.origin) < 0.002,
                  f'the media clock jumped by {origin - self.origin:.4f} s')
        self.origin = origin
        since = (timestamp - self.receiver.timestamp + 2**31) % 2**32 - 2**31
        check(abs(since) < self.receiver.track.clock, 'a report about another time than the media')

    def take_description(self, count, _, body):
        check(count == 1 and int.from_bytes(body[:4], 'big') == self.receiver.ssrc,
              'a source description of others')
        check(body[4] == 1 and body[5] > 0, 'the first item is no CNAME')
        name, rest = body[6:6 + body[5]], body[6 + body[5]:]
        check(len(name) == body[5] and 1 <= len(rest) <= 4 and not any(rest),
              'the end of a source description')
        check(self.name in (None, name), 'another CNAME than before')
        self.name = name

    def answer(self, own_ssrc):
        """A receiver report that tells of no loss, with a CNAME."""
        delay = int((time.monotonic() - self.last_arrived) * 65536) if self.last else 0
        block = struct.pack('>IIIIII', self.receiver.ssrc, 0, self.receiver.sequence or 0, 0,
                            self.last, delay)
        return struct.pack('>BBHI', 0x81, RR, 7, own_ssrc) + block + \
            struct.pack('>BBHIBB', 0x81, SDES, 4, own_ssrc, 1, 6) + b'strict\0\0\0\0'


def write_bye(own_ssrc):
    return struct.pack('>BBHI', 0x81, BYE, 1, own_ssrc)
