"""Compiles the examples of every binding and runs them on a sample practice: they agree, and say what is wrong.

On Windows these are the ones in C and C++, under Wine. For the other languages there is no compiler there;
test_declarations.py compares what they declare.
"""

import os
import re
import subprocess
import sys
from pathlib import Path

import pytest

ROOT = Path(__file__).resolve().parents[2]
BINDINGS = ROOT / 'bindings'
ON_WINDOWS = 'BRENIK_WINE_BITS' in os.environ
LIBRARY, TOOL, TELEPHONE = (Path(os.environ['BRENIK_' + name]) for name in ('LIBRARY', 'TOOL', 'TELEPHONE'))
OTHER_MACHINE = {'32': b'\x64\x86', '64': b'\x4C\x01'}[os.environ['BRENIK_BITS']]
WARNINGS = ['-Wall', '-Wextra', '-Wpedantic', '-Wconversion', '-Wshadow', '-Werror']
# How a language compiles a source into the folder {0}, if it does, and how it runs the program.
LANGUAGES = {
    '.cpp': ([os.environ['BRENIK_CXX'], '-std=c++17', *WARNINGS, *['-static'] * ON_WINDOWS, '-o', '{0}/program.exe',
              '-I', str(ROOT / 'include'), '-I', str(BINDINGS / 'cpp')], ['{0}/program.exe']),
    '.cs': (['mcs', '-langversion:7', '-warnaserror+', '-out:{0}/program.exe', str(BINDINGS / 'csharp/BrenikDB.cs')],
            ['mono', '{0}/program.exe']),
    '.dpr': (['fpc', '-Mdelphi', '-Sewh', '-v0ewh', '-Fu%s' % (BINDINGS / 'pascal'), '-FU{0}', '-o{0}/program.exe'],
             ['{0}/program.exe']),
    '.py': (None, [sys.executable, '-W', 'error', '{1}']),
}
ENVIRONMENT = dict(os.environ, PYTHONPATH=str(BINDINGS / 'python'), LC_ALL='C.UTF-8', BRENIK_UI='none')


def sources(*names):
    return [name for name in names if not ON_WINDOWS or name.endswith(('.c', '.cpp'))]


def place(path):
    """The path as the programs under test see it."""
    return 'Z:' + str(path).replace('/', '\\') if ON_WINDOWS else str(path)


def run(*command, status=0):
    """The standard output of a program that ends with the status, or its errors."""
    done = subprocess.run([str(ROOT / 'scripts/wine')] * ON_WINDOWS + [str(word) for word in command], env=ENVIRONMENT,
                          stdout=subprocess.PIPE, stderr=subprocess.PIPE, encoding='utf-8', timeout=600)
    assert done.returncode == status, done.stdout + done.stderr
    return done.stderr if status else done.stdout


def compiled(source, folder):
    """The command that runs the program of a source."""
    compile_it, run_it = LANGUAGES[source.suffix]
    if compile_it:
        subprocess.run([word.format(folder) for word in compile_it] + [str(source)], check=True, timeout=600)
    return [word.format(folder, source) for word in run_it]


@pytest.fixture
def practice(tmp_path):
    """A sample practice, and a fault file of its own."""
    ENVIRONMENT['BRENIK_FAULTS'] = place(tmp_path / 'Faults.log')
    run(TOOL, 'sample', place(tmp_path / 'practice'))
    return tmp_path / 'practice'


def patch(path, offset, *new):
    data = path.read_bytes()
    path.write_bytes(data[:offset] + bytes(new) + data[offset + len(new):])


@pytest.mark.parametrize('source', sources('cpp/first_contact.cpp', 'csharp/first_contact.cs',
                                           'pascal/first_contact.dpr', 'python/first_contact.py'))
