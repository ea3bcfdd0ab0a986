"""The blocks of code, commands and output in a page of the documents. CONTRIBUTING.md lists their kinds."""

import re
import subprocess
from collections import namedtuple
from xml.etree import ElementTree

FILE_NAME = re.compile(r'\W* file: ([\w.]+)\W*\n')         # the first line of a block that is a whole file
RUN = re.compile(r'sh(?: exit=(\d))?$')

Block = namedtuple('Block', 'info text')


def blocks_of(page):
    tree = subprocess.run(['cmark-gfm', '--to', 'xml', '--extension', 'table', page], check=True, capture_output=True)
    for block in ElementTree.fromstring(tree.stdout).iter('{http://commonmark.org/xml/1.0}code_block'):
        yield Block(block.get('info', ''), block.text)


def compare_outputs(blocks, told):
    """The blocks of output have the text that the command before them printed; `told` has the texts by block."""
    for number, block in enumerate(blocks):
        if block.info == 'output' and number - 1 in told:
            pattern = re.sub(r'(?m)^\\\.\\\.\\\.\n', '(?:.*\n)*?', re.escape(block.text).replace('\\\n', '\n'))
            matches = re.fullmatch(pattern.replace(r'\.\.\.', '.*'), told[number - 1])
            assert matches, '%s\ndiffers from\n%s' % (told[number - 1], block.text)
