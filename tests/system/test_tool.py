"""The companion tool: what it prints, what it complains of, and how it ends."""

import json
import os
import re
import shlex
import shutil
import subprocess
import tempfile
from pathlib import Path

import pytest
from conftest import OURS, TOOL, faults_of, tool
from judges import assert_sound, identifier

JOURNAL = '''\
2024-03-15 10:28:00  edited  Matters  A100001
    COURT      2024-03-15 10:28:00  by A1
    BUDGET     2024-03-15 10:28:00  by A1
    PRIORITY   2024-03-15 10:28:00  by A1
'''

COUNTED = {'LAW1': 'U_ID1', 'LAW2': 'U_ID2', 'LAW3': 'U_ID3', 'LAWCODES': 'U_ID7', 'LAW9': 'U_ID9'}


def brenik(*arguments):
    """Exit code, standard output and standard error."""
    done = tool(*arguments)
    return done.returncode, done.stdout, done.stderr


def json_lines(*arguments):
    code, output, complaint = brenik(*arguments, '--json')
    assert (code, complaint) == (0, '')
    return [json.loads(line) for line in output.splitlines()]


@pytest.mark.parametrize('options, notes', [([], 'LAWNOTES'), (['--v14'], 'LAW1NOTE'), (['--wide'], 'LAWNOTES')])
def test_sample(new_practice, options, notes):
    """Sound in every table, and its counters stand where the identifiers ended."""
    practice = new_practice('practice', *options)
    assert_sound(practice.folder)
    for table, counter in {**COUNTED, notes: 'U_ID4'}.items():
        assert practice.table(table).rows[-1]['U_ID'] == identifier('A1', int(practice.counter(counter)))
    assert practice.table('LAW2').rows[-1]['RNO'] == practice.counter('RECORDNO')


@pytest.mark.embedded
def test_show(practice):
    """The description; records by number, by key and in order, with the values that lie on disk. Nothing needs to be
    written, which is forbidden here."""
    for path in *practice.folder.iterdir(), practice.folder:
        path.chmod(path.stat().st_mode & ~0o222)
    code, text, _ = brenik('show', practice, 'lawcodes')
    assert code == 0 and '  RATE        N 8.2\n' in text and '  TYPECODE    TYPE+CODE\n' in text
    row = practice.table('LAW3').rows[4]
    by_number, = json_lines('show', practice, 'LAW3', '--record', 5)
    expected = {name: row[name] for name in ('U_ID', 'CASENUM', 'MATTER', 'ACTIVE', 'PRIORITY', 'BUDGET', 'RATE')}
    assert expected.items() <= by_number['fields'].items()
    assert by_number['fields']['OPEN'].replace('-', '') == row['OPEN'] and not by_number['deleted']
    key = row['CASENUM'].upper()[:11]
    assert json_lines('show', practice, 'Matters', '--order', 'casenumber', '--seek', key) == [by_number]
    listed = [row['record'] for row in json_lines('show', practice, 'LAW3', '--all', '--order', 'BUDGET')]
    assert listed == [number for number, _ in practice.table('LAW3').tags['BUDGET'].entries]


def test_journal(session, practice):
    """As text and, after a deletion, as JSON."""
    assert brenik('journal', practice, '--limit', 1) == (0, JOURNAL, '')
    practice.patch('LAW1', 7)
    assert session.deleted(1, 7) == 0
    *_, entry = json_lines('journal', practice)
    assert [entry[key] for key in ('kind', 'table', 'u_id', 'workstation')] == ['deleted', 'Names', 'A100007', 'A1']


def test_faults(session, practice, windows_folder):
    faults = dict(os.environ, BRENIK_FAULTS=session.path(faults_of(windows_folder)))
    none = tool('faults', env=faults)
    assert (none.returncode, none.stdout) == (0, '') and faults['BRENIK_FAULTS'] in none.stderr
    practice.damage('LAW1.dbf', lambda data: data.__delitem__(slice(500, None)))
    assert session.add(1, {'LAST': 'Lost'})[0] == 14
    line = tool('faults', env=faults).stdout
    assert line.endswith('\n') and line.count('\n') == 1 and '\tAddEnd\t' in line
    fault = json.loads(tool('faults', '--json', env=faults).stdout)
    assert list(fault) == ['time', 'call', 'reason'] and '\t'.join(fault.values()) == line[:-1]


