"""What lies on disk, as readers see it that share no code with the library.

The checker in tests/judge reads records, memos and index entries and lists every disagreement
between the files of a table; DBD::XBase, in Perl, walks the tags a second time and must come to the
same order.
"""

import copy
import hashlib
import os
import re
import struct
import subprocess
import sys
import tempfile
from pathlib import Path

sys.dont_write_bytecode = True
sys.path.insert(0, str(Path(__file__).resolve().parent.parent / 'judge'))
os.environ.setdefault('BRENIK_FAULTS', os.devnull)     # not the fault file of whoever runs the tests
import dbfcheck  # noqa: E402  (its folder is on the path only now)

DIGITS = '0123456789ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz'

# A split that the level above does not know yet: readers go right there, and the next change of the place mends it.
UNFINISHED = r'page \d+ has siblings|page \d+: entry \d+ says'

WALK = r'''use XBase;
my ($file, @tags) = @ARGV;
while (my ($tag, $type) = splice @tags, 0, 2) {
    my $table = XBase->new("$file.dbf") or die XBase->errstr;
    my $cursor = $table->prepare_select_with_index(["$file.cdx", $tag, $type]) or next;
    print $tag;
    while (my @row = $cursor->fetch) { print " ", $cursor->last_fetched + 1 }
    print "\n";
}'''


class Row(dict):
    """One record: text without trailing blanks, dates as YYYYMMDD, numbers, logicals, memo bytes."""

    def __init__(self, number, record, raw, values):
        super().__init__(values)
        self.number, self.record, self.deleted, self.raw = number, record, record[:1] == b'*', raw


