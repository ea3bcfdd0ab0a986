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
from test_faults import SANITIZED, assert_mended, assert_unique, tool

SECONDS = int(os.environ.get('BRENIK_SOAK_SECONDS', '12'))
FIELDS = {'1': ('LAW1', 'LAST'), '3': ('LAW3', 'MATTER')}      # notes are everybody's
NOTICE = 0.5             # seconds
LONGEST_END = 300        # seconds; only a workstation that hangs does not end its work by then


class Log:
    """What one workstation has noted; a line that its end cut short does not count."""

    def __init__(self, path):
        lines = path.read_text('latin-1').split('\n')[:-1] if path.exists() else []
        self.complaints = [line for line in lines if re.match('violation|refused', line)]
        self.lines = [line.split() for line in lines if line not in self.complaints]
        self.written = [words[2:] for words in self.lines if len(words) == 5]    # table, identifier, token
        self.times = [(int(words[1]) / 1e6, words[0]) for words in self.lines]
        said = path.with_suffix('.said').read_text('latin-1').splitlines()
        self.complaints += [line for line in said if 'Retrying...' not in line]
        self.notices = sum('Retrying...' in line for line in said)      # waits of half a second, after one in line


def start(practice, folder, seed, seconds):
    environment = dict(os.environ, BRENIK_UI='stderr', BRENIK_WINDIR=str(folder))
    if practice.name == 'share':
        environment.update(LD_PRELOAD=os.environ['BRENIK_FAULTY_FILES'], FAULTY_FOLDER=str(practice), FAULTY_ARMED='1',
                           FAULTY_KIND='drops', FAULTY_CALL='2503', ASAN_OPTIONS='verify_asan_link_order=0')
    log = folder / ('%d.log' % seed)
    with log.with_suffix('.said').open('w') as said:
        return subprocess.Popen([os.environ['BRENIK_SOAKING'], str(practice), str(seed), str(seconds), str(log)],
                                env=environment, stderr=said)


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


def report(logs, killed):
    """Figures for whoever looks at the test's output: progress and the longest call of each."""
    print('%d workstations, %d kills' % (len(logs), killed))
    for number, log in sorted(logs.items()):
        print('%3d: %5d done, %d notices, longest %.3f s (%s)'
              % (number, len(log.lines), log.notices, *max(log.times, default=(0, ''))))


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
    when somebody else has changed meanwhile what it had locked: a note that was just marked deleted is a live one then.
    """
    practice = tmp_path / place
    tool('sample', practice, '--contacts', 20, '--matters', 8, '--events', 4, '--notes', 6, check=True)
    killed = work(practice, tmp_path, count, kills)
    logs = {int(path.stem): Log(path) for path in tmp_path.glob('*.log')}
    report(logs, killed)
    done = [len(log.lines) for log in logs.values()]
    complaints = [complaint for log in logs.values() for complaint in log.complaints]
    refused = [complaint for complaint in complaints if re.match('refused (.* 14|delete 6) ', complaint)]
    assert complaints == (refused if place == 'share' else []) and len(refused) < sum(done) / 200
    # A starved workstation does next to nothing, or waits all the time; a busy machine alone never goes so far.
    assert kills or min(done) > max(done) / 8, done
    assert max(log.notices for log in logs.values()) * NOTICE < SECONDS / 2
    assert_kept(practice, logs)
    names = [p.stem for p in practice.iterdir() if p.suffix.lower() == '.dbf']
    faults = [fault for name in names for fault in judges.TableView(practice, name).report.faults]
    assert len(faults) <= 12 * killed, faults[:10]      # every kill can leave one change half done, in a few tags
    assert tool('check', practice).returncode in ((0, 1) if killed else (0,))
    assert_mended(practice)
    judges.assert_sound(practice)
