"""Damaged files: hosts survive, check names the damage, repair mends it.

Each damage of one table is done to copies of the sample. On some a host works: the library may refuse the files at
start-up or with a later call, or work around the damage; the host must live, other tables and the records far from the
damage must stay as they were, and afterwards the same host must work on a sound practice. On another copy check must
name the damage with its place, and repair must mend it so that nobody finds any more, or leave everything as it is.
"""

import concurrent.futures
import itertools
import json
import os
import shlex
import shutil
import subprocess
import threading
import time
from pathlib import Path

import pytest
from conftest import OURS, TOOL, HeldBytes, at_once, path_form
from judges import TableView, assert_sound, identifier, view_of
from test_tool import brenik

FIXTURES = Path(__file__).resolve().parent.parent / 'data' / 'fixtures'
START_CODES = {0, 3, 4, 14}
CODES = {0, 4, 5, 6, 7, 8, 9, 10, 12, 13, 14, 16, 17, 18, 19}
TABLES = {1: 'LAW1', 2: 'LAW2', 3: 'LAW3', 4: 'LAWNOTES', 7: 'LAWCODES', 9: 'LAW9', 20: 'LAWTRANS'}
EVENTS = '--events', '400'        # a tree of more than one level
BATCH = 6                # practices at a time; a refused start-up spends five seconds waiting


# -- what damages are made of: functions of a file's bytes, and the places that they are about
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
    return lambda data: put(at, int.from_bytes(data[at:at + size], 'little') + change, size)(data)


def last_tag(data):
    """Offset of the header of the last tag that the file holds, found as a reader would."""
    root = int.from_bytes(data[0:4], 'little')
    size = data[root + 23]
    count = int.from_bytes(data[root + 2:root + 4], 'little')
    return max(int.from_bytes(data[root + 24 + i * size:root + 24 + (i + 1) * size], 'little') & 0xFFFF
               for i in range(count))


def within(place, offset):
    return lambda data: place(data) + offset


def interior_loop(data):
    """Makes the root of a tag an interior page whose only child is itself."""
    at = last_tag(data)
    root, length = int.from_bytes(data[at:at + 4], 'little'), int.from_bytes(data[at + 12:at + 14], 'little')
    data[root:root + 4] = b'\1\0\1\0'
    data[root + 12:root + 20 + length] = b'\xFF' * length + (1).to_bytes(4, 'big') + root.to_bytes(4, 'big')


def append(text):
    return lambda data: data.extend(text)


def memo_place(data, record):
    """Where the memo pointer of a record of contacts lies."""
    at = data.index(b'NOTES\0', 32) & ~31
    return header(data) + (record - 1) * record_length(data) + int.from_bytes(data[at + 12:at + 16], 'little')


def memo_of(record, pointer):
    def damage(data):
        at = memo_place(data, record)
        data[at:at + len(pointer)] = pointer
    return damage


def share_memo(data):
    pointers = [bytes(data[at:at + 10]) for at in (memo_place(data, record) for record in range(1, 40))]
    taken = next(pointer for pointer in pointers if pointer.strip())
    memo_of(pointers.index(taken) + 2, taken)(data)


def unfinished_append(data):
    data[-1:] = b' ' * record_length(data) + b'\x1A'


def first_leaf(data):
    """The leftmost leaf of the first tag."""
    at = 1536
    page, length = int.from_bytes(data[at:at + 4], 'little'), int.from_bytes(data[at + 12:at + 14], 'little')
    while not data[page] & 2:
        page = int.from_bytes(data[page + 16 + length:page + 20 + length], 'big')
    return page


def second_leaf(data):
    at = first_leaf(data) + 8
    return int.from_bytes(data[at:at + 4], 'little')


