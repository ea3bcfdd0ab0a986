"""Another program's engine on the same files, for tests of what happens beside one.

It keeps to the file formats and to the compatible locks, shares no code with the library and has the habits of its
kind: it reads where the root of a tag lies when it opens the index and after a change of its own, never in between;
it keeps pages until the update counter differs; it repeats a refused lock after a short sleep and knows no line.
"""

import bisect
import dataclasses
import datetime
import os
import struct
import time

import judges
from conftest import HeldBytes
from judges import dbfcheck

LOCK_BASE = 0x7FFFFFFE   # append and index byte; record n lies n bytes before it
PATIENCE = 60            # seconds; longer than anybody may hold a lock
NONE = 0xFFFFFFFF
PAGE, ROOT, LEAF = 512, 1, 2


def locked(path, offset):
    deadline = time.monotonic() + PATIENCE
    while True:
        try:
            return HeldBytes(path, offset)
        except BlockingIOError:
            if time.monotonic() > deadline:
                raise
            time.sleep(0.001)


@dataclasses.dataclass
class Page:
    """Entries are (key, record) in a leaf, (key, record, child) in a branch."""
    entries: list
    entry_size: int = 0      # bytes, in a leaf; a branch has none
    left: int = NONE
    right: int = NONE


def encode(tag, page, attributes):
    """The bytes of a page, None if it is overfull."""
    if page.entry_size:
        attributes, body = attributes | LEAF, encode_leaf(tag, page)
    else:
        body = b''.join(key + struct.pack('>II', *rest) for key, *rest in page.entries)
    if body is None or len(body) > PAGE - 12:
        return None
    return (struct.pack('<HHII', attributes, len(page.entries), page.left, page.right) + body).ljust(PAGE, b'\0')


def encode_leaf(tag, page):
    bits, last = tag.key_length.bit_length(), max(record for _, record in page.entries)
    while last >> 8 * page.entry_size - 2 * bits:
        page.entry_size += 1
    record_bits = 8 * page.entry_size - 2 * bits
    table, stored, previous = b'', b'', b''
    for key, record in page.entries:
        text = key.rstrip(tag.pad)
        duplicate = len(os.path.commonprefix([previous, text]))
        packed = record | duplicate << record_bits | len(key) - len(text) << record_bits + bits
        table += packed.to_bytes(page.entry_size, 'little')
        stored = text[duplicate:] + stored
        previous = text
    free = PAGE - 24 - len(table) - len(stored)
    if free < 0:
        return None
    mask = (1 << bits) - 1
    layout = struct.pack('<HI6B', free, (1 << record_bits) - 1, mask, mask, record_bits, bits, bits, page.entry_size)
    return layout + table + bytes(free) + stored


def read_number(file, at):
    return dbfcheck.u32(os.pread(file.fileno(), 4, at), 0)


