"""How the tool shows what a table holds: its text in every code page, its numbers with all their digits, and what is
no value as it is stored. The tables are made here, byte by byte."""

import json
import re
import shlex
import struct

import pexpect
import pytest
from conftest import OURS, TOOL, as_bytes, path_form, tool

# Python's codec for each mark, and the bytes that systems or Python convert to different characters.
SINGLE = {0x01: 'cp437', 0x02: 'cp850', 0x03: 'cp1252', 0x04: 'mac_roman', 0x64: 'cp852', 0x65: 'cp866', 0x66: 'cp865',
          0x67: 'cp861', 0x6A: 'cp737', 0x6B: 'cp857', 0x7C: 'cp874', 0x7D: 'cp1255', 0x7E: 'cp1256',
          0x96: 'mac_cyrillic', 0x97: 'mac_latin2', 0x98: 'mac_greek', 0xC8: 'cp1250', 0xC9: 'cp1251', 0xCA: 'cp1254',
          0xCB: 'cp1253', 0xCC: 'cp1257'}
DISPUTED = {0x04: b'\xBD\xC6\xDB', 0x7D: b'\xCA', 0x96: b'\xA2\xB6\xFF', 0x98: b'\x9C\xAF\xFF'}


def write_table(path, mark, fields, *rows):
    """Fields are texts like "RATE N 8 2" or "NAME C? 20", which may be NULL; rows give the bytes of each field, or None
    for NULL."""
    layout = [field.split() for field in fields]
    layout = [(name, kind, int(width), int(*decimals or '0')) for name, kind, width, *decimals in layout]
    layout += [('_NullFlags', '0', 1, 0)]
    length = 1 + sum(width for _, _, width, _ in layout)
    data = struct.pack('<B3xIHH17xBxx', 0x30, len(rows), 32 * len(layout) + 296, length, mark)
    at = 1
    for name, kind, width, decimals in layout:
        flags = 5 if kind == '0' else 2 * kind.endswith('?')
        data += struct.pack('<11s1sIBBB13x', name.encode(), kind[:1].encode(), at, width, decimals, flags)
        at += width
    data += b'\r' + bytes(263)
    nullable = [i for i, (_, kind, _, _) in enumerate(layout) if kind.endswith('?')]
    for row in rows:
        nulls = sum((row[i] is None) << bit for bit, i in enumerate(nullable))
        cells = [as_bytes(cell or b'').ljust(width) for cell, (_, _, width, _) in zip(row, layout)]
        data += b' ' + b''.join(cells) + bytes([nulls])
    path.write_bytes(data + b'\x1A')


def show(folder, *options):
    done = tool('show', folder, 'VALUES', *options, encoding='utf-8')
    return done.stdout, done.stderr


def shown(folder, *options):
    """The fields of all records, and what was said beside them."""
    output, complaint = show(folder, '--all', '--json', *options)
    return [json.loads(line)['fields'] for line in output.splitlines()], complaint


def bytes_of(text, codec):
    """What was stored, from what is shown."""
    parts = re.split(r'\\x([0-9A-F]{2})', text)
    return b''.join(bytes.fromhex(part) if i % 2 else part.encode(codec) for i, part in enumerate(parts))


def character(byte, mark):
    """As Python has it; escaped if it has none, or a stand-in."""
    text = bytes([byte]).decode(SINGLE[mark], 'replace')
    stand_in = byte >= 0x80 and (text < '\xA0' or '\uE000' <= text <= '\uF8FF' or text == '\uFFFD')
    return '\\x%02X' % byte if stand_in or byte in DISPUTED.get(mark, b'') else text


@pytest.mark.parametrize('mark', SINGLE, ids=SINGLE.values())
def test_every_byte_of_a_code_page(tmp_path, mark):
    """As Python's codecs have it, and back; what looks like an escape too."""
    low, high, like = bytes(range(0x80)), bytes(range(0x80, 0x100)), rb'C:\x41 \\x81\xag'
    write_table(tmp_path / 'VALUES.DBF', mark, ['LOW C 128', 'HIGH C 128', 'LIKE C 20'], [low, high, like])
    (row,), complaint = shown(tmp_path)
    if SINGLE[mark] == 'mac_greek' and 'cannot convert code page 10006' in complaint:
        assert row['HIGH'] == ''.join('\\x%02X' % byte for byte in high)
    else:
        assert complaint == '' and row['HIGH'] == ''.join(character(byte, mark) for byte in high)
    assert row['LOW'] == low.decode('ascii')
    for name, stored in ('LOW', low), ('HIGH', high), ('LIKE', like):
        assert bytes_of(row[name], SINGLE[mark]) == stored