NO_TAGS = cut(1536)      # of the index no tag is left that could be made anew
# The file, or its kind where any table of it will do; what check must say of it; and the damages. Those whose remedy is
# a backup or somebody's hand are left as they are; all others are mended.
DAMAGES = [
    ('.DBF', 'cut-short, record=1', {'cut behind the header': cut(header)}),
    ('.DBF', 'cut-short, record=30', {'cut in record 30': cut(lambda d: header(d) + 29 * record_length(d) + 7)}),
    ('.DBF', 'cut-short, record=41', {'count huge': put(4, 0xFFFFFFFF, 4), 'count one more': add_to(4, 4, 1)}),
    ('.DBF', 'uncounted-records, record=40', {'count one less': add_to(4, 4, -1)}),
    ('.DBF', 'uncounted-records, record=1', {'count 0': put(4, 0, 4)}),
    ('.DBF', 'unfinished-append, record=41', {'append not finished': unfinished_append}),
    ('.DBF', 'end-mark', {'no end mark': cut(lambda d: len(d) - 1)}),
    ('.DBF', 'rubbish', {'rubbish behind': append(b'rubbish!' * 100)}),
    ('.DBF', 'header', {
        'record length 0': put(10, 0, 2), 'record one longer': add_to(10, 2, 1),
        'header one field shorter': add_to(8, 2, -32), 'header length 65535': put(8, 65535, 2),
        'field list not ended': lambda d: put(header(d) - 1, 65, 1)(d)}),
    ('.DBF', 'header, remedy=restore', {
        'cut to nothing': cut(0), 'cut in the field list': cut(100), 'field width 0': put(48, 0, 1),
        'field type unknown': put(43, ord('#'), 1), 'encrypted': put(15, 1, 1), 'version': put(0, 0x43, 1)}),
    ('.DBF', 'field-name, remedy=restore', {'name twice': lambda d: d.__setitem__(slice(64, 75), d[32:43])}),
    ('LAW1.DBF', 'deletion-mark, remedy=by hand', {
        'no deletion mark': lambda d: put(header(d), 65, 1)(d), 'records askew': lambda d: d.pop(header(d) + 99)}),
    ('LAW1.DBF', 'memo-pointer, record=1, field=NOTES', {
        'outside': memo_of(1, b'  77777777'), 'no number': memo_of(1, b'rubbish   ')}),
    ('LAW3.DBF', 'memo-pointer, record=1, field=NOTES', {
        'outside': memo_of(1, b'\xFF' * 4), 'in the header': memo_of(1, b'\1\0\0\0')}),
    ('LAW1.DBF', 'memo-overlap, field=NOTES', {'shared': share_memo}),
    ('LAW1.FPT', 'memo-pointer, field=NOTES', {'cut off': cut(lambda d: len(d) - 100)}),
    ('.FPT', 'memo-pointer, record=17, field=NOTES', {
        'length huge': put(516, 0xFFFFFFFF, 4), 'length past the end': put(516, 0x1000, 4)}),
    ('.FPT', 'memo-block-size', {'block size 0': put(6, 0, 2)}),
    ('.FPT', 'memo-next-free', {'next block 0': put(0, 0, 4), 'next block huge': put(0, 0xFFFFFFFF, 4)}),
    ('.FPT', 'memo-header, remedy=restore', {'cut to nothing': cut(0), 'cut in the header': cut(6)}),
    ('LAW1.FPT', 'memo-missing, remedy=restore', {'missing': None}),
    ('.CDX', 'index-header, remedy=restore', {'cut to nothing': cut(0), 'cut in the header': cut(300)}),
    ('.CDX', 'tag-header, tag=U_ID', {'cut behind the directory': NO_TAGS}),
    ('.CDX', 'tag-unsupported, tag=NEWEST, remedy=by hand', {
        'options': put(within(last_tag, 14), 0xFF, 1), 'collation': put(within(last_tag, 494), 0x44524F4E, 4)}),
    ('.CDX', 'tag-expression, tag=NEWEST, remedy=by hand', {'function': put(within(last_tag, 512), 0x2928585858, 5)}),
    ('.CDX', 'index-header', {'directory key length': put(12, 9999, 2)}),
    ('.CDX', 'index-page, tag=(directory)', {
        'directory outside': put(0, 0x7FFFFE00, 4), 'directory askew': put(0, 513, 4)}),
    ('.CDX', 'free-list, page=1024', {'free list in a circle': put(4, 1024, 4)}),
    ('.CDX', 'index-page, tag=NEWEST', {
        'root outside': put(last_tag, 0x7FFFFE00, 4), 'root is the directory': put(last_tag, 1024, 4),
        'root is its own child': interior_loop, 'cut in a page': cut(lambda d: len(d) - 200)}),
    ('.CDX', 'tag-header, tag=NEWEST', {
        'key length 0': put(within(last_tag, 12), 0, 2), 'key length wrong': put(within(last_tag, 12), 12, 2),
        'text lengths': put(within(last_tag, 506), 0xFFFFFFFF, 4)}),
    ('LAW2.CDX', 'index-page, tag=U_ID', {
        'too many keys': put(within(first_leaf, 2), 0xFFFF, 2), 'siblings': put(within(first_leaf, 8), 0x7FFFFE00, 4),
        'right sibling': put(within(first_leaf, 8), 0xFFFFFFFF, 4), 'not a page': put(first_leaf, 0x5A5A, 2),
        'left sibling': put(within(second_leaf, 4), 1024, 4), 'free space': put(within(first_leaf, 12), 3, 2)}),
    ('LAW2.CDX', 'index-unfinished, tag=U_ID, severity=note', {
        'left sibling behind': put(within(second_leaf, 4), 0xFFFFFFFF, 4)}),
    ('.CDX', 'missing-key, tag=U_ID, record=1', {'no keys': put(within(first_leaf, 2), 0, 2)}),
    ('.CDX', 'index-size, severity=note', {'file not whole pages': append(b'half a page')}),
    ('.CDX', 'orphan-pages, severity=note', {'orphan': append(bytes(512))})]


