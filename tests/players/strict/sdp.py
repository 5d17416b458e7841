"""Checks a description by RFC 4566, its H.264 by RFC 6184 and its AAC by RFC 3640."""
import base64
import re

from rtsp import check

# The order of RFC 4566, section 5.
SESSION = r'v=0\r\no=[^\r]+\r\ns=[^\r]+\r\nc=[^\r]+\r\nt=0 0\r\n(a=[^\r]+\r\n)*'
MEDIUM = r'm=[^\r]+\r\n(a=[^\r]+\r\n)+'
RATES = [96000, 88200, 64000, 48000, 44100, 32000, 24000, 22050, 16000, 12000, 11025, 8000, 7350]


class Track:
    """What the description tells of one track."""

    def __init__(self, text):
        lines = text.split('\r\n')[:-1]
        medium = re.fullmatch(r'm=(video|audio) 0 RTP/AVP (9[6-9]|1[01]\d|12[0-7])', lines[0])
        check(medium, lines[0])
        self.kind, self.payload_type = medium[1], int(medium[2])
        attributes = [line[2:].split(':', 1) for line in lines[1:]]
        names = [name for name, _ in attributes]
        check(sorted(names) == ['control', 'fmtp', 'rtpmap'], f'attributes {names}')
        values = dict(attributes)
        self.control = values['control']
        check(re.fullmatch('[A-Za-z0-9]+', self.control), f'control {self.control}')
        number, encoding = values['rtpmap'].split(' ')
        check(int(number) == self.payload_type, 'rtpmap of another payload type')
        number, parameters = values['fmtp'].split(' ', 1)
        check(int(number) == self.payload_type, 'fmtp of another payload type')
        self.parameters = dict(one.strip().split('=', 1) for one in parameters.split(';'))
        if self.kind == 'video':
            self.take_h264(encoding)
        else:
            self.take_aac(encoding)

    def take_h264(self, encoding):
        check(encoding == 'H264/90000', encoding)
        self.clock = 90000
        check(set(self.parameters) ==
              {'packetization-mode', 'profile-level-id', 'sprop-parameter-sets'},
              f'{self.parameters}')
        check(self.parameters['packetization-mode'] == '1', 'the packetization mode')
        self.sets = [base64.b64decode(one, validate=True)
                     for one in self.parameters['sprop-parameter-sets'].split(',')]
        check([one[0] & 31 for one in self.sets] == [7, 8], 'not one SPS and one PPS')
        check(self.parameters['profile-level-id'].lower() == self.sets[0][1:4].hex(),
              'profile-level-id is not that of the SPS')

    def take_aac(self, encoding):
        found = re.fullmatch(r'mpeg4-generic/(\d+)/(\d+)', encoding)
        check(found, encoding)
        self.clock, channels = int(found[1]), int(found[2])
        fixed = {'streamtype': '5', 'mode': 'AAC-hbr', 'sizelength': '13', 'indexlength': '3',
                 'indexdeltalength': '3'}
        for name, value in fixed.items():
            check(self.parameters.get(name) == value, f'{name}={self.parameters.get(name)}')
        check(set(self.parameters) == set(fixed) | {'config', 'profile-level-id'},
              f'{self.parameters}')
        check(re.fullmatch('([0-9A-F]{2}){2,}', self.parameters['config']), 'the configuration')
        config = int(self.parameters['config'][:4], 16)
        check(config >> 11 == 2, 'not AAC-LC')
        check(RATES[config >> 7 & 15] == self.clock, 'another rate than the configuration')
        check(config >> 3 & 15 == channels, 'other channels than the configuration')


def parse(body, address):
    """The tracks of a description that the server at `address` made."""
    text = body.decode('utf-8')
    check(re.fullmatch(f'{SESSION}({MEDIUM})+', text), f'the description:\n{text}')
    session, *media = re.split('(?=^m=)', text, flags=re.M)
    origin = re.search(r'^o=- (\d+) (\d+) IN IP4 (\S+)\r$', session, re.M)
    check(origin and origin[3] == address, f'the origin in {session}')
    for line in ('c=IN IP4 0.0.0.0', 'a=control:*', 'a=range:npt=now-'):
        check(line in session.split('\r\n'), f'no {line}')
    tracks = [Track(text) for text in media]
    check(len({track.control for track in tracks}) == len(tracks), 'one control for two tracks')
    check(len({track.payload_type for track in tracks}) == len(tracks), 'one payload type for two')
    return tracks
