"""Runs every benchmark and writes the tables of docs/maintainers/performance.md.

    table.py --build DIR             measures, and replaces the tables in the page
    table.py --build DIR --contacts SMALLEST MIDDLE LARGEST      likewise, with practices of these sizes
    table.py --build DIR --small     at sizes that show only that everything runs; for the tests

All figures as they were measured are kept in DIR/performance.json. The tables stand in the page between
two comments, and nothing else in the page changes.
"""

import argparse
import datetime
import json
import os
import platform
import re
import sqlite3
import subprocess
import sys
import tempfile
from pathlib import Path

PAGE = Path(__file__).resolve().parents[1] / 'docs' / 'maintainers' / 'performance.md'
BEGIN, END = '<!-- measured: begin -->', '<!-- measured: end -->'

# The operations of brenik_bench, in the words of the page.
OPERATIONS = {
    'add-end': 'add a contact: `BrenikAddStart`, five `BrenikSetField`, `BrenikAddEnd`',
    'append-whole': 'add a contact with 44 fields at the seam: record, six keys, counter, journal',
    'append': 'record with five fields and its keys alone, at the seam',
    'edit-key': 'edit an indexed field, with journal: `BrenikEditStart` … `BrenikEditEnd`',
    'edit-end': 'edit two plain fields, likewise',
    'put-key': 'change an indexed field, at the seam',
    'put': 'change a plain field, at the seam',
    'seek-id': 'look up an identifier: `BrenikGetU_ID`',
    'edit-start': 'read a whole contact: `BrenikEditStart`',
    'seek-uid': 'seek an identifier, read one field, at the seam',
    'seek-name': 'seek the first letters of a name, read one field, at the seam',
    'walk': 'step in the order of names, read one field, at the seam',
    'scan': 'step in file order, read one field, at the seam',
    'start-stop': '`BrenikShutDown` and `BrenikInitialize`',
}
WHOLE = {
    'walk': 'walk by name',
    'rebuild': 'rebuild six orders',
    'reindex': 'the same, and check them: `brenik reindex`',
    'append': 'append 20 000',
}

FULL = {'growth': [10000, 100000, 1000000], 'operations': 5000, 'delayed': 400, 'seconds': 5, 'torn': 20,
        'writers': [1, 2, 4, 8]}
SMALL = {'growth': [300, 400, 500], 'operations': 40, 'delayed': 20, 'seconds': 0.3, 'torn': 0.5, 'writers': [1, 2]}
ROUND_TRIP_US = 500


def run(build, program, *options):
    """What a program measures. brenik_torn_reads ends with 1 if records came torn, which is a figure too."""
    command = [str(build / program), '--json', *map(str, options)]
    print(' '.join([program, *command[1:]]), file=sys.stderr, flush=True)
    done = subprocess.run(command, stdout=subprocess.PIPE, text=True)
    if done.returncode and not (program == 'brenik_torn_reads' and done.stdout):
        sys.exit('%s has failed' % program)
    return json.loads(done.stdout)


def measure(build, sizes):
    smallest, middle, largest = sizes['growth']
    practice = ('--wide', '--keys', 0)
    operations = ('--operations', sizes['operations'])
    shared = ('--seconds', sizes['seconds'], '--wide', '--contacts', middle, '--peer', 'sqlite')
    return {
        'sizes': sizes,
        'middle': run(build, 'brenik_bench', *practice, *operations, '--contacts', middle,
                      '--peer', 'sqlite', '--peer', 'floor'),
        'others': run(build, 'brenik_bench', *practice, *operations, '--contacts', smallest, largest,
                      '--peer', 'sqlite'),
        'delayed': run(build, 'brenik_bench', *practice, '--operations', sizes['delayed'], '--contacts', middle,
                       '--round-trip', ROUND_TRIP_US),
        'whole': run(build, 'brenik_bench', '--whole', '--wide', '--contacts', largest, '--peer', 'sqlite'),
        'writers': run(build, 'brenik_contention', '--processes', *sizes['writers'], *shared),
        'readers': run(build, 'brenik_contention', '--reader', '--processes', 0, 1, *shared),
        'torn': run(build, 'brenik_torn_reads', '--seconds', sizes['torn']),
    }


def number(value):
    """Three digits, with thousands apart."""
    if value is None:
        return ''
    digits = 2 if value < 9.995 else 1 if value < 99.95 else 0
    return '{:,.{}f}'.format(value, digits).replace(',', ' ')


def ratio(peer, ours):
    return '' if peer is None else '%.2f' % (ours / peer)


def table(head, rows):
    """The first column is text, the others are numbers."""
    lines = ['| %s |' % ' | '.join(head), '|---' + '|---:' * (len(head) - 1) + '|']
    return '\n'.join(lines + ['| %s |' % ' | '.join(map(str, row)) for row in rows])


def by_name(results):
    return {result['name']: result for result in results}


def processor_us(result, who):
    return result[who]['processor_us'] if who in result else None


def operations_table(figures):
    middle, delayed = by_name(figures['middle']['results']), by_name(figures['delayed']['results'])
    rows = []
    for name, text in OPERATIONS.items():
        result = middle[name]
        ours, sqlite, floor = (processor_us(result, who) for who in ('ours', 'sqlite', 'floor'))
        rows.append([text, number(ours), number(sqlite), ratio(sqlite, ours), number(floor), ratio(floor, ours),
                     number(result['calls']['all']), number(delayed[name]['ours']['elapsed_us'] / 1000)])
    return table(['operation', 'µs', 'SQLite, µs', 'of SQLite', 'calls alone, µs', 'of calls alone', 'calls',
                  'at 0.5 ms a call, ms'], rows)


