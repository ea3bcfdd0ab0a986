"""Several workstations on one practice: together, in each other's way, and one of them dying."""

import random
import re
import time

import pytest
from conftest import SHARING_BYTE, HeldBytes, HostGone, at_once
from judges import TableView, assert_finished, assert_sound

ADDITIONS = 100


def work(host, seed, contact):
    """Adds contacts and linked matters, edits what it added and what everybody edits."""
    random_numbers = random.Random(seed)
    mine = {1: [], 3: []}
    for number in range(ADDITIONS):
        table = random_numbers.choice((1, 3))
        values = {'LAST': 'W%d-%d' % (seed, number)} if table == 1 else {'MATTER': 'W%d-%d' % (seed, number)}
        rc, uid = host.add(table, values, contact if table == 3 else '')
        assert rc == 0
        mine[table].append(uid)
        assert host.edit_start(table, random_numbers.choice(mine[table])) == 0
        assert host.set_field(table, 'OPERATOR', '%03d' % number) == 0 and host.edit_end(table) == 0
        if number % 5 == 0:
            assert host.edit(1, 1, {'FIRST': 'By %d' % seed}) == 0
    return mine


@pytest.mark.parametrize('count', [2, 4])
def test_working_at_once(new_host, practice, count):
    start = {name: practice.table(name).table.count for name in ('LAW1', 'LAW3', 'LAW9')}
    counters = {table: practice.counter('U_ID%d' % table) for table in (1, 3)}
    contact = practice.table('LAW1').rows[4]['U_ID']
    hosts = [new_host() for _ in range(count)]
    assert [host.init(practice) for host in hosts] == [0] * count
    results = at_once(*[lambda seed=seed, host=host: work(host, seed, contact) for seed, host in enumerate(hosts)])
    journal = TableView(practice.folder, 'LAWTRANS').rows
    for table, name in ((1, 'LAW1'), (3, 'LAW3')):
        uids = [uid for result in results for uid in result[table]]
        added = practice.table(name).rows[start[name]:]
        assert len(set(uids)) == len(uids) and sorted(row['U_ID'] for row in added) == sorted(uids)
        assert practice.counter('U_ID%d' % table) == counters[table] + len(uids)
        noted = sorted(row['U_ID'] for row in journal if (row['CDB'], row['CCODE']) == ('%02d' % table, 'A'))
        assert set(uids) <= set(noted) and len(set(noted)) == len(noted)
        seeds = {uid: seed for seed, result in enumerate(results) for uid in result[table]}
        field = {1: 'LAST', 3: 'MATTER'}[table]
        assert all(row[field].startswith('W%d-' % seeds[row['U_ID']]) for row in added)
    assert re.fullmatch('By [0-9]', practice.table('LAW1').rows[0]['FIRST'])
    edits = [(row['CDB'], row['U_ID']) for row in journal if row['CCODE'] == 'E']
    assert len(set(edits)) == len(edits)
    matters = [uid for result in results for uid in result[3]]
    assert sorted(row['U_ID3'] for row in practice.table('LAW9').rows[start['LAW9']:]) == sorted(matters)
    assert_sound(practice.folder)


def timed(call, *arguments):
    begin = time.monotonic()
    return call(*arguments), time.monotonic() - begin


def held_record(host, practice):
    view = practice.table('LAW1')
    assert host.init(practice) == 0 and host.edit_begin(1, 2) == 0 and host.set_field(1, 'LAST', 'Held') == 0
    with HeldBytes(view.path, view.lock_position(2)):
        rc, seconds = timed(host.edit_end, 1)
        assert host.edit(1, 3, {'LAST': 'Free'}) == 0
    assert rc == 12 and 4.5 < seconds < 9
    assert host.edit_begin(1, 2) == 0 and practice.table('LAW1').rows[1]['LAST'] == view.rows[1]['LAST']
    assert host.set_field(1, 'LAST', 'Held') == 0 and host.edit_end(1) == 0
    assert practice.table('LAW1').rows[1]['LAST'] == 'Held'


def briefly_held_record(host, practice):
    view = practice.table('LAW1')
    assert host.init(practice) == 0 and host.edit_begin(1, 2) == 0 and host.set_field(1, 'LAST', 'Waited') == 0

    def hold():
        with HeldBytes(view.path, view.lock_position(2)):
            time.sleep(1.2)
    hold_first = lambda: time.sleep(0.3) or timed(host.edit_end, 1)  # noqa: E731
    _, (rc, seconds) = at_once(hold, hold_first)
    assert rc == 0 and 0.5 < seconds < 4
    assert practice.table('LAW1').rows[1]['LAST'] == 'Waited'


def held_counter(host, practice):
    system, before = practice.table('LAWSYS'), practice.table('LAW1').rows
    assert host.init(practice) == 0 and host.add_start(1) == 0 and host.set_field(1, 'LAST', 'Later') == 0
    with HeldBytes(system.path, system.lock_position(1)):
        (rc, uid), seconds = timed(host.add_end, 1)
    assert (rc, uid) == (17, ' ' * 7) and 4.5 < seconds < 9
    assert len(practice.table('LAW1').rows) == len(before) and practice.counter('U_ID1') == system.rows[0]['U_ID1']
    assert host.add_end(1)[0] == 0 and practice.table('LAW1').rows[-1]['LAST'] == 'Later'


