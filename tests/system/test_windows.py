"""What only Windows hosts meet: calls at the machine's level, and Windows' ways of naming folders."""

import os
import shlex
import shutil
import subprocess
from pathlib import Path

import pytest
from conftest import CALL_LIMIT, OURS, windows_form
from test_mixed import Holder

PROFILE = Path(os.environ['BRENIK_WINE_PROFILE'])
OF_32_BITS = pytest.mark.skipif(os.environ['BRENIK_WINE_BITS'] != '32', reason='written for the 32-bit conventions')


def program(variable, *arguments, **options):
    return subprocess.run([*shlex.split(os.environ[variable]), *map(windows_form, arguments)], capture_output=True,
                          text=True, timeout=CALL_LIMIT, env=dict(os.environ, BRENIK_UI='none'), **options)


@OF_32_BITS
def test_calling_conventions_and_the_hosts_state(practice, tmp_path):
    """Also loaded twice, unloaded with tables open, and on a small stack."""
    copy = shutil.copy(OURS.library, tmp_path / 'Copy.dll')
    done = program('BRENIK_ABI_CALLS', OURS.library, copy, practice, practice.find('LAW1.dbf'))
    assert (done.stdout, done.returncode) == ('', 0)
    assert practice.table('LAW3').rows[0]['RATE'] == 12.5       # written under a comma's locale
    assert len(practice.table('LAW1').where(LAST='Calls', FIRST='Raw')) == 4


@OF_32_BITS
def test_faults_beside_a_shared_unwinder(practice, tmp_path):
    """Hosts of the same compiler may have its shared unwinder with them, which knows nothing of our exceptions."""
    os.truncate(practice.find('LAW1.dbf'), os.path.getsize(practice.find('LAW1.dbf')) - 100)
    unwinder = shutil.copy(os.environ['BRENIK_SHARED_UNWINDER'], tmp_path)
    done = program('BRENIK_ABI_CALLS', OURS.library, unwinder, practice)
    assert (done.stdout, done.returncode) == ('', 0)


def test_client_of_microsofts_linker():
    assert program('BRENIK_MS_CLIENT', cwd=Path(OURS.library).parent).returncode == 0


@pytest.fixture
def drive(tmp_path):
    """A drive and a server's share that stand for the test's folder; no process has a current folder there."""
    share = PROFILE / 'dosdevices' / 'unc' / 'brenik' / tmp_path.name
    share.parent.mkdir(parents=True, exist_ok=True)
    share.symlink_to(tmp_path)
    letter = next(letter for letter in 'pqrstuvw' if not (PROFILE / 'dosdevices' / (letter + ':')).is_symlink())
    device = PROFILE / 'dosdevices' / (letter + ':')
    device.symlink_to(tmp_path)
    yield letter + ':', r'\\brenik' + '\\' + tmp_path.name
    share.unlink(), device.unlink()


def test_forms_of_the_path(new_host, new_practice, drive):
    letter, share = drive
    practice, host = new_practice('two words'), new_host()
    folder = windows_form(practice)
    for form in (folder + '\\', '  %s  ' % folder, folder.replace('\\', '/') + '/', folder.lower(), folder[2:],
                 '\\\\?\\' + folder, letter + '\\two words', letter + 'two words', letter + 'TWO WORDS\\',
                 share + '\\two words', share.replace('\\', '/') + '/two words/'):
        assert host.init(form) == 0, form
        assert host.add(3, {'MATTER': form[-40:]}, practice.table('LAW1').rows[0]['U_ID'])[0] == 0, form
        assert practice.table('LAW3').rows[-1]['MATTER'] == form[-40:].rstrip(), form
        assert host.shutdown() == 0
    for form in (letter, letter + '\\nowhere', '\\\\brenik\\nowhere', '\\\\', 'con', letter + '\\con\\nul',
                 '\\\\.\\C:'):
        assert host.init(form) == 1, form


def test_long_paths(new_host, new_practice, tmp_path):
    """Folders of more than 260 characters, from the root, relative, and with the prefix."""
    deep = tmp_path
    while len(str(deep)) < 300:
        deep /= 'a folder of some length'
    deep.mkdir(parents=True)
    practice, host = new_practice(into=deep), new_host(cwd=tmp_path)
    for form in (practice, '\\\\?\\' + windows_form(practice), str(practice.folder.relative_to(tmp_path))):
        assert host.init(form, 1) == 0 and host.add(1, {'LAST': 'Deep'})[0] == 0
        assert host.firm(10)[2:10].strip() and host.shutdown() == 0 and practice.trace()
    assert len(practice.table('LAW1').where(LAST='Deep')) == 3


@pytest.mark.parametrize('name, code', [('LAWSYS', 3), ('LAW1', 4)])
def test_files_that_are_read_only_or_not_shared(host, practice, name, code):
    file = practice.find(name + '.dbf')
    os.chmod(file, 0o444)
    assert host.init(practice) == code
    os.chmod(file, 0o644)
    with Holder(OURS, file, False) as held:
        assert held and host.init(practice) == code
    assert host.init(practice) == 0
