"""Headless Chromium, driven over its DevTools pipe; nothing but Python is needed for that.

A message is JSON with a zero byte behind it, to Chromium's descriptor 3 and from its descriptor 4.
"""
import json
import os
import select
import shutil
import signal
import subprocess
import tempfile
import time

OPTIONS = [
    '--headless', '--no-sandbox', '--disable-gpu', '--disable-quic', '--no-first-run',
    '--disable-background-networking', '--disable-component-update', '--disable-sync',
    '--autoplay-policy=no-user-gesture-required', '--disable-dev-shm-usage',
]
ANSWER_SECONDS = 30


class BrowserError(Exception):
    pass


class Browser:
    """One page of a browser of its own, with an empty profile."""

    def __init__(self, url):
        self._profile = tempfile.mkdtemp()
        self._pending = b''
        self._number = 0
        to_browser, self._out = os.pipe()
        self._in, from_browser = os.pipe()
        # bash, because dash takes no descriptor above 9 here.
        program = ['bash', '-c', f'exec 3<&{to_browser} 4>&{from_browser}; exec "$@"', 'bash',
                   'chromium', *OPTIONS, '--remote-debugging-pipe',
                   f'--user-data-dir={self._profile}', 'about:blank']
        with open(os.path.join(self._profile, 'log'), 'wb') as log:
            self._process = subprocess.Popen(
                program, stdin=subprocess.DEVNULL, stdout=log, stderr=log,
                pass_fds=(to_browser, from_browser), start_new_session=True)
        os.close(to_browser)
        os.close(from_browser)
        try:
            target = self._call('Target.createTarget', {'url': url})['targetId']
            self._session = self._call('Target.attachToTarget',
                                       {'targetId': target, 'flatten': True})['sessionId']
        except BaseException:
            self.close()
            raise

    def evaluate(self, expression):
        """The value of a JavaScript expression in the page; promises are waited for."""
        answer = self._call('Runtime.evaluate', {
            'expression': expression, 'returnByValue': True, 'awaitPromise': True},
            self._session)
        if 'exceptionDetails' in answer:
            raise BrowserError(json.dumps(answer['exceptionDetails']))
        return answer['result'].get('value')

    def _call(self, method, parameters, session=None):
        self._number += 1
        message = {'id': self._number, 'method': method, 'params': parameters}
        if session:
            message['sessionId'] = session
        os.write(self._out, json.dumps(message).encode() + b'\0')
        deadline = time.monotonic() + ANSWER_SECONDS
        while True:
            answer = json.loads(self._next_message(deadline))
            if answer.get('id') == self._number:
                if 'error' in answer:
                    raise BrowserError(f'{method}: {answer["error"]}')
                return answer['result']

    def _next_message(self, deadline):
        while b'\0' not in self._pending:
            left = max(0, deadline - time.monotonic())
            if not select.select([self._in], [], [], left)[0]:
                raise BrowserError(f'no answer from chromium; {self._log()}')
            got = os.read(self._in, 65536)
            if not got:
                raise BrowserError(f'chromium has ended; {self._log()}')
            self._pending += got
        message, self._pending = self._pending.split(b'\0', 1)
        return message

    def _log(self):
        with open(os.path.join(self._profile, 'log'), encoding='utf-8', errors='replace') as log:
            return log.read()[-2000:]

    def close(self):
        """Ends the browser's processes, which are a group of their own."""
        os.close(self._out)  # it ends when its pipe does
        try:
            self._process.wait(10)
        except subprocess.TimeoutExpired:
            pass
        try:
            os.killpg(self._process.pid, signal.SIGKILL)
        except ProcessLookupError:
            pass
        self._process.wait()
        os.close(self._in)
        shutil.rmtree(self._profile, ignore_errors=True)