def test_first_contact(source, practice, tmp_path):
    program = compiled(BINDINGS / source, tmp_path)
    names = practice / 'LAW1.DBF'
    arguments = [place(practice), place(LIBRARY), place(TOOL)]

    patch(names, 29, 0x02)                          # the practice is in code page 850
    told = run(*program, *arguments)
    contact, matter = re.match(r'contact (\w{7})\nmatter (\w{7})\nfound \1\n', told).groups()
    journal = [line.split()[2:5] for line in told.splitlines()[3:]]
    assert journal[:2] == [['added', 'Names', contact], ['added', 'Matters', matter]] and journal[2][1] == 'XREF'
    assert b'M\x81ller' in names.read_bytes() and b'Zo\x89 ' in names.read_bytes()
    assert b'M\x81ller v. Okafor' in (practice / 'LAW3.DBF').read_bytes()

    patch(names, 29, 0x65)                          # and now in one without the letter
    before = names.read_bytes()
    refused = run(*program, *arguments, status=1)
    assert '866' in refused and 'ü' in refused and names.read_bytes() == before

    patch(names, 29, 0x68)                          # a page that no system converts
    assert '0x68' in run(*program, *arguments, status=1)

    missing = run(*program, place(tmp_path / 'nowhere'), place(LIBRARY), status=1)
    assert re.fullmatch(r'BrenikInitialize: 1: LAWSYS.DBF or LAW1.DBF is not in the data folder: check the path. '
                        r'\(.*nowhere.LAWSYS.DBF: no such file\)\n', missing)
    ENVIRONMENT['BRENIK_FAULTS'] = place(practice)  # a folder: there is no reason to read
    missing = run(*program, place(tmp_path / 'nowhere'), place(LIBRARY), status=1)
    assert re.fullmatch(r'BrenikInitialize: 1: [^(]*\n', missing)

    other = tmp_path / 'other.library'
    other.write_bytes(LIBRARY.read_bytes())
    if ON_WINDOWS:
        patch(other, int.from_bytes(other.read_bytes()[0x3C:0x40], 'little') + 4, *OTHER_MACHINE)
    else:
        patch(other, 4, 1)
    refused = run(*program, place(practice), place(other), status=1)
    assert '32' in refused and '64' in refused and 'other.library' in refused


@pytest.mark.parametrize('page, undefined', [(1252, 0x81), (932, 0xFD)])
@pytest.mark.parametrize('source', sources('calls.cpp', 'calls.py'))
def test_calls(source, page, undefined, practice, tmp_path):
    """The items of the firm, an existing code, refused arguments, a session that has ended."""
    names = practice / 'LAW1.DBF'
    patch(names, 29, 0)                             # so that the page is the one that the program names
    patch(names, names.read_bytes().index(b'Customs House'), undefined)
    patch(names, names.read_bytes().index(b'A100002'), *b' ' * 7)       # it cannot be noted without it
    program = compiled(Path(__file__).with_name(source), tmp_path)
    told = run(*program, place(practice), place(LIBRARY), page).splitlines()
    firm = '23 items, 1 \\x%02xustoms House Quay, ' % undefined
    cities = [firm + 'Dunmöre', 'refused'] if page == 1252 else ['refused', firm + '東京']
    assert re.fullmatch(r'\w{7}', told[3])
    assert told == ['refused', *cities, told[3], 'BrenikAddEnd 18 ' + told[3], 'refused', 'BrenikGetU_ID 19 ', 'done',
                    'refused', 'refused', 'BrenikSetField 7 ', 'done', 'BrenikAddedRecord 8 ', 'BrenikDeletedRecord 6 ',
                    'done', 'BrenikGetMyFirm 15 ', 'BrenikShutDown 15 ']


@pytest.mark.parametrize('source', sources('telephone.c', 'telephone.cs', 'telephone.py'))
def test_telephone(source, practice, tmp_path):
    if source == 'telephone.c':                     # the build has linked it with the library
        program, rest = [place(TELEPHONE)], [place(TOOL)]
    else:
        program, rest = compiled(ROOT / 'examples' / source, tmp_path), [place(LIBRARY), place(TOOL)]
    told = run(*program, place(practice), '220 5552849', *rest)
    assert re.fullmatch(r'caller A100003 Thackeray, Harriet\nmatter 2013-000010-Pro Thackeray v. Bellamy\n'
                        r'note \w{7}\n', told)
    note = run(TOOL, 'show', place(practice), 'LAWNOTES', '--order', 'U_ID', '--seek', told.split()[-1])
    assert re.search(r'NAME_UID +A100003\n(.*\n)* +NOTE +Called from 220 5552849. Open matters: 1.\n', note)
    assert 'is not noted' in run(*program, place(practice), '555', *rest, status=1)