class ForeignEngine:
    """A table and its index, held open."""

    def __init__(self, folder, name):
        path = judges.find(folder, name + '.dbf')
        _, self.table, self.index = dbfcheck.check(path)
        self.dbf, self.cdx = (open(judges.find(folder, name + kind), 'r+b', buffering=0) for kind in ('.dbf', '.cdx'))
        self.tags = [(tag, dbfcheck.Expression(tag.key_text, self.table),
                      dbfcheck.Expression(tag.for_text or '.T.', self.table)) for tag in self.index.tags]
        self.roots = {tag.name: tag.root for tag in self.index.tags}
        self.counter, self.pages = None, {}

    def append(self, values):
        with locked(self.dbf.name, LOCK_BASE):
            number = read_number(self.dbf, 4) + 1
            record = self._record(values)
            with locked(self.dbf.name, LOCK_BASE - number), locked(self.cdx.name, LOCK_BASE):
                self._begin_change()
                for tag, key, condition in self.tags:
                    if condition.evaluate(number, record):
                        value = key.evaluate(number, record)
                        self._insert(tag, (dbfcheck.encode_key(value, tag.key_length), number))
                self._write_record(number, record)
                self._end_change()

    # -- table
    def _record(self, values):
        record = bytearray(b' ' * self.table.record_size)
        for name, text in values.items():
            field, text = self.table.by_name[name], text.encode('latin-1')
            text = text.rjust(field.width) if field.type == 'N' else text.ljust(field.width)
            record[field.offset:field.offset + field.width] = text
        return bytes(record)

    def _write_record(self, number, record):
        os.pwrite(self.dbf.fileno(), record + b'\x1A', self.table.header_size + (number - 1) * len(record))
        today = datetime.date.today()
        header = struct.pack('<3BI', today.year % 100, today.month, today.day, number)
        os.pwrite(self.dbf.fileno(), header, 1)

    # -- index
    def _begin_change(self):
        self.free, counter = struct.unpack('<I4s', os.pread(self.cdx.fileno(), 8, 4))
        if counter != self.counter:
            self.counter, self.pages = counter, {}
        self.end = os.fstat(self.cdx.fileno()).st_size

    def _end_change(self):
        self.counter = ((int.from_bytes(self.counter, 'big') + 1) & NONE).to_bytes(4, 'big')
        os.pwrite(self.cdx.fileno(), struct.pack('<I4s', self.free, self.counter), 4)
        self.roots = {tag.name: read_number(self.cdx, tag.at) for tag, *_ in self.tags}

    def _insert(self, tag, entry):
        """A root that overflows stays where it is and becomes the branch above its former entries."""
        root = self.roots[tag.name]
        page = self._put(tag, root, entry)
        if not self._write(tag, root, page):
            self._write(tag, root, Page(self._store(tag, self._new_page(), page)))

    def _put(self, tag, at, entry):
        """The page with the entry in it or below it, not yet written itself."""
        page = self._read(tag, at)
        if page.entry_size:
            bisect.insort(page.entries, entry)
        else:
            index = min(bisect.bisect_left(page.entries, entry), len(page.entries) - 1)
            child = page.entries[index][2]
            page.entries[index:index + 1] = self._store(tag, child, self._put(tag, child, entry))
        return page

    def _store(self, tag, at, page):
        """Writes a page below the root, in halves if it must be; returns the entries that the branch has for it."""
        if self._write(tag, at, page):
            return [(*page.entries[-1][:2], at)]
        middle, new = len(page.entries) // 2, self._new_page()
        right = dataclasses.replace(page, entries=page.entries[middle:], left=at)
        if page.right != NONE:
            neighbour = self._read(tag, page.right)
            neighbour.left = new
            self._write(tag, page.right, neighbour)
        page.entries, page.right = page.entries[:middle], new
        above = self._store(tag, new, right)
        return self._store(tag, at, page) + above

    def _read(self, tag, at):
        if at not in self.pages:
            data, width = os.pread(self.cdx.fileno(), PAGE, at), tag.key_length
            attributes, count, left, right = struct.unpack_from('<HHII', data)
            if attributes & LEAF:
                entries = [(key, record) for record, key in judges.leaf_entries(self.index, tag, data)]
            else:
                entries = [(data[at:at + width], *struct.unpack_from('>II', data, at + width))
                           for at in range(12, 12 + count * (width + 8), width + 8)]
            self.pages[at] = Page(entries, data[23] if attributes & LEAF else 0, left, right)
        return self.pages[at]

    def _write(self, tag, at, page):
        data = encode(tag, page, ROOT if at == self.roots[tag.name] else 0)
        if data:
            self.pages[at] = page
            os.pwrite(self.cdx.fileno(), data, at)
        return data is not None

    def _new_page(self):
        if self.free not in (0, NONE):
            at, self.free = self.free, read_number(self.cdx, self.free)
        else:
            at, self.end = self.end, self.end + PAGE
        return at
