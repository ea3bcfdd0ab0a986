"""The tool on a terminal: help, pages, suggestions, completion, colours, progress, and readers that leave."""

import json
import os
import re
import shlex
import shutil
import subprocess
from pathlib import Path

import pexpect
import pytest
from conftest import TOOL, tool

ROOT = Path(__file__).parents[2]
PAGE = (ROOT / 'docs/reference/tool.md').read_text()
HELP = tool('--help').stdout
COMMANDS = re.findall(r'^  (\w+)  ', HELP.partition('Commands')[2], re.MULTILINE)
PROGRAM, = shlex.split(TOOL)
RECORD_COUNT = 4       # offset in a table's header
FAULT, NOTE, HEADING = '\x1b[31m', '\x1b[33m', '\x1b[1m'


def on_terminal(columns, *arguments, **environment):
    environment = {**os.environ, 'TERM': 'xterm', **environment}
    return pexpect.spawn(PROGRAM, list(map(str, arguments)), dimensions=(24, columns), env=environment).read().decode()


@pytest.fixture
def manual(tmp_path):
    assert tool('manual', tmp_path / 'manual').returncode == 0
    return tmp_path / 'manual'


@pytest.fixture
def damaged(tmp_path):
    """A practice with a fault, which repair mends, and a note."""
    assert tool('sample', tmp_path / 'damaged').returncode == 0
    with (tmp_path / 'damaged/LAW2.DBF').open('r+b') as table:
        table.seek(RECORD_COUNT)
        table.write(b'\5\0')
    return tmp_path / 'damaged'


@pytest.mark.parametrize('command', COMMANDS)
def test_help_is_in_the_reference_and_its_examples_work(practice, command):
    text = tool(command, '--help').stdout
    assert '## %s\n\n```sh\nbrenik %s --help\n```\n```output\n%s```\n' % (command, command, text) in PAGE
    assert re.findall('^(Usage|Exit codes|Examples)$', text, re.MULTILINE) == ['Usage', 'Exit codes', 'Examples']
    (practice.folder.parent / 'new').mkdir()
    shutil.copytree(practice.folder, practice.folder.parent / 'other')
    examples = re.findall('^  brenik (.*)', text.partition('Examples')[2], re.MULTILINE)
    for example in examples:
        if '--with' in example or '100000' in example:
            continue                # another workstation, a large practice
        folder = practice.folder.parent / ('new' if command in ('sample', 'manual') else '')
        environment = {**os.environ, 'HOME': str(folder), 'BRENIK_ACE_LIBRARY': os.environ['BRENIK_STAND_IN']}
        done = tool(*shlex.split(example), cwd=folder, stdin=subprocess.DEVNULL, env=environment)
        assert done.returncode in (0, 1 if 'check' in example else 0), (example, done.stderr)


def key_tables(command):
    """The keys of each table of the command's section; a word of the last column says when a key is left out."""
    section = PAGE.partition('\n### JSON of %s' % command)[2].partition('\n## ')[0]
    for table in re.findall(r'\| Key \| Content \|\n.*\n((?:\|.*\n)*)', section):
        yield dict(re.findall(r'^\| `(\w+)` \| (.*) \|$', table, re.MULTILINE))


@pytest.mark.parametrize('command, calls', [
    ('sample', [['{}/new']]), ('show', [['{}', 'LAW1'], ['{}', 'LAW1', '--record', '3']]), ('journal', [['{}']]),
    ('check', [['{}']]), ('repair', [['{}', '--dry-run'], ['{}']]), ('doctor', [['{}']]),
    ('engine', [['{}', '--all']])])
def test_json_has_the_keys_of_the_reference(damaged, command, calls):
    """Each line has the keys of one table, but for those present only at times; all but the rarest are seen."""
    tables, seen = list(key_tables(command)), set()
    for call in calls:
        output = tool(command, *[word.format(damaged) for word in call], '--json').stdout
        for value in [json.loads(output)] if output.startswith('{\n') else map(json.loads, output.splitlines()):
            keys = set(value)
            assert any(keys <= set(table) and all('only' in table[key] for key in set(table) - keys)
                       for table in tables), keys
            seen |= keys
    assert {key for table in tables for key in table if 'only if' not in table[key]} <= seen


@pytest.mark.parametrize('arguments, meant', [
    ('chekc {}', 'check'), ('--versoin', '--version'), ('check {} --jsno', '--json'), ('show {} Mater', 'Matters'),
    ('check {}/law11.dbf', 'LAW1'), ('show {} LAW1 --order NMAE --all', 'NAME'),
    ('reindex {}/LAW1.DBF --tag X=LASTT', 'LAST')])
def test_a_mistyped_name_is_answered_with_the_closest(practice, arguments, meant):
    done = tool(*arguments.format(practice).split())
    assert done.returncode != 0 and 'did you mean "%s"?' % meant in done.stdout + done.stderr
    assert 'did you mean' not in tool('show', practice, 'XYZ').stderr, 'nothing is close to XYZ'