def rows(most=None):
    """All damages, or so many of each finding."""
    return [pytest.param(file, damage, finding, id=file + ' ' + name)
            for file, finding, damages in DAMAGES for name, damage in list(damages.items())[:most]]


def damaged(practice, file, damage):
    if damage:
        return practice.damage(file, damage)
    Path(practice.find(file)).unlink()


def survive(host, practice, sound, file, damage):
    """A host works on a damaged practice with every kind of call, and then on the sound one of which it is a copy."""
    name, extension = file.split('.')
    number, view = next((number for number, table in TABLES.items() if table == name), 5), view_of(sound.folder, name)
    values = {field.name: 'm' * 3000 for field in view.fields if field.type in 'CM' and field.name != 'U_ID'}
    data, contact = damaged(practice, file, damage), view_of(sound.folder, 'LAW1').rows[5]['U_ID']
    rc = host.init(practice, 1)
    assert rc in START_CODES
    codes = [host.add(3, {}, contact)[0], host.edit_start(number, 'ZZZZZZZ'), host.get_uid(number, 'X')[0],
             *[host.edit(number, record, values) for record in (view.rows[-1].get('U_ID', ''), 1, len(view.rows))],
             host.add(number, values)[0], host.added(number, 1), host.deleted(number, 1)]
    host.firm(100)
    assert set(codes) <= CODES, codes
    if 14 in [rc, *codes]:                              # such a fault is always explained
        assert any(name in argument.upper() for _, arguments in practice.trace() for argument in arguments)
    assert host.shutdown() == 0
    for other in set(TABLES.values()) - {name, 'LAWTRANS', 'LAWSYS'}:
        old, new = view_of(sound.folder, other).rows, view_of(practice.folder, other).rows
        assert [row.raw for row in new[:len(old)]] == [row.raw for row in old], other
    if extension == 'DBF':                              # records that no call was about
        after, at = Path(practice.find(file)).read_bytes(), header(data) + 3 * record_length(data)
        end = min(len(data) - record_length(data), at + 10 * record_length(data))
        assert after[at:end] == data[at:end]
    assert host.init(sound) == 0 and host.edit_begin(1, 1) == 0 and host.get_uid(1, 'X')[0] == 19


