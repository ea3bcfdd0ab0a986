"""Checking and mending: each fault is named with its place, mended, and then nobody finds any more."""

import itertools
import json
import shlex
import shutil
import subprocess
import threading
import time
from pathlib import Path

import pytest
from conftest import OURS, TOOL, HeldBytes, at_once, path_form
from judges import TableView, assert_sound, identifier
from test_call import results
from test_damage import add_to, cut, header, last_tag, put, record_length, within
from test_tool import brenik

FIXTURES = Path(__file__).resolve().parent.parent / 'data' / 'fixtures'


def findings(path, code, but='not-in-journal'):
    """Every finding but of one kind, as the sample has a contact of which its journal does not know; the summary must
    agree with them."""
    ended, output, complaint = brenik('check', path, '--json')
    assert (ended, complaint) == (code, ''), output
    *found, summary = [json.loads(line) for line in output.splitlines()]
    assert summary['faults'] == sum(finding['severity'] == 'fault' for finding in found)
    return [finding for finding in found if finding['kind'] != but]


def deeds(practice, code, *options):
    """What a repair says that it does; a dry run has done nothing of it, and names no copies."""
    ended, output, _ = brenik('repair', practice, '--json', *options)
    *lines, summary = [json.loads(line) for line in output.splitlines()]
    did = 'would_do' if options else 'done'
    assert (ended, summary[did]) == (code, sum(line[did] for line in lines)), output
    assert did == 'done' or not any(line['done'] for line in [*lines, summary])
    lines = [line for line in lines if 'copied to' not in line['what']]
    return [(line['file'], line['record'], line['what'], line[did]) for line in lines]


def has(found, **wanted):
    return any(all(finding[name] == value for name, value in wanted.items()) for finding in found)


def snapshot(folder):
    return {path.name: path.read_bytes() for path in Path(folder).iterdir() if path.is_file()}


def append(text):
    return lambda data: data.extend(text)


def memo_place(data, record):
    """Where the memo pointer of a record of contacts lies."""
    at = data.index(b'NOTES\0', 32) & ~31
    return header(data) + (record - 1) * record_length(data) + int.from_bytes(data[at + 12:at + 16], 'little')


def memo_of(record, pointer):
    def damage(data):
        at = memo_place(data, record)
        data[at:at + 10] = pointer
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


def free_list_with_the_directory(data):
    data.extend((1024).to_bytes(4, 'little') + bytes(508))
    put(4, len(data) - 512, 4)(data)


