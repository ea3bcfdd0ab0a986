"""The power fails while a host works with Durability=full: whatever it was told is done, is done.

The changes and syncs of the scripts of test_faults.py are recorded, and how long the record was when each step was
answered. Then the power is cut all along the record. A disk keeps what was synced; of the rest it keeps nothing, or
all, or any sectors, each in any version that it has had. On each result the judges look for everything acknowledged,
record by record and through every tag; the next host works on it without a repair; and the judges look again. Only
the step that was under way may have left anything: it is done, undone, or has left
  - index entries that its own records do not have (surplus),
  - an appended record that is not counted, until the next one is appended,
  - a page of an index that its left neighbour names and the level above does not yet, or a left pointer that is
    behind (unfinished): readers go right there, and the next change of that place mends it,
  - a record of two sectors half changed.

BRENIK_CUTS sets the number of cuts for all scripts.
"""

import bisect
import collections
import math
import os
import random
import re
import shutil

import judges
import pytest
from conftest import Host, HostGone
from judges import tables_of, view_of
from test_faults import SCRIPTS, TABLES, Run, assert_unique, copy, later, memory  # noqa: F401  (fixtures)

CUTS = int(os.environ.get('BRENIK_CUTS', '500')) // len(SCRIPTS)
SECTOR = 512
EDITED_LATER = 1         # the number of the record, in several tables
SURPLUS = r'record \d+ (is in the tag|has key|occurs twice)|record number \d+ out of range'
UNFINISHED = judges.UNFINISHED + '|no page of the level above|does not end with the entry that page|its left sibling is'
TAIL = r'dbf: (byte after record|\d+ bytes after|no end-of-file byte)'


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
            image = bytearray(self.files[name])
            for one in self.unsynced.pop(name, []):
                write(image, *one)
            self.files[name] = bytes(image)

    def after_cut(self, choice):
        return {name: self.sectors(name, self.unsynced[name], choice) for name in self.files}

    def sectors(self, name, writes, choice):
        written, versions = bytearray(self.files[name]), collections.defaultdict(list)
        for at, content in writes:
            write(written, at, content)
            for begin in range(at // SECTOR * SECTOR, at + len(content), SECTOR):
                versions[begin].append(bytes(written[begin:begin + SECTOR]))
        survives, image = choice.choice((0, 0.5, 0.9, 1)), bytearray(self.files[name])
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
        host.close()
    return {tuple(what) for _, *what in answers if what}


def judge(folder, windows_folder, start, old, new):
    """The complaints."""
    told = set(identifiers(old)) - set(identifiers(start))
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
    second.judge_identifiers(told | added)
    for key, row in first.rows.items():
        if key[0] in TABLES.values() and key[1] != EDITED_LATER and not same(second.rows.get(key), row):
            second.complain(*key, 'is no longer as it was')
    return first.complaints + ['afterwards: ' + text for text in second.complaints]


def changes_of(record):
    """Each with the length of the record up to its end."""
    with record.open('rb') as file:
        for line in file:
            what, at, count, name = line.decode().split()
            content = file.read(int(count))
            if name != 'Trace.Log':
                yield file.tell(), (what, int(at), content, name)


@pytest.mark.parametrize('script', SCRIPTS)
def test_power_cuts(memory, copy, script):  # noqa: F811
    practice = copy('practice')
    with (practice / 'LAWSYS.INI').open('a') as settings:
        settings.write('Durability=full\n')
    files = {path.name: path.read_bytes() for path in practice.iterdir() if path.is_file()}
    run = Run(practice, script, record=True)
    changes = list(changes_of(run.record))
    images, states = {name: bytearray(content) for name, content in files.items()}, []
    for end, (what, at, content, name) in [*changes, (math.inf, ('sync', 0, b'', ''))]:
        if len(states) < len(run.marks) and end > run.marks[len(states)]:
            put(memory / 'written', images)
            states.append(rows_of(memory / 'written'))
        if what == 'write':
            write(images[name], at, content)
    assert images == {name: (practice / name).read_bytes() for name in files} and len(states) == len(run.marks) > 1
    first = sum(end <= run.marks[0] for end, _ in changes) + 1
    disk, done, failed = Disk(files), 0, []
    for number in range(CUTS):
        cut = first + number * (len(changes) + 1 - first) // CUTS
        for _, change in changes[done:cut]:
            disk.take(*change)
        done, choice, folder = cut, random.Random(number), memory / ('cut%d' % number)
        step = bisect.bisect_right(run.marks, changes[cut - 1][0])
        put(folder, disk.after_cut(choice))
        complaints = judge(folder, memory, states[0], states[step - 1], states[min(step, len(states) - 1)])
        if complaints:
            failed.append('cut%d: %d changes, step %d: %d complaints\n    %s' % (
                number, cut, step, len(complaints), '\n    '.join(complaints[:4])))
        shutil.rmtree(folder)
    print('%d changes of %d steps; %d cuts' % (len(changes), len(run.steps), CUTS))
    assert not failed, '%d of %d\n%s' % (len(failed), CUTS, '\n'.join(failed[:10]))
