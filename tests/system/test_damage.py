"""Damaged files, absurd arguments and refusing disks: a documented code in bounded time, nothing else lost.

Each damage is done to a copy of the sample. The library may refuse it at start-up or with a later
call, or work around it; the host must live, other tables and the records far from the damage must
stay as they were, and afterwards the same host must work on a sound practice.
"""

import contextlib
import os
import shutil
import subprocess
from pathlib import Path

import pytest
from conftest import OURS, at_once, new_wine_profile
from judges import assert_finished, assert_sound

START_CODES = {0, 3, 4, 14}
CODES = {0, 4, 5, 6, 7, 8, 9, 10, 12, 13, 14, 16, 17, 18, 19}
TABLES = {1: 'LAW1', 2: 'LAW2', 3: 'LAW3', 4: 'LAWNOTES', 7: 'LAWCODES', 9: 'LAW9', 20: 'LAWTRANS'}
BATCH = 6                # practices at a time; a refused start-up spends five seconds waiting


def put(at, value, size):
    """Writes a number over the file's bytes at a place, which may be a function of those bytes."""
    def damage(data):
        offset = at(data) if callable(at) else at
        data[offset:offset + size] = value.to_bytes(size, 'little')
    return damage


def cut(length):
    def damage(data):
        del data[length(data) if callable(length) else length:]
    return damage


def header(data):
    return int.from_bytes(data[8:10], 'little')


def record_length(data):
    return int.from_bytes(data[10:12], 'little')


def add_to(at, size, change):
    def damage(data):
        put(at, int.from_bytes(data[at:at + size], 'little') + change, size)(data)
    return damage


def repeat_first_name(data):
    data[64:75] = data[32:43]


def last_tag(data):
    """Offset of the header of the last tag that the file holds, found as a reader would."""
    root = int.from_bytes(data[0:4], 'little')
    size = data[root + 23]
    count = int.from_bytes(data[root + 2:root + 4], 'little')
    return max(int.from_bytes(data[root + 24 + i * size:root + 24 + (i + 1) * size], 'little') & 0xFFFF
               for i in range(count))


def tag_root(data):
    at = last_tag(data)
    return int.from_bytes(data[at:at + 4], 'little')


def within(place, offset):
    return lambda data: place(data) + offset


def in_every_page(offset, value, size):
    """Writes a number into every page that looks like a tree page, behind the directory."""
    def damage(data):
        for page in range(1536, len(data), 512):
            if data[page + 1] == 0 and data[page] < 4:
                put(page + offset, value(page) if callable(value) else value, size)(data)
    return damage


def interior_loop(data):
    """Makes the root of a tag an interior page whose only child is itself."""
    root, at = tag_root(data), last_tag(data)
    length = int.from_bytes(data[at + 12:at + 14], 'little')
    data[root:root + 4] = b'\1\0\1\0'
    data[root + 12:root + 20 + length] = b'\xFF' * length + (1).to_bytes(4, 'big') + root.to_bytes(4, 'big')


DBF = {
    'cut to nothing': cut(0), 'cut in the header': cut(20), 'cut in the field list': cut(100),
    'cut behind the header': cut(header), 'cut in record 30': cut(lambda d: header(d) + 29 * record_length(d) + 7),
    'record length 0': put(10, 0, 2), 'record length 65535': put(10, 65535, 2), 'record one longer': add_to(10, 2, 1),
    'header length 33': put(8, 33, 2), 'header length 65535': put(8, 65535, 2),
    'header one field shorter': add_to(8, 2, -32), 'count huge': put(4, 0xFFFFFFFF, 4),
    'count one more': add_to(4, 4, 1), 'count one less': add_to(4, 4, -1), 'count 0': put(4, 0, 4),
    'field width 0': put(48, 0, 1), 'version of another family': put(0, 0x43, 1), 'unknown version': put(0, 0xFF, 1),
    'field type unknown': put(43, ord('#'), 1), 'name twice': repeat_first_name,
    'no end of the field list': lambda data: put(header(data) - 1, 65, 1)(data), 'encrypted': put(15, 1, 1),
}
CDX = {
    'cut to nothing': cut(0), 'cut in the header': cut(300), 'cut behind the directory': cut(1536),
    'cut in a page': cut(lambda data: len(data) - 200), 'directory outside': put(0, 0x7FFFFE00, 4),
    'directory askew': put(0, 513, 4), 'directory key length': put(12, 9999, 2),
    'free list in a circle': put(4, 1024, 4),
    'root outside': put(last_tag, 0x7FFFFE00, 4), 'root askew': put(last_tag, 777, 4),
    'root is the directory': put(last_tag, 1024, 4), 'key length 0': put(within(last_tag, 12), 0, 2),
    'key length wrong': put(within(last_tag, 12), 12, 2), 'options': put(within(last_tag, 14), 0xFF, 1),
    'collation': put(within(last_tag, 494), 0x44524F4E, 4), 'text lengths': put(within(last_tag, 506), 0xFFFFFFFF, 4),
    'unknown function': put(within(last_tag, 512), 0x2928585858, 5), 'root is its own child': interior_loop,
    'own siblings': in_every_page(8, lambda page: page, 4), 'siblings outside': in_every_page(8, 0x7FFFFE00, 4),
    'too many keys': in_every_page(2, 0xFFFF, 2), 'no keys': in_every_page(2, 0, 2), 'masks': in_every_page(14, 0, 6),
    'bit widths': in_every_page(20, 0xFFFFFF, 3), 'entries': in_every_page(24, 0xFFFFFFFFFFFF, 6),
    'garbage': in_every_page(0, int.from_bytes(b'\x5A' * 500, 'big'), 500),
}
FPT = {
    'cut to nothing': cut(0), 'cut in the header': cut(6), 'block size 0': put(6, 0, 2), 'next block 0': put(0, 0, 4),
    'next block huge': put(0, 0xFFFFFFFF, 4), 'length huge': put(516, 0xFFFFFFFF, 4),
    'length past the end': put(516, 0x1000, 4),
}


