"""What strict players send in ways that a server must bear.

usage: transcripts.py splits|pipeline|keep-alive|silent rtsp://host:port/path [seconds [every]]

splits      a whole session byte by byte; each of its requests in two segments, at every split; a
            receiver report and GET_PARAMETER in one piece, and in two, at every split
pipeline    three requests in one segment, before and in a session
keep-alive  a UDP player that says nothing but OPTIONS, every so many seconds (0.8), plays for so long
            (5), which is longer than a session may be silent; then it says nothing, and gets BYE
silent      a TCP player says nothing for so long (5) and plays on: its connection stands
"""
import sys
import time
import types
import urllib.parse

from rtsp import Client, check
from strict_reader import Player

APART = 0.001  # seconds between two segments, so that each is read by itself


def options_for(transport, url):
    return types.SimpleNamespace(transport=transport, url=url, login=None, most=1400, step=[3600])


def send_apart(client, pieces):
    for piece in pieces:
        client.send(piece)
        time.sleep(APART)


def bytes_of(data):
    return [data[at:at + 1] for at in range(len(data))]


def answers(client, first, statuses):
    for cseq, status in enumerate(statuses, first):
        answer = client.answer(cseq)
        check(answer.status == status, f'CSeq {cseq}: {answer.status}, not {status}')


def byte_by_byte(url):
    """A session of which every request comes one byte at a time."""
    client = Client(*address_of(url), on_frame=lambda channel, data: None)
    requests = [('OPTIONS', url), ('DESCRIBE', url),
                ('SETUP', f'{url}/track1', 'Transport: RTP/AVP/TCP;unicast;interleaved=0-1'),
                ('SETUP', f'{url}/track2', 'Transport: RTP/AVP/TCP;unicast;interleaved=2-3'),
                ('PLAY', f'{url}/', 'Range: npt=0.000-'), ('TEARDOWN', f'{url}/')]
    for request in requests:
        send_apart(client, bytes_of(client.text(*request)))
        check(client.answer(client.cseq).status == 200, f'{request[0]} byte by byte')
    client.close()


def every_split(url):
    """Each request in two segments."""
    count = 0
    client = Client(*address_of(url))
    for request in [('OPTIONS', url), ('DESCRIBE', url, 'Accept: application/sdp'),
                    ('GET_PARAMETER', url, 'User-Agent: splitter')]:
        for at in range(1, len(client.text(*request)) - 1):
            text = client.text(*request)
            send_apart(client, [text[:at], text[at:]])
            check(client.answer(client.cseq).status == 200, f'{request[0]}, split at {at}')
            count += 1
    client.close()
    # A SETUP makes a session each time, which its connection's end takes along.
    text = b'SETUP'
    at = 1
    while at < len(text):
        client = Client(*address_of(url))
        text = client.text('SETUP', f'{url}/track1',
                           'Transport: RTP/AVP/TCP;unicast;interleaved=0-1')
        send_apart(client, [text[:at], text[at:]])
        check(client.answer(client.cseq).status == 200, f'SETUP, split at {at}')
        client.close()
        at += 1
        count += 1
    print(f'{count} requests in two segments')


def report_and_request(url):
    """An interleaved report in front of a request, in one piece and at every split."""
    player = Player(options_for('tcp', url))
    player.open()
    player.play()
    player.wait(1.2)
    report = player.reports[0].answer(player.own)
    frame = b'$\x01' + len(report).to_bytes(2, 'big') + report
    client = player.client
    at, data = 0, frame
    while at < len(data):
        data = frame + client.text('GET_PARAMETER', player.base)
        send_apart(client, [piece for piece in (data[:at], data[at:]) if piece])
        check(client.answer(client.cseq).status == 200, f'report and request, split at {at}')
        at += 1
    player.close()
    print(f'{at} reports with a request')


def splits(url):
    byte_by_byte(url)
    every_split(url)
    report_and_request(url)


def pipeline(url):
    client = Client(*address_of(url))
    client.send(client.text('OPTIONS', url) + client.text('DESCRIBE', url) +
                client.text('GET_PARAMETER', url))
    answers(client, 1, [200] * 3)
    # A refusal in the middle harms nobody.
    client.send(client.text('DESCRIBE', url + '/nowhere/else') + client.text('OPTIONS', '*') +
                client.text('FETCH', url))
    answers(client, 4, [404, 200, 501])
    client.close()

    player = Player(options_for('tcp', url))
    player.open()
    player.playing = True
    client = player.client
    first = client.cseq + 1
    client.send(client.text('PLAY', player.base) + client.text('GET_PARAMETER', player.base) +
                client.text('OPTIONS', player.base))
    answers(client, first, [200] * 3)
    player.wait(1.2)
    first = client.cseq + 1
    client.send(client.text('PAUSE', player.base) + client.text('PLAY', player.base) +
                client.text('TEARDOWN', player.base))
    answers(client, first, [200] * 3)
    client.close()


def keep_alive(url, seconds=5.0, every=0.8):
    player = Player(options_for('udp', url))
    player.report = lambda: None
    player.open()
    check(player.client.timeout <= seconds or seconds >= 60, 'the session lasts longer anyway')
    player.play()
    end = time.monotonic() + seconds
    while time.monotonic() < end:
        player.wait(min(every, max(end - time.monotonic(), 0)))
        player.client.request('OPTIONS', url)
        check(all(not reports.ended for reports in player.reports), 'the session was ended')
    player.judge(seconds)
    asked = time.monotonic()
    while not all(reports.ended for reports in player.reports):
        check(time.monotonic() < asked + player.client.timeout + 10, 'no BYE after the silence')
        player.take_datagrams(1)
    check(time.monotonic() - asked > player.client.timeout - 0.2, 'BYE before the time was over')
    print(f'silent for {time.monotonic() - asked:.1f} s')
    player.client.send(player.client.text('GET_PARAMETER', player.base))
    check(player.client.answer(player.client.cseq).status == 454, 'the session is there still')
    player.client.close()


def silent(url, seconds=5.0):
    player = Player(options_for('tcp', url))
    player.report = lambda: None
    player.open()
    check(player.client.timeout < seconds, 'the session lasts longer anyway')
    player.play()
    player.wait(seconds)
    player.judge(seconds)
    player.close()


def address_of(url):
    address = urllib.parse.urlsplit(url)
    return address.hostname, address.port


def main():
    runs = {'splits': splits, 'pipeline': pipeline, 'keep-alive': keep_alive,
            'silent': silent}
    runs[sys.argv[1]](sys.argv[2], *map(float, sys.argv[3:]))


main()
