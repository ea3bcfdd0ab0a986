"""Seeds for the fuzz targets: make_seeds.py TOOL FIXTURES OUT makes a folder of them for each."""

import random
import shutil
import subprocess
import sys
from pathlib import Path

EXPRESSIONS = [
    'UPPER(C+V)', 'DTOS(D)+C', 'STR(N,8,2)+LEFT(C,3)', 'IIF(L,"yes",[no ])', 'N*2+I', 'D-{^2024-01-31}', '!DELETED()',
    'C="A".AND.N>2.OR..NOT.L', "ALLTRIM(SUBSTR(C,2,4))-'x'", 'PADL(N,10,"0")', 'VAL(C)^2', 'YEAR(D)*100+MONTH(D)',
    'EMPTY(C).OR."a"$LOWER(C)', 'CTOD("01/02/03")', 'STOD("20240131")+1', 'RECNO()', 'BINTOC(I,4)', 'DESCEND(DTOS(D))',
    'T', 'Y', 'B', '((((((C))))))', 'ALIAS->C+ALIAS.C', 'N%3=1', 'C#"x"', 'C!="y"', 'DTOC(D,1)', '-N', 'NVL(V,"x")']
PROFILES = [b'[Main]\r\nMyFirm=Harbour, Finch\r\nMyFirm2="quoted"\r\n', b'; note\n[setup]\nLinkType = CLIENT,OTHER\n',
            b'\xef\xbb\xbf[Main]\n=\n', b'[Main\nMyFirm',
            *['\ufeff[Main]\nMyFirm=\u00fc \U0001d11e'.encode(form) for form in ('utf-8', 'utf-16-le', 'utf-16-be')]]


def write(folder, name, data):
    folder.mkdir(parents=True, exist_ok=True)
    (folder / name).write_bytes(data)


def main(tool, fixtures, out):
    practice = out / 'practice'
    shutil.rmtree(practice, ignore_errors=True)
    subprocess.run([tool, 'sample', str(practice), '--contacts', '8', '--matters', '4', '--events', '4',
                    '--notes', '3'], check=True, stdout=subprocess.DEVNULL)
    shutil.rmtree(practice / 'lawtemp', ignore_errors=True)
    files = sorted([*fixtures.iterdir(), *practice.iterdir()])
    for extension, target in ('.DBF', 'table'), ('.CDX', 'index'), ('.FPT', 'memo'):
        for file in files:
            if file.suffix.upper() == extension and file.stat().st_size < 40000:
                data = bytearray(file.read_bytes())
                if target == 'table':
                    data[28] &= 2                       # the targets have no index beside the table
                write(out / target, file.name, data)
    for target, seeds in ('expression', [e.encode() for e in EXPRESSIONS]), ('profile', PROFILES):
        for number, seed in enumerate(seeds):
            write(out / target, '%02d' % number, seed)
    random_numbers = random.Random(4)
    for number in range(40):
        patches = b''.join(bytes([random_numbers.randrange(24)]) + random_numbers.randrange(8000).to_bytes(2, 'big') +
                           bytes([4]) + random_numbers.randbytes(4) for _ in range(number % 5))
        write(out / 'session', '%02d' % number, patches or b'none')


main(sys.argv[1], Path(sys.argv[2]), Path(sys.argv[3]))