def exercise(host, view, number, contact):
    """Every kind of call on the table; the results are only required to be documented."""
    row = view.rows[-1]
    field = next(f.name for f in view.fields if f.type == 'C' and f.name != 'U_ID')
    memos = [f.name for f in view.fields if f.type == 'M']
    results = [host.add_start(3), host.add_end(3, contact)[0]]      # opens the cross-references
    results += [host.edit_start(number, row.get('U_ID', '')), host.edit_start(number, 'ZZZZZZZ')]
    for record in (1, len(view.rows)):
        results += [host.edit_begin(number, record), host.set_field(number, field, 'Edited')]
        results += [host.set_field(number, memo, 'm' * 3000) for memo in memos] + [host.edit_end(number)]
    results += [host.add_start(number), host.set_field(number, field, 'Added'), host.add_end(number)[0]]
    results += [host.added(number, 1), host.deleted(number, 1)]
    results += [host.get_uid(number, row.get('ID') or row.get('CASENUM') or 'X')[0]]
    host.firm(100)
    assert set(results) <= CODES, results
    return results


def survive(host, practice, sound, damaged, extension, damage):
    """Damages the practice, uses it, and compares it with the sound one of which it is a copy."""
    number, name = damaged
    _, data = practice.damage(name + extension, damage)
    contact = sound.table('LAW1').rows[5]['U_ID']
    rc = host.init(practice, 1)
    assert rc in START_CODES
    if 14 in [rc] + exercise(host, sound.table(name), number, contact):     # such a fault is always explained
        assert any(name in argument.upper() for _, arguments in practice.trace() for argument in arguments)
    assert host.shutdown() == 0
    for other in set(TABLES.values()) - {name, 'LAWTRANS', 'LAWSYS'}:
        old, new = sound.table(other).rows, practice.table(other)
        assert [row.raw for row in new.rows[:len(old)]] == [row.raw for row in old], other
    if extension == '.dbf':                             # records that no call was about
        after, at = Path(practice.find(name + extension)).read_bytes(), header(data) + 2 * record_length(data)
        end = min(len(data) - record_length(data), at + 10 * record_length(data))
        assert after[at:end] == data[at:end]
    assert host.init(sound) == 0 and host.edit_begin(1, 1) == 0 and host.get_uid(1, 'X')[0] == 19


@pytest.mark.parametrize('extension, damages', [pytest.param('.dbf', DBF, marks=pytest.mark.waits), ('.cdx', CDX),
                                                ('.fpt', FPT)])
def test_damaged_files(new_host, new_practice, extension, damages):
    """The tables take turns; contacts and the system table meet every damage of a table file."""
    sound = new_practice('sound')
    present = {p.name.upper() for p in sound.folder.iterdir()}
    tables = [(number, name) for number, name in TABLES.items() if name + extension.upper() in present]
    jobs = [(tables[i % len(tables)], *job) for i, job in enumerate(damages.items())]
    if extension == '.dbf':
        jobs += [(table, *job) for table in ((1, 'LAW1'), (5, 'LAWSYS')) for job in damages.items()]

    def run(number, table, name, damage):
        try:
            survive(new_host(), new_practice('%d %s' % (number, name)), sound, table, extension, damage)
        except BaseException as error:
            return '%s, %s: %r' % (table[1] + extension, name, error)
    results = []
    for begin in range(0, len(jobs), BATCH):
        batch = enumerate(jobs[begin:begin + BATCH], begin)
        results += at_once(*[lambda number=number, job=job: run(number, *job) for number, job in batch])
    assert not '\n'.join(result for result in results if result)