@pytest.mark.parametrize('extension', [pytest.param('.DBF', marks=pytest.mark.waits), '.CDX', '.FPT'])
def test_hosts_survive(new_host, new_practice, extension):
    """The tables take turns; contacts and the system table meet every damage of a table file."""
    sound, jobs = new_practice('sound', *EVENTS), []
    present = {p.name.upper() for p in sound.folder.iterdir()}
    tables = itertools.cycle([name for name in TABLES.values() if name + extension in present])
    for file, damage, _ in (row.values for row in rows()):
        names = [next(tables), *(['LAW1', 'LAWSYS'] if extension == '.DBF' else [])] if file == extension else ['']
        jobs += [(name + file, damage) for name in names if file.endswith(extension)]

    def run(number, job):
        try:
            survive(new_host(), new_practice('%d %s' % (number, job[0]), *EVENTS), sound, *job)
        except BaseException as fault:
            raise AssertionError('damage %d of %s' % (number, job[0])) from fault
    with concurrent.futures.ThreadPoolExecutor(BATCH) as pool:
        assert set(pool.map(run, itertools.count(), jobs)) == {None}


def findings(path, code, but='not-in-journal'):
    """Every finding but of one kind, as the sample has a contact of which its journal does not know; the summary must
    agree with them."""
    ended, output, complaint = brenik('check', path, '--json')
    assert (ended, complaint) == (code, ''), output
    *found, summary = [json.loads(line) for line in output.splitlines()]
    assert summary['faults'] == sum(finding['severity'] == 'fault' for finding in found)
    return [finding for finding in found if finding['kind'] != but]


def steps(practice, *options):
    """What a repair reports, without the copies that it makes."""
    ended, output, _ = brenik('repair', practice, '--json', *options)
    *lines, _ = [json.loads(line) for line in output.splitlines()]
    assert ended == 0, output
    return [(line['file'], line['record'], line['what']) for line in lines if 'copied to' not in line['what']]


def has(found, told='', **wanted):
    """Told as in the tables above or word by word."""
    wanted.update(word.split('=') for word in told.split(', ') if told)
    return any(all(str(finding[name]) == str(value) for name, value in wanted.items()) for finding in found)


def snapshot(folder):
    return {path.name: path.read_bytes() for path in Path(folder).iterdir() if path.is_file()}


# Windows' tool takes long to start, and the engine's logic is the same there.
@pytest.mark.parametrize('file, damage, finding', rows(1 if OURS.library.endswith('.dll') else None))
def test_checked_and_mended(new_practice, file, damage, finding):
    """Named in its place; told but not touched in a dry run; mended, with a copy of what was changed, or left alone."""
    practice = new_practice('practice', *EVENTS)
    damaged(practice, 'LAW1' + file if file[0] == '.' else file, damage)
    found, before = findings(practice, 0 if 'severity=note' in finding else 1), snapshot(practice.folder)
    assert has(found, 'kind=' + finding), found
    if damage is NO_TAGS or 'remedy' in finding:
        for options in ['--dry-run'], []:
            ended, output, _ = brenik('repair', practice, *options)
            assert ended == 1 and 'not repaired: ' in output and snapshot(practice.folder) == before
        return
    assert any(has(found, 'kind=' + finding, remedy=remedy) for remedy in ('repair', 'reindex')), found
    tried = steps(practice, '--dry-run')
    assert tried and snapshot(practice.folder) == before and steps(practice) == tried
    assert findings(practice, 0) == []
    assert_sound(practice.folder)
    copies = {path.name.split('.bak-')[0]: path.read_bytes() for path in practice.folder.glob('*.bak-*')}
    assert copies and all(before[copied] == content for copied, content in copies.items())
    assert brenik('repair', practice) == (0, '%s: nothing to repair\n' % path_form(OURS)(practice), '')


def test_sound_files_are_left_alone(new_practice, tmp_path):
    for folder in (new_practice(), new_practice('v14', '--v14').folder, FIXTURES):
        assert findings(folder, 0) == []
    fixtures = shutil.copytree(FIXTURES, tmp_path / 'fixtures')
    before = snapshot(fixtures)
    assert brenik('repair', fixtures)[0] == 0 and snapshot(fixtures) == before
    copies = tmp_path / 'copies'
    assert brenik('reindex', fixtures, '--backup', copies)[0] == 0      # the tags of another engine
    assert findings(fixtures, 0) == [] and len(snapshot(copies)) == 6
    for table in fixtures.glob('*.DBF'):
        old, new = TableView(FIXTURES, table.stem), TableView(fixtures, table.stem)
        assert not new.report.faults and list(new.tags) == list(old.tags)
        for name, tag in new.tags.items():
            same = ('key_text', 'for_text', 'key_length', 'descending', 'options')
            assert [getattr(tag, a) for a in same] == [getattr(old.tags[name], a) for a in same]
            assert tag.options & 1 or tag.entries == old.tags[name].entries


