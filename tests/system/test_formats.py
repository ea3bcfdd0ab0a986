"""The pages on formats: what their dumps and tables say is what the files hold, and what the engine writes today."""

import os
import re
import shlex
import subprocess
import sys
from pathlib import Path

import pytest
from conftest import tool

ROOT = Path(__file__).resolve().parents[2]
DATA = ROOT / 'tests' / 'data'
PAGES = sorted((ROOT / 'docs').glob('format-*.md'))
LINE = re.compile(r'  ([0-9a-f]{4})  ((?:[0-9a-f]{2}(?:\*\d+)? )+)  *([^:]+):')


def structures(page):
    """For each table of a page the fields by name, as offset and size; None where the table has no plain number."""
    found = {}
    for name, rows in re.findall(r'^\| offset \| size \| ([^|]+) \|.*\n\|[-|]+\n((?:\|.*\n)+)', page, re.M):
        cells = [[cell.strip() for cell in row.split('|')[1:4]] for row in rows.splitlines()]
        found[name] = {field: tuple(int(number) if number.isdigit() else None for number in place)
                       for *place, field in cells}
    return found


def shown(text):
    """The bytes of a dump's line, `00*16` being sixteen zeros."""
    return b''.join(bytes.fromhex(byte[:2]) * int(byte[3:] or 1) for byte in text.split())


@pytest.mark.parametrize('page', [page.read_text() for page in PAGES], ids=[page.stem for page in PAGES])
def test_dumps_agree_with_file_and_tables(page):
    fields, checked = structures(page), set()
    for name, dump in re.findall(r'^```dump (\S+)\n(.*?)^```', page, re.M | re.S):
        content = (DATA / name).read_bytes()
        for line in dump.splitlines():
            if begin := re.fullmatch(r'([a-z ]+) at ([0-9a-f]{4})(, .*)?', line):
                structure, base, previous = begin[1], int(begin[2], 16), None
                continue
            at, field = int(LINE.match(line)[1], 16), LINE.match(line)[3]
            written = shown(LINE.match(line)[2])
            offset, size = fields[structure][field]
            assert content[at:at + len(written)] == written, line
            assert previous == (field, at) or offset in (None, at - base), (structure, line)
            assert size in (None, len(written)), (structure, line)
            checked.add((structure, field))
            previous = field, at + len(written)        # where another line about this field goes on
    assert {(structure, field) for structure in fields for field in fields[structure]} == checked


def test_the_engine_reads_and_writes_these_files(tmp_path):
    maker = [sys.executable, DATA / 'formats' / 'make_files.py', tmp_path, *shlex.split(os.environ['BRENIK_TOOL'])]
    subprocess.run(maker, check=True)
    for kept in DATA.glob('formats/*.[DCF]*'):
        made = bytearray((tmp_path / kept.name).read_bytes())
        if kept.suffix == '.DBF':
            made[1:4] = kept.read_bytes()[1:4]         # the date of the last update
        assert made == kept.read_bytes(), kept.name
    assert tool('check', tmp_path / 'TASKS.DBF').stdout.endswith('no faults\n')
