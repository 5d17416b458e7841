"""Compiles the C code in documents: a whole program as it stands, a function as one, and everything
else as the body of a function.

usage: doc_snippets.py include_folder (document door pieces)...

door: classic or live, whose handles the pieces may use; pieces: how many there are at least.
"""
import re
import subprocess
import sys

SYSTEM = '''#define _POSIX_C_SOURCE 200809L
#include <fcntl.h>
#include <stdio.h>
#include <string.h>
#include <unistd.h>
void encoder_request_key_frame(void);
'''
PROLOGUES = {
    'classic': SYSTEM + '''
#include "kova_rtsp_server.h"
extern KovaRtspServer *server;
extern KovaRtspStreamer *stream;
extern const uint8_t *unit;
extern uint32_t unit_length, milliseconds;
extern KovaAudioDescription audio;
extern KovaVideoDescription video;
''',
    'live': SYSTEM + '''
#include "kova_live.h"
extern KovaLive *live;
extern const uint8_t *annexb, *adts;
extern size_t annexb_size, adts_size;
extern int64_t picture_us, sound_us;
''',
}
FRAME = 'int piece(void);\nint piece(void)\n'


def source(snippet, door):
    if re.search(r'^int \w+\(', snippet, re.MULTILINE):
        return snippet
    if re.search(r'^static ', snippet, re.MULTILINE):
        return PROLOGUES[door] + snippet
    return f'{PROLOGUES[door]}{FRAME}{{\n{snippet}\nreturn 0;\n}}\n'


def check(include, document, door, pieces):
    with open(document, encoding='utf-8') as file:
        snippets = re.findall(r'^ *```c\n(.*?)^ *```', file.read(), re.DOTALL | re.MULTILINE)
    if len(snippets) < int(pieces):
        sys.exit(f'{document}: only {len(snippets)} pieces of code found')
    for number, snippet in enumerate(snippets, 1):
        compiled = subprocess.run(
            ['gcc', '-std=c99', '-Wall', '-Wextra', '-pedantic', '-Werror', '-Wno-unused-function',
             '-fsyntax-only', '-I', include, '-x', 'c', '-'],
            input=source(snippet, door), text=True, stderr=subprocess.PIPE, timeout=60, check=False)
        if compiled.returncode != 0:
            sys.exit(f'{document}: piece {number} does not compile:\n{compiled.stderr}{snippet}')
    print(f'{document}: {len(snippets)} pieces compile')


def main():
    include, *documents = sys.argv[1:]
    for first in range(0, len(documents), 3):
        check(include, *documents[first:first + 3])


main()
