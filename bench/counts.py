"""Measures what an operation costs in numbers with little noise: calls on files, and instructions.

brenik_bench provides both. It counts calls on files itself. Callgrind counts instructions, in two runs
of different lengths: the difference belongs to the operations, and the fixed cost of a run cancels out.
bench/baseline.json keeps the figures. A change that makes an operation dearer or cheaper comes with new
figures, and its commit says why.

    counts.py --build DIR calls|instructions           prints them
    counts.py --build DIR check-calls                  fails if a figure is above the baseline
    counts.py --build DIR check-instructions           likewise, but exits with 77 unless compiler, C
                                                       library and processor are those of the baseline
    counts.py --build DIR keep                         writes bench/baseline.json
"""

import argparse
import concurrent.futures
import json
import re
import subprocess
import sys
from pathlib import Path

BASELINE = Path(__file__).resolve().parent / 'baseline.json'
CONTACTS, KEYS, OPERATIONS = 2000, 20000, 800  # too few to edit a contact twice
SLACK = 0.03             # a figure may exceed the baseline by this fraction
LEAST = 0.005            # calls per operation: allowance for rounding of small figures
TRIES = 3                # see check_instructions()
NOT_COMPARED = 77        # an exit code that CTest counts as a skipped test
LENGTHS = {'start-stop': (5, 15), 'first-count': (5, 15)}
BATCHED = ('walk', 'scan', 'walk-keys')  # a hundred steps per call
KEY_OPERATIONS = ('first-count', 'key-count', 'key-number', 'skip-far', 'walk-keys')


def bench(build, *options, wrapper=()):
    command = [*wrapper, str(Path(build) / 'brenik_bench'), '--count', '--json', *map(str, options)]
    done = subprocess.run(command, capture_output=True, text=True)
    if done.returncode:
        sys.exit('%s\n%s' % (' '.join(command), done.stderr))
    return json.loads(done.stdout), done.stderr


def calls(build):
    measured, _ = bench(build, '--contacts', CONTACTS, '--keys', KEYS, '--operations', OPERATIONS)
    return measured['environment'], {result['name']: rounded(result['calls']) for result in measured['results']}


def rounded(figures):
    return {kind: round(figure, 2) for kind, figure in figures.items()}


def instructions(build, names):
    """Instructions per operation, by the operation's name."""
    def collected(name, length):
        sizes = ('--contacts', CONTACTS, '--keys', KEYS if name in KEY_OPERATIONS else 0)
        _, report = bench(build, *sizes, '--only', name, '--operations', length,
                          wrapper=('valgrind', '--tool=callgrind', '--callgrind-out-file=/dev/null'))
        return int(re.search(r'Collected : (\d+)', report)[1])

    def difference(name):
        short, long = LENGTHS.get(name, (1000, 3000) if name in BATCHED else (200, 600))
        return round((collected(name, long) - collected(name, short)) / (long - short))

    with concurrent.futures.ThreadPoolExecutor(2) as pool:
        return dict(zip(names, pool.map(difference, names)))


def more_expensive(kept, now):
    """The figures, by operation and kind, that exceed the kept ones."""
    for name in kept.keys() | now.keys():
        if name not in kept or name not in now:
            yield '%s: measured only %s' % (name, 'now' if name in now else 'before')
            continue
        for kind in kept[name].keys() | now[name].keys():
            before, after = kept[name].get(kind, 0), now[name].get(kind, 0)
            if after > before * (1 + SLACK) + LEAST:
                yield '%s: %s %s per operation, the baseline has %s' % (name, after, kind, before)


def judge(kept, now):
    """Prints what has become dearer or cheaper; returns the exit code."""
    dearer = sorted(more_expensive(kept, now))
    cheaper = sorted(more_expensive(now, kept))
    for line in dearer:
        print('bench/baseline.json:1: ' + line)
    if cheaper and not dearer:
        print('cheaper than the baseline, which "scripts/bench --keep" updates: '
              + ', '.join(sorted({line.split(':')[0] for line in cheaper})))
    return 1 if dearer else 0


def check_instructions(build, kept):
    """Some memories of the library last milliseconds, so they save less on a busy machine, and most under callgrind.
    Figures that exceed the baseline are therefore taken again."""
    environment, _ = calls(build)
    if environment != kept['environment']:
        print('not compared: the baseline is of %s, this is %s' % (kept['environment'], environment))
        return NOT_COMPARED
    before, now = by_kind(kept['instructions']), {}
    again = list(before)
    for _ in range(TRIES):
        now.update(by_kind(instructions(build, again)))
        again = [name for name in again if any(more_expensive({name: before[name]}, {name: now[name]}))]
    return judge(before, now)


def by_kind(figures):
    return {name: {'instructions': figure} for name, figure in figures.items()}


def show(figures):
    kinds = list(dict.fromkeys(kind for operation in figures.values() for kind in operation))
    print('%-12s' % '' + ''.join('%14s' % kind for kind in kinds))
    for name, operation in figures.items():
        print('%-12s' % name + ''.join('%14s' % operation.get(kind, 0) for kind in kinds))


def keep(build):
    environment, counted = calls(build)
    kept = {'environment': environment, 'calls': counted, 'instructions': instructions(build, counted)}
    text = json.dumps(kept, indent=2)
    # One line per operation, so that a changed operation is one changed line.
    text = re.sub(r'\{\s*("(?:open|close|stat|read|write|lock|unlock|sync|resize|all)"[^}]*?)\s*\}',
                  lambda match: '{' + re.sub(r'\s+', ' ', match[1]) + '}', text)
    BASELINE.write_text(text + '\n')


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument('--build', required=True)
    parser.add_argument('what', choices=['calls', 'instructions', 'check-calls', 'check-instructions', 'keep'])
    arguments = parser.parse_args()
    if arguments.what == 'keep':
        return keep(arguments.build)
    if arguments.what == 'calls':
        return show(calls(arguments.build)[1])
    if arguments.what == 'instructions':
        return show(by_kind(instructions(arguments.build, calls(arguments.build)[1])))
    kept = json.loads(BASELINE.read_text())
    if arguments.what == 'check-calls':
        return judge(kept['calls'], calls(arguments.build)[1])
    return check_instructions(arguments.build, kept)


if __name__ == '__main__':
    sys.exit(main())