class TableView:
    """One table as it lies on disk at this moment."""

    def __init__(self, folder, name):
        self.path = find(folder, name + '.dbf')
        self.report, self.table, self.cdx = dbfcheck.check(self.path)
        memo_path = dbfcheck.sibling_file(self.path, '.fpt')
        self._memo = dbfcheck.Memo(memo_path, dbfcheck.Report()) if memo_path else None
        self.fields = [field for field in self.table.fields if not field.system]
        self.names = [field.name for field in self.fields]
        self.tags = {tag.name: tag for tag in self.cdx.tags} if self.cdx else {}
        self.rows = [self._row(number) for number in range(1, self.table.count + 1)]

    def _row(self, number):
        record = self.table.record(number)
        raw = {field.name: self._raw(record, field) for field in self.fields}
        values = {field.name: self._value(record, field, raw[field.name]) for field in self.fields}
        return Row(number, record, raw, values)

    def _raw(self, record, field):
        raw = record[field.offset:field.offset + field.width]
        if field.type not in 'MGP' or self._memo is None:
            return raw
        block = dbfcheck.u32(raw, 0) if field.width == 4 else int(raw) if raw.strip().isdigit() else 0
        at = block * self._memo.block
        if not block or at + 8 > len(self._memo.data):  # the checker has already complained
            return b''
        return self._memo.data[at + 8:at + 8 + dbfcheck.be32(self._memo.data, at + 4)]

    def _value(self, record, field, raw):
        if field.type in 'MGP':
            return raw
        value = self.table.value(record, field)
        if isinstance(value, bytes):
            return value.rstrip(b' ').decode('latin-1')
        if isinstance(value, dbfcheck.DateTime):
            return (value.julian, value.millis) if value.julian else ''
        return value.dtos().decode().strip() if isinstance(value, dbfcheck.Date) else value

    def where(self, **wanted):
        gone = wanted.pop('deleted', None)
        return [row for row in self.rows if gone in (None, row.deleted)
                and all(row[name] == value for name, value in wanted.items())]

    def one(self, **wanted):
        found, = self.where(**wanted)
        return found

    def unreachable(self):
        """(tag, record) where neither the tree nor the chain of its leaves has the entry that the record must have."""
        for tag in self.tags.values():
            texts = [dbfcheck.Expression(text, self.table) if text else None for text in (tag.key_text, tag.for_text)]
            expected = self.cdx._expected(tag, *texts)
            missing = expected.items() - set(tag.entries)
            yield from ((tag.name, number) for number, _ in missing and missing - set(self._chain(tag)))

    def _chain(self, tag):
        data, entries, at, leaf = self.cdx.data, [], tag.root, False
        try:
            for _ in range(len(data) // dbfcheck.PAGE):     # no more, should pages lead in a circle
                page = data[at:at + dbfcheck.PAGE]
                leaf = leaf or dbfcheck.u16(page, 0) & dbfcheck.LEAF
                if leaf:
                    entries += leaf_entries(self.cdx, tag, page)
                at = dbfcheck.u32(page, 8) if leaf else dbfcheck.be32(page, 12 + tag.key_length + 4)
                if at == dbfcheck.NONE32:
                    break
        except (dbfcheck.Damaged, struct.error, IndexError):
            pass                                        # the checker has already complained
        return entries

    def lock_position(self, record):
        if self.table.flags & 1 or self.table.vfp:
            return 0x7FFFFFFE - record
        return 0x40000000 + self.table.header_size + (record - 1) * self.table.record_size


def leaf_entries(cdx, tag, page):
    leaf = copy.copy(tag)
    leaf.entries = []
    cdx._leaf(leaf, page, dbfcheck.u16(page, 2), '', 0)
    return leaf.entries


def find(folder, name):
    """The file of this name in whatever case it has."""
    path = dbfcheck.sibling_file(os.path.join(folder, name), os.path.splitext(name)[1])
    assert path, '%s is not in %s' % (name, folder)
    return path


def tables_of(folder):
    return sorted(p.stem for p in Path(folder).iterdir() if p.suffix.lower() == '.dbf')


VIEWS = {}


def view_of(folder, name):
    """Of a table that nobody alters in Python: reading it is slow, and most are as they were the last time."""
    path = find(folder, name + '.dbf')
    files = [path] + [dbfcheck.sibling_file(path, extension) for extension in ('.cdx', '.fpt')]
    key = name, *[hashlib.sha1(Path(file).read_bytes()).digest() for file in files if file]
    if key not in VIEWS:
        VIEWS[key] = TableView(folder, name)
    return VIEWS[key]


def assert_sound(folder, *names):
    """Both judges are content with these tables, or with every table of the folder."""
    for name in names or tables_of(folder):
        view = view_of(folder, name)
        assert not view.report.faults, (name, view.report.faults[:5])
        if view.cdx:
            assert_same_order(view)


def assert_finished(practice, name, acknowledged, edited=()):
    """Forgiven are faults that concern only records which no call has acknowledged, and splits that were cut short. In
    the tags `edited` the key of one record may be missing, because its edit was cut short."""
    view = TableView(practice.folder, name)
    known = {row.number for row in view.rows if row['U_ID'] in set(acknowledged)}
    lost = {(tag, number) for tag, number in view.unreachable() if number in known}
    if {tag for tag, _ in lost} <= set(edited) and len({number for _, number in lost}) == 1:
        known -= {number for _, number in lost}
        lost = set()
    assert not lost, lost
    for fault in view.report.faults:
        record = re.search(r'record (?:number )?(\d+) (is missing|has key|is in the|occurs twice|out of range)', fault)
        passed = record and (int(record[1]) not in known or record[2] == 'is missing')
        assert passed or re.search(UNFINISHED, fault), fault


def assert_same_order(view):
    """The second reader lists live records only and knows nothing of descending tags."""
    with tempfile.TemporaryDirectory() as folder:
        for extension in '.dbf', '.cdx', '.fpt':        # it insists on lower case
            path = dbfcheck.sibling_file(view.path, extension)
            if path:
                os.symlink(path, os.path.join(folder, 't' + extension))
        tags = [word for tag in view.tags.values() for word in (tag.name, 'char' if tag.pad == b' ' else 'num')]
        done = subprocess.run([os.environ.get('BRENIK_PERL', 'perl'), '-e', WALK, folder + '/t', *tags],
                              capture_output=True, text=True, timeout=600)
    walked = {line.split()[0]: [int(n) for n in line.split()[1:]] for line in done.stdout.splitlines()}
    for tag in view.tags.values():
        mine = [n for n, _ in tag.entries if not view.rows[n - 1].deleted]
        if not tag.descending:
            assert walked.get(tag.name) == mine, 'tag %s of %s %s' % (tag.name, view.path, done.stderr)


def identifier(prefix, counter):
    """The identifier that the counter's value stands for."""
    text = ''
    for _ in range(5):
        counter, digit = divmod(counter, 62)
        text = DIGITS[digit] + text
    return prefix + text
