"""The release archive: what is in it, and that a host's author can work from it alone.

Windows programs run under Wine, which sees the file system as drive Z.
"""

import json
import os
import re
import subprocess
import zipfile
from pathlib import Path

import pytest

ROOT = Path(__file__).parents[2]
PRESET = os.environ['BRENIK_PRESET']
NAME = 'BrenikDB-%s-%s' % (os.environ['BRENIK_VERSION'], PRESET)
COMPILER = os.environ['BRENIK_COMPILER']
CONTENTS = ['CHANGELOG.md', 'LICENSE.txt', 'NOTICES.txt', 'README.txt', 'UPGRADING.md', 'bin/BrenikDB.dll',
            'bin/brenik.exe', 'bin/host.exe', 'examples/host.c', 'include/brenikdb.h', 'lib/BrenikDB.def',
            'lib/BrenikDB.lib', 'lib/libBrenikDB.dll.a']
DOCS = sorted(str(path.relative_to(ROOT)) for path in (ROOT / 'docs').rglob('*') if path.is_file())
CODE_EXISTS = 18


def run(*command, **options):
    done = subprocess.run([str(word) for word in command], stdout=subprocess.PIPE, stderr=subprocess.PIPE,
                          timeout=900, **options)
    output = done.stdout.decode('latin-1')
    assert done.returncode == 0, (output + done.stderr.decode('latin-1'))[-2000:]
    return output


def wine(program, *arguments, **environment):
    """A program of the unpacked folder, started from there."""
    return run(ROOT / 'scripts/wine', program, *arguments, cwd=program.parents[1],
               env=dict(os.environ, BRENIK_UI='none', **environment))


def on_drive(path):
    return 'Z:' + str(path).replace('/', '\\')


@pytest.fixture(scope='module')
def archive():
    run(ROOT / 'scripts/package', PRESET)
    return ROOT / 'build/packages' / (NAME + '.zip')


@pytest.fixture
def unpacked(archive, tmp_path):
    run('unzip', '-q', archive, '-d', tmp_path)
    return tmp_path / NAME


@pytest.fixture
def practice(unpacked, tmp_path):
    folder = tmp_path / 'practice'
    wine(unpacked / 'bin/brenik.exe', 'sample', on_drive(folder), '--contacts', 60, '--matters', 30)
    return folder


def test_contents(archive):
    with zipfile.ZipFile(archive) as packed:
        assert packed.namelist() == ['%s/%s' % (NAME, name) for name in sorted(CONTENTS + DOCS)]
        assert len({entry.date_time for entry in packed.infolist()}) == 1
        for name in CONTENTS:
            assert str(ROOT).encode() not in packed.read('%s/%s' % (NAME, name)), '%s names this place' % name
        readme = packed.read(NAME + '/README.txt').decode()
        assert [name for name in CONTENTS if name.replace('/', '\\') not in readme] == ['README.txt']
    with zipfile.ZipFile(archive.with_name(NAME + '-symbols.zip')) as packed:
        assert packed.namelist() == ['%s-symbols/%s.debug' % (NAME, name) for name in ('BrenikDB.dll', 'brenik.exe')]
        for name in packed.namelist():
            assert str(ROOT).encode() not in packed.read(name), '%s names this place' % name


def test_same_commit_gives_the_same_archive(archive):
    first = archive.read_bytes()
    archive.unlink()
    run(ROOT / 'scripts/package', PRESET)
    assert archive.read_bytes() == first


@pytest.mark.parametrize('library', ['ready made', '-lBrenikDB', 'lib/BrenikDB.lib'])
def test_sample_host(unpacked, practice, library):
    if library != 'ready made':
        (unpacked / 'bin/host.exe').unlink()
        run(COMPILER, '-Iinclude', 'examples/host.c', '-o', 'bin/host.exe', '-Llib', library, cwd=unpacked)
    told = wine(unpacked / 'bin/host.exe', on_drive(practice))
    calls = re.findall(r'^(Brenik\w+).* = (\d+)\r?$', told, re.M)
    assert calls[0] == ('BrenikInitialize', '0') and calls[-1] == ('BrenikShutDown', '0')
    assert [call for call in calls if call[1] != '0'] == [('BrenikAddEnd', str(CODE_EXISTS))]
    shown = wine(unpacked / 'bin/brenik.exe', 'show', on_drive(practice), 'LAW1', '--order', 'ID', '--seek', 'OKAFOR',
                 '--json')
    assert json.loads(shown)['fields']['CITY'] == 'Fairhaven'
