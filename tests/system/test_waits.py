"""What hosts wait for, and what they are told when it is in vain: held records, held tables, missing ones.

Tries are counted by the notices between them. An open shows no notice, so only its least duration is tested; the
unit tests count its tries, by a clock of their own.
"""

import os

import pytest
from conftest import SHARING_BYTE, HeldBytes, at_once, timed

pytestmark = pytest.mark.waits
LINE = 1 << 32           # positions of the library's own locking mode begin here
NOTICES = 10             # between eleven tries
OPENING = 4.5            # seconds; six tries, a second apart by the time of day


def held_record(new_host, practice):
    view, host = practice.table('LAW1'), new_host()
    assert host.init(practice) == 0
    host.begin(1, 2, {'LAST': 'Held'})
    with HeldBytes(view.path, view.lock_position(2)):
        assert host.edit_end(1) == 12 and host.notices(NOTICES) == NOTICES
        assert host.edit(1, 3, {'LAST': 'Free'}) == 0
    assert practice.table('LAW1').rows[1]['LAST'] == view.rows[1]['LAST']
    assert host.edit(1, 2, {'LAST': 'Held'}) == 0 and practice.table('LAW1').rows[1]['LAST'] == 'Held'


def briefly_held_record(new_host, practice):
    """Let go after the second notice: that leaves four seconds to do it in, and costs no more to do."""
    view, host = practice.table('LAW1'), new_host()
    assert host.init(practice) == 0
    host.begin(1, 2, {'LAST': 'Waited'})
    held = HeldBytes(view.path, view.lock_position(2))
    _, rc = at_once(lambda: host.notices(2) and held.file.close(), lambda: host.edit_end(1))
    assert rc == 0 and 2 <= host.notices() < NOTICES
    assert practice.table('LAW1').rows[1]['LAST'] == 'Waited'


def held_add(name, record):
    """The counter, or the end of the table: nothing is added, and everything is released again."""
    def add(new_host, practice):
        held, system, count = practice.table(name), practice.table('LAWSYS'), practice.table('LAW1').table.count
        host = new_host()
        assert host.init(practice) == 0 and host.add_start(1) == 0 and host.set_field(1, 'LAST', 'Later') == 0
        with HeldBytes(held.path, held.lock_position(record)):
            assert host.add_end(1) == (17, ' ' * 7) and host.notices(NOTICES) == NOTICES
        assert practice.table('LAW1').table.count == count and practice.counter('U_ID1') == system.rows[0]['U_ID1']
        HeldBytes(system.path, system.lock_position(1)).file.close()
        assert host.add_end(1)[0] == 0 and practice.table('LAW1').rows[-1]['LAST'] == 'Later'
    return add


def held_journal_entry(new_host, practice):
    """Five quick tries for the entry, then nothing at all is written."""
    host = new_host()
    assert host.init(practice) == 0 and host.edit(1, 2, {'LAST': 'First'}) == 0
    uid = practice.table('LAW1').rows[1]['U_ID']
    journal, (entry,) = practice.table('LAWTRANS'), practice.journal('01', 'E', uid)
    host.begin(1, 2, {'LAST': 'Second'})
    with HeldBytes(journal.path, journal.lock_position(entry.number)):
        assert host.edit_end(1) == 9 and host.notices() == 0
    assert practice.table('LAW1').rows[1]['LAST'] == 'First'
    assert host.edit_end(1) == 0 and practice.table('LAW1').rows[1]['LAST'] == 'Second'


def held_journal(new_host, practice):
    """Without a place in the journal notices fail; edits are written all the same."""
    journal, host = practice.table('LAWTRANS'), new_host()
    number = next(r.number for r in practice.table('LAW1').rows if not journal.where(CCODE='E', U_ID=r['U_ID']))
    practice.patch('LAW1', number)
    assert host.init(practice) == 0
    with HeldBytes(journal.path, journal.lock_position(0)):
        results = host.added(1, number), host.deleted(1, number), host.edit(1, number, {'LAST': 'Unstamped'})
        assert results == (8, 10, 0)
    assert practice.table('LAWTRANS').table.count == journal.table.count
    assert practice.table('LAW1').rows[number - 1]['LAST'] == 'Unstamped'


