"""Opens the relay's page in a browser and sees to it that the sample clip plays.

usage: watch.py URL seconds file

After the seconds it prints a line and waits for the file to appear: it holds the time, in
milliseconds, at which a stream that had gone was back. The page must play what came after that.
"""
import os
import signal
import sys
import time

from browser import Browser

START_SECONDS = 45
SIZE = [640, 360]
PICTURES_PER_SECOND = 25
OUTAGE_SECONDS = 40
# What a page may report of an outage; hls.js goes on by itself.
OF_OUTAGE = ['hls: bufferStalledError']

# False while the page is still loading.
STATE = '''window.trouble !== undefined && ({
    time: video.currentTime,
    size: [video.videoWidth, video.videoHeight],
    pictures: video.getVideoPlaybackQuality().totalVideoFrames,
    sound: video.webkitAudioDecodedByteCount,
    trouble: window.trouble,
    hls: Boolean(window.hls),
    date: window.hls && hls.playingDate ? hls.playingDate.getTime() : 0,
})'''


def wait_for(browser, seconds, what, condition, allowed=()):
    end = time.monotonic() + seconds
    while True:
        state = browser.evaluate(STATE)
        if state and not set(state['trouble']) <= set(allowed):
            sys.exit(f'the page reports {state["trouble"]}')
        if state and condition(state):
            return state
        if time.monotonic() > end:
            sys.exit(f'{what}: not within {seconds} s; {state}')
        time.sleep(0.2)


def written(path):
    """The number in a file, or infinity while there is none."""
    if not os.path.exists(path):
        return float('inf')
    with open(path, encoding='ascii') as file:
        return float(file.read() or 'inf')


def main():
    url, seconds, back = sys.argv[1], float(sys.argv[2]), sys.argv[3]
    signal.signal(signal.SIGTERM, lambda number, frame: sys.exit('interrupted'))
    browser = Browser(url)
    try:
        begin = wait_for(browser, START_SECONDS, 'a picture',
                         lambda state: state['time'] > 0 and state['size'] == SIZE)
        if not begin['hls']:
            sys.exit('the page plays without hls.js')
        state = wait_for(browser, 4 * seconds + 20, f'{seconds} s of playing',
                         lambda state: state['time'] >= begin['time'] + seconds)
        pictures = state['pictures'] - begin['pictures']
        print(f'{state["time"] - begin["time"]:.1f} s played: {pictures} pictures, '
              f'{state["sound"] - begin["sound"]} bytes of sound', flush=True)
        # Pictures may be dropped on a busy machine, but not most of them.
        if pictures < seconds * PICTURES_PER_SECOND / 5:
            sys.exit('too few pictures')
        if state['sound'] <= begin['sound']:
            sys.exit('no sound')

        before = state
        state = wait_for(browser, OUTAGE_SECONDS, 'pictures from behind the outage',
                         lambda state: state['date'] > written(back), OF_OUTAGE)
        state = wait_for(browser, 20, 'playing on',
                         lambda now: now['time'] >= state['time'] + 1, OF_OUTAGE)
        print(f'went on behind the outage, after {state["time"] - before["time"]:.1f} s of playing')
    finally:
        browser.close()


main()
