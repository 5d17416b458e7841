"""Looks up every path in backquotes or code blocks, every link and every anchor of the documents.

usage: doc_paths.py source_folder
"""
import pathlib
import re
import sys

DOCUMENTS = ('*.md', 'docs/*.md', 'apps/*/*.md', 'samples/*.md')
FOLDERS = ('apps|bench|classic|cmake|docs|examples|foundation|fuzz|include|live|packaging|rtp|samples|'
           'scripts|tests')
PATH = re.compile(rf'(?<![\w./~-])(?:\./)?((?:{FOLDERS})/[\w./*-]*)')
WRITTEN_BY_SCRIPTS = {'docs/fanout.svg'}


def anchors(text):
    headings = re.findall(r'^#+ (.*)$', text, re.MULTILINE)
    return {re.sub(r'[^\w\- ]', '', heading.lower()).strip().replace(' ', '-')
            for heading in headings}


def missing_paths(root, text):
    code = re.findall(r'`([^`\n]+)`', text)
    code += re.findall(r'^```\w*\n(.*?)^```', text, re.DOTALL | re.MULTILINE)
    for path in PATH.findall('\n'.join(code)):
        path = path.rstrip('.')
        if path not in WRITTEN_BY_SCRIPTS and not any(root.glob(path.rstrip('/'))):
            yield path


def missing_links(document, text):
    for target, anchor in re.findall(r'\]\(([^)#\s]*)(?:#([^)]*))?\)', text):
        if target.startswith(('http://', 'https://')):
            continue
        file = document if not target else document.parent / target
        if not file.exists():
            yield target
        elif anchor and anchor not in anchors(file.read_text(encoding='utf-8')):
            yield f'{target}#{anchor}'


def main():
    root = pathlib.Path(sys.argv[1])
    documents = sorted(file for pattern in DOCUMENTS for file in root.glob(pattern))
    if len(documents) < 10:
        sys.exit(f'only {len(documents)} documents found')
    wrong = 0
    for document in documents:
        text = document.read_text(encoding='utf-8')
        for name in [*missing_paths(root, text), *missing_links(document, text)]:
            print(f'{document.relative_to(root)}: there is no {name}')
            wrong += 1
    sys.exit(1 if wrong else 0)


main()
