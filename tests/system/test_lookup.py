"""The firm's description and identifiers by code or case number."""

import pytest

UNTOUCHED = b'\xEE' * 8
ITEMS = ('LABEL1 LAST FIRST ID DEAR DAYPHONE EVEPHONE PHONE3 PHONE4 CLASS ATTORNEY OPEN ACTIVE LABEL1 LABEL2 LABEL3 '
         'LABEL4 CITY STATE ZIP U_ID EMAIL REFERREDBY').split()


def description(row, firm_name=''):
    items = [row[name] for name in ITEMS]
    items[12] = 'Y' if row['ACTIVE'] else 'N'
    items[0] = firm_name or items[0]
    return ''.join(item.replace('|', '/').strip(' ') + '|' for item in items).encode('latin-1')


def copied_back(text, given):
    """What a buffer that held `given` holds after `text` was copied back."""
    n = min(len(text), len(given))
    buffer = bytearray(text[:n] + given[n:] + b'\0' + UNTOUCHED)
    buffer[n + 1] = 0
    return bytes(buffer)


def primed(text, length):
    return copied_back(text, b' ' * length)


@pytest.mark.parametrize('setting, shown', [
    (None, ''), ('YOUR NAME APPEARS HERE, too', ''), ('Smith | Jones  ', 'Smith | Jones')])
def test_firm(session, practice, setting, shown):
    assert session.edit(1, 5, {'LABEL1': '  Smith & Jones LLP ', 'CITY': ' A | B', 'ZIP': '1|2', 'OPEN': '20240229',
                               'ACTIVE': 'Y', 'EMAIL': 'a@b.c'}) == 0
    row = practice.table('LAW1').rows[4]
    line = '' if setting is None else 'FirmName=%s\n' % setting
    practice.write('LAWSYS.INI', '[Main]\n%sMyFirm=%s\n' % (line, row['ID']))
    text = description(row, shown)
    for length in (0, 10, len(text) - 1, len(text), 5000):
        assert session.firm(length) == primed(text, length)


def test_firm_is_sought_and_everything_left_where_it_was(session, practice):
    """No change of case, no padding: a shorter key finds the first that begins with it."""
    assert session.edit(1, 9, {'ID': 'QQFIRM'}) == 0
    text = description(practice.table('LAW1').rows[8])
    for key, found in ('QQFIRM', text), ('QQFI', text), ('qqfirm', b''), ('QQFIRMS', b''), ('', b''):
        practice.write('LAWSYS.INI', '[Main]\nMyFirm=%s\n' % key)
        assert session.edit_begin(1, 3) == 0
        assert session.firm(1000) == primed(found, 1000)
        assert session.edit_end(1, 3) == 0              # same area, same record


def test_identifier_lookup(session, practice):
    for table, name, field in ((1, 'LAW1', 'ID'), (3, 'LAW3', 'CASENUM')):
        view = practice.table(name)
        row = next(row for row in view.rows if row[field] and len(view.where(**{field: row[field]})) == 1)
        uid, key, width = row['U_ID'].encode(), row[field], len(row.raw[field])
        for text in (key, key.lower(), key + ' ', key.ljust(width) + 'and more', key.ljust(width) + 'x' * 100000):
            assert session.get_uid(table, text) == (0, uid + b'\0\0' + UNTOUCHED[1:])
        unknown = (' ' + key, key[:-1] + '\x01', '', '   ', '?')
        assert [session.get_uid(table, text)[0] for text in unknown] == [19] * 5
        assert session.edit(table, row.number, {field: 'École1'.upper()}) == 0
        assert [session.get_uid(table, text)[0] for text in ('École1', 'éCOLE1', 'ÉCOLE1', 'Ecole1')] == [0, 0, 0, 19]
    assert [session.get_uid(table, 'X')[0] for table in (0, 2, 4, 255, -1)] == [5] * 5


@pytest.mark.parametrize('text', ['', 'abc', 'ABCDEFG', '..........'])
def test_identifier_buffer(session, practice, text):
    """The shorter of result and buffer is copied; the NUL goes one past the place one expects."""
    row = practice.table('LAW1').rows[0]
    for key, code, result in ((row['ID'], 0, row['U_ID']), ('NOSUCHKEY', 19, text if len(text) == 7 else ' ' * 7)):
        assert session.get_uid(1, key, text) == (code, copied_back(result.encode(), text.encode()))
