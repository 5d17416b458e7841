"""Checks one track's RTP packets: headers by RFC 3550, H.264 by RFC 6184, AAC by RFC 3640."""
from rtsp import check

HEADER = 12
IDR, SPS, PPS, STAP_A, FU_A = 5, 7, 8, 24, 28


class Receiver:
    """One track: every packet goes to take(), in the order of arrival."""

    def __init__(self, track, ssrc, most, step):
        self.track, self.ssrc, self.most, self.step = track, ssrc, most, step
        self.packets = 0
        self.octets = [0]  # payload bytes of the first so many packets
        self.sequence = self.timestamp = None
        self.first = None  # sequence number and timestamp of the first packet since PLAY
        self.epoch = None  # the timestamp from which media time is counted
        self.ended = True  # the last packet ended a unit
        self.units = 0
        self.nals = []  # types of the NAL units of the unit at hand
        self.fragment = None
        self.jitter_free = None  # earliest arrival of a unit, less its media time

    def take(self, packet, arrived):
        check(len(packet) <= self.most, f'a packet of {len(packet)} bytes')
        check(len(packet) > HEADER, 'an empty packet')
        check(packet[0] == 0x80, f'first byte {packet[0]:#x}: not version 2 and nothing else')
        check(packet[1] & 0x7F == self.track.payload_type, f'payload type {packet[1] & 0x7F}')
        check(int.from_bytes(packet[8:12], 'big') == self.ssrc, 'another SSRC')
        marker, sequence = packet[1] >> 7, int.from_bytes(packet[2:4], 'big')
        timestamp = int.from_bytes(packet[4:8], 'big')
        if self.first is None:
            self.first = sequence, timestamp
            self.epoch = timestamp if self.epoch is None else self.epoch
        else:
            check(sequence == (self.sequence + 1) % 65536,
                  f'sequence number {sequence} behind {self.sequence}')
        self.check_time(timestamp)
        if self.ended:
            self.note_arrival(timestamp, arrived)
        self.sequence, self.timestamp = sequence, timestamp
        self.packets += 1
        self.octets.append(self.octets[-1] + len(packet) - HEADER)
        self.ended = bool(marker)
        if self.track.kind == 'video':
            self.take_h264(packet[HEADER:])
        else:
            self.take_aac(packet[HEADER:])

    def check_time(self, timestamp):
        """All packets of a unit have its time; the next unit is one step behind it."""
        if self.timestamp is None:
            return
        passed = (timestamp - self.timestamp) % 2**32
        if self.ended:
            check(passed in self.step, f'{self.track.kind}: a step of {passed}')
        else:
            check(passed == 0, f'{self.track.kind}: the time changed without a marker')

    def note_arrival(self, timestamp, arrived):
        media = (timestamp - self.epoch) % 2**32
        media = (media - 2**32 if media >= 2**31 else media) / self.track.clock
        if self.jitter_free is None or arrived - media < self.jitter_free:
            self.jitter_free = arrived - media

    def take_h264(self, payload):
        kind = payload[0] & 31
        check(payload[0] < 0x80, 'the forbidden bit')
        check((self.fragment is not None) <= (kind == FU_A), 'a NAL unit that was not finished')
        if kind == FU_A:
            self.take_fragment(payload)
        elif kind == STAP_A:
            self.take_aggregate(payload)
        else:
            check(1 <= kind <= 23, f'a packet of type {kind}')
            self.take_nal(payload)
        if self.ended:
            self.end_picture()

    def take_fragment(self, payload):
        start, end = payload[1] >> 7, payload[1] >> 6 & 1
        check(payload[1] & 0x20 == 0, 'the reserved bit of a fragment')
        check(not (start and end), 'a fragment that is a whole')
        check(len(payload) > 2, 'an empty fragment')
        if start:
            check(self.fragment is None, 'a fragment begins inside another one')
            self.fragment = [bytes([payload[0] & 0xE0 | payload[1] & 31])]
        check(self.fragment is not None, 'a fragment without a beginning')
        check(self.fragment[0][0] == payload[0] & 0xE0 | payload[1] & 31,
              'a fragment of another NAL unit')
        self.fragment.append(payload[2:])
        if end:
            nal = b''.join(self.fragment)
            self.fragment = None
            check(len(nal) + HEADER > self.most, f'{len(nal)} bytes in fragments would have fit')
            self.take_nal(nal)

    def take_aggregate(self, payload):
        at, count, most = 1, 0, 0
        while at < len(payload):
            size = int.from_bytes(payload[at:at + 2], 'big')
            check(size > 0 and at + 2 + size <= len(payload), 'a size in an aggregate')
            nal = payload[at + 2:at + 2 + size]
            check(1 <= nal[0] & 31 <= 23, 'a packet inside a packet')
            most = max(most, nal[0] & 0x60)
            self.take_nal(nal)
            at += 2 + size
            count += 1
        check(count > 1, 'an aggregate of one')
        check(payload[0] & 0x60 == most, 'the importance of an aggregate')

    def take_nal(self, nal):
        kind = nal[0] & 31
        check(nal[0] < 0x80, 'the forbidden bit')
        check(not nal.endswith(b'\0'), f'a NAL unit of type {kind} ends in zero bytes')
        if kind in (SPS, PPS):
            check(nal in self.track.sets, 'another parameter set than described')
        self.nals.append(kind)

    def end_picture(self):
        check(self.fragment is None, 'the marker stands inside a NAL unit')
        kinds, self.nals = self.nals, []
        if self.units == 0:
            check(IDR in kinds, f'the first picture is no key frame: {kinds}')
        if IDR in kinds:
            before = kinds[:kinds.index(IDR)]
            check(SPS in before and PPS in before, f'a key frame without its parameters: {kinds}')
        self.units += 1

    def take_aac(self, payload):
        bits = int.from_bytes(payload[:2], 'big')
        check(bits % 16 == 0 and bits > 0, f'{bits} bits of headers')
        begin = 2 + bits // 8
        headers = [int.from_bytes(payload[at:at + 2], 'big') for at in range(2, begin, 2)]
        check(all(header & 7 == 0 for header in headers), 'an index in an AU header')
        sizes, left = [header >> 3 for header in headers], len(payload) - begin
        if len(sizes) == 1 and (sizes[0] > left or self.fragment is not None):
            self.take_aac_fragment(sizes[0], left)
            return
        check(sum(sizes) == left, f'{left} bytes for frames of {sizes}')
        check(self.ended, 'whole frames without a marker')
        self.units += len(sizes)

    def take_aac_fragment(self, size, left):
        """Every fragment tells the whole frame's size; the marker stands on the last one."""
        whole, so_far = self.fragment or (size, 0)
        check(size == whole, 'a fragment of another frame')
        so_far += left
        check(so_far <= whole and self.ended == (so_far == whole), 'the end of a fragmented frame')
        check(2 + 2 + whole + HEADER > self.most, f'{whole} bytes in fragments would have fit')
        self.fragment = None if self.ended else (whole, so_far)
        self.units += self.ended
