"""The image as the system's loader sees it."""

import os
import re
import subprocess
from pathlib import Path

import pytest

IMAGE = os.environ['BRENIK_IMAGE']
NARROW = os.environ['BRENIK_BITS'] == '32'
SYSTEM_LIBRARIES = {'kernel32.dll', 'user32.dll', 'gdi32.dll', 'advapi32.dll', 'msvcrt.dll'}
FLAGS = 0x140 if NARROW else 0x160                 # dynamic base, NX compatible, of 64 bits high entropy
# Each begins with ordinal and name.
EXPORTS = [line.split() for line in Path(os.environ['BRENIK_TABLE']).read_text().splitlines() if line[:1].isdigit()]


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
