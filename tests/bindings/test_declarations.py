"""Every binding declares what the header and the list of exports declare, and nothing else.

Each language has a row in LANGUAGES: how it writes a declaration and the kinds of arguments. The rest is alike in all
of them: a name (letter case and underscores do not count), a number, a text in quotes.
"""

import importlib
import os
import re
from pathlib import Path

import pytest

ROOT = Path(__file__).resolve().parents[2]
HEADER = (ROOT / 'include/brenikdb.h').read_text()
EXPORTS = re.findall(r'^\d+ (\w+) (\d+|-)$', (ROOT / 'src/api/exports.txt').read_text(), re.M)
# The one list of the marks of code pages and their numbers.
PAGES = dict(re.findall(r'\{0x(\w\w), [^{}\d]*?(\d{3,5})\b',
                        (ROOT / 'src/engine/record/code_page.cpp').read_text()))
# No system that the bindings run on can convert these two.
UNCONVERTED = {('68', '895'), ('69', '620')}


class Form:
    """How a language writes a declaration: an expression, and one per kind of argument."""

    def __init__(self, declaration, separator, **kinds):
        self.declaration, self.separator, self.kinds = re.compile(declaration, re.M | re.X), separator, kinds

    def kind(self, argument):
        return next((kind for kind, form in self.kinds.items() if re.fullmatch(form, argument)), argument)

    def declared(self, text):
        """Name, convention and kinds of arguments, a declaration each."""
        for found in self.declaration.finditer(text):
            arguments = re.split(self.separator, found['arguments'].strip()) if found['arguments'].strip() else []
            yield found['name'], found['convention'].lower(), [self.kind(each) for each in arguments]


IN_HEADER = Form(r'^BRENIK_EXPORT\ BrenikCode\ (?P<convention>(?:BRENIK_CALL)?)\s*(?P<name>\w+)'
                 r'\((?:void)?(?P<arguments>[^)]*)\);', r',\s*',
                 string=r'const char\* \w+', buffer=r'char\* \w+', in_out=r'int\* \w+', int=r'int \w+')
DECLARED = [(name, 'stdcall' if convention else 'cdecl', kinds) for name, convention, kinds in
            IN_HEADER.declared(HEADER)]


def in_one_line(text):
    return text.replace(' _\n', ' ')


# A test of the text form of C++ is enough: its compiler takes arguments and conventions from the header.
LANGUAGES = {
    'cpp/brenikdb.hpp': (str, Form(
        r'decltype\(&::(?P<name>\w+)\)\ (?P=name)\ =\ \w+\("(?P=name)"\)(?P<convention>)(?P<arguments>);', '')),
    'csharp/BrenikDB.cs': (str, Form(
        r'CallingConvention\.(?P<convention>StdCall|Cdecl)\)\]\s+(?:\w+\ )?delegate\ (?:uint|BrenikCode)\ '
        r'(?P<name>Brenik\w+)\((?P<arguments>[^)]*)\);', r',\s*(?![^[]*\])',
        string=r'(\[In\] )?byte\[\] \w+', buffer=r'\[In, Out\] byte\[\] \w+', in_out=r'(ref|out) int \w+',
        int=r'int \w+')),
    'pascal/BrenikDB.pas': (str, Form(
        r'^\ *T(?P<name>Brenik\w+)\ =\ function\s*\(?(?P<arguments>[^)]*?)\)?:\ (?:Cardinal|LongWord|TBrenikCode);'
        r'.*?\b(?P<convention>stdcall|cdecl);', r';\s*',
        string=r'const \w+: PAnsiChar', buffer=r'\w+: PAnsiChar', in_out=r'(var|out) \w+: (Integer|LongInt)',
        int=r'\w+: (Integer|LongInt)')),
    'python/brenikdb.py': (str, Form(
        r"\('(?P<name>Brenik\w+)',\ (?P<convention>STDCALL|CDECL),\ \[(?P<arguments>[\w,\ ]*)\]\)", ', ',
        string='STRING', buffer='BUFFER', in_out='IN_OUT', int='INT')),
    'vb/BrenikDB.bas': (in_one_line, Form(
        r'Declare\ (?:PtrSafe\ )?Function\ (?P<name>Brenik\w+)\ Lib\ "BrenikDB(?:\.dll)?"\ (?P<convention>)'
        r'\((?P<arguments>[^)]*)\)\ As\ Long$', ', ',
        bytes=r'ByRef \w+ As Byte', in_out=r'ByRef \w+ As Long', int=r'ByVal \w+ As Long')),
}
TEXTS = {path: prepare((ROOT / 'bindings' / path).read_text(encoding='utf-8')) for path, (prepare, _)
         in LANGUAGES.items()}

