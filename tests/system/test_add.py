"""Adding records: identifiers, stamps, links and duplicates, down to the bytes on disk."""

import datetime
import os

import pytest
from judges import assert_sound, identifier

FILES = {1: 'LAW1', 2: 'LAW2', 3: 'LAW3', 4: 'LAWNOTES', 7: 'LAWCODES'}
TEXTS = {1: {'LAST': 'Whittaker', 'FIRST': 'Zoë', 'ID': 'WHITZOE9'}, 2: {'DETAIL': 'Call "Zoë"'},
         3: {'CASENUM': '2031-7777', 'MATTER': 'Whittaker v. Nobody'}, 4: {'TOPIC': 'Zoë'},
         7: {'TYPE': 'NEWTYPE', 'CODE': 'Zoë'}}
BLANKS = ' ' * 7


def stamp_now():
    now = datetime.datetime.now()
    day = (now.date() - datetime.date(1997, 12, 31)).days
    return day.to_bytes(2, 'big') + ((now.hour * 3600 + now.minute * 60 + now.second) // 2).to_bytes(2, 'big')


def today():
    return datetime.date.today().strftime('%Y%m%d')


@pytest.mark.parametrize('table', FILES)
def test_added_record(session, practice, table):
    view = practice.table(FILES[table])
    values = TEXTS[table]
    prefix, counter = practice.counter('MYUDN'), practice.counter('U_ID%d' % table)
    earliest = stamp_now()
    rc, uid = session.add(table, values)
    latest = stamp_now()
    assert (rc, uid) == (0, identifier(prefix, int(counter) + 1))
    assert practice.counter('U_ID%d' % table) == counter + 1
    after = practice.table(FILES[table])
    assert [dict(row) for row in after.rows[:-1]] == [dict(row) for row in view.rows]
    added = after.rows[-1]
    assert added['U_ID'] == uid
    for name, value in values.items():
        assert added[name] == value
    if table != 7:
        assert (added['ENTRY'], added['OPERATOR']) == (today(), '___')
    given = set(values) | {'U_ID', 'ENTRY', 'OPERATOR', 'ACTIVE'}
    assert not [name for name in view.names if name not in given and added[name]]
    entry, = practice.journal('%02d' % table, 'A', uid)
    assert not entry['CDATA'] and earliest <= entry.raw['CDT'] <= latest
    assert_sound(practice.folder)


@pytest.mark.parametrize('given', ['', 'ABC', 'ABCDEFG', 'ABCDEFGH', BLANKS])
def test_identifier_buffer(session, given):
    """A text that is not seven characters long counts as blank; the answer is always seven and a NUL."""
    rc, uid = session.add(1, {'LAST': 'Buffer'}, given)
    assert rc == 0 and len(uid.strip()) == 7
    assert session.add(3, {'MATTER': 'Buffer'}, given)[0] == (16 if given == 'ABCDEFG' else 0)


def test_refused_tables(session, practice):
    assert session.add_start(1) == 0
    assert [session.add_start(table) for table in (0, -1, 256, 1 << 30)] == [5] * 4
    assert session.set_field(1, 'LAST', 'Still here') == 0
    assert session.add_end(3)[0] == 13
    assert session.add_end(1)[0] == 0                   # the current area has not moved
    assert session.add_start(255) == 5                  # in range, so it moves before it finds nothing
    assert session.set_field(1, 'LAST', 'Gone') == 13
    rc, uid = session.add_end(1, 'keptuid')
    assert (rc, uid) == (13, 'keptuid')
    assert not practice.table('LAW1').where(LAST='Gone')


def test_contacts_are_active_unless_told(session, practice):
    for value, outcome in (None, True), ('N', False), ('Y', True):
        rc, uid = session.add(1, {'ACTIVE': value} if value else {})
        assert rc == 0 and practice.table('LAW1').one(U_ID=uid)['ACTIVE'] is outcome


def test_buffer_outlives_the_end(session, practice):
    """A second End appends the same values under a new identifier; so does one after an EditBegin."""
    first = session.add(1, {'LAST': 'Kept', 'FIRST': 'Once'})[1]
    second = session.add_end(1)[1]
    assert session.edit_begin(1, 1) == 0 and session.set_field(1, 'FIRST', 'Copied') == 0
    rc, third = session.add_end(1)
    assert rc == 0 and len({first, second, third}) == 3
    view = practice.table('LAW1')
    assert [row['U_ID'] for row in view.where(LAST='Kept', FIRST='Once')] == [first, second]
    copy, original = view.rows[-1], view.rows[0]
    changed = [name for name in view.names if copy.raw[name] != original.raw[name]]
    assert set(changed) <= {'U_ID', 'FIRST', 'ENTRY', 'OPERATOR'} and copy['U_ID'] == third
    assert copy['FIRST'] == 'Copied' != original['FIRST']
    assert session.add_start(1) == 0 and session.edit_end(1) == 6
    assert_sound(practice.folder)


def test_linked_matter(session, practice):
    """The cross-reference, its type as first read, and matters without one."""
    practice.write('billing/BOLink.INI', '[setup]\nlinktype=WITNESS,OTHER\n')
    contact = practice.table('LAW1').rows[3]
    before = practice.table('LAW9').table.count
    uids = []
    for number, given in enumerate([contact['U_ID'], BLANKS, 'ZZZZZZZ', contact['U_ID']]):
        rc, uid = session.add(3, {'CASENUM': '2032-%04d' % number, 'MATTER': 'Link %d' % number}, given)
        assert rc == (16 if given == 'ZZZZZZZ' else 0)
        assert practice.table('LAW3').one(U_ID=uid)['MATTER'] == 'Link %d' % number
        practice.write('billing/BOLink.INI', '[Setup]\nLinkType=CHANGED\n')
        uids.append(uid)
    links = practice.table('LAW9').rows[before:]
    assert len(links) == 2
    for link, number in zip(links, (0, 3)):
        name = contact['LAST'] + (', ' + contact['FIRST'] if contact['FIRST'] else '')
        wanted = {'ID': contact['ID'], 'CASENUM': '2032-%04d' % number, 'TYPE': 'WITNESS', 'LAST': name,
                  'MATTER': 'Link %d' % number, 'ENTRY': today(), 'U_ID1': contact['U_ID'], 'U_ID3': uids[number]}
        assert {key: link[key] for key in wanted} == wanted
    assert_sound(practice.folder)


def test_link_type_has_a_default(session, practice):
    for path in practice.folder.rglob('*'):
        if path.name.lower() == 'bolink.ini':
            path.unlink()
    contact = practice.table('LAW1').rows[0]['U_ID']
    uid = session.add(3, {'MATTER': 'Default'}, contact)[1]
    assert practice.table('LAW9').one(U_ID3=uid)['TYPE'] == 'CLIENT'


def test_link_without_its_table(session, practice):
    os.remove(practice.find('LAW9.dbf'))
    rc, uid = session.add(3, {'MATTER': 'Unlinked'}, practice.table('LAW1').rows[0]['U_ID'])
    assert rc == 4 and practice.table('LAW3').one(MATTER='Unlinked')['U_ID'] == uid
    assert session.add(1, {'LAST': 'Afterwards'})[0] == 0


def test_duplicate_codes(session, practice):
    """The first two fields decide, padded or cut to 10 and 40; the refusal names the existing code."""
    rc, uid = session.add(7, {'TYPE': 'NEWCODE', 'CODE': 'A new value'})
    assert rc == 0
    rows = practice.table('LAWCODES').rows
    for code, refused in (('A new value', uid), ('A new value' + ' ' * 60, uid), ('A new value' + ' ' * 30 + 'x', uid)):
        assert session.add(7, {'TYPE': 'NEWCODE   tail', 'CODE': code}) == (18, refused)
    assert session.add(7, {name: rows[3][name] for name in ('TYPE', 'CODE')}) == (18, rows[3]['U_ID'])
    assert practice.table('LAWCODES').table.count == len(rows)
    assert session.add(7, {'TYPE': 'NEWCODE', 'CODE': 'A new valu'})[0] == 0
    assert_sound(practice.folder, 'LAWCODES', 'LAWSYS', 'LAWTRANS')


def test_duplicates_are_sought_in_the_active_order(session, practice):
    """An EditStart leaves codes in the order of identifiers, where no duplicate is ever found."""
    row = practice.table('LAWCODES').rows[3]
    values = {name: row[name] for name in ('TYPE', 'CODE')}
    assert session.edit_start(7, row['U_ID']) == 0
    rc, uid = session.add(7, values)
    assert rc == 0 and len(practice.table('LAWCODES').where(**values)) == 2
    assert session.init(practice) == 0 and session.add(7, values) == (18, row['U_ID'])


def test_running_record_number(session, practice):
    """It is issued in the system table; the record itself keeps what the host's buffer says."""
    for before, after in ((99999997, 99999998), (99999998, 99999999), (99999999, 0)):
        practice.patch('LAWSYS', 1, 'RECORDNO', b'%d' % before)
        rc, uid = session.add(2, {'RNO': '5'})
        assert rc == 0 and practice.counter('RECORDNO') == after
        assert practice.table('LAW2').one(U_ID=uid)['RNO'] == 5


@pytest.mark.parametrize('counter, digits', [(61, '00010'), (3843, '00100'), (916132830, 'zzzzz')])
def test_identifier_digits(session, practice, counter, digits):
    practice.patch('LAWSYS', 1, 'U_ID1', b'%d' % counter)
    assert session.add(1, {'LAST': 'Digits'}) == (0, practice.counter('MYUDN') + digits)
    assert practice.counter('U_ID1') == counter + 1


def test_tracking_switched_off(host, practice):
    practice.patch('LAWSYS', 1, 'TRACKSYNC', b'F')
    assert host.init(practice) == 0
    before = practice.table('LAWTRANS').table.count
    assert host.add(1, {'LAST': 'Untracked'})[0] == 0
    assert host.edit(1, 1, {'LAST': 'Untracked too'}) == 0
    assert host.added(1, 1) == 0
    practice.patch('LAW1', 2)
    assert host.deleted(1, 2) == 0
    assert practice.table('LAWTRANS').table.count == before
    assert practice.table('LAW1').rows[0]['LAST'] == 'Untracked too'
    assert practice.table('LAW1').where(LAST='Untracked')


def test_stamps_never_run_behind(host, practice):
    practice.patch('LAWSYS', 1, 'TLASTDELTA', b'86399')
    assert host.init(practice) == 0
    uid = host.add(1, {'LAST': 'Late'})[1]
    assert practice.journal('01', 'A', uid)[0].raw['CDT'][2:] == (43199).to_bytes(2, 'big')


def test_text_of_any_bytes(session, practice):
    """Every byte but 0 goes in and comes out; the field's width cuts."""
    text = bytes(range(1, 256))
    rc, uid = session.add(1, {'LAST': text[200:], 'LABEL1': text[:40], 'LABEL2': text[127:170]})
    row = practice.table('LAW1').one(U_ID=uid)
    for name, given in (('LAST', text[200:]), ('LABEL1', text[:40]), ('LABEL2', text[127:170])):
        assert row.raw[name] == given.ljust(len(row.raw[name]))[:len(row.raw[name])]
    assert_sound(practice.folder, 'LAW1')
