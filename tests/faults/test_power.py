"""The power fails while a host works with Durability=full: whatever it was told is done, is done.

A host's changes and syncs are recorded, and how long the record was when each call had answered. Then the power is cut
at random places of the record. A disk keeps what was synced; of the rest it keeps nothing, or what came first in each
file, or any sectors, each in any version that it has had. On each result the judges look for everything acknowledged,
record by record and through every tag; the next host works on it without a repair; and the judges look again. Only the
call that was under way may have left anything: it is done, undone, or has left
  - index entries that its own records do not have (surplus),
  - an appended record that is not counted, until the next one is appended,
  - a page of an index that its left neighbour names and the level above does not yet, or a left pointer that is
    behind (unfinished): readers go right there, and the next change of that place mends it,
  - a record of two sectors half changed.

BRENIK_CUTS sets the number of cuts, BRENIK_CUT_SEED makes others.
"""

import bisect
import collections
import functools
import multiprocessing
import os
import random
import re
import shutil
import string

import judges
from conftest import Host, HostGone
from judges import VIEWS, tables_of, view_of
from test_faults import TABLES, assert_unique, faulty, later, memory, tool  # noqa: F401  (a fixture)

CUTS = int(os.environ.get('BRENIK_CUTS', '250'))
SEED = int(os.environ.get('BRENIK_CUT_SEED', '1'))
SECTOR = 512
EDITED_LATER = 1         # the number of the record, in several tables
MOST_VIEWS = 100         # kept at a time
SURPLUS = r'record \d+ (is in the tag|has key|occurs twice)|record number \d+ out of range'
UNFINISHED = '%s|%s' % (judges.UNFINISHED,
                        r'no page of the level above|does not end with the entry that page|its left sibling is')
TAIL = r'dbf: (byte after record|\d+ bytes after|no end-of-file byte)'


class Work:
    """A recorded host at work; `marks` are the lengths of the record at its answers, the first when it has started."""

    def __init__(self, practice, folder):
        self.record, self.random, self.marks = folder / 'record', random.Random(SEED), []
        self.host = Host(folder, **faulty(practice, FAULTY_RECORD=str(self.record)))
        self.done(self.host.init(practice))
        contacts = [row['U_ID'] for row in judges.TableView(practice, 'LAW1').rows]
        for turn in range(60):
            contacts.append(self.add_contact())
            if turn % 2:
                self.edit(self.random.choice(contacts), self.random.choice(
                    ({'LAST': self.text(), 'CITY': self.text()}, {'DEAR': self.text(20)}, {'NOTES': self.text(900)})))
            if turn % 6 == 0:
                self.add(4, {'TOPIC': self.text(), 'NOTE': self.text(300)})
                self.add(2, {'DETAIL': self.text(60), 'CASENUM': self.text(), 'NOTES': self.text(90)})
                self.add(3, {'MATTER': self.text(40), 'CASENUM': self.text()}, contacts[-1])
        # Leaves of the names become empty from the first on, and their pages are used again.
        rows = judges.TableView(practice, 'LAW1').rows
        for row in sorted(rows, key=lambda row: (row['LAST'] + row['FIRST']).upper())[:60]:
            self.edit(row['U_ID'], {'LAST': 'Same', 'FIRST': ''})
        for _ in range(50):
            self.add_contact()
        self.host.child.kill()
        self.host.close()

    def done(self, rc):
        assert rc == 0
        self.marks.append(self.record.stat().st_size)

    def add(self, table, values, contact=''):
        rc, identifier = self.host.add(table, values, contact)
        self.done(rc)
        return identifier

    def edit(self, identifier, values):
        self.done(self.host.edit(1, identifier, values))

    def text(self, most=12):
        return ''.join(self.random.choices(string.ascii_letters, k=self.random.randint(1, most)))

    def add_contact(self):
        memo = {'NOTES': self.text(900)} if self.random.random() < 0.3 else {}
        return self.add(1, {'LAST': self.text(), 'FIRST': self.text(), 'ID': self.text(9), 'CITY': self.text(3),
                            'BALANCE': '%.2f' % self.random.uniform(1, 9999), **memo})

    def changes(self):
        """Each with the length of the record up to its end."""
        with self.record.open('rb') as file:
            for line in file:
                what, at, count, name = line.decode().split()
                content = file.read(int(count))
                if name != 'Trace.Log':
                    yield file.tell(), (what, int(at), content, name)


def write(image, at, content):
    image.extend(bytes(max(0, at - len(image))))
    image[at:at + len(content)] = content