def test_memo_pointers(session, practice):
    for record, (pointer, text) in enumerate(((99999999, b'rubbish'), (1, b'-1'), (0xFFFFFFFF, b'1 2')), 1):
        practice.patch('LAW1', record, 'NOTES', b'%10d' % pointer)
        practice.patch('LAW3', record, 'NOTES', pointer.to_bytes(4, 'little'))
        practice.patch('LAWNOTES', record, 'NOTE', text)
        for table, field in (1, 'NOTES'), (3, 'NOTES'), (4, 'NOTE'):
            assert session.edit_begin(table, record) in (0, 14)
            assert session.edit(table, 6, {field: 'Sound'}) == 0 and session.add(table, {field: 'Added'})[0] == 0


@pytest.mark.parametrize('text', [
    b'x' * 10_000_000, b'[Main]\n' + b'k=v\n' * 2_500_000, b'[Main]\nMyFirm=' + b'F' * 10_000_000,
    b'MyFirm=X\nLinkType=X\nAPITracing=1', b'[]\n=\n=x\n\xFF\xFE[Main'],
    ids=['one line', 'keys', 'one value', 'no section', 'scraps'])
def test_settings_files(host, practice, windows_folder, text):
    for name in ('LAWSYS.INI', 'billing/BOLink.INI'):
        practice.write(name, text)
    (windows_folder / 'LawWin.INI').write_bytes(text)
    assert host.init(practice) == 0
    assert host.firm(50)[:3] == b' \0 '                  # no firm is found
    assert host.add(3, {'MATTER': 'Settings'}, practice.table('LAW1').rows[0]['U_ID'])[0] == 0


def test_data_paths(new_host, tmp_path):
    """Nothing that is not a practice is taken for one."""
    host = new_host(cwd=tmp_path)
    (tmp_path / 'empty').mkdir()
    (tmp_path / 'file').write_text('no folder')
    (tmp_path / 'folders' / 'LAWSYS.dbf').mkdir(parents=True)
    for path in ('nowhere', 'empty', 'file', 'folders', 'p' * 100000, 'a/' * 50000, '\xFF\x01', '..\\' * 3000, '*?|<>'):
        assert host.init(path if len(path) > 9 else '%s/%s' % (tmp_path, path), 1) == 1, path[:20]
        assert host.add_start(1) == 5


@pytest.fixture
def small_disk(tmp_path, monkeypatch):
    """Mounts a memory disk of a given size; without the right to mount there is none. Hosts come afterwards:
    a Wine server sees what was mounted when it began."""
    folder = tmp_path / 'disk'
    folder.mkdir()
    profiles = contextlib.ExitStack()

    def mount(options):
        done = subprocess.run(['mount', '-t', 'tmpfs', '-o', options, 'tmpfs', str(folder)], capture_output=True)
        if done.returncode:
            pytest.skip('mounting needs root')
        if 'BRENIK_WINE_PROFILE' in os.environ:
            environment = profiles.enter_context(new_wine_profile(tmp_path / 'profile'))
            monkeypatch.setenv('BRENIK_WINE_PROFILE', environment['BRENIK_WINE_PROFILE'])
        return folder
    with profiles:
        yield mount
    subprocess.run(['umount', '-l', str(folder)], capture_output=True)


def fill_up(host):
    """Adds contacts and edits until something is refused; what was acknowledged."""
    acknowledged = []
    for number in range(3000):
        rc, uid = host.add(1, {'LAST': 'Full %04d' % number, 'ID': 'FULL%04d' % number})
        acknowledged += [uid] if rc == 0 else []
        rc = rc or host.edit(1, 1 + number % 40, {'LAST': 'Edited %04d' % (number * 7919 % 3001)})
        if rc:
            assert rc in (9, 14, 17)
            return acknowledged
    pytest.fail('the disk never filled up')


@pytest.mark.waits
def test_full_disk(new_host, small_disk, new_practice):
    """Full for a while, and then not to be written at all."""
    folder = small_disk('size=6m')
    practice, filler, host = new_practice(into=folder), folder / 'filler', new_host()
    room = os.statvfs(folder)
    filler.write_bytes(bytes(room.f_bavail * room.f_frsize - 60_000))
    assert host.init(practice) == 0
    acknowledged = fill_up(host)
    filler.unlink()
    assert host.add(1, {'LAST': 'Room again'})[0] == 0 and host.edit(1, 2, {'LAST': 'Room again'}) == 0
    uids = [row['U_ID'] for row in practice.table('LAW1').rows if row['U_ID']]
    assert set(acknowledged) <= set(uids) and len(set(uids)) == len(uids)
    assert_finished(practice, 'LAW1', acknowledged)
    assert host.shutdown() == 0 and host.init(practice) == 0
    assert [uid for uid in acknowledged if host.edit_start(1, uid)] == [] and host.shutdown() == 0
    subprocess.run(['mount', '-o', 'remount,ro', str(folder)], check=True)
    assert host.init(practice) == 3


