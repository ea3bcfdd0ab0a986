"""The image as the system's loader sees it, and the import libraries as linkers do."""

import os
import re
import subprocess
from pathlib import Path

import pytest

IMAGE = os.environ['BRENIK_IMAGE']
NARROW = os.environ['BRENIK_BITS'] == '32'
SYSTEM_LIBRARIES = {'kernel32.dll', 'user32.dll', 'gdi32.dll', 'advapi32.dll', 'msvcrt.dll'}
FOLDER = Path(os.environ['BRENIK_IMPORTS'])
FLAGS = 0x140 if NARROW else 0x160                 # dynamic base, NX compatible, of 64 bits high entropy
BY_NAME, NO_PREFIX, UNDECORATED = 1, 2, 3          # how the import library says what the loader is to look for
# Ordinal, name, and the bytes that the function removes from the stack.
EXPORTS = [line.split() for line in Path(os.environ['BRENIK_TABLE']).read_text().splitlines() if line[:1].isdigit()]
NAMES = {name for _, name, _ in EXPORTS}
SYMBOLS = {'_' + name + ('' if removed == '-' else '@' + removed) if NARROW else name for _, name, removed in EXPORTS}


def objdump(*arguments):
    return subprocess.run([os.environ['BRENIK_OBJDUMP'], *arguments], check=True, capture_output=True, text=True).stdout


HEADERS = objdump('-p', IMAGE)


def test_exports():
    """The twelve and no other, undecorated, each at its ordinal."""
    base = int(re.search(r'^Ordinal Base\s+(\d+)', HEADERS, re.M)[1])
    names = HEADERS[HEADERS.index('[Ordinal/Name Pointer] Table'):]
    named = {name: base + int(index) for index, name in re.findall(r'^\s+\[ *(\d+)\](?: \S+)? (\S+)$', names, re.M)}
    assert named == {name: int(ordinal) for ordinal, name, _ in EXPORTS} and len(named) == 12
    assert int(re.search(r'^\tExport Address Table\s+(\w+)', HEADERS, re.M)[1], 16) == 12


def test_imports():
    imported = {name.lower() for name in re.findall(r'DLL Name: (\S+)', HEADERS)}
    assert 'kernel32.dll' in imported and imported <= SYSTEM_LIBRARIES


def test_flags():
    flags = int(re.search(r'^DllCharacteristics\s+(\w+)', HEADERS, re.M)[1], 16)
    assert flags & FLAGS == FLAGS
    assert re.search(r'file format pei-(i386|x86-64)', HEADERS)[1] == ('i386' if NARROW else 'x86-64')
    relocations = re.search(r'^Entry 5 (\w+) (\w+) Base Relocation', HEADERS, re.M)
    assert int(relocations[2], 16), 'an image without relocations is not moved'


@pytest.mark.skipif(not NARROW, reason='the system itself unwinds 64-bit functions')
def test_unwind_tables():
    """Each entry is found by its address: an empty one at the same place hides it, and the exception has no way out."""
    entries = re.findall(r' FDE .* pc=(\w+)\.\.(\w+)', objdump('--dwarf=frames', IMAGE))
    begins = [begin for begin, _ in entries]
    hidden = [begin for begin, end in entries if begin == end and begins.count(begin) > 1]
    assert len(entries) > 100 and hidden == []


def test_resources_and_symbols():
    """A version resource; debugging symbols lie in a file of their own, named in the image."""
    assert re.search(r'Entry: ID: 0x000010, Value', HEADERS), 'no version resource'
    sections = objdump('-h', IMAGE)
    assert '.gnu_debuglink' in sections and '.debug_info' not in sections
    assert '.debug_info' in objdump('-h', IMAGE + '.debug')
    assert not re.search(r'brenik\d|_ZN', objdump('-t', IMAGE)), 'names of our own functions'


def test_import_library_of_gnu_linkers():
    assert set(re.findall(r'\b__imp_(\S+)', objdump('-t', str(FOLDER / 'libBrenikDB.dll.a')))) == SYMBOLS


def test_import_library_of_microsofts_linker():
    """Each member names symbol and library, and how the loader's name comes from the symbol."""
    members = re.findall(rb'\0\0\xFF\xFF\0\0(..).{10}(..)([^\0]+)\0BrenikDB\.dll\0',
                         (FOLDER / 'BrenikDB.lib').read_bytes(), re.S)
    machine = 0x014C if NARROW else 0x8664
    assert {int.from_bytes(member[0], 'little') for member in members} == {machine}
    kinds = {member[2].decode(): int.from_bytes(member[1], 'little') >> 2 & 7 for member in members}
    assert set(kinds) == SYMBOLS
    loaded = {BY_NAME: str, NO_PREFIX: lambda text: text.lstrip('_'),
              UNDECORATED: lambda text: text.lstrip('_').split('@')[0]}
    assert {loaded[kind](symbol) for symbol, kind in kinds.items()} == NAMES
    imports = objdump('-p', str(FOLDER / 'ms_client.exe'))      # linked with it
    assert NAMES <= set(re.findall(r'\b(Brenik\w+)$', imports, re.M))
