"""Tables and indexes that can grow no further."""

import hashlib
import os
import struct

import pytest


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