def test_keys(practice):
    """A changed field and a deletion mark behind the index's back, in plain, conditional and odd tags."""
    path = practice.folder / 'TAGS.DBF'
    shutil.copy(practice.find('LAW3.DBF'), path)
    shutil.copy(practice.find('LAW3.FPT'), practice.folder / 'TAGS.FPT')
    tags = ['PLAIN=UPPER(MATTER)', 'LIVE=U_ID;FOR !DELETED()', 'ONE=MATTER;UNIQUE', 'ONLY=U_ID;CANDIDATE',
            'DOWN=MATTER+U_ID;DESCENDING']
    options = [word for tag in tags for word in ('--tag', tag)]
    assert has(findings(path, 1), kind='index-missing', remedy='restore')
    assert brenik('repair', path)[0] == 1 and not (practice.folder / 'TAGS.CDX').exists()
    assert brenik('reindex', path, *options)[0] == 0
    left = [practice.folder / 'TAGS.CDX.new', practice.folder / 'TAGS.CDX.run']
    for file in left:
        file.write_bytes(b'never finished')
    assert [finding['kind'] for finding in findings(path, 0)] == ['leftover', 'leftover']
    assert brenik('reindex', path)[0] == 0 and not any(file.exists() for file in left) and findings(path, 0) == []
    assert_sound(practice.folder, 'TAGS')
    practice.patch('TAGS', 5, 'MATTER', b'Zzz')
    practice.patch('TAGS', 6)
    found = findings(path, 1)
    for tag in 'PLAIN', 'DOWN':
        assert has(found, tag=tag, record=5, kind='missing-key') and has(found, tag=tag, record=5, kind='stray-key')
    assert has(found, tag='ONE', record=5, kind='stray-key') and has(found, tag='LIVE', record=6, kind='stray-key')
    assert not has(found, tag='ONLY') and {finding['record'] for finding in found} == {5, 6}
    practice.patch('TAGS', 7, 'U_ID', practice.table('TAGS').rows[7]['U_ID'].encode())
    assert has(findings(path, 1), tag='ONLY', record=7, kind='missing-key')
    before = (practice.folder / 'TAGS.CDX').read_bytes()
    ended, output, _ = brenik('reindex', path)
    assert ended == 1 and 'records 7 and 8 have the same key; the index stays as it was' in output
    assert (practice.folder / 'TAGS.CDX').read_bytes() == before


def test_memo_file_that_nobody_needs(practice):
    for number in range(1, practice.table('LAW1').table.count + 1):
        practice.patch('LAW1', number, 'NOTES', b' ' * 10)
    practice.damage('LAW1.FPT', cut(100))
    assert has(findings(practice, 1), kind='memo-header', remedy='repair')
    assert brenik('repair', practice)[0] == 0 and findings(practice, 0) == []


@pytest.mark.embedded
@pytest.mark.parametrize('file, damage, tags', [
    ('LAW1.FPT', None, 6), ('LAW1.FPT', cut(6), 6), ('LAW1.CDX', None, 0), ('LAW1.CDX', cut(300), 0),
    ('LAW1.CDX', put(within(last_tag, 506), 0xFFFFFFFF, 4), 6), ('LAW1.CDX', put(0, 0x7FFFFE00, 4), 6)])
def test_described_all_the_same(practice, file, damage, tags):
    """A table without its memo file or index: what can be seen is shown, and what cannot is said."""
    sound = json.loads(brenik('show', practice, 'Names', '--json')[1])
    first = json.loads(brenik('show', practice, 'Names', '--record', 17, '--json')[1])
    assert sound['unavailable'] == [] and first['fields']['NOTES']
    damaged(practice, file, damage)
    shown = json.loads(brenik('show', practice, 'Names', '--json')[1])
    reason, = shown['unavailable']
    assert file.lower() in reason.lower() and len(shown['tags']) == tags and shown['fields'] == sound['fields']
    assert 'not available: ' + reason + '\n' in brenik('show', practice, 'Names')[1]
    ended, text, complaint = brenik('show', practice, 'Names', '--all', '--json')
    records = [json.loads(line) for line in text.splitlines()]
    assert ended == 0 and reason in complaint and len(records) == sound['records']
    if file == 'LAW1.CDX':
        assert records[16] == first
        ended, text, complaint = brenik('show', practice, 'Names', '--all', '--order', 'U_ID')
        assert (ended, text) == (3, '') and reason in complaint
    else:
        first['fields']['NOTES'] = None
        assert records[16]['unreadable'].keys() == {'NOTES'} and records[16]['fields'] == first['fields']