def test_long_texts(session, practice):
    """100 000 characters as a value of every field, as names, keys and identifiers."""
    for table, name in TABLES.items():
        if table in (9, 20):
            continue
        fields = [f for f in practice.table(name).fields if f.name != 'U_ID']
        for text in (b'9' * 100000, b'Long \xE9 ' * 14000, b' ' * 100000):
            assert session.add_start(table) == 0
            assert {session.set_field(table, f.name, text) for f in fields} == {0}
            assert session.add_end(table)[0] in (0, 14, 18)
            assert session.edit(table, 1, {f.name: text for f in fields if f.type in 'CM'}) == 0
    long = 'L' * 100000
    assert session.edit_start(1, long) == 16 and session.get_uid(3, long)[0] == 19
    assert session.set_field(1, long, long) in (7, 13)
    assert session.add(1, {'LAST': 'After'})[0] == 0
    assert_sound(practice.folder)


def shorter(path):
    os.truncate(path, os.path.getsize(path) - 300)


def replaced(path):
    os.replace(shutil.copy(path, path + '.new'), path)


CHANGES = [shorter] if OURS.library.endswith('.dll') else [shorter, os.remove, replaced]


@pytest.mark.parametrize('change', CHANGES)
def test_table_changed_behind_us(new_host, practice, change):
    """A table that is cut short, removed or replaced while it is open takes nothing more, and says why."""
    host, before = new_host(), practice.table('LAWTRANS')
    assert host.init(practice, 1) == 0 and host.add(3, {'MATTER': 'First'})[0] == 0
    host.begin(1, 2, {'LAST': 'Lost'})
    change(practice.find('LAW1.dbf'))
    assert host.edit_end(1) == (0 if change is shorter else 14)
    assert host.add(1, {'LAST': 'Lost'})[0] == 14 and host.add(3, {'MATTER': 'Next'})[0] == 0
    reason = 'cut short' if change is shorter else 'was removed or replaced'
    assert any(reason in argument for _, arguments in practice.trace() for argument in arguments)
    entries = practice.table('LAWTRANS').rows[before.table.count:]
    assert [row['CDB'] for row in entries if row['CCODE'] == 'A'] == ['03', '03']


@pytest.mark.parametrize('change', CHANGES)
def test_journal_changed_behind_us(new_host, practice, change):
    """What could not be journalled is not done. An entry that a shorter file still holds can be written."""
    host, other, names = new_host(), new_host(), ('LAW1', 'LAWSYS')
    assert host.init(practice) == other.init(practice) == 0 and host.edit(1, 2, {'FIRST': 'Noted'}) == 0
    assert {other.add(1, {'LAST': 'First'})[0] for _ in range(20)} == {0}
    before = [practice.table(name).rows for name in names]
    change(practice.find('LAWTRANS.dbf'))
    assert [host.add(1, {'LAST': 'Lost'})[0], host.edit(1, len(before[0]), {'LAST': 'Lost'})] == [14, 14]
    assert host.edit(1, 2, {'FIRST': 'Noted'}) == 0
    assert host.edit(1, 2, {'LAST': 'Lost'}) == (0 if change is shorter else 14)
    if change is shorter:
        before[0][1]['LAST'], newcomer = 'Lost', new_host()
        assert newcomer.init(practice) == 0 and newcomer.add(1, {'LAST': 'Lost'})[0] == 14
    assert [practice.table(name).rows for name in names] == before


def test_what_cannot_be_finished_is_not_begun(new_host, practice):
    """Notes without the field that their stamp goes into: refused, three times, without a trace in any table."""
    practice.damage('LAWNOTES.DBF', lambda data: put(data.index(b'OPERATOR\0'), 0x58, 1)(data))
    host, names = new_host(), ('LAWNOTES', 'LAWSYS', 'LAWTRANS')
    before = [practice.table(name).rows for name in names]
    assert host.init(practice) == 0 and [host.add(4, {'TOPIC': 'Lost'})[0] for _ in range(3)] == [14] * 3
    assert [practice.table(name).rows for name in names] == before
    assert host.add(1, {'LAST': 'Kept'})[0] == 0