def growth_table(figures):
    results = {}
    for part in ('middle', 'others'):
        for result in figures[part]['results']:
            results[result['name'], result['records']] = result
    sizes = figures['sizes']['growth']
    rows = []
    for name, text in OPERATIONS.items():
        row = [text]
        for size in sizes:
            result = results[name, size]
            row += [number(processor_us(result, 'ours')), number(processor_us(result, 'sqlite')),
                    number(result['calls']['all'])]
        rows.append(row)
    head = [text.format(grouped(size)) for size in sizes for text in ('{}: µs', 'SQLite, µs', 'calls')]
    return table(['operation', *head], rows)


def whole_table(figures):
    runs = {(row['name'], row['who']): row for row in figures['whole']['whole']}
    rows = []
    for name, text in WHOLE.items():
        ours, sqlite = runs[name, 'ours'], runs[name, 'sqlite']
        rows.append([text, number(ours['processor_s']), number(sqlite['processor_s']),
                     ratio(sqlite['processor_s'], ours['processor_s']), number(ours['peak_mb']),
                     number(sqlite['peak_mb'])])
    return table(['work', 's', 'SQLite, s', 'of SQLite', 'MB', 'SQLite, MB'], rows)


def shared_row(row, part):
    figures = row[part]
    return [grouped(round(figures['calls_per_s'])), number(figures['longest_ms']),
            '%s, %s' % (grouped(figures['least']), grouped(figures['most'])), figures['refused']]


def writers_table(figures):
    rows = {(row['who'], row['writers']): row for row in figures['writers']}
    return table(['writers', 'calls/s', 'longest, ms', 'least, most', 'refused', 'SQLite, calls/s', 'longest, ms',
                  'least, most', 'refused'],
                 [[count, *shared_row(rows['ours', count], 'written'), *shared_row(rows['sqlite', count], 'written')]
                  for count in figures['sizes']['writers']])


def readers_table(figures):
    rows = []
    for row in figures['readers']:
        written = row['written']['calls_per_s'] if 'written' in row else None
        rows.append(['%s, %s' % ({'ours': 'BrenikDB', 'sqlite': 'SQLite'}[row['who']],
                                 'beside a writer' if row['writers'] else 'alone'),
                     grouped(round(row['read']['calls_per_s'])), number(row['read']['longest_ms']),
                     '' if written is None else grouped(round(written))])
    return table(['reader', 'look-ups/s', 'longest, ms', 'writer, calls/s'], rows)


def torn_table(figures):
    torn = figures['torn']
    ways = {'go_to': 'the library, `go to`', 'scan': 'the library, scan', 'direct': 'the file directly, once'}
    return table(['read by', 'records read', 'torn'],
                 [[text, grouped(torn[way]['reads']), torn[way]['torn']] for way, text in ways.items()])


def grouped(value):
    return '{:,}'.format(value).replace(',', ' ')


def file_system(folder):
    """The type of the file system with the longest mount point above the folder."""
    mounts = [line.split()[1:3] for line in Path('/proc/mounts').read_text().splitlines()]
    above = [(point, kind) for point, kind in mounts if (folder + '/').startswith(point.rstrip('/') + '/')]
    return max(above, key=lambda mount: len(mount[0]))[1]


def machine(figures):
    environment = figures['middle']['environment']
    facts = Path('/proc/cpuinfo').read_text()
    model, = set(re.findall(r'^model name\s*: (.*)$', facts, re.M))
    version = {name: re.search(r'^%s\s*: (.*)$' % name, facts, re.M)[1] for name in ('cpu family', 'model')}
    return ('Measured on %s: %s (family %s, model %s), %d cores; Linux %s, %s; %s, %s build; SQLite %s.'
            % (datetime.date.today().isoformat(), model, version['cpu family'], version['model'], os.cpu_count(),
               platform.release().split('-')[0], file_system(tempfile.gettempdir()), environment['compiler'],
               environment['build'], sqlite3.sqlite_version))


def page_text(figures):
    smallest, middle, largest = map(grouped, figures['sizes']['growth'])
    writes = grouped(figures['torn']['writes'])
    return '\n\n'.join([
        machine(figures),
        '### Operations, %s contacts' % middle, operations_table(figures),
        '### Growth: %s, %s and %s contacts' % (smallest, middle, largest), growth_table(figures),
        '### Whole tables, %s contacts' % largest, whole_table(figures),
        '### Several writers', writers_table(figures),
        '### A reader', readers_table(figures),
        '### Torn reads, beside %s writes of a foreign program' % writes, torn_table(figures)])


def write_page(page, text):
    before, rest = page.read_text().split(BEGIN)
    after = rest.split(END)[1]
    page.write_text('%s%s\n\n%s\n\n%s%s' % (before, BEGIN, text, END, after))


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument('--build', required=True, type=Path)
    parser.add_argument('--small', action='store_true', help='writes no page')
    parser.add_argument('--contacts', nargs=3, type=int, help='sizes of the practices, in rising order')
    arguments = parser.parse_args()
    sizes = SMALL if arguments.small else FULL
    if arguments.contacts:
        sizes = dict(sizes, growth=arguments.contacts)
    figures = measure(arguments.build.resolve(), sizes)
    text = page_text(figures)
    if arguments.small:
        return print(text)
    (arguments.build / 'performance.json').write_text(json.dumps(figures, indent=2) + '\n')
    write_page(PAGE, text)


if __name__ == '__main__':
    sys.exit(main())