@pytest.mark.parametrize('damage', [None, cut(6)])
def test_memos_given_up(host, practice, damage):
    """Only when asked for: every emptied field is named, and nothing else of a record changes. An interrupted run is
    finished by the next."""
    table = practice.table('LAW1').table
    pointers = [memo_place(Path(practice.find('LAW1.DBF')).read_bytes(), n + 1) for n in range(table.count)]
    damaged(practice, 'LAW1.FPT', damage)
    before = snapshot(practice.folder)
    assert brenik('repair', practice)[0] == 1 and snapshot(practice.folder) == before
    data = before['LAW1.DBF']
    named = [n + 1 for n, at in enumerate(pointers) if data[at:at + 10].strip()]
    tried = steps(practice, '--without-memos', '--dry-run')
    assert snapshot(practice.folder) == before
    memo_of(named[0], b' ' * 10)(interrupted := bytearray(data))
    Path(practice.find('LAW1.DBF')).write_bytes(interrupted)
    done = steps(practice, '--without-memos')
    assert [record for _, record, what in tried if 'field NOTES: emptied' in what] == named
    assert [record for _, record, what in done if 'field NOTES: emptied' in what] == named[1:]
    for at in pointers:
        data = data[:at] + b' ' * 10 + data[at + 10:]
    assert snapshot(practice.folder)['LAW1.DBF'] == data and findings(practice, 0) == []
    assert_sound(practice.folder)
    assert host.init(practice) == 0 and host.edit_begin(1, named[0]) == 0


def test_insisted_on(practice):
    """Records that seem misplaced are left alone, unless somebody insists; then this is said first."""
    for record in range(5):
        practice.damage('LAW1.DBF', lambda d, n=record: put(header(d) + n * record_length(d), 65, 1)(d))
    practice.damage('LAW1.DBF', append(b'rubbish!' * 100))
    before = snapshot(practice.folder)
    for command, *options in [['repair'], ['reindex'], ['repair', '--force', '--dry-run']]:
        ended, output, _ = brenik(command, practice, 'Names', *options)
        assert ended == 1 and '5 of 40 records' in output.splitlines()[0] and snapshot(practice.folder) == before
    ended, output, _ = brenik('repair', practice, 'Names', '--force')
    assert ended == 1 and '(--force)' in output.splitlines()[0] and 'end mark written' in output
    assert {finding['kind'] for finding in findings(Path(practice.find('LAW1.DBF')), 1)} == {'deletion-mark'}