def held_append(host, practice):
    view, counter = practice.table('LAW1'), practice.counter('U_ID1')
    assert host.init(practice) == 0 and host.add_start(1) == 0
    with HeldBytes(view.path, view.lock_position(0)):
        (rc, uid), seconds = timed(host.add_end, 1)
    assert (rc, uid) == (17, ' ' * 7) and 4.5 < seconds < 12 and practice.counter('U_ID1') == counter
    system = practice.table('LAWSYS')
    HeldBytes(system.path, system.lock_position(1)).file.close()    # the counter was released again
    assert host.add_end(1)[0] == 0


def held_journal_entry(host, practice):
    """Five quick tries for the entry, then nothing at all is written."""
    assert host.init(practice) == 0 and host.edit(1, 2, {'LAST': 'First'}) == 0
    uid = practice.table('LAW1').rows[1]['U_ID']
    journal, (entry,) = practice.table('LAWTRANS'), practice.journal('01', 'E', uid)
    assert host.edit_begin(1, 2) == 0 and host.set_field(1, 'LAST', 'Second') == 0
    with HeldBytes(journal.path, journal.lock_position(entry.number)):
        rc, seconds = timed(host.edit_end, 1)
    assert rc == 9 and seconds < 3 and practice.table('LAW1').rows[1]['LAST'] == 'First'
    assert host.edit_end(1) == 0 and practice.table('LAW1').rows[1]['LAST'] == 'Second'


def held_journal(host, practice):
    """Without a place in the journal notices fail; edits are written all the same."""
    journal = practice.table('LAWTRANS')
    number = next(r.number for r in practice.table('LAW1').rows if not journal.where(CCODE='E', U_ID=r['U_ID']))
    practice.patch('LAW1', number)
    assert host.init(practice) == 0
    with HeldBytes(journal.path, journal.lock_position(0)):
        results = host.added(1, number), host.deleted(1, number), host.edit(1, number, {'LAST': 'Unstamped'})
        assert results == (8, 10, 0)
    assert practice.table('LAWTRANS').table.count == journal.table.count
    assert practice.table('LAW1').rows[number - 1]['LAST'] == 'Unstamped'


def exclusive(name, rc, message):
    def start_up(host, practice):
        with HeldBytes(practice.find(name + '.dbf'), SHARING_BYTE):
            result, seconds = timed(host.init, practice, 1)
        assert result == rc and 4.5 < seconds < 9
        assert [arguments[1:] for _, arguments in practice.trace()][1:] == message
        assert host.init(practice) == 0
        with pytest.raises(BlockingIOError):            # now it is ours, if shared
            HeldBytes(practice.find(name + '.dbf'), SHARING_BYTE)
    start_up.__name__ = 'exclusive_' + name
    return start_up


def test_waits(new_host, new_practice):
    """All of them at the same time, since each takes its five seconds."""
    tasks = [held_record, briefly_held_record, held_counter, held_append, held_journal_entry, held_journal,
             exclusive('LAWSYS', 3, [['Cannot open lawsys.']]), exclusive('LAW3', 4, []), exclusive('LAWTRANS', 4, [])]
    at_once(*[lambda task=task, host=new_host(), practice=new_practice(task.__name__): task(host, practice)
              for task in tasks])


def add_until_gone(host, stop, seed):
    """Acknowledged identifiers; ends when the host is killed or the time is over."""
    uids, number = [], 0
    try:
        while time.monotonic() < stop:
            number += 1
            rc, uid = host.add(1, {'LAST': 'K%d-%d' % (seed, number), 'ID': 'K%dX%d' % (seed, number)})
            assert rc == 0
            uids.append(uid)
            assert host.edit(1, 1 + number % 30, {'FIRST': 'K%d' % number}) == 0
    except HostGone:
        pass
    return uids


def test_killed_at_any_moment(new_host, practice):
    """Nothing that was acknowledged is lost, and the damage ends with the victim's own last record."""
    random_numbers, acknowledged, survivor = random.Random(1), [], new_host()
    assert survivor.init(practice) == 0
    for _ in range(5):
        victims = [new_host(), new_host()]
        assert [host.init(practice) for host in victims] == [0, 0]
        stop = time.monotonic() + 0.7

        def kill(delays=[random_numbers.uniform(0.05, 0.3) for _ in victims]):
            for host, delay in zip(victims, delays):
                time.sleep(delay)
                host.child.kill()
        _, *uids = at_once(kill, *[lambda host=host, number=number: add_until_gone(host, stop, number)
                                   for number, host in enumerate([survivor] + victims)])
        acknowledged += sum(uids, [])
    assert len(set(acknowledged)) == len(acknowledged) > 50
    view = practice.table('LAW1')
    present = [row['U_ID'] for row in view.rows if row['U_ID']]
    assert set(acknowledged) <= set(present) and len(set(present)) == len(present)
    noted = {row['U_ID'] for row in practice.table('LAWTRANS').where(CCODE='A', CDB='01')}
    assert set(acknowledged) <= noted
    assert_finished(practice, 'LAW1', acknowledged)
    newcomer = new_host()
    assert newcomer.init(practice) == 0
    assert [uid for uid in acknowledged if newcomer.edit_start(1, uid)] == []
    assert newcomer.add(1, {'LAST': 'Newcomer'})[0] == 0
