"""Editing records: selection, conversion of texts, change slots in the journal."""

import pytest
from judges import assert_sound


def slots(view, entry):
    """{field: its six bytes} of an edit entry's change slots that have any."""
    data = entry.raw['CDATA']
    return {name: data[6 * i:6 * i + 6] for i, name in enumerate(view.names) if data[6 * i:6 * i + 6] != bytes(6)}


def test_edit_and_its_journal_entry(session, practice):
    before = practice.table('LAW1')
    row, uid = before.rows[4], before.rows[4]['U_ID']
    assert session.edit_start(1, uid) == 0
    assert session.set_field(1, 'last', 'Aardvark', row.number) == 0
    assert session.set_field(1, 'City', 'Nëw Town') == 0
    assert session.edit_end(1, row.number) == 0
    before.rows[4].update(LAST='Aardvark', CITY='Nëw Town')
    assert practice.table('LAW1').rows == before.rows
    entry, = practice.journal('01', 'E', uid)
    first = slots(before, entry)
    assert first == dict.fromkeys(('LAST', 'CITY'), entry.raw['CDT'] + practice.counter('MYUDN').encode())
    assert session.edit(1, row.number, {'LAST': 'Zymurgy'}) == 0
    entry, = practice.journal('01', 'E', uid)           # one entry a record, its slots are kept
    assert slots(before, entry).keys() == first.keys() and slots(before, entry)['LAST'] >= first['LAST']
    assert_sound(practice.folder)


def test_edit_without_a_change(session, practice):
    """Trailing blanks are no change; a text of another length is, even if the field ends up the same."""
    row, before = practice.table('LAW1').rows[1], practice.table('LAWTRANS').table.count
    name = row.raw['LAST'].decode('latin-1')
    for text in (row['LAST'], row['LAST'] + ' ', name, name + ' ' * 300):
        assert session.edit(1, row.number, {'LAST': text}) == 0
    assert practice.table('LAWTRANS').table.count == before
    assert session.edit(1, row.number, {'LAST': ' ' + row['LAST']}) == 0
    view = practice.table('LAW1')
    assert view.rows[1]['LAST'] == ' ' + row['LAST']
    entry, = practice.journal('01', 'E', row['U_ID'])
    assert 'LAST' in slots(view, entry)
    practice.patch('LAWTRANS', entry.number, 'CDT', b'long')        # a stamp of long ago
    assert session.edit(1, row.number, {'LAST': view.rows[1]['LAST']}) == 0
    assert practice.journal('01', 'E', row['U_ID'])[0].raw['CDT'] == b'long'


def test_selection_by_identifier(session, practice):
    rows = practice.table('LAW1').rows
    uids = sorted(row['U_ID'] for row in rows)
    assert session.edit_start(1, uids[3]) == 0
    assert [session.edit_start(1, uid) for uid in ('zzzzzzz', uids[3][:6] + '#', 'ZZZZZZZ')] == [16] * 3
    assert session.edit_start(1, uids[0][:3]) == 0      # the first identifier that begins with it
    first = min(uid for uid in uids if uid.startswith(uids[0][:3]))
    assert session.set_field(1, 'FIRST', 'Found') == 0 and session.edit_end(1) == 0
    assert [row['U_ID'] for row in practice.table('LAW1').where(FIRST='Found')] == [first]


def test_selection_by_number(session, practice):
    count = practice.table('LAW3').table.count
    codes = {-1: 6, 0: 6, count + 1: 6, 1 << 30: 6, 1: 0, count: 0}
    assert {record: session.edit_begin(3, record) for record in codes} == codes
    assert [session.edit_begin(table, 1) for table in (0, 256, 8, 255)] == [5] * 4
    assert [session.edit_start(table, 'X') for table in (-3, 257, 9)] == [5] * 3
    practice.patch('LAW3', 2)
    assert session.edit(3, 2, {'MATTER': 'Deleted, yet editable'}) == 0
    assert practice.table('LAW3').rows[1].deleted and practice.table('LAW3').rows[1]['MATTER'].startswith('Deleted')


def test_values_that_fit_no_binary_field(session, practice):
    """Nothing is left of an addition or edit whose values cannot be filled in, and no identifier is used up."""
    names = 'LAW3', 'LAWSYS', 'LAWTRANS'
    before = [practice.table(name).rows for name in names]
    assert [session.add(3, {'PRIORITY': '9' * 30})[0] for _ in range(3)] == [14] * 3
    assert session.edit(3, 1, {'RATE': '9' * 30}) == 14
    assert [practice.table(name).rows for name in names] == before


