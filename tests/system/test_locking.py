"""The library's own locking mode as hosts meet it, and tables that can grow no further."""

import hashlib
import os
import struct

import pytest
from conftest import HeldBytes, at_once
from judges import TableView, assert_sound
from test_shared import timed, work

LINE = 1 << 32           # positions of the library's own mode begin here


def set_mode(practice, proprietary):
    practice.write('LAWSYS.INI', '[Main]\r\nnServerType=0\r\nLockType=%d\r\n' % proprietary)


@pytest.fixture
def own_practice(practice):
    set_mode(practice, 1)
    return practice


@pytest.mark.parametrize('count', [2, 4])
def test_working_at_once_in_the_own_mode(new_host, own_practice, count):
    practice = own_practice
    start = practice.table('LAW1').table.count
    contact = practice.table('LAW1').rows[4]['U_ID']
    hosts = [new_host() for _ in range(count)]
    assert [host.init(practice) for host in hosts] == [0] * count
    results = at_once(*[lambda seed=seed, host=host: work(host, seed, contact) for seed, host in enumerate(hosts)])
    for table, name in ((1, 'LAW1'), (3, 'LAW3')):
        uids = sorted(uid for result in results for uid in result[table])
        assert len(set(uids)) == len(uids)
        assert uids == sorted(row['U_ID'] for row in practice.table(name).rows if row['U_ID'] in set(uids))
        noted = {row['U_ID'] for row in TableView(practice.folder, 'LAWTRANS').where(CDB='%02d' % table, CCODE='A')}
        assert set(uids) <= noted
    assert practice.table('LAW1').table.count == start + sum(len(result[1]) for result in results)
    assert_sound(practice.folder)


def record_held_in_the_own_mode(new_host, practice):
    """A record, and the journal's end, that another user of the mode holds, and then lets go."""
    host = new_host()
    set_mode(practice, 1)
    assert host.init(practice) == 0 and host.edit_begin(1, 2) == 0 and host.set_field(1, 'LAST', 'Held') == 0
    with HeldBytes(practice.find('LAW1.dbf'), LINE + 2):
        rc, seconds = timed(host.edit_end, 1)
    assert rc == 12 and 4.5 < seconds < 9
    assert host.edit_begin(1, 2) == 0 and host.set_field(1, 'LAST', 'Held') == 0 and host.edit_end(1) == 0
    host.child.kill()                           # nothing of the mode is left behind in the files
    set_mode(practice, 0)
    assert new_host().init(practice) == 0


def mixed(first, second):
    def modes(new_host, practice):
        set_mode(practice, first)
        one, other = new_host(), new_host()
        assert one.init(practice) == 0
        set_mode(practice, second)
        rc, seconds = timed(other.init, practice)
        assert rc == 3 and 4.5 < seconds < 9
        assert one.add(1, {'LAST': 'Undisturbed'})[0] == 0
        assert one.shutdown() == 0 and other.init(practice) == 0
        assert other.add(1, {'LAST': 'Next'})[0] == 0
    modes.__name__ = 'mixed_%d_%d' % (first, second)
    return modes


def stranger_first(new_host, practice):
    view = practice.table('LAW3')
    set_mode(practice, 1)
    host = new_host()
    with HeldBytes(view.path, view.lock_position(2)):
        rc, seconds = timed(host.init, practice)
        assert rc == 4 and 4.5 < seconds < 9
    assert host.init(practice) == 0


def stranger_second(new_host, practice):
    set_mode(practice, 1)
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


def test_modes_and_strangers(new_host, new_practice):
    """All at the same time, since refusals take five seconds."""
    tasks = [record_held_in_the_own_mode, mixed(0, 1), mixed(1, 0), stranger_first, stranger_second]
    at_once(*[lambda task=task, practice=new_practice(task.__name__): task(new_host, practice) for task in tasks])


def picture(path):
    """Size and leading bytes: whatever a refused change could have touched."""
    with open(path, 'rb') as file:
        return os.path.getsize(path), hashlib.sha256(file.read(1 << 18)).hexdigest()


def full_table(practice):
    view = practice.table('LAW1')
    most = (0x40000000 - view.table.header_size - 1) // view.table.record_size
    with open(view.path, 'r+b') as file:
        file.truncate(view.table.header_size + most * view.table.record_size)
        file.seek(4)
        file.write(struct.pack('<I', most))
    return 'LAW1.DBF: full: %d records' % most


def full_index(practice):
    os.truncate(practice.find('LAW1.cdx'), 0x7FFFFFFE // 512 * 512 - 512)
    return 'LAW1.CDX: the index cannot grow past'


@pytest.mark.parametrize('fill', [full_table, full_index])
def test_growth_past_the_limit_is_refused_whole(host, practice, fill):
    reason = fill(practice)
    files = [practice.find(name) for name in ('LAW1.dbf', 'LAW1.cdx', 'LAWSYS.dbf', 'LAWTRANS.dbf', 'LAWTRANS.cdx')]
    before = [picture(path) for path in files]
    assert host.init(practice, 1) == 0
    rc, _ = host.add(1, {'LAST': 'Too many'})
    assert rc == 14
    assert [picture(path) for path in files] == before
    assert any(reason.lower() in argument.lower() for _, arguments in practice.trace() for argument in arguments)
    assert host.edit(1, 3, {'LAST': 'Still editable'}) == 0 and host.add(3, {'MATTER': 'Still growing'})[0] == 0