# Name of the file, the damage, and the finding that it must lead to.
PLANTED = {
    'count too high': ('LAW1.DBF', put(4, 50, 4), dict(kind='cut-short', record=41)),
    'cut in a record': ('LAW2.DBF', cut(lambda d: header(d) + 20 * record_length(d) + 9),
                        dict(kind='cut-short', record=21)),
    'count too low': ('LAW1.DBF', add_to(4, 4, -1), dict(kind='uncounted-records', record=40)),
    'append not finished': ('LAW1.DBF', unfinished_append, dict(kind='unfinished-append', record=41)),
    'no end mark': ('LAW1.DBF', cut(lambda d: len(d) - 1), dict(kind='end-mark')),
    'rubbish behind': ('LAW9.DBF', append(b'rubbish!' * 100), dict(kind='rubbish')),
    'record length': ('LAW3.DBF', put(10, 7, 2), dict(kind='header')),
    'header length': ('LAW3.DBF', put(8, 65535, 2), dict(kind='header')),
    'header length by one': ('LAW1.DBF', add_to(8, 2, 1), dict(kind='header')),
    'field list not ended': ('LAW1.DBF', lambda d: put(header(d) - 1, 65, 1)(d), dict(kind='header')),
    'memo outside': ('LAW1.DBF', memo_of(3, b'  77777777'), dict(kind='memo-pointer', record=3, field='NOTES')),
    'memo no number': ('LAW1.DBF', memo_of(3, b'rubbish   '), dict(kind='memo-pointer', record=3, field='NOTES')),
    'memo cut off': ('LAW1.FPT', cut(lambda d: len(d) - 100), dict(kind='memo-pointer', field='NOTES')),
    'memos overlap': ('LAW1.DBF', share_memo, dict(kind='memo-overlap', field='NOTES')),
    'memo block size': ('LAW1.FPT', put(6, 0, 2), dict(kind='memo-block-size')),
    'next memo in used blocks': ('LAW3.FPT', put(0, 9, 1), dict(kind='memo-next-free')),
    'directory header': ('LAW1.CDX', put(12, 11, 2), dict(kind='index-header')),
    'root outside': ('LAW1.CDX', put(1536, 0x7FFFFE00, 4), dict(kind='index-page', tag='U_ID', page=0x7FFFFE00)),
    'key length': ('LAW1.CDX', put(within(last_tag, 12), 9, 2), dict(kind='tag-header', tag='NEWEST')),
    'key text cut by its length': ('LAW2.CDX', put(within(last_tag, 510), 3, 2), dict(kind='tag-header')),
    'key text beyond its page': ('LAW2.CDX', put(within(last_tag, 510), 0x7FFF, 2), dict(kind='tag-header')),
    'condition not behind the key': ('LAW2.CDX', put(within(last_tag, 504), 1, 2), dict(kind='tag-header')),
    'right sibling': ('LAW2.CDX', put(within(first_leaf, 8), 0xFFFFFFFF, 4), dict(kind='index-page', tag='U_ID')),
    'left sibling': ('LAW2.CDX', put(within(second_leaf, 4), 1024, 4), dict(kind='index-page', tag='U_ID')),
    'left sibling behind': ('LAW2.CDX', put(within(second_leaf, 4), 0xFFFFFFFF, 4),
                            dict(kind='index-unfinished', tag='U_ID', severity='note')),
    'free space': ('LAW2.CDX', put(within(first_leaf, 12), 3, 2), dict(kind='index-page', tag='U_ID')),
    'not a page': ('LAW2.CDX', put(first_leaf, 0x5A5A, 2), dict(kind='index-page', tag='U_ID')),
    'page used twice': ('LAW1.CDX', free_list_with_the_directory, dict(kind='free-list', page=1024)),
    'file not whole pages': ('LAW1.CDX', append(b'half a page'), dict(kind='index-size', severity='note')),
    'orphan': ('LAW1.CDX', append(bytes(512)), dict(kind='orphan-pages', severity='note')),
}


@pytest.mark.parametrize('name', PLANTED)
def test_planted(new_practice, name):
    """Named in its place; told but not touched in a dry run; mended, with a copy of what was changed."""
    practice = new_practice('practice', '--events', '400')      # with trees of more than one level
    file, damage, wanted = PLANTED[name]
    practice.damage(file, damage)
    found = findings(practice, 0 if wanted.get('severity') == 'note' else 1)
    assert has(found, **wanted), found
    damaged = snapshot(practice.folder)
    tried = deeds(practice, 0, '--dry-run')
    assert tried and snapshot(practice.folder) == damaged and deeds(practice, 0) == tried
    assert findings(practice, 0) == []
    assert_sound(practice.folder)
    copies = {path.name.split('.bak-')[0]: path.read_bytes() for path in practice.folder.glob('*.bak-*')}
    assert copies and all(damaged[copied] == content for copied, content in copies.items())
    assert brenik('repair', practice) == (0, '%s: nothing to mend\n' % path_form(OURS)(practice), '')


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
    assert findings(path, 1)[0]['kind'] == 'index-missing'
    assert brenik('repair', path)[0] == 1 and brenik('reindex', path, '--tag', 'X=NOFIELD')[0] == 1
    assert not (practice.folder / 'TAGS.CDX').exists()
    assert brenik('reindex', path, *options)[0] == 0
    assert findings(path, 0) == []
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
    assert brenik('repair', path, '--dry-run')[0] == 1
    ended, output, _ = brenik('reindex', path)
    assert ended == 1 and 'records 7 and 8 have the same key; the index stays as it was' in output
    assert (practice.folder / 'TAGS.CDX').read_bytes() == before
    assert not (practice.folder / 'TAGS.CDX.new').exists()


def test_practice(session, practice):
    """Identifiers, their counters and the journal."""
    assert session.add(1, {'LAST': 'Last'}) == (0, identifier('A1', 41))
    assert session.shutdown() == 0
    assert findings(practice, 0) == []
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


@pytest.mark.parametrize('file, damage, remedy', [
    ('LAW1.DBF', cut(20), 'restore'), ('LAW1.DBF', put(48, 0, 1), 'restore'), ('LAW1.DBF', put(0, 0xFF, 1), 'restore'),
    ('LAW1.CDX', cut(300), 'restore'), ('LAW1.CDX', put(within(last_tag, 494), 0x44524F4E, 4), 'by hand'),
    ('LAW1.FPT', cut(6), 'restore'), ('LAW1.FPT', None, 'restore'),
    ('LAW1.DBF', lambda d: put(header(d), 65, 1)(d), 'by hand'),
    ('LAW1.DBF', lambda d: d.pop(header(d) + 99), 'by hand')])
