"""The manual pages: what they show is what the files hold, and what the product writes and answers today."""

import json
import os
import re
import shlex
import shutil
import subprocess
import sys
from pathlib import Path

import pytest
from conftest import OURS, TOOL, path_form, tool

ROOT = Path(__file__).resolve().parents[2]
DATA = ROOT / 'tests' / 'data'
DOCS = ROOT / 'docs' / 'reference'
PAGES = sorted(DOCS.glob('format-*.md'))
EXAMPLES = re.compile(r'^\| (?:expression|arguments|key) \| (.*) \|\n\|[-|]+\n((?:\|.*\n)+)', re.M)
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


def examples(page):
    """Each example of a page: the head of its column, the expression or the arguments, and what it gives."""
    for heads, rows in EXAMPLES.findall((DOCS / page).read_text()):
        for row in rows.splitlines():
            given, *wanted = re.findall('`([^`]+)`', row)
            yield from ((head.strip('`'), given, each) for head, each in zip(heads.split(' | '), wanted, strict=True))


def failures(calls):
    """The calls whose answers do not have the text beside them."""
    answers = tool('call', input='\n'.join(line for line, _ in calls)).stdout.splitlines()
    return [(call, answer) for call, answer in zip(calls, answers, strict=True) if call[1] not in answer]


def test_examples_of_expressions(tmp_path):
    table = shutil.copytree(DATA / 'formats', tmp_path / 'tasks') / 'TASKS.DBF'
    calls, keys = [(json.dumps(['open table', None, None, path_form(OURS)(table)]), 'null')], {}
    for head, expression, wanted in examples('expressions.md'):
        if head == 'length':
            keys[expression] = int(wanted)
            continue
        record = head.removeprefix('record ') if head != 'message' else 1
        answer = json.dumps(': %s (2103)' % wanted)[1:-1] if head == 'message' else '{"result":%s}' % wanted
        calls += [('["go to", %s]' % record, 'null'), (json.dumps(['evaluate', expression]), answer)]
    assert failures(calls) == []
    tags = [option for at, key in enumerate(keys) for option in ('--tag', 'K%d=%s' % (at, key))]
    tool('reindex', table, *tags).check_returncode()
    made = json.loads(tool('show', table.parent, 'TASKS', '--json').stdout)['tags']
    assert {tag['key']: tag['length'] for tag in made if tag['key'] in keys} == keys


@pytest.mark.parametrize('page', ['expressions.md', 'routines.md', 'calling-routines.md'])
def test_sessions(page, practice):
    """What a page shows as typed into a shell."""
    typed = re.findall(r'^```sh\n([^`]* brenik call[^`]*)```\n\n```output\n([^`]*)```', (DOCS / page).read_text(), re.M)
    assert typed
    for command, answers in typed:
        command = command.replace('brenik', TOOL).replace('practice', shlex.quote(path_form(OURS)(practice)))
        done = subprocess.run(['sh', '-c', command], cwd=ROOT, capture_output=True, text=True, check=True)
        assert done.stdout == answers, done.stderr


def test_examples_of_routines():
    calls = [(head.replace('…', given), '{"result":%s}' % wanted) for head, given, wanted in examples('routines.md')]
    assert failures(calls) == []


def test_assumptions_about_the_client(practice):
    rows = ['| %(name)s | %(assumed)s | {} | `%(probe)s` |'.format('yes' if each['documented'] else 'no') % each
            for each in json.loads(tool('engine', practice, '--all', '--json').stdout)['assumptions']]
    section = (DOCS / 'client-engine.md').read_text().partition('## What is taken for granted')[2].partition('\n## ')[0]
    assert [line for line in section.splitlines() if line.startswith('|')][2:] == rows
