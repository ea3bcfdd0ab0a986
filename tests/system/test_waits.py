"""What hosts wait for, and what they are told when it is in vain: held records, held tables, missing ones.

The first try for a lock shows no notice, each of the next ten ends with one. An open shows no notice, so only its
least duration is tested; the unit tests count its tries.
"""

import os
import shutil
import time

import pytest
from conftest import CLIENT, OURS, SHARING_BYTE, HeldBytes, at_once, fault_lines, timed
from judges import TableView, assert_sound

pytestmark = pytest.mark.waits
LINE = 1 << 32           # positions of the library's own locking mode begin here
TABLE_LOCK = 0x40000000, 0x3FFFFFFF
INDEX_LOCK = 0x7FFFFFFE
NOTICES = 10             # of half a second each
PATIENCE = 4.5, 10       # seconds: one wait, and not two
OPENING = 4.5            # seconds: one try, then five that are each followed by a second of the time of day


def held(kind, place, code, notices=NOTICES, proprietary=False):
    """While the record, its index or its journal entry is locked, the edit fails and writes nothing. Other records can
    be edited, unless the index is locked."""
    def edit(new_host, practice):
        host, uid = new_host(), practice.table('LAW1').rows[1]['U_ID']
        practice.set_locking_mode(proprietary)
        assert host.init(practice) == 0 and host.edit(1, 2, {'FIRST': 'Noted'}) == 0
        row, (entry,), path = practice.table('LAW1').rows[1], practice.journal('01', 'E', uid), practice.find(kind)
        offset = practice.table(kind.split('.')[0]).lock_position(entry.number if 'TRANS' in kind else 2)
        host.begin(1, 2, {'LAST': 'Held'})
        with HeldBytes(path, place or offset):
            assert host.edit_end(1) == code and host.notices(notices) == notices
            assert kind != 'LAW1.dbf' or host.edit(1, 3, {'LAST': 'Free'}) == 0
        assert practice.table('LAW1').rows[1] == row
        assert host.edit(1, 2, {'LAST': 'Held'}) == 0 and practice.table('LAW1').rows[1]['LAST'] == 'Held'
        host.child.kill()                       # nothing of the mode is left behind in the files
        practice.set_locking_mode(not proprietary)
        assert new_host().init(practice) == 0
    return edit


def briefly_held(name, record):
    """The record or the journal, let go after two seconds: the edit is made and has its entry."""
    def edit(new_host, practice):
        view, host, uid = practice.table(name), new_host(), practice.table('LAW1').rows[4]['U_ID']
        assert host.init(practice) == 0 and not practice.journal('01', 'E', uid)
        host.begin(1, 5, {'LAST': 'Waited'})
        held = HeldBytes(view.path, view.lock_position(record))
        _, rc = at_once(lambda: time.sleep(2) or held.file.close(), lambda: host.edit_end(1))
        assert rc == 0 and host.notices() < NOTICES
        assert practice.table('LAW1').rows[4]['LAST'] == 'Waited' and len(practice.journal('01', 'E', uid)) == 1
    return edit


def held_add(name, record, kind='.dbf', number=1, field='LAST'):
    """The counter, the end of the table or its index: nothing is added, and everything is released again."""
    def add(new_host, practice):
        table = 'LAW%d' % number

        def counts():
            return [practice.table(t).table.count for t in (table, 'LAWTRANS')], practice.table('LAWSYS').rows[0].raw
        position, system, before = practice.table(name).lock_position(record), practice.table('LAWSYS'), counts()
        host = new_host()
        assert host.init(practice) == 0 and host.add_start(number) == 0 and host.set_field(number, field, 'Later') == 0
        with HeldBytes(practice.find(name + kind), position):
            result, seconds = timed(host.add_end, number)
        assert result == (17, ' ' * 7) and PATIENCE[0] < seconds < PATIENCE[1] and host.notices() == NOTICES
        assert counts() == before
        HeldBytes(system.path, system.lock_position(1)).file.close()
        assert host.add_end(number)[0] == 0 and practice.table(table).rows[-1][field] == 'Later'
        assert_sound(practice.folder, table, 'LAWTRANS')
    return add