@pytest.mark.parametrize('arguments, code', [
    ([], 2), (['sing'], 2), (['show', '.'], 2), (['sample', 'x', '--contacts', '0'], 2),
    (['show', '{}', 'LAW1', '--order', 'ID'], 2), (['reindex', '{}', '--tag', 'A=B'], 2),
    (['reindex', '{}/LAW1.DBF', '--tag', 'A=U_ID;SOMETIMES'], 2), (['show', '{}', 'LAW1', '--record', '41'], 1),
    (['show', '{}', 'LAW1', '--order', 'ID', '--seek', 'NOBODY'], 1), (['show', '{}', 'LAW8'], 3),
    (['check', '{}/nowhere'], 3), (['journal', '{}/billing'], 3), (['sample', '{}'], 1), (['check', ''], 2),
    (['check', 'a' * 5000], 3), (['check', '{}/billing'], 3), (['show', '{}/billing', 'LAW1'], 3),
    (['show', '{}', '{}/LAW1.DBF'], 2), (['check', '{}/LAW1.DBF', 'LAW1'], 2), (['check', '{}/LAW1.DBF/'], 3),
    (['check', '{}/LAW1.CDX'], 2), (['doctor', '{}/LAW1.DBF'], 2), (['show', '{}', '..'], 3),
    (['reindex', '{}', 'LAW1', '--like', '{}/LAW8'], 3), (['reindex', '{}', 'LAW1', '--like', ''], 2),
    (['check', '--', '{}', '--LAW8'], 3)])
def test_what_goes_wrong(practice, arguments, code):
    """The exit code tells the kind; the message goes to standard error and nothing to the other."""
    ended, output, complaint = brenik(*[argument.format(practice) for argument in arguments])
    assert (ended, output) == (code, '') and complaint


def test_a_table_by_any_name(practice):
    """Every command takes the same names, from any folder; a folder in the way of a table does not hide it."""
    folder = practice.folder
    (folder / 'law1').mkdir()
    (folder / 'old.dbf').mkdir()        # no table, so nothing to complain of
    ways = [(folder, 'LAW1'), (folder, 'law1.dBf'), (folder, 'nameS'), ('.', 'Names'), (folder / 'LAW1.DBF',),
            ('%s//./Names' % folder,), ('LAW1.DBF',), ('law1',)]
    for command, *options in ['show', '--record', '1'], ['check'], ['repair'], ['reindex', '--dry-run']:
        told = []
        for way in ways:
            done = tool(command, *way, *options, '--json', cwd=folder)
            assert (done.returncode, done.stderr) == (0, ''), (command, way, done)
            told.append([{**json.loads(line), 'file': '', 'summary': ''} for line in done.stdout.splitlines()])
        assert all(other == told[0] for other in told)
    assert 'did you mean "Names"?' in brenik('show', folder, 'Nmaes')[2]


# The permissions that are left of a file or of the folder, and the commands that then cannot do their work.
DENIALS = [
    (0o000, 'LAW1.DBF', ['show {} LAW1', 'check {}', 'repair {}', 'reindex {} LAW3 --like {}/LAW1']),
    (0o000, 'LAW1.FPT', ['check {}', 'repair {}', 'repair {} --without-memos', 'reindex {} LAW1']),
    (0o000, 'LAW1.CDX', ['check {} LAW1', 'repair {}', 'reindex {} LAW1 --dry-run', 'show {} LAW1 --all --order ID']),
    (0o000, 'LawTrans.DBF', ['journal {}', 'check {}']),
    (0o444, 'LAW1.DBF', ['repair {}', 'reindex {}/LAW1']),
    (0o000, '', ['show {} LAW1', 'check {}', 'check {}/LAW1.DBF', 'repair {}', 'journal {}', 'doctor {}']),
    (0o111, '', ['check {}', 'doctor {}']),
    (0o555, '', ['reindex {} LAW9', 'reindex {} LAW9 --backup {}/..', 'repair {}', 'doctor {}', 'sample {}/new'])]


@pytest.mark.embedded
@pytest.mark.skipif(OURS.library.endswith('.dll'), reason='Wine shows Windows programs no permissions of this system')
@pytest.mark.parametrize('mode, file, commands', DENIALS)
def test_permission_is_no_lock(practice, mode, file, commands):
    """Every command ends with code 3 and the system's reason; nothing is changed."""
    if mode == 0o555:
        practice.damage('LAWSYS.dbf', lambda data: data.extend(b'rubbish!' * 100))      # something to repair
    with tempfile.TemporaryDirectory() as place:
        folder = Path(shutil.copytree(practice.folder, Path(place) / 'practice'))
        program, *rest = [shutil.copy(word, place) for word in shlex.split(TOOL)]
        user = ['setpriv', '--reuid=65534', '--regid=65534', '--clear-groups'] if os.geteuid() == 0 else []
        for path in [Path(place), folder, *folder.rglob('*')] if user else []:
            os.chown(path, 65534, 65534)
        kept = {path: path.read_bytes() for path in folder.iterdir() if path.is_file()}
        (folder / file).chmod(mode)
        for command in commands:
            words = [word.format(folder) for word in command.split()]
            done = subprocess.run([*user, program, *rest, *words], capture_output=True, text=True)
            assert done.returncode == 3 and re.search('ermission|read-only', done.stdout + done.stderr), (command, done)
            assert not re.search('lock|in use|later|exclusive', done.stdout + done.stderr), (command, done)
        (folder / file).chmod(0o755)
        assert kept == {path: path.read_bytes() for path in folder.iterdir() if path.is_file()}
