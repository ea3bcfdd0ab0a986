"""Routines called by name through the companion tool: the protocol, and sessions on a practice."""

import contextlib
import json
import os
import shlex
import subprocess

import pytest
from conftest import OURS, TOOL, path_form, tool
from judges import assert_sound, identifier


def call(*lines, folder=None, expect=0, cwd=None):
    """The answer to each line, as the tool gives it."""
    options = ['--dir', str(folder)] if folder else []
    text = ''.join((line if isinstance(line, str) else json.dumps(line)) + '\n' for line in lines)
    done = tool('call', *options, input=text, env={**os.environ, 'BRENIK_UI': 'none'}, cwd=cwd)
    assert done.returncode == expect, done.stderr
    return [json.loads(line) for line in done.stdout.splitlines()]


@contextlib.contextmanager
def talking(folder):
    """A session that answers line by line."""
    command = [*shlex.split(TOOL), 'call', '--dir', path_form(OURS)(folder)]
    with subprocess.Popen(command, stdin=subprocess.PIPE, stdout=subprocess.PIPE, text=True, bufsize=1) as child:
        def say(*line):
            child.stdin.write(json.dumps(line) + '\n')
            return json.loads(child.stdout.readline())['result']
        yield say


@pytest.mark.parametrize('line, result', [
    (['rsalpha2n', 'BB'], 27), (['MAKEDATE', 2, 30, 2003, True], {'date': '20030228'}), (['TMENU'], None),
    (['CAST', {'memo': 'line one'}, 'Y'], 'line one'), (['XTOC', None], 'NIL'),
    (['STR2A', {'hex': '32410300430200616204004e0100354c54'}], ['ab  ', 5, True])])
def test_routines_without_a_practice(line, result):
    assert call(line) == [{'result': result}]


@pytest.mark.parametrize('line, part', [
    ('{"not": "an array"}', 'array'), ('[', 'not JSON'), (['NOSUCH'], 'NOSUCH'),
    (['RSN2ADS', 'text'], 'argument 1 must be a number'), (['MAKEDATE', 1], 'is missing'),
    (['XTOC', {'date': '20030230'}], '20030230'), (['XTOC', {'hex': '0g'}], '0g'), (['XTOC', 'caf\u00e9'], 'hex'),
    (['field get', 1, 'K'], 'field get: work area 1 holds no table (2001)'), ('[' * 100000, 'nested too deeply'),
    (['set order focus'], 'set order focus: work'), (['CMXSETRELATION', 3, 'U_ID', 'ID'], 'two different expressions'),
    (['open table', None, 'SIX', 'LAW1'], 'SIX: no such table driver; use ADS (2109)'),
    pytest.param('["XTOC", ' + '{"ref": ' * 200000 + '1' + '}' * 200000 + ']', 'nested too deeply', id='ref')])
def test_a_line_that_fails_is_answered_and_the_next_goes_on(line, part):
    refused, after = call(line, ['RSADS2N', 'zz'])
    assert part in refused['error']
    assert after == {'result': 3843}


def test_one_session_over_a_practice(practice):
    blank, uid = ' ' * 7, identifier('A1', 41)
    answers = call(['select area', 'Names'], ['set order focus', 'U_ID'], ['alias'], ['seek', 'A100002', False],
                   ['SAVEDBF'], ['skip', -1], ['record number'], ['seek', 'zzz', True], ['end of file'],
                   ['AddStart', 2**32 + 1, 0], ['AddStart', 1, 0], ['SetField', 1, 0, 'LAST', 'Outside'],
                   ['GetU_ID', 1, 'nobody', {'ref': blank}], ['AddEnd', 1, {'ref': blank}], ['REC_LOCK'], ['delete'],
                   ['REC_UNLOCK'], ['deleted'], ['select area', 5], ['NEXTUID', {'ref': None}],
                   ['RSDTOF', '01', 'nobody', 1, {'ref': None}], folder=practice)
    alias, found, state, _, record, _, at_end, outside = [answer['result'] for answer in answers[2:10]]
    assert [alias.upper(), state[5].upper(), found, record, at_end, outside] == ['NAMES', 'NAMES', True, 1, True, 5]
    assert answers[12:14] == [{'result': 19, 'refs': [blank]}, {'result': 0, 'refs': [uid]}]
    assert answers[17]['result'] is True and [answer['refs'] for answer in answers[19:]] == [[None], [None]]
    assert practice.table('LAW1').one(U_ID=uid).deleted
    assert_sound(practice.folder)


def test_a_line_finds_what_others_wrote_before_it(practice):
    with talking(practice) as reader, talking(practice) as writer:
        for say in reader, writer:
            say('select area', 1)
            say('set order focus', 0)
        place = reader('field position', 'LAST')
        reader('go top')
        for record in range(2, 31):
            if record > 6:                          # a scan, which reads ahead within a line
                writer('go to', record)
                assert writer('lock record', record)
                writer('field assignment by name', 1, 'LAST', 'L%d' % record)
                writer('unlock')
            reader('skip')
            text = reader('field get', place)
            assert record <= 6 or text.strip() == 'L%d' % record


def test_every_listed_name_is_there(tmp_path):
    names = [line.split(':')[0] for line in tool('call', '--list').stdout.splitlines()]
    assert len(names) == len({name.upper() for name in names}) > 150
    # Without arguments a routine may refuse, and those that wait or show something are not tried.
    loud = 'ERRBEEP', 'GET_EXCLUSIVE', 'CLOSEMOST', 'CHECKSERVER', 'SAMELAXSYS'
    quiet = [[name] for name in names if name not in loud]
    answers = call(*quiet, cwd=tmp_path)            # StartUp without a folder works in the current one
    assert not any('no routine' in each.get('error', '') for each in answers)
    call(['RSNOW'], folder=tmp_path / 'missing', expect=3)


def test_a_fault_leaves_nothing_half_done(practice):
    """A line that makes no sense keeps locks; a fault gives up every lock, and a record that was being added."""
    change = ['field assignment by name', 1, 'LAST', 'Half']
    fault = ['set filter', 'NOSUCH = ']
    answers = call(['select area', 1], ['go to', 3], ['lock record', 3], change, ['MAKEDATE', 1], change, fault, change,
                   ['append blank'], change, fault, ['go to', 41], ['deleted'], folder=practice)
    failed = [number for number, answer in enumerate(answers) if 'error' in answer]
    assert failed == [4, 6, 7, 10] and answers[12]['result'] is True
    rows = practice.table('LAW1').rows
    assert len(rows) == 41 and rows[2]['LAST'].strip() != 'Half' and rows[40]['LAST'].strip() == ''
    assert_sound(practice.folder)