def test_indexed_like_another(new_practice, practice):
    """A destroyed index comes back with the tags of another practice, in their order; --tag goes before both. Where a
    key cannot be had, or the other index is not whole, nothing changes."""
    other, table = new_practice('other'), practice.find('LAW1.DBF')
    practice.damage('LAW1.CDX', NO_TAGS)
    leftover = practice.folder / 'LAW1.CDX.new'
    leftover.write_bytes(b'never finished')
    other.damage('LAW9.CDX', NO_TAGS)
    before = snapshot(practice.folder)
    for like, reason in [('LAW3', 'tag CASENUMBER: at character 7: no field "CASENUM"'), ('LAW9', 'is damaged')]:
        ended, output, complaint = brenik('reindex', table, '--like', '%s/%s' % (other, like))
        assert ended == 1 and reason in output + complaint and snapshot(practice.folder) == before, output + complaint
    assert brenik('reindex', practice, '--like', other)[0] == 2
    assert brenik('reindex', table, '--like', other, '--dry-run')[0] == 0 and snapshot(practice.folder) == before
    elsewhere = snapshot(other.folder)
    with HeldBytes(other.find('LAW1.DBF'), other.table('LAW1').lock_position(5)):    # others work there
        assert brenik('reindex', practice, 'Names', '--like', other, '--tag', 'ID=LOWER(ID)')[0] == 0
    assert snapshot(other.folder) == elsewhere and not leftover.exists()
    tags = practice.table('LAW1').tags
    assert list(tags) == list(other.table('LAW1').tags) and tags['ID'].key_text == 'LOWER(ID)'
    # A letter of a condition has other bytes there, because the other table is in code page 437.
    other.damage('LAW1.DBF', put(29, 1, 1))
    for folder, *options in (other, '--tag', 'UMLAUT=LAST;FOR LAST="\xFC"'), (practice, '--like', other):
        assert brenik('reindex', folder, 'Names', *options)[0] == 0
        tags = json.loads(brenik('show', folder, 'Names', '--json')[1])['tags']
        assert 'LAST="\xFC"' in [tag['condition'] for tag in tags]
    # Killed after the index was built, before the table was marked.
    practice.damage('LAW1.DBF', lambda data: put(28, data[28] & ~1, 1)(data))
    assert brenik('reindex', table)[0] == 0 and Path(table).read_bytes()[28] & 1


@pytest.mark.embedded
def test_practice(session, practice):
    """Identifiers, their counters and the journal."""
    assert session.add(1, {'LAST': 'Last'}) == (0, identifier('A1', 41))
    assert session.shutdown() == 0
    assert findings(practice, 0) == []
    with HeldBytes(practice.find('LAW3.DBF'), 0x7FFFFFFF):
        assert has(findings(practice, 4), kind='in-use', severity='not checked')
    practice.patch('LAWTRANS', practice.journal('01', 'A', identifier('A1', 39))[0].number)     # dealt with, taken away
    unknown, = findings(practice, 0, but=None)
    assert (unknown['kind'], unknown['record'], unknown['remedy']) == ('not-in-journal', 40, 'tell')
    note = practice.table('LAWTRANS').where(CDB='04', CCODE='A')[0].number
    practice.patch('LAWTRANS', note, 'U_ID', b'A100000')
    practice.patch('LAWSYS', 1, 'U_ID1', b'%10d' % 39)
    practice.patch('LAWTRANS', len(practice.table('LAWTRANS').rows), 'U_ID', b'A1zzzzz')
    practice.patch('LAWCODES', 3, 'U_ID', practice.table('LAWCODES').rows[1]['U_ID'].encode())
    found = findings(practice, 1)
    assert has(found, kind='counter-behind', field='U_ID1', remedy='repair')
    assert has(found, kind='journal-entry', record=len(practice.table('LAWTRANS').rows))
    assert has(found, kind='journal-recycled', severity='note', record=note)
    assert has(found, kind='duplicate-identifier', record=3, remedy='by hand')
    assert brenik('repair', practice)[0] == 1
    assert {finding['kind'] for finding in findings(practice, 1)} == {'duplicate-identifier', 'journal-recycled'}
    assert practice.counter('U_ID1') == 41
    assert_sound(practice.folder)
    assert session.init(practice) == 0 and session.add(1, {})[1] == identifier('A1', 42)


def test_output_that_is_not_read(session, new_practice):
    """Keeps nobody from changing the index."""
    practice = new_practice('large', '--contacts', '2000')
    assert session.init(practice) == 0

    def rename(data):
        data[header(data):] = data[header(data):].replace(b'a', b'z')
    practice.damage('LAW1.DBF', rename)
    command = [*shlex.split(TOOL), 'check', path_form(OURS)(practice.find('LAW1.DBF')), '--json']
    with subprocess.Popen(command, stdout=subprocess.PIPE) as check:
        assert b'missing-key' in check.stdout.readline() + check.stdout.readline()
        time.sleep(0.5)     # the pipe is full now
        assert check.poll() is None and session.add(1, {'LAST': 'New'})[0] == 0


