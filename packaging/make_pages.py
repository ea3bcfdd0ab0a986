#!/usr/bin/env python3
"""Makes an HTML page beside each Markdown page of a folder, for readers without a viewer for Markdown.

    packaging/make_pages.py FOLDER

FOLDER is laid out like the release archive: docs/README.md becomes the contents page docs/index.html. The pages need
no network: links between pages lead to the HTML, other links to files of the folder. A link to a missing file or
heading is an error, and then no page is written. cmark-gfm converts the text. Headings get the anchors that code
hosting sites give them.
"""

import argparse
import html
import os
import re
import shutil
import subprocess
import sys
from pathlib import Path
from urllib.parse import unquote

STYLE = Path(__file__).with_name('pages.css')
CONTENTS = Path('docs', 'README.md')
PRODUCT = 'BrenikDB'
PAGE = '''<!DOCTYPE html>
<html lang="en-GB">
<head>
<meta charset="utf-8">
<meta name="viewport" content="width=device-width, initial-scale=1">
<title>{title}</title>
<link rel="stylesheet" href="{style}">
</head>
<body>
<nav><a href="{contents}">{product}: contents</a></nav>
<main>
{body}</main>
</body>
</html>
'''


def text_of(markup):
    return html.unescape(re.sub('<[^>]+>', '', markup))


def anchored(body):
    """The page with an id on each heading: its words in lower case, joined by hyphens, and numbered when repeated."""
    seen = {}

    def add_id(heading):
        name = re.sub(r'[^\w\- ]', '', text_of(heading[2]).lower()).replace(' ', '-')
        seen[name] = seen.get(name, -1) + 1
        suffix = f'-{seen[name]}' if seen[name] else ''
        return f'<{heading[1]} id="{name}{suffix}">{heading[2]}</{heading[1]}>'

    return re.sub(r'<(h[1-6])>(.*?)</\1>', add_id, body, flags=re.S)


def converted(source):
    command = ['cmark-gfm', '--extension', 'table', '--extension', 'strikethrough']
    # Read as text, so that CRLF line ends do not reach the blocks of code.
    return anchored(subprocess.run(command, input=source.read_text(encoding='utf-8'), encoding='utf-8',
                                   stdout=subprocess.PIPE, check=True).stdout)


def html_name(page):
    return page.with_name('index.html') if page.parts[-2:] == CONTENTS.parts else page.with_suffix('.html')


class Site:
    """All pages of a folder, because a link needs the title and the anchors of the page that it leads to."""

    def __init__(self, folder):
        self.folder = folder
        self.bodies = {page: converted(page) for page in sorted(folder.rglob('*.md'))}
        self.faults = []

    def title(self, page):
        heading = re.search('<h1[^>]*>(.*?)</h1>', self.bodies[page], re.S)
        return heading[1] if heading else page.stem

    def link(self, page, match):
        """A link as it reads in HTML. A link whose text is the file name of a page gets the page's title instead."""
        attribute, address, rest = match.groups()
        if re.match('[a-z]+:', address):
            return match[0]
        path, _, anchor = html.unescape(address).partition('#')
        target = Path(os.path.normpath(page.parent / unquote(path))) if path else page
        if not target.is_file() or not target.is_relative_to(self.folder):
            self.faults.append(f'{page.relative_to(self.folder)}: {address}: no such file in the folder')
        elif anchor and f' id="{anchor}"' not in self.bodies.get(target, ''):
            self.faults.append(f'{page.relative_to(self.folder)}: {address}: no such heading')
        if target not in self.bodies:
            return match[0]
        if path:
            path = os.path.relpath(html_name(target), page.parent)
        if rest == f'>{target.name}</a>':
            rest = f'>{self.title(target)}</a>'
        return f'{attribute}="{path}{"#" if anchor else ""}{anchor}"{rest}'

    def write(self):
        style = self.folder / CONTENTS.with_name(STYLE.name)
        pages = {}
        for page, body in self.bodies.items():
            links = r'(href|src)="([^"]*)"([^>]*>(?:[^<]*</a>)?)'
            body = re.sub(links, lambda match, page=page: self.link(page, match), body)
            contents = os.path.relpath(html_name(self.folder / CONTENTS), page.parent)
            pages[html_name(page)] = PAGE.format(title=text_of(self.title(page)), product=PRODUCT, body=body,
                                                 contents=contents, style=os.path.relpath(style, page.parent))
        if not self.faults:
            for name, text in pages.items():
                name.write_text(text, encoding='utf-8', newline='\n')
            shutil.copyfile(STYLE, style)
        return self.faults


def main():
    parser = argparse.ArgumentParser(description=__doc__.partition('\n')[0])
    parser.add_argument('folder', metavar='FOLDER', type=Path, help='the folder of the archive')
    folder = parser.parse_args().folder.resolve()
    if not (folder / CONTENTS).is_file():
        sys.exit(f'{folder}: holds no {CONTENTS}')
    if faults := Site(folder).write():
        sys.exit('\n'.join(faults))


if __name__ == '__main__':
    main()
