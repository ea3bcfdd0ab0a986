"""Workstations at work on one practice while some of them are killed: nothing acknowledged is lost,
nobody meets anything torn, and nobody starves.

The workstations are workers (worker.cpp). Beside them the tool's routines delete notes and use them again, which hosts
cannot, and the tool lists the contacts in order, again and again.

BRENIK_SOAK_SECONDS makes it longer than the three times twelve seconds that it takes by default. Under the sanitizers
nobody is killed: a killed process reports nothing.
"""

import json
import os
import random
import re
import subprocess
import time

import pytest
from conftest import at_once
from judges import assert_sound, tables_of, view_of
from test_faults import SANITIZED, Routines, assert_mended, assert_unique, faulty, tool

SECONDS = int(os.environ.get('BRENIK_SOAK_SECONDS', '12'))
FIELDS = {'1': ('LAW1', 'LAST'), '3': ('LAW3', 'MATTER')}      # notes are everybody's
TEXTS = 'FIRST', 'LABEL1', 'CITY', 'EMAIL'      # of a contact, beside the last name
NOTICE = 0.5             # seconds
LONGEST_END = 300        # seconds; only a workstation that hangs does not end its work by then
JOURNAL_WAIT = 5000000   # microseconds; whoever meets a journal that stays locked for so long adds without an entry


class Log:
    """What one worker has said; a line that its end cut short does not count."""

    def __init__(self, path):
        lines = [line.split() for line in path.read_text('latin-1').split('\n')[:-1]]
        self.refused = [words for words in lines if words[0] == 'refused']
        self.torn = [words for words in lines if words[0] == 'violation']
        self.done = [words for words in lines if words[0] != 'refused']
        self.written = [words[2:] for words in self.done if len(words) == 5]     # table, identifier, token
        self.unnoted = {tuple(words[2:4]) for words in self.done if len(words) == 5 and int(words[1]) > JOURNAL_WAIT}
        self.longest = max([int(words[3 if words[0] == 'refused' else 1]) for words in lines], default=0) / 1e6

    def __str__(self):
        return '%d done, %d refused (%s), longest call %.2f s' % (
            len(self.done), len(self.refused), ', '.join(sorted({' '.join(words[1:3]) for words in self.refused})),
            self.longest)


def start(practice, folder, seed, seconds):
    environment = dict(os.environ, BRENIK_UI='stderr', BRENIK_WINDIR=str(folder))
    if practice.name == 'share':
        environment.update(faulty(practice, 'drops', 2503, FAULTY_ARMED='1'))
    log = folder / ('%d.log' % seed)
    with log.open('w') as output, log.with_suffix('.said').open('w') as said:
        return subprocess.Popen([os.environ['BRENIK_WORKER'], os.environ['BRENIK_LIBRARY'], str(practice), str(seed),
                                 str(seconds), '0', '0'], env=environment, stdout=output, stderr=said)


def work(practice, folder, count, kills):
    """The number of kills; whoever is killed is replaced at once."""
    random_numbers, seeds, killed = random.Random(count), iter(range(1, 1000)), 0
    end = time.monotonic() + SECONDS
    workers = [start(practice, folder, next(seeds), SECONDS) for _ in range(count)]
    while kills and time.monotonic() < end - 2:
        time.sleep(random_numbers.uniform(0.2, 1.0))
        victim = random_numbers.randrange(1, count)      # the first one stays to the end
        workers[victim].kill()
        workers[victim].wait()
        killed += 1
        workers[victim] = start(practice, folder, next(seeds), max(1, int(end - time.monotonic())))
    for worker in workers:
        assert worker.wait(SECONDS + LONGEST_END) == 0
    return killed


def recycle(practice):
    """Any note of anybody is marked deleted and reported; the first deleted one that nobody else is at becomes another
    note, with the identifier that it had. The locks keep others from it meanwhile."""
    routine, random_numbers, end, recycled = Routines(practice), random.Random(1), time.monotonic() + SECONDS, 0
    routine('select area', 4)
    while time.monotonic() < end:
        record = random_numbers.randint(1, routine('record count'))
        routine('go to', record)
        if not routine('deleted') and routine('field get', routine('field position', 'U_ID')).strip():
            if routine('lock record', record):
                routine('delete')
                assert routine('DeletedRec', 4, record) == 0
                routine('unlock')
        routine('set order focus', 'DELETED')
        routine('go top')
        record = 0 if routine('end of file') else routine('record number')
        if record and routine('lock record', record):
            if routine('deleted'):
                routine('recall')
                for field in 'TOPIC', 'NOTE':
                    assert routine('field assignment by name', 4, field, 'Again %d' % recycled) != 'refused'
                recycled += 1
            routine('unlock')
        routine('set order focus', 'U_ID')
    routine.close()
    return recycled


