"""Compiles the C code in a document, as the body of a function unless it is one itself.

usage: doc_snippets.py document include_folder
"""
import re
import subprocess
import sys

PROLOGUE = '''#define _POSIX_C_SOURCE 200809L
#include <fcntl.h>
#include <string.h>
#include <unistd.h>
#include "kova_rtsp_server.h"
extern KovaRtspServer *server;
extern KovaRtspStreamer *stream;
extern const uint8_t *unit;
extern uint32_t unit_length, milliseconds;
extern KovaAudioDescription audio;
extern KovaVideoDescription video;
void encoder_request_key_frame(void);
'''
FRAME = 'int piece(void);\nint piece(void)\n'


def main():
    with open(sys.argv[1], encoding='utf-8') as file:
        snippets = re.findall(r'^ *```c\n(.*?)^ *```', file.read(), re.DOTALL | re.MULTILINE)
    if len(snippets) < 5:
        sys.exit(f'only {len(snippets)} pieces of code found')
    for number, snippet in enumerate(snippets, 1):
        is_function = re.search(r'^static ', snippet, re.MULTILINE)
        body = snippet if is_function else f'{FRAME}{{\n{snippet}\nreturn 0;\n}}\n'
        compiled = subprocess.run(
            ['gcc', '-std=c99', '-Wall', '-Wextra', '-pedantic', '-Werror', '-Wno-unused-function',
             '-fsyntax-only', '-I', sys.argv[2], '-x', 'c', '-'],
            input=PROLOGUE + body, text=True, stderr=subprocess.PIPE, timeout=60, check=False)
        if compiled.returncode != 0:
            sys.exit(f'piece {number} does not compile:\n{compiled.stderr}{snippet}')
    print(f'{len(snippets)} pieces compile')


main()