class Disk:
    """Files as they are on the disk, and the writes since the last sync of each."""

    def __init__(self, files):
        self.files, self.unsynced = dict(files), collections.defaultdict(list)

    def take(self, what, at, content, name):
        assert what in ('write', 'sync') and name in self.files, 'hosts do nothing else to a practice'
        if what == 'write':
            self.unsynced[name].append((at, content))
        else:
            self.files[name] = self.prefix(name, self.unsynced.pop(name, []))

    def after_cut(self, how, choice):
        return {name: getattr(self, how)(name, self.unsynced[name], choice) for name in self.files}

    def prefix(self, name, writes, choice=None):
        """Without a choice it is all of them, else the last one is torn."""
        count, image = choice.randint(0, len(writes)) if choice else len(writes), bytearray(self.files[name])
        for at, content in writes[:count]:
            write(image, at, content)
        for at, content in writes[count:count + 1]:
            borders = range(at // SECTOR * SECTOR + SECTOR, at + len(content), SECTOR)
            write(image, at, content[:choice.choice([at, *borders]) - at])
        return bytes(image)

    def sectors(self, name, writes, choice):
        written, versions = bytearray(self.files[name]), collections.defaultdict(list)
        for at, content in writes:
            write(written, at, content)
            for begin in range(at // SECTOR * SECTOR, at + len(content), SECTOR):
                versions[begin].append(bytes(written[begin:begin + SECTOR]))
        survives, image = choice.choice((0, 0.5, 0.9)), bytearray(self.files[name])
        for begin, seen in versions.items():
            if choice.random() < survives:
                write(image, begin, choice.choice([seen[-1], *seen]))
        if choice.random() < 0.5:                        # the length is kept elsewhere on a disk
            write(image, len(written), b'')
        return bytes(image)


def put(folder, files):
    folder.mkdir(exist_ok=True)
    for name, content in files.items():
        (folder / name).write_bytes(content)


def rows_of(folder):
    return {(name, row.number): row for name in tables_of(folder) for row in view_of(folder, name).rows}


def identifiers(rows):
    tables = {name: table for table, name in TABLES.items()}
    return [(tables[name], row['U_ID']) for (name, _), row in rows.items() if name in tables]


def same(one, other):
    return one is not None and other is not None and (one.deleted, one.raw) == (other.deleted, other.raw)


class Verdict:
    """What is wrong with a practice in which the call from the rows `old` to `new` was under way."""

    def __init__(self, folder, old, new):
        self.folder, self.old, self.new, self.rows = folder, old, new, rows_of(folder)
        self.moving = {key for key in old.keys() | new.keys() if not same(old.get(key), new.get(key))}
        self.torn, self.complaints = set(), []

    def complain(self, *words):
        self.complaints.append(' '.join(map(str, words)))

    def judge_rows(self):
        for key in sorted(self.old.keys() | self.rows.keys()):
            old, new, now = (rows.get(key) for rows in (self.old, self.new, self.rows))
            if not same(now, old) and not same(now, new):
                self.torn.add(key)
                if not (old and new and now and self.may_tear(key, old.record, new.record, now.record)):
                    self.complain(*key, 'is neither as before nor as after the call' if now else 'is lost')

    def may_tear(self, key, old, new, now):
        """Counters are written one after the other; another record is torn where a sector ends within it."""
        table = view_of(self.folder, key[0]).table
        begin = table.header_size + (key[1] - 1) * table.record_size
        borders = range(-begin % SECTOR or SECTOR, len(now), SECTOR) if key[0] != 'LAWSYS' else range(1, len(now))
        parts = [slice(*ends) for ends in zip([0, *borders], [*borders, len(now)])]
        return len(parts) > 1 and all(now[part] in (old[part], new[part]) for part in parts)

    def judge_files(self, growing):
        """Those of the tables `growing` may have an uncounted record."""
        for name in tables_of(self.folder):
            view = view_of(self.folder, name)
            for fault in view.report.faults:
                numbers = {(name, int(number)) for number in re.findall(r'record (?:number )?(\d+)', fault)}
                surplus = re.search(SURPLUS, fault) and numbers <= self.moving
                tail = name in growing and re.match(TAIL, fault)
                left = re.search(r'%s|record \d+ is missing' % UNFINISHED, fault)
                if not (surplus or tail or left or numbers & self.torn):
                    self.complain(name, fault)
            for tag, number in view.unreachable():       # from pages that are missing above, too
                if (name, number) not in self.torn:
                    self.complain(name, 'tag', tag, 'does not lead to record', number)

    def judge_identifiers(self, told):
        """In the tables, for the counters, and in the journal."""
        try:
            assert_unique(self.folder, told)
        except AssertionError as error:
            self.complain('identifiers:', str(error).split('\n')[0])
        there = {('%02d' % int(table), identifier) for table, identifier in identifiers(self.rows)}
        noted = view_of(self.folder, 'LawTrans').where(CCODE='A', deleted=False)
        for entry in {(row['CDB'], row['U_ID']) for row in noted} - there:
            self.complain('the journal tells of', *entry)


def next_host(folder, windows_folder, old):
    """Finds everything, then works. The new identifiers."""
    host = Host(windows_folder)
    try:
        assert host.init(folder) == 0
        for table, identifier in identifiers(old):
            assert table == '9' or host.edit_start(int(table), identifier) == 0, identifier
        answers = list(later(host))
        assert not any(rc for rc, *_ in answers), answers
        assert host.shutdown() == 0
    finally:
        host.child.kill()
        host.close()
    return [tuple(what) for _, *what in answers if what]


def judge(folder, windows_folder, start, old, new):
    """The complaints."""
    known = set(identifiers(start))
    told = [identifier for identifier in identifiers(old) if identifier not in known]
    first = Verdict(folder, old, new)
    first.judge_rows()
    first.judge_files({name for name, number in new.keys() - old.keys()})
    first.judge_identifiers(told)
    try:
        added = next_host(folder, windows_folder, old)
    except (AssertionError, HostGone) as error:
        return first.complaints + ['next host: ' + str(error).split('\n')[0]]
    second = Verdict(folder, old, new)
    second.torn = {key for key in first.torn if key[1] != EDITED_LATER}
    second.moving &= old.keys()                         # the next addition clears what one has left
    second.judge_files(())
    second.judge_identifiers(told + added)
    for key, row in first.rows.items():
        if key[0] in TABLES.values() and key[1] != EDITED_LATER and not same(second.rows.get(key), row):
            second.complain(*key, 'is no longer as it was')
    return first.complaints + ['afterwards: ' + text for text in second.complaints]


class Case:
    """What was recorded, and the practice before it."""

    def __init__(self, folder):
        self.folder, practice = folder, folder / 'practice'
        tool('sample', practice, '--contacts', 80, '--matters', 8, '--events', 8, '--notes', 6, check=True)
        with (practice / 'LAWSYS.INI').open('a') as settings:
            settings.write('Durability=full\n')
        self.files = {path.name: path.read_bytes() for path in practice.iterdir() if path.is_file()}
        work = Work(practice, folder)
        self.marks, self.changes = work.marks, list(work.changes())
        assert self.written_at(work.marks[-1]) == {name: (practice / name).read_bytes() for name in self.files}
        tags = judges.TableView(practice, 'LAW1').tags
        assert tags['NAME'].depth == 3 and tags['U_ID'].depth == 2      # one more than before

    def written_at(self, mark):
        images = {name: bytearray(content) for name, content in self.files.items()}
        for end, (what, at, content, name) in self.changes:
            if end <= mark and what == 'write':
                write(images[name], at, content)
        return images

    @functools.lru_cache(4)
    def rows_at(self, mark):
        folder = self.folder / ('written%d' % os.getpid())
        put(folder, {name: image for name, image in self.written_at(mark).items() if not name.endswith('.CDX')})
        return rows_of(folder)

    def cuts(self, choice, count):
        """Numbers of changes before each cut, in order: half of them where an index has just got or given up a page,
        which is rare, and half of each sort just before a sync, when the most is at stake."""
        sizes, turns = {name: len(content) for name, content in self.files.items()}, []
        first, last = sum(end <= self.marks[0] for end, _ in self.changes) + 1, len(self.changes)
        for done, (_, (_, at, content, name)) in enumerate(self.changes, 1):
            free = len(content) == SECTOR and not any(content[4:])
            if name.endswith('.CDX') and (free or at + len(content) > sizes[name]):
                turns.append(done)
            sizes[name] = max(sizes[name], at + len(content))
        for number in range(count):
            cut = choice.randint(first, last) if number % 2 else min(choice.choice(turns) + choice.randint(0, 15), last)
            while number % 4 < 2 and cut < last and self.changes[cut][1][0] != 'sync':
                cut += 1
            yield cut

    def run(self, cuts):
        """The outcomes of (number, cut) in order of the cuts."""
        disk, done, outcomes = Disk(self.files), 0, []
        for number, cut in cuts:
            for _, one in self.changes[done:cut]:
                disk.take(*one)
            done, choice, folder = cut, random.Random(SEED * 1000003 + number), self.folder / ('cut%d' % number)
            step = bisect.bisect_right(self.marks, self.changes[cut - 1][0])
            old, new = self.marks[step - 1], self.marks[min(step, len(self.marks) - 1)]
            how = choice.choice(('prefix', 'sectors', 'sectors'))
            put(folder, disk.after_cut(how, choice))
            complaints = judge(folder, self.folder, *map(self.rows_at, (self.marks[0], old, new)))
            outcomes.append(('cut%d: %s, %d changes, call %d' % (number, how, cut, step), complaints))
            if len(VIEWS) > MOST_VIEWS:
                VIEWS.clear()
            shutil.rmtree(folder)
        return outcomes


def test_power_cuts(memory):  # noqa: F811
    case = Case(memory)
    cuts = list(enumerate(sorted(case.cuts(random.Random(SEED), CUTS))))
    with multiprocessing.get_context('fork').Pool(2) as pool:
        outcomes = sum(pool.map(case.run, [cuts[0::2], cuts[1::2]]), [])
    failed = [(name, complaints) for name, complaints in outcomes if complaints]
    print('%d changes of %d calls; %d cuts' % (len(case.changes), len(case.marks) - 1, CUTS))
    assert not failed, '%d of %d\n%s' % (len(failed), CUTS, '\n'.join(
        '%s: %d complaints\n    %s' % (name, len(all), '\n    '.join(all[:4])) for name, all in failed[:10]))