def walk(practice, folder):
    """Identifiers never change, so a walk through them meets each once, in order, and misses none that was acknowledged
    when it began. No contact is torn."""
    end, walks = time.monotonic() + SECONDS, 0
    while time.monotonic() < end:
        missing = {uid for path in folder.glob('*.log') for uid in re.findall(r'contact \d+ 1 (\S+)', path.read_text())}
        walked = tool('show', practice, 'LAW1', '--all', '--order', 'U_ID', '--json')
        rows = [json.loads(line)['fields'] for line in walked.stdout.splitlines()]
        identifiers = [row['U_ID'] for row in rows if row['U_ID']]
        assert not walked.returncode and identifiers == sorted(set(identifiers)) and missing <= set(identifiers)
        for row in rows:
            token, texts = row['LAST'], [row[name] for name in TEXTS]
            whole = all(text and token.startswith(text[:20]) for text in texts) and not row['NOTES'].strip(token + ';')
            assert whole or '.' not in row['LABEL1'], row
        walks += 1
    return walks


def assert_kept(practice, logs, unnoted=frozenset()):
    """Records, identifiers, contents and journal, as they were acknowledged."""
    written = [words for log in logs.values() for words in log.written]
    assert_unique(practice, {(table, identifier) for table, identifier, _ in written}, unnoted)
    for table, (name, field) in FIELDS.items():
        rows = {row['U_ID']: row for row in view_of(practice, name).rows}
        for identifier, token in (words[1:] for words in written if words[0] == table):
            seed, number = rows[identifier][field].split('.')
            assert seed == token.split('.')[0] and int(number) >= int(token.split('.')[1]), token


PLACES = [('practice', 8, False)] if SANITIZED else [('practice', 8, False), ('practice', 6, True), ('share', 3, False)]


@pytest.mark.parametrize('place, count, kills', PLACES)
def test_soak(tmp_path, place, count, kills):
    """On the share sizes are as they were last asked for, and sessions end with all locks. Work is refused there only
    when another workstation has changed what it had locked, or was silent while it held the record or the journal."""
    practice = tmp_path / place
    tool('sample', practice, '--contacts', 20, '--matters', 8, '--events', 4, '--notes', 6, check=True)
    killed, recycled, walks = at_once(lambda: work(practice, tmp_path, count, kills), lambda: recycle(practice),
                                      lambda: walk(practice, tmp_path))
    logs = {int(path.stem): Log(path) for path in tmp_path.glob('*.log')}
    print('%d workstations, %d kills, %d notes recycled, %d walks' % (len(logs), killed, recycled, walks),
          *map('%3d: %s'.__mod__, sorted(logs.items())), sep='\n')
    assert recycled and walks and not [words for log in logs.values() for words in log.torn]
    done = [len(log.done) for log in logs.values()]
    said = [path.read_text('latin-1').splitlines() for path in tmp_path.glob('*.said')]
    assert place == 'share' or not [line for lines in said for line in lines if 'Retrying...' not in line]
    refused = [words[2] for log in logs.values() for words in log.refused]
    assert set(refused) <= ({'9', '12', '14'} if place == 'share' else set()) and len(refused) < sum(done) / 200
    # A starved workstation does next to nothing, or waits all the time; a busy machine alone never goes so far.
    assert kills or min(done) > max(done) / 8, done
    assert max(sum('Retrying...' in line for line in lines) for lines in said) * NOTICE < SECONDS / 2
    assert_kept(practice, logs)
    faults = [fault for name in tables_of(practice) for fault in view_of(practice, name).report.faults]
    assert len(faults) <= 12 * killed, faults[:10]      # every kill can leave one change half done, in a few tags
    assert tool('check', practice).returncode in ((0, 1) if killed else (0,))
    assert_mended(practice)
    assert_sound(practice)
