"""An RTSP client that takes nothing but what RFC 2326 has, and answers a Digest challenge.

Whatever is wrong ends the program with one line.
"""
import datetime
import hashlib
import re
import socket
import sys
import time

PATIENCE = 20
PUBLIC = {'OPTIONS', 'DESCRIBE', 'SETUP', 'PLAY', 'PAUSE', 'TEARDOWN', 'GET_PARAMETER'}
SEVERAL = {'www-authenticate'}  # headers that may stand more than once


def check(good, text):
    if not good:
        sys.exit(f'FAILED: {text}')


class Answer:
    """Status line, headers by their names in lower case, body."""

    def __init__(self, head, cseq):
        lines = head.decode('utf-8').split('\r\n')
        check('\n' not in ''.join(lines), f'a line end that is no CRLF in {head!r}')
        status = re.fullmatch(r'RTSP/1\.0 ([1-5]\d\d) ([A-Z][ -~]*)', lines[0])
        check(status, f'the status line {lines[0]!r}')
        self.status = int(status[1])
        self.headers = {}
        self.body = b''
        for line in lines[1:]:
            header = re.fullmatch(r'([A-Za-z][A-Za-z-]*): (\S(?:.*\S)?)', line)
            check(header, f'the header line {line!r}')
            name = header[1].lower()
            check(name not in self.headers or name in SEVERAL, f'two headers {header[1]}')
            self.headers.setdefault(name, []).append(header[2])
        if cseq is not None:
            check(self.one('CSeq') == str(cseq), f'CSeq {self.one("CSeq")}, not {cseq}')
        check(self.one('Server'), 'no Server')
        self.check_date(self.one('Date'))

    def one(self, name, default=None):
        return self.headers.get(name.lower(), [default])[0]

    def length(self):
        text = self.one('Content-Length', '0')
        check(text.isdigit(), f'Content-Length {text}')
        return int(text)

    @staticmethod
    def check_date(text):
        """RFC 1123, as HTTP has it: always GMT."""
        check(text, 'no Date')
        try:
            date = datetime.datetime.strptime(text, '%a, %d %b %Y %H:%M:%S GMT')
        except ValueError:
            check(False, f'Date {text}')
        check(date.strftime('%a, %d %b %Y %H:%M:%S GMT') == text, f'Date {text}')
        off = abs(date.replace(tzinfo=datetime.timezone.utc).timestamp() - time.time())
        check(off < 5, f'Date is off by {off} s')


class Login:
    """Answers to challenges (RFC 7616), by one of the two algorithms."""

    def __init__(self, user, password, algorithm):
        self.user, self.password, self.algorithm = user, password, algorithm
        self.nonce, self.count = None, 0

    def take(self, challenges):
        check(len(challenges) == 2, f'{len(challenges)} challenges')
        found = []
        for text in challenges:
            match = re.fullmatch(r'Digest realm="([^"]+)", nonce="([^"]+)", (stale=true, )?'
                                 r'algorithm=(SHA-256|MD5), qop="auth"', text)
            check(match, f'the challenge {text}')
            found.append(match)
        check([match[4] for match in found] == ['SHA-256', 'MD5'], 'the order of the challenges')
        check(found[0][2] == found[1][2], 'two nonces')
        check(found[0][2] != self.nonce, 'the nonce of the challenge before')
        self.realm, self.nonce, self.count = found[0][1], found[0][2], 0

    def hash(self, text):
        make = hashlib.md5 if self.algorithm == 'MD5' else hashlib.sha256
        return make(text.encode()).hexdigest()

    def header(self, method, url):
        self.count += 1
        count, own = f'{self.count:08x}', hashlib.md5(str(time.time()).encode()).hexdigest()[:16]
        secret = self.hash(f'{self.user}:{self.realm}:{self.password}')
        what = self.hash(f'{method}:{url}')
        response = self.hash(f'{secret}:{self.nonce}:{count}:{own}:auth:{what}')
        return (f'Digest username="{self.user}", realm="{self.realm}", nonce="{self.nonce}", '
                f'uri="{url}", algorithm={self.algorithm}, response="{response}", qop=auth, '
                f'nc={count}, cnonce="{own}"')


