"""Makes the files that docs/reference/format-*.md show: make_files.py FOLDER TOOL...

The header of TASKS.DBF is written here, since the tool makes no tables but those of a practice. Records, memos and keys
are the engine's work, and the journal is that of the tool's smallest sample.
"""

import json
import shutil
import struct
import subprocess
import sys
from pathlib import Path

AUTOINCREMENT = 0x0C
COLUMNS = [('U_ID', 'C', 7, 0, 0), ('NUMBER', 'I', 4, 0, AUTOINCREMENT), ('TITLE', 'V', 12, 0, 0x02),
           ('FEE', 'Y', 8, 4, 0), ('DUE', 'D', 8, 0, 0), ('DONE', 'L', 1, 0, 0), ('TEXT', 'M', 4, 0, 0),
           ('_NullFlags', '0', 1, 0, 0x05)]
ROWS = [('A100001', 'Draft will', 125.5, {'date': '20240315'}, False, 'Ask for the deeds.'),
        ('A100002', None, -0.01, {'date': '19991231'}, True,
         'Inventory of the house: two clocks, a piano, nine paintings, and the library.'),
        ('A100003', 'Court filing', 0, {'date': ''}, False, '')]
FIELDS = ['U_ID', 'TITLE', 'FEE', 'DUE', 'DONE', 'TEXT']


def empty_table():
    descriptors, at = b'', 1
    for name, letter, width, decimals, flags in COLUMNS:
        descriptors += struct.pack('<11scIBBB', name.encode(), letter.encode(), at, width, decimals, flags)
        descriptors += struct.pack('<IB8x', *((41, 1) if flags == AUTOINCREMENT else (0, 0)))
        at += width
    length = 32 + len(descriptors) + 1 + 263
    return struct.pack('<B3xIHH16xBB2x', 0x31, 0, length, at, 2, 3) + descriptors + b'\r' + bytes(263) + b'\x1a'


def main(folder, *tool):
    table = folder / 'TASKS.DBF'
    table.write_bytes(empty_table())
    table.with_suffix('.FPT').write_bytes(struct.pack('>IHH504x', 8, 0, 64))
    lines = [['open table', None, None, str(table), 'TASKS']]
    for row in ROWS:
        lines += [['append blank'], *(['field assignment by name', 'TASKS', *pair] for pair in zip(FIELDS, row))]
    lines += [['go to', 2], ['lock record', 2], ['delete'], ['commit'], ['close all']]
    scratch = folder / 'scratch'
    for command, given in [(['call'], '\n'.join(map(json.dumps, lines))),
                           (['reindex', table, '--backup', scratch, '--tag', 'U_ID=U_ID',
                             '--tag', 'DUE=DUE;FOR !DELETED()'], ''),
                           (['sample', scratch, *'--contacts 1 --matters 1 --events 0 --notes 1'.split()], '')]:
        done = subprocess.run([*tool, *command], input=given, text=True, check=True, stdout=subprocess.PIPE)
        assert 'error' not in done.stdout, done.stdout
    for name in 'LawTrans.DBF', 'LawTrans.FPT':
        shutil.copy(scratch / name, folder)
    shutil.rmtree(scratch)


main(Path(sys.argv[1]), *sys.argv[2:])
