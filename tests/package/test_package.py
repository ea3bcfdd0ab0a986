"""The release archive: what is in it, and that a host's author can work from it alone.

Windows programs run under Wine, which sees the file system as drive Z.
"""

import json
import os
import re
import shutil
import subprocess
import zipfile
from pathlib import Path

import pytest
from pages import FILE_NAME, blocks_of, compare_outputs

ROOT = Path(__file__).parents[2]
PRESET = os.environ['BRENIK_PRESET']
NAME = 'BrenikDB-%s-%s' % (os.environ['BRENIK_VERSION'], PRESET)
COMPILER = os.environ['BRENIK_COMPILER']
CONTENTS = ['CHANGELOG.md', 'LICENSE.txt', 'NOTICES.txt', 'README.txt', 'SHA256SUMS', 'UPGRADING.md',
            'bin/BrenikDB.dll', 'bin/brenik.exe', 'bin/host.exe', 'include/brenikdb.h', 'lib/BrenikDB.def',
            'lib/BrenikDB.lib', 'lib/libBrenikDB.dll.a']
FOLDERS = {'docs': 'docs', 'bindings': 'bindings', 'examples': 'examples', 'packaging/settings': 'settings'}
LEFT_OUT = re.compile('docs/maintainers/|.*/CMakeLists.txt$')
SAMPLE_DAY = bytes([24, 3, 15])      # of 2024, in the headers of the sample's tables
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
    return shutil.copytree(unpacked / 'sample', tmp_path / 'practice')


def wanted_names():
    """What the archive should hold, the sample practice excepted."""
    names = [*CONTENTS, 'docs/pages.css']
    for folder, place in FOLDERS.items():
        names += [place + name.removeprefix(folder) for name in run('git', 'ls-files', folder, cwd=ROOT).splitlines()
                  if not LEFT_OUT.match(name)]
    pages = [re.sub('docs/README.md$', 'docs/index.md', name) for name in names if name.endswith('.md')]
    return sorted(names + [name.removesuffix('.md') + '.html' for name in pages])


def test_contents(archive):
    with zipfile.ZipFile(archive) as packed:
        prefix = NAME + '/'
        names = [name.removeprefix(prefix) for name in packed.namelist()]
        sample = [name for name in names if name.startswith('sample/')]
        assert sorted(set(names) - set(sample)) == wanted_names() and names == sorted(names)
        assert len({entry.date_time for entry in packed.infolist()}) == 1
        for name in names:
            assert str(ROOT).encode() not in packed.read(prefix + name), '%s names this place' % name
        assert {packed.read(prefix + name)[1:4] for name in sample if name.endswith('.DBF')} == {SAMPLE_DAY}
        readme = packed.read(prefix + 'README.txt').decode()
        folders = {name.split('/')[0] for name in names}
        assert [name for name in {*CONTENTS, *folders} if name.replace('/', '\\') not in readme] == ['README.txt']
    with zipfile.ZipFile(archive.with_name(NAME + '-symbols.zip')) as packed:
        assert packed.namelist() == ['%s-symbols/%s.debug' % (NAME, name) for name in ('BrenikDB.dll', 'brenik.exe')]
        for name in packed.namelist():
            assert str(ROOT).encode() not in packed.read(name), '%s names this place' % name


def test_checksums(unpacked):
    run('sha256sum', '--check', '--strict', 'SHA256SUMS', cwd=unpacked)
    files = [str(path.relative_to(unpacked)) for path in unpacked.rglob('*') if path.is_file()]
    listed = [line.split(maxsplit=1)[1] for line in (unpacked / 'SHA256SUMS').read_text().splitlines()]
    assert sorted([*listed, 'SHA256SUMS']) == sorted(files)


def test_pages(unpacked):
    """The HTML pages can be read offline: the contents lead to each of them, and no link leads nowhere."""
    reached, waiting = set(), {unpacked / 'docs/index.html'}
    while waiting:
        page = waiting.pop()
        reached.add(page)
        for link in re.findall(' (?:href|src)="([^":]+)"', page.read_text()):
            path, _, anchor = link.partition('#')
            target = Path(os.path.normpath(page.parent / path)) if path else page
            assert target.is_file() and (not anchor or ' id="%s"' % anchor in target.read_text()), (page, link)
            waiting |= {target} - reached if target.suffix == '.html' else set()
    assert set((unpacked / 'docs').rglob('*.html')) - reached == set()
    assert '<table>' in (unpacked / 'docs/index.html').read_text()


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


@pytest.mark.skipif(PRESET != 'win32', reason='the page uses the archive for 32-bit programs')
def test_tutorial(unpacked, tmp_path):
    """The page for C, literally: its Windows commands, with mingw as the compiler, and those of the tool."""
    unpacked.rename(tmp_path / 'brenikdb')
    blocks, told, settings = list(blocks_of(ROOT / 'docs/tutorial/c.md')), {}, ['@echo off']
    del blocks[next(number for number, block in enumerate(blocks) if block.info == 'sh exit=1'):]
    for number, (info, text) in enumerate(blocks):
        if name := FILE_NAME.match(text):
            (tmp_path / name[1]).write_text(text)
        elif info == 'bat' and not text.startswith('cl ') or info == 'sh' and text.startswith('brenik '):
            lines = {line: line.split(maxsplit=1)[0] for line in text.splitlines()}
            for line in [line for line in lines if lines[line] == Path(COMPILER).name]:
                run(*line.replace('\\', '/').split(), cwd=tmp_path)
            settings += [line for line in lines if lines[line] == 'set']
            commands = [line for line in lines if lines[line] not in ('set', Path(COMPILER).name)]
            (tmp_path / 'page.bat').write_text('\n'.join([*settings, *commands, '']), newline='\r\n')
            told[number] = run(ROOT / 'scripts/wine', 'cmd', '/c', 'page.bat', cwd=tmp_path,
                               env=dict(os.environ, BRENIK_UI='none')).replace('\r', '')
    compare_outputs(blocks, told)