def test_version_tells_the_commit_of_a_checkout_alone(tmp_path):
    assert re.fullmatch(r'brenik \d+\.\d+\.\d+(, commit [0-9a-f]{12}(\+changes)?)?\n', tool('--version').stdout)
    for source, expected in (ROOT, '"[0-9a-f]{12}[+"]' if (ROOT / '.git').exists() else '""'), (tmp_path, '""'):
        output = tmp_path / 'version.cpp'
        subprocess.run([shutil.which('cmake'), '-Dversion=1.2.3', '-Dsource=%s' % source, '-Doutput=%s' % output,
                        '-Dtemplate=%s' % (ROOT / 'tools/version.cpp.in'), '-P', ROOT / 'cmake/commit.cmake'],
                       check=True)
        text = output.read_text()
        assert re.search('commit = ' + expected, text) and '"1.2.3"' in text and re.search(r'"\d{4}-\d\d-\d\d"', text)


def test_manual_pages_are_well_formed(manual):
    pages = list(manual.glob('*.1'))
    assert {page.stem for page in pages} == {'brenik', *('brenik-' + name for name in COMMANDS)}
    lint = subprocess.run(['mandoc', '-Tlint', '-W', 'warning', *pages], capture_output=True, text=True)
    assert lint.stdout + lint.stderr == ''


def test_completion_in_bash(manual, practice):
    (practice.folder.parent / 'with space').mkdir()
    shutil.copy(practice.folder / 'LAW1.DBF', practice.folder.parent / 'with space/LAW 1$(touch run).DBF')
    shell = pexpect.spawn('bash', ['--norc', '-i'], cwd=practice.folder.parent, timeout=30, encoding='utf-8',
                          env={**os.environ, 'PS1': '$ ', 'TERM': 'dumb'})
    shell.sendline('brenik() { printf "<%%s>" "$@"; echo; }; source %s' % (manual / 'brenik'))
    for typed, completed in (
            ('che\t', '<check>'), ('show pra\t Matt\t--rec\t', '<show><practice/><Matters><--record>'),
            ("check 'with space' LA\t", '<check><with space><LAW 1$(touch run)>'),
            ('check wi\t', '<check><with space/>'), ('repair --backup pra\t', '<repair><--backup><practice/>'),
            ('check practice/LAW1.D\t', '<check><practice/LAW1.DBF>')):
        shell.send('brenik %s\n' % typed)
        shell.expect_exact(completed + '\r\n')
    shell.close()
    assert not (practice.folder.parent / 'run').exists(), 'completion runs nothing'


def test_colours_only_where_they_are_wanted(damaged):
    coloured = on_terminal(80, 'check', damaged)
    assert FAULT + 'LAW2.DBF:' in coloured and NOTE + 'note:' in coloured
    assert HEADING + 'Usage' in on_terminal(80, 'check', '--help')
    for plain in (on_terminal(80, 'check', damaged, NO_COLOR='1'), on_terminal(80, 'check', damaged, TERM='dumb'),
                  tool('check', damaged).stdout):
        assert '\x1b' not in plain and 'note: ' in plain
    for words in ['--help'], ['check', '--help']:
        assert max(map(len, on_terminal(40, *words, NO_COLOR='1').splitlines())) <= 40


@pytest.mark.parametrize('columns', [20, 40, 120])
def test_progress_fits_the_terminal(tmp_path, columns):
    output = on_terminal(columns, 'doctor', tmp_path, '--with', '--wait', 3).partition('on another workstation\r\n')[2]
    *bars, blank, end = output.split('\r')[1:-2]
    assert bars and all('%' in bar and len(bar) < columns for bar in bars)
    assert any(re.search(r'  [1-3] s left *$', bar) for bar in bars) == (columns > 20)
    assert ('for the other workstation' in bars[-1]) == (columns == 120)
    assert blank == ' ' * len(bars[-1].rstrip()) and end == 'stopped: nobody came'


def test_progress_is_plain_on_a_dumb_terminal_and_silent_elsewhere(tmp_path):
    plain = on_terminal(80, 'doctor', tmp_path, '--with', '--wait', 2, TERM='dumb')
    assert re.search(r'\nwaiting, for the other workstation: +\d+ %.*\r\n', plain)
    assert '%' not in tool('doctor', tmp_path, '--with', '--wait', 1).stderr


def run_into(output, *arguments, **options):
    return subprocess.run([PROGRAM, *map(str, arguments)], stdout=output, stderr=subprocess.PIPE, text=True, **options)


def test_a_reader_that_leaves_stops_no_repair(damaged):
    for arguments in ('show', damaged, 'LAW1', '--all'), ('repair', damaged):
        reader, writer = os.pipe()
        os.close(reader)
        done = run_into(writer, *arguments)
        os.close(writer)
        assert (done.returncode, done.stderr) == (0, '')
    assert tool('check', damaged).returncode == 0


def test_a_full_disk_is_told(practice):
    with open('/dev/full', 'w') as full:
        for arguments in ('show', practice, 'LAW1', '--all'), ('check', practice), ('--help',):
            for options in {}, {'preexec_fn': lambda: os.close(1)}:         # the same if it was closed
                done = run_into(full, *arguments, **options)
                assert done.returncode == 1 and 'standard output cannot be written' in done.stderr
