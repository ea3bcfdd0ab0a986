"""Records that the host added or deleted by its own means."""

from judges import assert_sound


def test_added(session, practice):
    """Every report makes an entry, for deleted records too."""
    view = practice.table('LAW3')
    row, count = view.rows[2], view.table.count
    practice.patch('LAW3', row.number)
    before = len(practice.journal('03', 'A', row['U_ID']))
    assert [session.added(3, record) for record in (row.number, row.number, count)] == [0, 0, 0]
    assert len(practice.journal('03', 'A', row['U_ID'])) == before + 2
    assert [session.added(3, record) for record in (0, count + 1, 1 << 30, -1)] == [6] * 4
    assert [session.added(table, 1) for table in (0, -1, 8, 99, 256, 100000)] == [5] * 6
    assert_sound(practice.folder, 'LAWTRANS')


def test_deleted(session, practice):
    """One entry a record, with the workstation's code; only deleted records count."""
    row, count = practice.table('LAW1').rows[5], practice.table('LAW1').table.count
    assert [session.deleted(1, record) for record in (row.number, 0, count + 1)] == [6] * 3
    assert not practice.journal('01', 'D', row['U_ID'])
    practice.patch('LAW1', row.number)
    assert [session.deleted(1, row.number), session.deleted(1, row.number)] == [0, 0]
    entry, = practice.journal('01', 'D', row['U_ID'])
    assert entry.raw['CDATA'].rstrip(b' ') == practice.counter('MYUDN').encode() and entry.raw['CDT'] != bytes(4)
    assert session.edit(1, 2, {'U_ID': ''}) == 0
    practice.patch('LAW1', 2)
    assert (session.added(1, 2), session.deleted(1, 2)) == (8, 10)
    assert_sound(practice.folder, 'LAWTRANS')


def test_what_stays_current(session):
    """A look-up and a notice leave or close what an edit has selected."""
    assert session.edit_begin(3, 1) == 0 and session.get_uid(3, '')[0] == 19 and session.get_uid(2, 'X')[0] == 5
    assert session.set_field(3, 'MATTER', 'Here') == 0
    assert session.deleted(99, 1) == 5 and [session.set_field(table, 'NOSUCH', '') for table in (3, 1)] == [13, 7]
    assert session.added(99, 1) == 5 and session.set_field(1, 'NOSUCH', '') == 13