def test_what_only_a_backup_can_mend(practice, file, damage, remedy):
    """Is named as such; nothing of it is touched."""
    if damage:
        practice.damage(file, damage)
    else:
        Path(practice.find(file)).unlink()
    assert has(findings(practice, 1), remedy=remedy)
    before = snapshot(practice.folder)
    for options in ['--dry-run'], []:
        ended, output, _ = brenik('repair', practice, *options)
        assert ended == 1 and 'not mended: ' in output and snapshot(practice.folder) == before


def test_memo_file_that_nobody_needs(practice):
    for number in range(1, practice.table('LAW1').table.count + 1):
        practice.patch('LAW1', number, 'NOTES', b' ' * 10)
    practice.damage('LAW1.FPT', cut(100))
    assert has(findings(practice, 1), kind='memo-header', remedy='repair')
    assert brenik('repair', practice)[0] == 0 and findings(practice, 0) == []
    assert len(list(practice.folder.glob('LAW1.FPT.bak-*'))) == 1


def test_memo_file_beyond_the_limit_of_one_mode(practice):
    """It is sound in the other, and nothing that is read tells which is in force."""
    with open(practice.find('LAW1.FPT'), 'r+b') as memo:
        memo.truncate(0x41000000)
        memo.write((0x41000000 // 64).to_bytes(4, 'big'))
    assert findings(practice, 0) == []


def test_output_that_is_not_read(session, new_practice):
    """Keeps nobody from changing the index."""
    practice = new_practice('large', '--contacts', '2000')
    assert session.init(practice) == 0
    last = practice.table('LAW1').table.by_name['LAST'].offset

    def rename(data):
        for at in range(header(data) + last, len(data), record_length(data)):
            data[at:at + 3] = b'Zzz'
    practice.damage('LAW1.DBF', rename)
    command = [*shlex.split(TOOL), 'check', path_form(OURS)(practice.find('LAW1.DBF')), '--json']
    with subprocess.Popen(command, stdout=subprocess.PIPE) as check:
        assert b'missing-key' in check.stdout.readline() + check.stdout.readline()
        time.sleep(0.5)     # the pipe is full now
        assert check.poll() is None and session.add(1, {'LAST': 'New'})[0] == 0


def test_beside_sessions(session, practice):
    """What a session has not finished is no fault; what it has open is not mended."""
    last = practice.table('LAW1').rows[4]['LAST'].encode()
    practice.patch('LAW1', 5, 'LAST', b'Zzz')               # the record is written, its key is not
    with HeldBytes(practice.find('LAW1.DBF'), practice.table('LAW1').lock_position(5)):
        found = {(finding['kind'], finding['record'], finding['tag']) for finding in findings(practice, 4)}
        assert found == {('record-locked', 5, 'NAME')}
    assert has(findings(practice, 1), kind='missing-key', record=5, tag='NAME')
    before = snapshot(practice.folder)
    ended, output, _ = brenik('repair', practice)
    assert ended == 4 and 'in use by other programs' in output and snapshot(practice.folder) == before
    practice.patch('LAW1', 5, 'LAST', last)
    with HeldBytes(practice.find('LAW1.CDX'), 0x7FFFFFFE):
        assert has(findings(Path(practice.find('LAW1.DBF')), 4), kind='index-locked')
    checked = threading.Event()

    def work():
        for number in itertools.takewhile(lambda _: not checked.is_set(), itertools.count(1)):
            uid = session.add(1, {'LAST': 'Name %d' % (number * 7919 % 997), 'NOTES': 'n' * number})[1]
            session.edit(1, 1 + number % 40, {'LAST': 'Edit %d' % (number * 31 % 997), 'NOTES': 'e' * (number % 700)})
            session.add(3, {'MATTER': 'Matter %d' % number}, uid)

    def recycle():
        """Notes that are deleted make room for others, over and over."""
        steps = [[step] for step in ('APPENDBLANK', 'commit', 'delete', 'RSDEL', 'commit', 'unlock')]
        while not checked.is_set():
            results(['select area', 4], *steps * 40, folder=practice)

    def check():
        try:
            return [brenik('check', practice, '--json') for _ in range(15)]
        finally:
            checked.set()
    for ended, output, _ in at_once(check, work, recycle)[0]:
        assert ended in (0, 4) and '"fault"' not in output, output
    assert findings(practice, 0) == []


def test_leftover_of_a_rebuild(practice):
    started = practice.folder / 'LAW1.CDX.new'
    started.write_bytes(b'half an index')
    assert [finding['kind'] for finding in findings(practice, 0)] == ['leftover']
    assert brenik('reindex', practice.find('LAW1.DBF'))[0] == 0 and not started.exists()
    assert findings(practice, 0) == []


def test_paths(practice, tmp_path):
    assert brenik('check', tmp_path / 'nowhere')[0] == 3 and brenik('check', practice.folder / 'billing')[0] == 3
    assert brenik('check', str(practice.folder / 'law1'))[0] == 0
    assert brenik('reindex', practice, '--tag', 'A=B')[0] == 2
    assert brenik('reindex', practice.find('LAW1.DBF'), '--tag', 'A=U_ID;SOMETIMES')[0] == 2
    with HeldBytes(practice.find('LAW1.DBF'), 0x7FFFFFFF):
        assert has(findings(practice, 4), kind='in-use', severity='not checked')


def test_the_journal_waits_for_its_tables(session, practice):
    """What is lost for now may come back with its table; other tables are mended beside those who use them."""
    uid = session.add(1, {'LAST': 'Last'})[1]
    practice.patch('LAWSYS', 1, 'U_ID3', b'%10d' % 0)
    practice.damage('LAW1.DBF', put(4, 40, 4))
    journal = Path(practice.find('LAWTRANS.DBF')).read_bytes()
    ended, output, _ = brenik('repair', practice, '--dry-run')
    assert ended == 0 and 'would do: LAWSYS.DBF: record 1: counter U_ID3' in output and 'LawTrans' not in output
    ended, output, _ = brenik('repair', practice)
    assert ended == 4 and 'not mended: LAW1.DBF: not compared' in output
    assert practice.counter('U_ID3') == 20 and Path(practice.find('LAWTRANS.DBF')).read_bytes() == journal
    assert session.shutdown() == 0 and brenik('repair', practice)[0] == 0
    assert findings(practice, 0) == [] and Path(practice.find('LAWTRANS.DBF')).read_bytes() == journal
    assert not practice.journal('01', 'A', uid)[0].deleted


def test_partly_mended(session, practice):
    """Half a repair is not enough either: here the index stays as it was."""
    assert session.add(1, {'LAST': 'Last'})[0] == 0 and session.shutdown() == 0
    practice.damage('LAW1.DBF', cut(lambda d: header(d) + 40 * record_length(d) + 9))
    sound, _ = practice.damage('LAW1.CDX', cut(lambda d: 1536))
    journal = Path(practice.find('LAWTRANS.DBF')).read_bytes()
    assert brenik('repair', practice)[0] == 1 and Path(practice.find('LAWTRANS.DBF')).read_bytes() == journal
    Path(practice.find('LAW1.CDX')).write_bytes(sound)
    assert brenik('repair', practice)[0] == 0       # the record is lost for good, and so is its key
    assert findings(practice, 0) == []
    assert Path(practice.find('LAWTRANS.DBF')).read_bytes() != journal


@pytest.mark.parametrize('kind', [b'A', None])
def test_identifiers_of_lost_records(session, practice, kind):
    """Are not issued once more, whatever the journal tells of the record, and even when that entry is deleted."""
    counters = Path(practice.find('LAWSYS.DBF'))
    before = counters.read_bytes()
    uid = session.add(1, {'LAST': 'Last'})[1]
    assert uid == identifier('A1', 41) and session.shutdown() == 0
    practice.damage('LAW1.DBF', cut(lambda d: len(d) - 1 - record_length(d)))
    counters.write_bytes(before)
    entry = practice.journal('01', 'A', uid)[0].number
    practice.patch('LAWTRANS', entry, *(['CCODE', kind] if kind else []))
    assert has(findings(practice, 1), kind='counter-behind', field='U_ID1', remedy='repair')
    assert brenik('repair', practice)[0] == 0 and practice.counter('U_ID1') == 41 and findings(practice, 0) == []
    assert session.init(practice) == 0 and session.add(1, {})[1] == identifier('A1', 42)
