"""Adding records: identifiers, stamps, links and duplicates, down to the bytes on disk."""

import datetime
from pathlib import Path

import pytest
from judges import assert_sound, identifier

TABLES = {1: ('LAW1', {'LAST': 'Whittaker', 'FIRST': 'Zoë', 'ID': 'WHITZOE9'}), 2: ('LAW2', {'DETAIL': 'Call "Zoë"'}),
          3: ('LAW3', {'CASENUM': '2031-7777', 'MATTER': 'Whittaker v. Nobody'}), 4: ('LAWNOTES', {'TOPIC': 'Zoë'}),
          7: ('LAWCODES', {'TYPE': 'NEWTYPE', 'CODE': 'Zoë'})}
BLANKS = ' ' * 7


def stamp_now():
    now = datetime.datetime.now()
    day = (now.date() - datetime.date(1997, 12, 31)).days
    return day.to_bytes(2, 'big') + ((now.hour * 3600 + now.minute * 60 + now.second) // 2).to_bytes(2, 'big')


def today():
    return datetime.date.today().strftime('%Y%m%d')


@pytest.mark.parametrize('table', TABLES)
def test_added_record(session, practice, table):
    name, values = TABLES[table]
    before, counter = practice.table(name), practice.counter('U_ID%d' % table)
    earliest = stamp_now()
    rc, uid = session.add(table, values)
    latest = stamp_now()
    assert (rc, uid) == (0, identifier(practice.counter('MYUDN'), int(counter) + 1))
    assert practice.counter('U_ID%d' % table) == counter + 1
    *others, added = practice.table(name).rows
    assert others == before.rows
    wanted = dict(values, U_ID=uid, **({'ACTIVE': True} if table == 1 else {}),
                  **({} if table == 7 else {'ENTRY': today(), 'OPERATOR': '___'}))
    assert {field: value for field, value in added.items() if value} == wanted
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
    assert session.add_end(1, 'keptuid') == (13, 'keptuid')
    assert not practice.table('LAW1').where(LAST='Gone')


def test_buffer_outlives_the_end(session, practice):
    """A second End appends the same values under a new identifier; so does one after an EditBegin."""
    uids = [session.add(1, {'LAST': 'Kept', 'FIRST': 'Once'})[1], session.add_end(1)[1]]
    session.begin(1, 1, {'FIRST': 'Copied'})
    rc, uid = session.add_end(1)
    assert rc == 0 and len({*uids, uid}) == 3
    original, *_, copy = practice.table('LAW1').rows
    assert [row['U_ID'] for row in practice.table('LAW1').where(LAST='Kept', FIRST='Once')] == uids
    assert copy == dict(original, U_ID=uid, FIRST='Copied', ENTRY=copy['ENTRY'], OPERATOR=copy['OPERATOR'])
    assert original['FIRST'] != 'Copied'
    assert session.add_start(1) == 0 and session.edit_end(1) == 6


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
        assert wanted.items() <= link.items()
    practice.write('billing/BOLink.INI', '')
    assert session.init(practice) == 0
    _, uid = session.add(3, {'MATTER': 'Default'}, contact['U_ID'])
    assert practice.table('LAW9').one(U_ID3=uid)['TYPE'] == 'CLIENT'
    assert_sound(practice.folder)


def test_duplicate_codes(session, practice):
    """The first two fields decide, padded or cut to 10 and 40; the refusal names the existing code. An EditStart
    leaves codes in the order of identifiers, where no duplicate is ever found."""
    rc, uid = session.add(7, {'TYPE': 'NEWCODE', 'CODE': 'A new value'})
    assert rc == 0
    rows = practice.table('LAWCODES').rows
    for code in 'A new value', 'A new value' + ' ' * 60, 'A new value' + ' ' * 30 + 'x':
        assert session.add(7, {'TYPE': 'NEWCODE   tail', 'CODE': code}) == (18, uid)
    values = {name: rows[3][name] for name in ('TYPE', 'CODE')}
    assert session.add(7, values) == (18, rows[3]['U_ID'])
    assert practice.table('LAWCODES').table.count == len(rows)
    assert session.add(7, {'TYPE': 'NEWCODE', 'CODE': 'A new valu'})[0] == 0
    assert_sound(practice.folder, 'LAWCODES', 'LAWSYS', 'LAWTRANS')
    assert session.edit_start(7, uid) == 0
    assert session.add(7, values)[0] == 0 and len(practice.table('LAWCODES').where(**values)) == 2
    assert session.init(practice) == 0 and session.add(7, values) == (18, rows[3]['U_ID'])


def test_running_record_number(session, practice):
    """It is issued in the system table and starts again at 0; the record keeps what the host's buffer says."""
    place = practice.table('LAWSYS').table.by_name['RECORDNO']
    for before, after in ((99999998, 99999999), (99999999, 0)):
        practice.patch('LAWSYS', 1, 'RECORDNO', b'%d' % before)
        rc, uid = session.add(2, {'RNO': '5'})
        header = practice.table('LAWSYS').table.header_size
        written = Path(practice.find('LAWSYS.dbf')).read_bytes()[header + place.offset:][:place.width]
        assert (rc, written) == (0, b'%8d' % after)
        assert practice.table('LAW2').one(U_ID=uid)['RNO'] == 5


def test_tracking_switched_off(host, practice):
    practice.patch('LAWSYS', 1, 'TRACKSYNC', b'F')
    practice.patch('LAW1', 2)
    before = practice.table('LAWTRANS').table.count
    assert host.init(practice) == 0
    assert host.add(1, {'LAST': 'Untracked'})[0] == 0 and host.edit(1, 1, {'LAST': 'Untracked'}) == 0
    assert (host.added(1, 1), host.deleted(1, 2)) == (0, 0)
    assert practice.table('LAWTRANS').table.count == before
    assert len(practice.table('LAW1').where(LAST='Untracked')) == 2