@pytest.mark.parametrize('mark, stored, options, expected', [
    (0x01, 'Müller'.encode('cp437'), [], 'Müller'), (0x65, 'Иванов'.encode('cp866'), [], 'Иванов'),
    (0x03, 'Иванов'.encode('cp866'), ['--encoding', '866'], 'Иванов'),
    (0x01, 'Zoë'.encode('cp1252'), ['--encoding', 'Windows-1252'], 'Zoë'), (0, 'Zoë'.encode('cp1252'), [], 'Zoë'),
    (0xC8, 'Łódź'.encode('cp852'), ['--encoding', '0x64'], 'Łódź'), (0, 'Zoë'.encode(), [], 'ZoÃ«'),
    (0, 'Zoë 日本 😀'.encode() + b'\x80\xC2\x9B', ['--encoding', 'utf-8'], r'Zoë 日本 😀\x80\xC2\x9B'),
    (0x7B, '日本\\ﾊ'.encode('cp932') + b'\x80\xFF\x81', [], '日本\\ﾊ\\x80\\xFF\\x81'),
    (0x7A, '中文€'.encode('gbk', 'replace')[:4] + b'\x80\xFF', [], r'中文€\xFF'),
    (0x79, '한글'.encode('cp949') + b'\xC9\x41', [], r'한글\xC9A'), (0x78, '許功'.encode('cp950'), [], '許功')])
def test_text_by_the_mark_or_by_choice(tmp_path, mark, stored, options, expected):
    """Also as one line of text; and a key of that text is found, in an order that has it in its condition."""
    write_table(tmp_path / 'VALUES.DBF', mark, ['NAME C 30'], [b'other'], [stored])
    assert [row['NAME'] for row in shown(tmp_path, *options)[0]] == ['other', expected]
    assert show(tmp_path, '--record', 2, *options)[0] == 'record 2\n  NAME        %s\n' % expected
    if '\\x' not in expected:
        condition = '' if options else ';FOR NAME="%s"' % expected
        tool('reindex', tmp_path / 'VALUES.DBF', '--tag', 'NAME=NAME' + condition, encoding='utf-8').check_returncode()
        assert show(tmp_path, '--order', 'NAME', '--seek', expected, *options)[0].startswith('record 2\n')


FIELDS = ['D B 8 0', 'Y Y 8 4', 'T T 8', 'N N 20 0', 'R N 24 3', 'DAY D 8', 'YES L 1', 'TEXT C? 8', 'AGE N? 4', 'I I 4']


def binary(double, currency, day, ms, integer, middle):
    packed = struct.pack('<dqii', double, currency, day, ms)
    return [packed[:8], packed[8:16], packed[16:], *middle, struct.pack('<i', integer)]


ROWS = [
    binary(3.14159, 2**63 - 1, 2460400, 37_845_123, -7,
           ['12345678901234567890', '1234567890123456789.125', '20240229', 'T', None, None]),
    binary(1e300, -1, 2460400, 37_845_000, 2**31 - 1, ['9007199254740993', '0.250', '0' * 8, '?', '', '']),
    binary(-0.0, 125000, 0x20202020, 0x20202020, 0, ['*' * 20, '1,5', '20260231', 'X', 'a\x1B[1m', '****']),
    binary(float('nan'), 0, 2460400, 90_000_000, 0, ['- 3', '', '2024ABCD', 'F', 'NULL', ' 0'])]

AS_JSON = [
    [3.14159, '922337203685477.5807', '2024-03-30 10:30:45.123', '12345678901234567890', '1234567890123456789.125',
     '2024-02-29', True, None, None, -7],
    [1e300, -0.0001, '2024-03-30 10:30:45', 9007199254740993, 0.25, '', '', '', '', 2**31 - 1],
    [-0.0, 12.5, '', '*' * 20, '1,5', '20260231', 'X', 'a\x1B[1m', '****', 0],
    ['NaN', 0.0, '0xF08A2500804A5D05', '- 3', '', '2024ABCD', False, 'NULL', 0, 0]]

AS_TEXT = [
    ['3.14159', '922337203685477.5807', '2024-03-30 10:30:45.123', '12345678901234567890', '1234567890123456789.125',
     '2024-02-29', 'true', 'NULL', 'NULL', '-7'],
    ['1e+300', '-0.0001', '2024-03-30 10:30:45', '9007199254740993', '0.250', '', '', '', '', '2147483647'],
    ['-0', '12.5000', '', '*' * 20, '1,5', '20260231', 'X', r'a\x1B[1m', '****', '0'],
    ['NaN', '0.0000', '0xF08A2500804A5D05', '- 3', '', '2024ABCD', 'false', 'NULL', '0', '0']]