@pytest.mark.embedded
def test_beside_sessions(session, practice):
    """What a session has not finished is no fault; what it has open is not repaired."""
    last = practice.table('LAW1').rows[4]['LAST'].encode()
    practice.patch('LAW1', 5, 'LAST', b'Zzz')               # the record is written, its key is not
    with HeldBytes(practice.find('LAW1.DBF'), practice.table('LAW1').lock_position(5)):
        found = findings(practice, 4)
        assert {(each['kind'], each['record'], each['tag']) for each in found} == {('record-locked', 5, 'NAME')}
    assert has(findings(practice, 1), kind='missing-key', record=5, tag='NAME')
    practice.write('LAWSYS.INI', '[Main]\nnServerType=2\n')
    before = snapshot(practice.folder)
    ended, output, told = brenik('repair', practice)
    assert ended == 4 and 'in use by other programs' in output and snapshot(practice.folder) == before
    assert 'stop the server' in told
    practice.write('LAWSYS.INI', '[Main]\n')
    practice.patch('LAW1', 5, 'LAST', last)
    with HeldBytes(practice.find('LAW1.CDX'), 0x7FFFFFFE):
        assert has(findings(Path(practice.find('LAW1.DBF')), 4), kind='index-locked')
    checked = threading.Event()

    def work():
        for number in itertools.takewhile(lambda _: not checked.is_set(), itertools.count(1)):
            uid = session.add(1, {'LAST': 'Name %d' % (number * 7919 % 997), 'NOTES': 'n' * number})[1]
            session.edit(1, 1 + number % 40, {'LAST': 'Edit %d' % (number * 31 % 997), 'NOTES': 'e' * (number % 700)})
            session.add(3, {'MATTER': 'Matter %d' % number}, uid)

    def check():
        try:
            return [brenik('check', practice, '--json') for _ in range(15)]
        finally:
            checked.set()
    for ended, output, _ in at_once(check, work)[0]:
        assert ended in (0, 4) and '"fault"' not in output, output
    assert findings(practice, 0) == []


def test_the_journal_waits_for_its_tables(session, practice):
    """What is lost for now may come back with its table; other tables are mended beside those who use them."""
    uid = session.add(1, {'LAST': 'Last'})[1]
    practice.patch('LAWSYS', 1, 'U_ID3', b'%10d' % 0)
    practice.damage('LAW1.DBF', put(4, 40, 4))
    journal = Path(practice.find('LAWTRANS.DBF')).read_bytes()
    ended, output, _ = brenik('repair', practice, '--dry-run')
    assert ended == 0 and 'would do: LAWSYS.DBF: record 1: counter U_ID3' in output and 'LawTrans' not in output
    ended, output, _ = brenik('repair', practice)
    assert ended == 4 and 'not repaired: LAW1.DBF: not compared' in output
    assert practice.counter('U_ID3') == 20 and Path(practice.find('LAWTRANS.DBF')).read_bytes() == journal
    assert session.shutdown() == 0 and brenik('repair', practice)[0] == 0
    assert findings(practice, 0) == [] and Path(practice.find('LAWTRANS.DBF')).read_bytes() == journal
    assert not practice.journal('01', 'A', uid)[0].deleted


def test_identifiers_of_lost_records(session, practice):
    """Are not issued once more, even when the journal's entry is deleted."""
    counters = Path(practice.find('LAWSYS.DBF'))
    before = counters.read_bytes()
    uid = session.add(1, {'LAST': 'Last'})[1]
    assert uid == identifier('A1', 41) and session.shutdown() == 0
    practice.damage('LAW1.DBF', cut(lambda d: len(d) - 1 - record_length(d)))
    counters.write_bytes(before)
    practice.patch('LAWTRANS', practice.journal('01', 'A', uid)[0].number)
    assert has(findings(practice, 1), kind='counter-behind', field='U_ID1', remedy='repair')
    assert brenik('repair', practice)[0] == 0 and practice.counter('U_ID1') == 41 and findings(practice, 0) == []
    assert session.init(practice) == 0 and session.add(1, {})[1] == identifier('A1', 42)


def shorter(path):
    os.truncate(path, os.path.getsize(path) - 300)


def replaced(path):
    os.replace(shutil.copy(path, path + '.new'), path)


CHANGES = [shorter] if OURS.library.endswith('.dll') else [shorter, os.remove, replaced]


@pytest.mark.embedded
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