class Client:
    """One connection. on_frame(channel, bytes) gets the interleaved frames."""

    def __init__(self, host, port, login=None, on_frame=None):
        self.socket = socket.create_connection((host, port), timeout=PATIENCE)
        self.socket.setsockopt(socket.IPPROTO_TCP, socket.TCP_NODELAY, 1)
        self.login, self.on_frame = login, on_frame
        self.kept, self.cseq, self.session = b'', 0, None

    def close(self):
        self.socket.close()

    def text(self, method, url, *headers, body=b''):
        """The bytes of the next request; the login's header is in it once there was a challenge."""
        self.cseq += 1
        lines = [f'{method} {url} RTSP/1.0', f'CSeq: {self.cseq}', *headers]
        if self.session:
            lines.append(f'Session: {self.session}')
        if self.login and self.login.nonce:
            lines.append(f'Authorization: {self.login.header(method, url)}')
        if body:
            lines.append(f'Content-Length: {len(body)}')
        return '\r\n'.join([*lines, '', '']).encode() + body

    def send(self, data):
        self.socket.sendall(data)

    def read_more(self):
        try:
            more = self.socket.recv(65536)
        except socket.timeout:
            check(False, f'no answer within {PATIENCE} s; so far {self.kept!r}')
        check(more, f'the connection was ended; so far {self.kept[:200]!r}')
        self.kept += more

    def frames(self):
        """Hands out the whole frames at the front."""
        while self.kept[:1] == b'$' and len(self.kept) >= 4:
            end = 4 + int.from_bytes(self.kept[2:4], 'big')
            if len(self.kept) < end:
                return
            check(self.on_frame, 'a frame that nobody asked for')
            frame, self.kept = self.kept[:end], self.kept[end:]
            self.on_frame(frame[1], frame[4:])

    def frames_until(self, end):
        """Takes frames until that time; nothing else may come."""
        while True:
            self.frames()
            check(self.kept[:1] in (b'', b'$'), f'neither frame nor answer: {self.kept[:50]!r}')
            left = end - time.monotonic()
            if left <= 0:
                return
            self.socket.settimeout(left)
            try:
                self.kept += self.socket.recv(65536)
            except socket.timeout:
                pass
            finally:
                self.socket.settimeout(PATIENCE)

    def answer(self, cseq=None):
        """The next answer, frames in front of it being handed out."""
        while True:
            self.frames()
            end = self.kept.find(b'\r\n\r\n')
            if self.kept[:1] != b'$' and end >= 0:
                break
            self.read_more()
        answer = Answer(self.kept[:end], cseq)
        self.kept = self.kept[end + 4:]
        while len(self.kept) < answer.length():
            self.read_more()
        answer.body, self.kept = self.kept[:answer.length()], self.kept[answer.length():]
        self.check_session(answer)
        return answer

    def check_session(self, answer):
        text = answer.one('Session')
        if text is None:
            return
        found = re.fullmatch(r'([0-9A-Za-z$_.+-]{8,});timeout=([1-9]\d*)', text)
        check(found, f'Session {text}')
        check(self.session in (None, found[1]), f'session {found[1]}, not {self.session}')
        self.session, self.timeout = found[1], int(found[2])

    def request(self, method, url, *headers, body=b'', status=200):
        """Sends a request, once more after a challenge, and has its answer."""
        self.send(self.text(method, url, *headers, body=body))
        answer = self.answer(self.cseq)
        if answer.status == 401 and self.login:
            self.login.take(answer.headers['www-authenticate'])
            self.send(self.text(method, url, *headers, body=body))
            answer = self.answer(self.cseq)
        check(answer.status == status, f'{method} {url}: {answer.status}, not {status}')
        # RFC 2326's own answer to TEARDOWN, in section 10.7, has no session any more.
        check(not self.session or status != 200 or method == 'TEARDOWN' or answer.one('Session'),
              f'no Session in the answer to {method}')
        return answer