UNREADABLE = [(3, 'N', 'number-overflow'), (3, 'R', 'number-unreadable'), (3, 'DAY', 'date-impossible'),
              (3, 'YES', 'logical-unreadable'), (3, 'AGE', 'number-overflow'), (4, 'T', 'date-impossible'),
              (4, 'N', 'number-unreadable'), (4, 'DAY', 'date-impossible')]


def test_values_are_exact(tmp_path):
    """And what is none is shown as it is stored, and named by check, which counts it as no fault."""
    write_table(tmp_path / 'VALUES.DBF', 3, FIELDS, *ROWS)
    rows, _ = shown(tmp_path)
    assert str([list(row.values()) for row in rows]) == str(AS_JSON)
    lines = show(tmp_path, '--all')[0].splitlines()
    assert [line[14:] for line in lines if not line.startswith('record')] == sum(AS_TEXT, [])
    done = tool('check', tmp_path, '--json')
    *found, summary = map(json.loads, done.stdout.splitlines())
    named = [(each['record'], each['field'], each['kind']) for each in found if each['kind'] != 'share-doubtful']
    assert (done.returncode, summary['faults'], named) == (0, 0, UNREADABLE)
    write_table(tmp_path / 'VALUES.DBF', 3, ['A C 1', 'A C 1'], ['1', '2'])
    assert shown(tmp_path)[0] == [{'A': '1', 'A#2': '2'}], 'a damaged table'


def test_keys_of_every_type(tmp_path):
    """Given as they are shown. What is none is refused: read as 0 or as no date, it would find another record."""
    write_table(tmp_path / 'VALUES.DBF', 3, FIELDS, *ROWS)
    tags = [word for name in ('T', 'DAY', 'N', 'YES') for word in ('--tag', name + '=' + name)]
    tool('reindex', tmp_path / 'VALUES.DBF', *tags).check_returncode()
    for order, key, refused in (('T', '2024-03-30 10:30:45', '10:30'), ('DAY', '2024-02-29', '20260231'),
                                ('N', '9007199254740993', '1,5'), ('YES', 'true', 'yes')):
        seek = ['show', tmp_path, 'VALUES', '--order', order, '--seek']
        assert re.search('^  %s +%s' % (order, key), tool(*seek, key).stdout, re.M)
        assert tool(*seek, refused).returncode == 2


def test_raw(practice, tmp_path):
    """The bytes as they lie in the file, those of the NULL marks and of memos too. A reference that is no number is not
    shown as an empty memo."""
    write_table(tmp_path / 'VALUES.DBF', 3, FIELDS, *ROWS)
    rows, _ = shown(tmp_path, '--raw')
    records = b''.join(b' ' + bytes.fromhex(''.join(value[2:] for value in row.values())) for row in rows)
    assert (tmp_path / 'VALUES.DBF').read_bytes().endswith(bytes(263) + records + b'\x1A')
    fields = json.loads(tool('show', practice, 'LAWNOTES', '--record', 1, '--raw', '--json').stdout)['fields']
    assert bytes.fromhex(fields['NOTE']['memo'][2:]) == practice.table('LAWNOTES').rows[0]['NOTE']
    practice.patch('LAWNOTES', 1, 'NOTE', b'x')
    assert 'NOTE' in json.loads(tool('show', practice, 'LAWNOTES', '--record', 1, '--json').stdout)['unreadable']


def test_folders_of_every_script(tmp_path, practice):
    """Every command takes them, and messages tell them as they are."""
    folder = practice.folder.rename(tmp_path / 'pü 日本')
    path = path_form(OURS)(folder)
    for command in (['check', folder], ['show', folder, 'Names'], ['journal', folder], ['doctor', folder],
                    ['repair', folder, '--dry-run'], ['reindex', folder, '--backup', folder / 'копия']):
        done = tool(*command, encoding='utf-8')
        assert done.returncode == 0, done.stderr
    assert list((folder / 'копия').iterdir())
    screen = pexpect.spawn(shlex.split(TOOL)[0], [*shlex.split(TOOL)[1:], 'show', path, 'LAW8'], encoding='utf-8')
    screen.expect_exact(path)
    for command in ['show', folder, 'LAW8'], ['sample', folder], ['check', folder / 'nowhere']:
        assert tool(*command, encoding='utf-8').stderr.startswith('brenik: ' + path)
