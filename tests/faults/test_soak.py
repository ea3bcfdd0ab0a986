"""Workstations at work on one practice while some of them are killed: nothing acknowledged is lost,
nobody meets anything torn, and nobody starves.

BRENIK_SOAK_SECONDS makes it longer than the two times twelve seconds that it takes by default. Under the sanitizers
nobody is killed: a killed process reports nothing.
"""

import os
import random
import re
import subprocess
import time

import judges
import pytest
from test_faults import SANITIZED, assert_mended, assert_unique, faulty, tool

SECONDS = int(os.environ.get('BRENIK_SOAK_SECONDS', '12'))
FIELDS = {'1': ('LAW1', 'LAST'), '3': ('LAW3', 'MATTER')}      # notes are everybody's
NOTICE = 0.5             # seconds, after one in line
JOURNAL_WAIT = 5000000   # microseconds; whoever meets a journal that stays locked for so long adds without an entry
LONGEST_END = 300        # seconds; only a workstation that hangs does not end its work by then


class Log:
    """What one worker has said; a line that its end cut short does not count."""

    def __init__(self, path):
        lines = [line.split() for line in path.read_text('latin-1').split('\n')[:-1]]
        self.refused = [words for words in lines if words[0] == 'refused']
        self.violations = [words for words in lines if words[0] == 'violation']
        self.done = [words for words in lines if words[0] not in ('refused', 'violation')]
        self.written = [words[2:] for words in self.done if len(words) == 5]     # table, identifier, token
        self.unnoted = {tuple(words[2:4]) for words in self.done if len(words) == 5 and int(words[1]) > JOURNAL_WAIT}
        self.longest = max([int(words[3 if words[0] == 'refused' else 1]) for words in self.done + self.refused],
                           default=0) / 1e6

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
        return subprocess.Popen([os.environ['BRENIK_WORKER'], 'soak', str(practice), str(seed), str(seconds), '0', '0'],
                                env=environment, stdout=output, stderr=said)


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
        assert worker.wait(SECONDS + LONGEST_END) in (0, 3)
    return killed


def assert_kept(practice, logs, unnoted=frozenset()):
    """Records, identifiers, contents and journal, as they were acknowledged."""
    written = [words for log in logs.values() for words in log.written]
    assert_unique(practice, {(table, identifier) for table, identifier, _ in written}, unnoted)
    for table, (name, field) in FIELDS.items():
        rows = {row['U_ID']: row for row in judges.TableView(practice, name).rows}
        for identifier, token in (words[1:] for words in written if words[0] == table):
            seed, number = rows[identifier][field].split('.')
            assert seed == token.split('.')[0] and int(number) >= int(token.split('.')[1]), token


PLACES = [('practice', 8, False)] if SANITIZED else [('practice', 8, False), ('practice', 6, True), ('share', 3, False)]


@pytest.mark.parametrize('place, count, kills', PLACES)
def test_soak(tmp_path, place, count, kills):
    """On the share sizes are as they were last asked for, and sessions end with all locks. Work is refused there only
    when somebody else has meanwhile changed or locked what it had locked: a note that was just marked deleted is a live
    one then, and a matter stays without its link. Nobody waits for long, because a lost session leaves no lock.
    """
    practice = tmp_path / place
    tool('sample', practice, '--contacts', 20, '--matters', 8, '--events', 4, '--notes', 6, check=True)
    killed = work(practice, tmp_path, count, kills)
    logs = {int(path.stem): Log(path) for path in tmp_path.glob('*.log')}
    print('%d kills' % killed, *map('%3d: %s'.__mod__, sorted(logs.items())), sep='\n')
    done = [len(log.done) for log in logs.values()]
    said = [path.read_text('latin-1').splitlines() for path in tmp_path.glob('*.said')]
    assert place == 'share' or not [line for lines in said for line in lines if 'Retrying...' not in line]
    assert not [words for log in logs.values() for words in log.violations]
    refused = [' '.join(words[1:3]) for log in logs.values() for words in log.refused if int(words[3]) < JOURNAL_WAIT]
    excused = '(?!BrenikInitialize).* 14|BrenikDeletedRecord 6|BrenikAddEnd 17' if place == 'share' else 'none'
    assert len(refused) == sum(len(log.refused) for log in logs.values()), 'refused after a wait'
    assert all(re.fullmatch(excused, answer) for answer in refused) and len(refused) < sum(done) / 200
    # A starved workstation does next to nothing, or waits all the time; a busy machine alone never goes so far.
    assert kills or min(done) > max(done) / 8, done
    waits = [sum('Retrying...' in line for line in lines) for lines in said]
    assert max(waits) * NOTICE < SECONDS / 2
    assert_kept(practice, logs)
    faults = [fault for name in judges.tables_of(practice) for fault in judges.view_of(practice, name).report.faults]
    assert len(faults) <= 12 * killed, faults[:10]      # every kill can leave one change half done, in a few tags
    assert tool('check', practice).returncode in ((0, 1) if killed else (0,))
    assert_mended(practice)
    judges.assert_sound(practice)