def test_refusals_of_set_field_and_edit_end(session, practice):
    assert session.set_field(20, 'U_ID', 'X') == 6      # the area that start-up left current, but no buffer yet
    assert session.edit_begin(1, 2) == 0
    assert session.set_field(3, 'LAST', 'X') == 13 and session.edit_end(3) == 13
    assert session.set_field(1, 'LAST', 'X', 3) == 6 and session.edit_end(1, 3) == 6
    for name in ('', 'NOSUCH', 'LA', 'LASTX', 'LAST.', 'X' * 100000):
        assert session.set_field(1, name, 'X') == 7
    assert session.set_field(1, 'LAST', 'Two') == 0
    assert session.added(1, 7) == 0                     # moves the record pointer
    assert session.set_field(1, 'LAST', 'X', 2) == 6 and session.edit_end(1, 2) == 6
    assert session.added(3, 1) == 0                     # moves the current area
    assert session.set_field(1, 'LAST', 'X') == 13 and session.edit_end(1) == 13
    assert 'Two' not in [row['LAST'] for row in practice.table('LAW1').rows]


def test_system_table_wherever_it_stands(session, practice):
    """The library's settings and counters are those of the record that start-up found, whatever a host selects."""
    counter = practice.counter('U_ID1')
    assert session.add_start(5) == 0
    rc, uid = session.add(1, {'LAST': 'Counted'})
    assert rc == 0 and len(practice.journal('01', 'A', uid)) == 1 and practice.counter('U_ID1') == counter + 1


def test_record_zero_is_the_current_record(session, practice):
    """A second End writes the same again; one with record 0 after a move, over whatever record is current."""
    assert session.edit(1, 2, {'LAST': 'Once', 'FIRST': 'Twice'}) == 0
    rows = practice.table('LAW1').rows
    assert session.edit_end(1, 2) == 0 and session.edit_end(1) == 0
    assert practice.table('LAW1').rows == rows and len(practice.journal('01', 'E', rows[1]['U_ID'])) == 1
    assert session.edit_begin(1, 2) == 0 and session.added(1, 7) == 0 and session.edit_end(1, 0) == 0
    assert practice.table('LAW1').rows[6] == rows[1]
    assert practice.journal('01', 'E', rows[6]['U_ID'])  # under the identifier it had before


NUMBERS = {'12': 12, '-3': -3, '  7abc': 7, 'abc': 0, '': 0, '1e3': 1}
LOGICALS = {'Y': True, 'T': True, '1': True, **dict.fromkeys(('y', 'Yes', 'TRUE', '0', ''), False)}
DATES = {'20031127': '20031127', '11/27/03': '19031127', **dict.fromkeys(('abc', '', '20030229', '13/01/99'), '')}
ANY_BYTES = bytes(range(1, 256))                # a field's width cuts what is too long for it
MEMOS = [bytes(1 + (i * 7 + length) % 255 for i in range(length)) for length in (1, 56, 57, 5000, 100000, 63, 0, 700)]


@pytest.mark.parametrize('table, name, field, texts', [
    (1, 'LAW1', 'LABEL2', {text: text[:35].rstrip(b' ').decode('latin-1') for text in (ANY_BYTES, ANY_BYTES[127:170])}),
    (1, 'LAW1', 'BALANCE', dict(NUMBERS, **{'12.345': 12.35})), (3, 'LAW3', 'PRIORITY', NUMBERS),
    (2, 'LAW2', 'RNO', {'7': 7, '9' * 30: 0, '5': 5}), (1, 'LAW1', 'ACTIVE', LOGICALS), (1, 'LAW1', 'OPEN', DATES),
    (4, 'LAWNOTES', 'NOTE', {text: text for text in MEMOS}), (3, 'LAW3', 'NOTES', {text: text for text in MEMOS})])
def test_conversion(session, practice, table, name, field, texts):
    """Whatever the text, SetField succeeds; what it means follows the field's type. Other records stay as they are."""
    others = practice.table(name).rows[1:]
    for text, value in texts.items():
        assert session.edit(table, 1, {field: text}) == 0
        assert practice.table(name).rows[0][field] == value, text
    assert practice.table(name).rows[1:] == others
    assert_sound(practice.folder, name)


def test_record_without_identifier(session, practice):
    """It cannot be journalled: the fields are written and the code says so."""
    assert session.edit(1, 3, {'U_ID': ''}) == 0
    before = practice.table('LAWTRANS').table.count
    assert session.edit(1, 3, {'LAST': 'Anonymous'}) == 9
    assert practice.table('LAW1').rows[2]['LAST'] == 'Anonymous'
    assert practice.table('LAWTRANS').table.count == before
    assert session.edit(1, 4, {'LAST': 'Known'}) == 0
    assert_sound(practice.folder, 'LAW1')
