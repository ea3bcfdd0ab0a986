"""The command `engine`: which engine runs, and what the probes say of a library whose answers are known."""

import json
import os

import pytest
from conftest import OURS, path_form, tool

# What the stand-in cannot show.
UNKNOWN = {'append-refused', 'filter-options', 'scope-values', 'optimisation-levels'}
# Readings of the stand-in, each with the probes that notice it.
NOTICED = {
    'alias_duplicate=accepted': 'alias-duplicate', 'already_open=empty': 'index-already-open order-array',
    'aof_level=part': 'optimisation-levels', 'append_lock=goes_anyway': 'append-lock own-append-lock',
    'bof=stays': 'skip-before-first', 'cancel_append=blank': 'cancel-append', 'date_format=separated': 'date-format',
    'deleted_polarity=hidden': 'deleted-polarity', 'empty_number=zero': 'empty-values', 'empty_seek=top': 'seek-empty',
    'empty_top=eof': 'empty-table',
    'goto_outside=eof': 'go-outside', 'goto_same=fetched': 'go-to-same-record',
    'index_filename=base': 'index-file-name', 'key_num_not_in_order=error': 'key-number',
    'last_error=cleared': 'last-error', 'lock_failed=7009': 'lock-status', 'long_text=cut': 'long-text',
    'memo_binary=refused': 'memo-binary', 'memo_zero=cut': 'memo-bytes',
    'number_text=trimmed': 'field-text', 'oem_fields=raw': 'oem-bytes', 'oem_raw_key=converted': 'oem-raw-key',
    'open_position=none': 'position-after-open', 'refresh_locked=fetches': 'refresh-locked',
    'server_loaded=fails': 'server-loaded', 'skip_zero=refresh': 'skip-zero', 'soft_past_end=last': 'seek-modes',
    'table_lock_refused=keeps': 'table-lock-drops', 'table_type=ignored': 'table-type', 'top_bof=set': 'top-flags'}


def engine(practice, *options, library=os.environ['BRENIK_STAND_IN'], **environment):
    """The exit code, and the answer."""
    environment = dict(os.environ, BRENIK_ACE_LIBRARY=path_form(OURS)(library), **environment)
    done = tool('engine', practice, *options, '--json', env=environment)
    assert done.stderr == ''
    return done.returncode, json.loads(done.stdout)


def verdicts(answer, verdict):
    return {each['probe'] for each in answer['probes'] if each['verdict'] == verdict}


@pytest.mark.parametrize('settings, library, servers, name, code', [
    ('', True, 'both', 'embedded', 0), ('nServerType=2', True, 'both', 'client', 0),
    ('nServerType=2', False, 'both', 'embedded', 0), ('Engine=Advantage', True, 'local', 'client', 0),
    ('Engine=advantage', False, 'local', 'client', 1), ('Engine=advantage', True, 'none', 'client', 1)])
def test_which_engine(practice, settings, library, servers, name, code):
    (practice.folder / 'LAWSYS.INI').write_text('[Main]\n' + settings)
    missing = {} if library else {'library': practice.folder / 'none.so'}
    ended, answer = engine(practice, STAND_IN_SERVERS=servers, **missing)
    assert (ended, answer['engine'], answer['can_open']) == (code, name, code == 0)
    assert answer['server'] == ({'none': 0, 'local': 1, 'both': 2}[servers] if library else None)
    assert bool(answer['library']['problem']) != library
    if library:                                         # the answer does not depend on the type that is set
        variables = dict(os.environ, BRENIK_ACE_LIBRARY=path_form(OURS)(os.environ['BRENIK_STAND_IN']),
                         STAND_IN_SERVERS=servers)
        asked = tool('call', '--engine', 'advantage', input=json.dumps(['ADSISSERVERLOADED', '.']), env=variables)
        assert json.loads(asked.stdout)['result'] == answer['server']


def test_probes(practice):
    """Each tells the reading that was chosen; every assumption names a probe; nothing is left behind."""
    before = sorted(practice.folder.iterdir())
    _, plain = engine(practice, '--probe', '--all')
    assert verdicts(plain, 'unknown') == UNKNOWN and verdicts(plain, 'refuted') == set()
    assert {each['probe'] for each in plain['assumptions']} <= {each['probe'] for each in plain['probes']}
    code, other = engine(practice, '--probe', STAND_IN_READINGS=','.join(NOTICED))
    assert (code, verdicts(other, 'refuted')) == (1, set(' '.join(NOTICED.values()).split()))
    both = engine(practice, '--probe', STAND_IN_SERVERS='both')[1]
    assert {each['server'] for each in both['probes']} == {None, 1, 2} and verdicts(both, 'refuted') == set()
    assert sorted(practice.folder.iterdir()) == before