CODES = {name: (int(number), ' '.join(text.replace('\n     *', ' ').split())) for text, name, number in
         re.findall(r'^    /\* ([^/]*?) \*/\n    BRENIK_(\w+) = (\d+)', HEADER, re.M)}
NAMES_OF_TABLES = {'Names': 'Names', 'Events': 'Events', 'Matters': 'Matters', 'Notes': 'notes', 'Codes': 'code lists',
                   'CrossReferences': 'cross-references', 'Journal': 'the change journal'}
FIRM_LENGTH = int(re.search(r"memset\(firm, ' ', (\d+)\)", HEADER)[1])
NUMBERS = {name: int(re.search(r'^ \* .*\b(\d+) ' + words, HEADER, re.M)[1]) for name, words in NAMES_OF_TABLES.items()}
NUMBERS.update(
    IdentifierLength=int(re.search(r'On return: always (\d+) characters', HEADER)[1]),
    AddEndBuffer=int(re.search(r'identifier  at least (\d+) bytes\. On entry', HEADER)[1]),
    GetU_IDBuffer=int(re.search(r'identifier  at least (\d+) bytes, primed', HEADER)[1]),
    FirmLength=FIRM_LENGTH,
    FirmBuffer=FIRM_LENGTH + int(re.search(r'provide L \+ (\d+) bytes', HEADER)[1]))

LITERAL = r'(?:"(?:[^"\\]|\\.|"")*"|\'(?:[^\'\\]|\\.|\'\')*\')'


def any_case(name):
    """The name with a short prefix and with or without underscores, in any letter case."""
    return r'\b(?:BRENIK_|[a-z]{1,6}_?)?(?i:%s)' % '_?'.join(name.replace('_', ''))


def numbers_in(text, name):
    values = re.findall(any_case(name) + r'(?: As Long)? = (\d+|BRENIK_\w+)', text)
    return {CODES[value[7:]][0] if value.startswith('BRENIK_') else int(value) for value in values}


def texts_in(text, name):
    """The texts that follow the name, each in one literal or in several joined ones."""
    joined = r'%s(?:[\s+&_]*%s)*' % (LITERAL, LITERAL)
    for found in re.findall(any_case(name) + r'''[^\w"'.][^"'.]{0,20}?(%s)''' % joined, text):
        parts = re.findall(LITERAL, found)
        yield ''.join(re.sub(r'\\(.)', r'\1', part[1:-1].replace(part[0] * 2, part[0])) for part in parts)


def test_header_and_exports():
    assert [name for name, _ in EXPORTS] == [name for name, _, _ in DECLARED] and len(DECLARED) == 12
    for (_, removed), (name, convention, kinds) in zip(EXPORTS, DECLARED):
        assert removed == ('-' if convention == 'cdecl' else str(4 * len(kinds))), name
    assert sorted(number for number, _ in CODES.values()) == list(range(20))


@pytest.mark.parametrize('path', LANGUAGES)
def test_functions(path):
    form = LANGUAGES[path][1]
    expected = [(name, convention if '?P<convention>)' not in form.declaration.pattern else '',
                 ['bytes' if 'bytes' in form.kinds and kind in ('string', 'buffer') else kind for kind in kinds]
                 if form.kinds else []) for name, convention, kinds in DECLARED]
    found = list(form.declared(TEXTS[path]))
    branches = 2 if '#If VBA7' in TEXTS[path] else 1        # both declare everything
    assert found == expected * branches


@pytest.mark.parametrize('path', LANGUAGES)
def test_constants(path):
    text = TEXTS[path]
    for name, (number, meaning) in CODES.items():
        assert numbers_in(text, name) == {number}, name
        assert meaning in texts_in(text, name), name
    for name, number in NUMBERS.items():
        assert numbers_in(text, name) == {number}, name
    marks = {mark.zfill(2): page for mark, page in
             re.findall(r'(?:0x|\$|&H)([0-9A-F]{1,2})\b[^\d\n]{1,25}?(\d{3,5})\b', text)}
    assert PAGES.items() - UNCONVERTED <= marks.items() and len(marks) == 25


def test_python_searches_path_on_windows(tmp_path, monkeypatch):
    """From version 3.8 on, ctypes does not."""
    monkeypatch.syspath_prepend(ROOT / 'bindings/python')
    brenikdb = importlib.import_module('brenikdb')
    monkeypatch.setattr(brenikdb, 'ON_WINDOWS', True)
    monkeypatch.setenv('PATH', os.pathsep.join([str(tmp_path / 'none'), str(tmp_path)]))
    (tmp_path / 'BrenikDB.dll').touch()
    assert brenikdb._usual_library() == str(tmp_path / 'BrenikDB.dll')
    (tmp_path / 'BrenikDB.dll').unlink()
    assert brenikdb._usual_library() == 'BrenikDB.dll'