def held_journal(kind, *place):
    def journal(new_host, practice):
        """While the journal is locked, reports fail, and adds and edits are made without an entry, each after the wait
        for a place in a table. Nobody waits for another, but the two adds may meet at the counter for a moment: fewer
        than half the notices prove that neither waited out the other."""
        before, hosts = practice.table('LAWTRANS'), [new_host() for _ in range(5)]
        number = next(r.number for r in practice.table('LAW1').rows if not before.where(CCODE='E', U_ID=r['U_ID']))
        practice.patch('LAW1', number)
        assert {host.init(practice) for host in hosts} == {0}
        values = {'LAST': 'Unstamped'}
        calls = [lambda host: host.added(1, number), lambda host: host.deleted(1, number),
                 lambda host: host.edit(1, number, values), lambda host: host.add(1, values)[0],
                 lambda host: host.add(3, {'MATTER': 'Unstamped'})[0]]
        with HeldBytes(practice.find('LAWTRANS' + kind), *place):
            results = at_once(*[lambda call=call, host=host: timed(call, host) for call, host in zip(calls, hosts)])
        assert [rc for rc, _ in results] == [8, 10, 0, 0, 0]
        notices = [host.notices() for host in hosts]
        assert notices[:3] == [0, 0, 0] and max(notices) < NOTICES / 2, notices
        assert all(PATIENCE[0] < seconds < PATIENCE[1] for _, seconds in results), results
        assert practice.table('LAWTRANS').table.count == before.table.count
        assert [row.number for row in practice.table('LAW1').where(LAST='Unstamped')][0] == number
        assert practice.table('LAW1').rows[-1]['LAST'] == practice.table('LAW3').rows[-1]['MATTER'] == 'Unstamped'
    return journal


def replaced_folder(new_host, practice):
    """If another folder takes the practice's name, adds and edits answer 14 after five seconds. Neither gets them."""
    host, aside = new_host(), practice.folder.with_name(practice.folder.name + '.old')
    assert host.init(practice) == 0
    practice.folder.rename(aside)
    shutil.copytree(aside, practice.folder)
    time.sleep(5.1)
    assert host.add(1, {'LAST': 'Lost'})[0] == 14 and host.edit(1, 2, {'LAST': 'Lost'}) == 14
    for folder in practice.folder, aside:
        assert TableView(folder, 'LAW1').where(LAST='Lost') == []


def refused(file, reason, rc=4, offset=SHARING_BYTE):
    """If a table or its index is held, the start fails. The trace log names the holder, except on Windows."""
    def start_up(new_host, practice):
        host, path = new_host(), practice.find(file)
        with HeldBytes(path, offset):
            result, seconds = timed(host.init, practice, 1)
        assert result == rc and seconds > OPENING
        told = practice.trace()[1][1][1]
        name, _, said = told.partition(': ')
        holder = 'cannot tell' if OURS.library.endswith('.dll') else '(process %d, user ' % os.getpid()
        assert name.lower().endswith(file.lower()) and said.startswith(reason) and (CLIENT or holder in said)
        if rc == 4:                                     # the tables before it are open
            assert host.add_start(1) == 0 and host.add_start(20) == 5
        assert host.init(practice) == 0
        with pytest.raises(BlockingIOError):            # now it is ours, if shared
            HeldBytes(practice.find(file[:-4] + '.dbf'), SHARING_BYTE)
    return start_up


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


def test_waits(new_host, new_practice, windows_folder):
    """All at the same time, since each waits five seconds. The fault file has the reasons that no code gives."""
    tasks = [held('LAW1.dbf', None, 12), held('LAWTRANS.dbf', None, 9, 0), briefly_held('LAW1', 5),
             briefly_held('LAWTRANS', 0), held('LAW1.cdx', INDEX_LOCK, 14, 0), held_add('LAWSYS', 1),
             held_add('LAW2', 0, number=2, field='DETAIL'), held_journal('.dbf', *TABLE_LOCK),
             refused('LAWSYS.dbf', 'in exclusive use', 3), refused('LAW3.dbf', 'in exclusive use')]
    if not OURS.library.endswith('.dll'):
        tasks += [replaced_folder]
    if not CLIENT:                                      # indexes and modes of locking are its library's own business
        tasks += [held('LAW1.dbf', LINE + 2, 12, proprietary=True), held_add('LAW1', 0, '.cdx'),
                  held_journal('.cdx', INDEX_LOCK), mixed_modes(0, 1), mixed_modes(1, 0),
                  refused('LAWTRANS.cdx', 'the index is locked', offset=INDEX_LOCK)]

    def run(number, task, practice):
        try:
            task(new_host, practice)
        except Exception as fault:
            raise AssertionError('task %d, %s' % (number, task.__qualname__)) from fault
    at_once(*[lambda number=number, task=task, practice=new_practice('%d' % number): run(number, task, practice)
              for number, task in enumerate(tasks)])
    told = fault_lines(windows_folder)
    assert {'RSADD', 'RSDEL', 'RSSET', 'NET_USE'} <= {call for call, _ in told}
    assert [reason for call, reason in told if call == 'EditEnd' and 'the index is locked by' in reason]