def exclusive(name, rc, message):
    def start_up(new_host, practice):
        host = new_host()
        with HeldBytes(practice.find(name + '.dbf'), SHARING_BYTE):
            result, seconds = timed(host.init, practice, 1)
        assert result == rc and seconds > OPENING
        assert [arguments[1:] for _, arguments in practice.trace()][1:] == message
        if rc == 4:                                     # the tables before it are open
            assert host.add_start(1) == 0 and host.add_start(20) == 5
        assert host.init(practice) == 0
        with pytest.raises(BlockingIOError):            # now it is ours, if shared
            HeldBytes(practice.find(name + '.dbf'), SHARING_BYTE)
    return start_up


def missing_table(new_host, practice):
    os.remove(practice.find('LAW2.dbf'))
    host = new_host()
    result, seconds = timed(host.init, practice)
    assert result == 4 and seconds > OPENING and host.shutdown() == 0


def missing_links(new_host, practice):
    """The matter stays, without its link."""
    contact, host = practice.table('LAW1').rows[0]['U_ID'], new_host()
    os.remove(practice.find('LAW9.dbf'))
    assert host.init(practice) == 0
    rc, uid = host.add(3, {'MATTER': 'Unlinked'}, contact)
    assert rc == 4 and practice.table('LAW3').one(MATTER='Unlinked')['U_ID'] == uid
    assert host.add(1, {'LAST': 'Afterwards'})[0] == 0


def record_held_in_the_own_mode(new_host, practice):
    """A record that another user of the mode holds, and then lets go."""
    host = new_host()
    practice.set_locking_mode(1)
    assert host.init(practice) == 0 and host.edit_begin(1, 2) == 0 and host.set_field(1, 'LAST', 'Held') == 0
    with HeldBytes(practice.find('LAW1.dbf'), LINE + 2):
        assert host.edit_end(1) == 12 and host.notices(NOTICES) == NOTICES
    assert host.edit_begin(1, 2) == 0 and host.set_field(1, 'LAST', 'Held') == 0 and host.edit_end(1) == 0
    host.child.kill()                           # nothing of the mode is left behind in the files
    practice.set_locking_mode(0)
    assert new_host().init(practice) == 0


def mixed_modes(first, second):
    def modes(new_host, practice):
        practice.set_locking_mode(first)
        one, other = new_host(), new_host()
        assert one.init(practice) == 0
        practice.set_locking_mode(second)
        rc, seconds = timed(other.init, practice)
        assert rc == 3 and seconds > OPENING
        assert one.add(1, {'LAST': 'Undisturbed'})[0] == 0
        assert one.shutdown() == 0 and other.init(practice) == 0
        assert other.add(1, {'LAST': 'Next'})[0] == 0
    return modes


def stranger_first(new_host, practice):
    view = practice.table('LAW3')
    practice.set_locking_mode(1)
    host = new_host()
    with HeldBytes(view.path, view.lock_position(2)):
        rc, seconds = timed(host.init, practice)
        assert rc == 4 and seconds > OPENING
    assert host.init(practice) == 0


def stranger_second(new_host, practice):
    practice.set_locking_mode(1)
    host = new_host()
    assert host.init(practice) == 0
    for name in ('LAW1', 'LAWSYS', 'LAWTRANS'):
        view = practice.table(name)
        for offset in (view.lock_position(0), view.lock_position(1), view.lock_position(view.table.count + 1)):
            with pytest.raises(BlockingIOError):
                HeldBytes(view.path, offset)
        with pytest.raises(BlockingIOError):
            HeldBytes(view.path, 0x40000000, 0x3FFFFFFF)
    assert host.add(1, {'LAST': 'Alone'})[0] == 0 and host.shutdown() == 0
    HeldBytes(practice.find('LAW1.dbf'), 0x40000000, 0x3FFFFFFF).file.close()


def test_waits(new_host, new_practice):
    """All at the same time, since each takes its five seconds."""
    tasks = [held_record, briefly_held_record, held_add('LAWSYS', 1), held_add('LAW1', 0), held_journal_entry,
             held_journal, exclusive('LAWSYS', 3, [['Cannot open lawsys.']]), exclusive('LAW3', 4, []),
             exclusive('LAWTRANS', 4, []), missing_table, missing_links, record_held_in_the_own_mode, mixed_modes(0, 1),
             mixed_modes(1, 0), stranger_first, stranger_second]

    def run(number, task, practice):
        try:
            task(new_host, practice)
        except Exception as fault:
            raise AssertionError('task %d, %s' % (number, task.__qualname__)) from fault
    at_once(*[lambda number=number, task=task, practice=new_practice('%d' % number): run(number, task, practice)
              for number, task in enumerate(tasks)])
