"""Routines called by name through the companion tool: the protocol, and sessions on a practice."""

import json
import os

import pytest
from conftest import tool
from judges import assert_sound


def call(*lines, folder=None, expect=0, cwd=None):
    """The answer to each line, as the tool gives it."""
    options = ['--dir', str(folder)] if folder else []
    text = ''.join((line if isinstance(line, str) else json.dumps(line)) + '\n' for line in lines)
    done = tool('call', *options, input=text, env={**os.environ, 'BRENIK_UI': 'none'}, cwd=cwd)
    assert done.returncode == expect, done.stderr
    return [json.loads(line) for line in done.stdout.splitlines()]


def results(*lines, folder=None):
    answers = call(*lines, folder=folder)
    assert [each for each in answers if 'error' in each] == []
    return [each['result'] for each in answers]


def date(text):
    return {'date': text}


@pytest.mark.parametrize('line, result', [
    (['RSN2ADS', 12345, 5], '003D7'),
    (['rsalpha2n', 'BB'], 27),
    (['MAKEDATE', 2, 30, 2003, True], date('20030228')),
    (['MAKEDATE', -12, 1, 2003], date('20011201')),
    (['CASTANY', '11/27/03', 'D'], date('19031127')),
    (['CASTANY', '20031127', 'D'], date('20031127')),
    (['CASTANY', 'abc', 'D'], date('')),
    (['CASTANY', True, 'N'], 0),
    (['CAST', date(''), None, True], '00/00/00'),
    (['CAST', {'memo': 'line one'}, 'Y'], 'line one'),
    (['CAST', {'memo': 'line one'}], ''),
    (['A2STR', ['ab  ', 5, True]], {'hex': '32410300430200616204004e0100354c54'}),
    (['STR2A', {'hex': '32410300430200616204004e0100354c54'}], ['ab  ', 5, True]),
    (['STR2A', '2'], []),
    (['RSDT', date('19980101'), 86399], {'hex': '0001a8bf'}),
    (['CDT2STR', {'hex': '00013f48'}], '01/01/98  9:00a'),
    (['HOURSTEXT', 1.5], '1 hour  and 30 minutes '),
    (['XTOC', None], 'NIL'),
    (['TMENU'], None),
])
def test_routines_without_a_practice(line, result):
    assert results(line) == [result]


@pytest.mark.parametrize('line, part', [
    ('{"not": "an array"}', 'array'),
    ('[', 'parse error'),
    (['NOSUCH'], 'NOSUCH'),
    (['RSN2ADS', 'text'], 'argument 1 must be a number'),
    (['MAKEDATE', 1], 'is missing'),
    (['XTOC', {'date': '20030230'}], '20030230'),
    (['XTOC', {'hex': '0g'}], '0g'),
    (['XTOC', 'caf\u00e9'], 'hex'),
    (['RSN2ADS', 3844], 'RSN2ADS'),
    (['field get', 1], '2001'),
    ('[' * 100000, 'nested too deeply'),
    pytest.param('["XTOC", {"date": ' + '[' * 200000 + ']' * 200000 + '}]', 'nested too deeply', id='date'),
    pytest.param('["XTOC", ' + '{"ref": ' * 200000 + '1' + '}' * 200000 + ']', 'nested too deeply', id='ref'),
    (['RSN2ADS', 5, 2000000000], 'argument 2 must be a width'),
])
def test_a_line_that_fails_is_answered_and_the_next_goes_on(line, part):
    refused, after = call(line, ['RSADS2N', 'zz'])
    assert part in refused['error']
    assert after == {'result': 3843}


def test_one_session_over_a_practice(new_practice):
    folder = new_practice('practice').folder
    identifier = '       '
    assert call(['select area', 1], ['alias'], ['set order focus', 'U_ID'], ['go top'],
                ['field position', 'U_ID'], folder=folder)[1]['result'].upper() == 'NAMES'
    answers = call(['select area', 'Names'], ['set order focus', 'U_ID'], ['seek', 'A100002', False],
                   ['record number'], ['SAVEDBF'], ['skip', -1], ['record number'], ['seek', 'zzz', True],
                   ['end of file'], ['GetU_ID', 1, 'nobody', {'ref': identifier}],
                   ['AddStart', 1, 0], ['SetField', 1, 0, 'LAST', 'Outside'],
                   ['AddEnd', 1, {'ref': identifier}], ['deleted'], ['REC_LOCK'], ['delete'], ['REC_UNLOCK'],
                   ['deleted'], folder=folder)
    assert [each for each in answers if 'error' in each] == []
    assert answers[2]['result'] is True and answers[6]['result'] != answers[3]['result']
    assert answers[4]['result'][5].upper() == 'NAMES' and answers[8]['result'] is True
    assert call(['AddStart', 2**32 + 1, 0], folder=folder) == [{'result': 5}]
    assert answers[9] == {'result': 19, 'refs': [identifier]}
    untouched = call(['select area', 5], ['NEXTUID', {'ref': None}],
                     ['RSDTOF', '01', 'nobody', 1, {'ref': None}], folder=folder)
    assert [each['refs'] for each in untouched[1:]] == [[None], [None]]
    assert answers[12]['result'] == 0 and answers[12]['refs'][0].startswith('A1')
    assert [answers[13]['result'], answers[17]['result']] == [False, True]
    assert_sound(folder)


def test_state_is_restored_and_filters_that_do_not_compile_change_nothing(new_practice):
    folder = new_practice('practice').folder
    prepare = [['select area', 3], ['set order focus', 'U_ID'], ['order scope', 0, 'A100002'],
               ['SETFILTER', 'RECNO() > 1'], ['go top'], ['record number']]
    answers = call(*prepare, ['SAVEDBF'], ['SETFILTER', 'NOSUCH = '], ['filter'], folder=folder)
    assert 'NOSUCH' in answers[7]['error'] and answers[8]['result'] == 'RECNO() > 1'
    state = answers[6]['result']
    restored = results(['RESTDBF', state], ['select'], ['filter'], ['record number'], ['SAVEDBF'],
                       ['select area', 3], ['close area'], ['RESTDBF', state], folder=folder)
    assert restored == [True, 3, 'RECNO() > 1', answers[5]['result'], state, None, None, False]


def test_every_listed_name_is_there(tmp_path):
    names = [line.split(':')[0] for line in tool('call', '--list').stdout.splitlines()]
    assert len(names) == len({name.upper() for name in names}) > 150
    # Without arguments a routine may refuse, and those that wait or show something are not tried.
    quiet = [name for name in names if name not in ('ERRBEEP', 'GET_EXCLUSIVE', 'CLOSEMOST', 'CHECKSERVER')]
    # StartUp without a folder works in the current one.
    answers = call(*([name] for name in quiet), cwd=tmp_path)
    assert not any('no routine' in each.get('error', '') for each in answers)


def test_a_practice_that_cannot_be_opened(tmp_path):
    call(['RSNOW'], folder=tmp_path / 'missing', expect=3)
