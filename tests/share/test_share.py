"""Workstations on a real SMB share: whatever happens to guests, network and server, nothing acknowledged is lost.

Every guest runs a worker (worker.cpp), whose output leaves the guest by a serial port at once. After the work the
practice is judged where it lies on the server. A run counts only if the workstations did something, took turns, and
locked through the server. Calls may be refused while network or server are away, and only then.

BRENIK_SHARE_SECONDS is the time that they work for in most tests. The machine is emulated: the longest call of each is
told, but says little about real ones. Windows' own redirector cannot be had here.
"""

import functools
import os
import re
import subprocess
import time

import judges
import pytest
from conftest import END_LIMIT, wait_until
from test_faults import assert_mended, tables_of, tool
from test_soak import assert_kept

SECONDS = int(os.environ.get('BRENIK_SHARE_SECONDS', '12'))
SEEDS = {'A': 1, 'B': 2, 'local': 3}
LEAST_WORK = 20          # pieces of each worker
LEAST_TURNS = 10         # how often a record in LAW1 is another one's than the record before
LEAST_LOCKS = 200        # requests at the server
PAUSE = 10               # milliseconds between two pieces of a local worker, which is much faster than guests are


class Log:
    """What one worker has said; a line that its end cut short does not count."""

    def __init__(self, path):
        lines = [line.split() for line in path.read_text('latin-1').split('\n')[:-1]]
        self.violations = [words for words in lines if words[0] == 'violation']
        self.refused = [words for words in lines if words[0] == 'refused']
        self.done = [words for words in lines if words[0] not in ('violation', 'refused') and words[1].isdigit()]
        self.strange = len(lines) - len(self.violations) - len(self.refused) - len(self.done)
        self.written = [words[2:] for words in self.done if len(words) == 5]     # table, identifier, token
        self.longest = max([int(w[1]) for w in self.done] + [int(w[3]) for w in self.refused], default=0) / 1e6

    def __str__(self):
        codes = sorted({(words[1], words[2]) for words in self.refused})
        return '%d done, %d refused %s, %d violations %s, longest call %.2f s' % (
            len(self.done), len(self.refused), ' '.join(map('%s:%s'.__mod__, codes)), len(self.violations),
            self.violations[:3], self.longest)


def work(name, seconds=SECONDS, library='lib', trace=0):
    return 'worker /%s/libBrenikDB.so.0 /practice %d %d 0 %d >/dev/ttyS1\n' % (library, SEEDS[name], seconds, trace)


class Practice:
    """A shared practice and those who work on it; `logs` tells what they said, when they have ended."""

    def __init__(self, office, *options, proprietary=False):
        self.office, self.folder = office, office.folder / 'practice'
        tool('sample', self.folder, '--contacts', 20, '--matters', 8, '--events', 4, '--notes', 6, check=True)
        ini, = [p for p in self.folder.iterdir() if p.name.lower() == 'lawsys.ini']
        ini.write_bytes(b'[Main]\r\nnServerType=0\r\nLockType=%d\r\n' % proprietary)
        office.open(*options)
        self.paths, self.logs = {}, {}

    def add(self, name, job=None, options=''):
        self.office.add_guest(name, job or work(name), options)
        self.paths[name] = self.office.guests[name].log

    def begin(self):
        """Returns when everybody has begun to work."""
        self.office.begin()
        wait_until(lambda: all(path.exists() and path.stat().st_size for path in self.paths.values()))

    def end(self):
        self.office.end()
        self.logs = {SEEDS[name]: Log(path) for name, path in self.paths.items()}
        print('', '%d lock requests, %d turns' % (self.locks, self.turns), *('W%d: %s' % log for log in self.logs.items()),
              sep='\n')

    @functools.cached_property
    def locks(self):
        return self.office.server.locks()

    @functools.cached_property
    def turns(self):
        seeds = [row['ID'].split('.')[0] for row in judges.TableView(self.folder, 'LAW1').rows if '.' in row['ID']]
        return sum(one != other for one, other in zip(seeds, seeds[1:]))

    def assert_worked(self):
        """There was something to judge."""
        done = [len(log.written) for log in self.logs.values()]
        assert min(done) >= LEAST_WORK, done
        assert self.turns >= LEAST_TURNS and self.locks >= LEAST_LOCKS, (self.turns, self.locks)
        assert not [log.strange for log in self.logs.values() if log.strange]

    def assert_kept(self):
        assert_kept(self.folder, self.logs)
        assert not [words for log in self.logs.values() for words in log.violations]

    def assert_served(self):
        refused = [' '.join(words) for log in self.logs.values() for words in log.refused]
        assert not refused, '%d calls are refused: %s' % (len(refused), refused[:3])

    def assert_clean(self):
        checked = tool('check', self.folder)
        assert checked.returncode == 0, checked.stdout[:1000]
        judges.assert_sound(self.folder)

    def assert_finished(self):
        """After an interruption only a change that was never acknowledged may lie there half done."""
        written = {words[1] for log in self.logs.values() for words in log.written}
        for name in tables_of(self.folder):
            if 'U_ID' in judges.TableView(self.folder, name).names:
                judges.assert_finished(self, name, written)
        assert_mended(self.folder)
        judges.assert_sound(self.folder)

    def failures(self, *judgements):
        """What is wrong, all of it."""
        for judgement in judgements:
            try:
                judgement()
            except (AssertionError, KeyError) as failure:        # without its record an identifier is a wrong key
                yield '%s: %s' % (judgement.__name__, str(failure)[:600])

    def judge(self, interrupted=False):
        self.end()
        after = (self.assert_finished,) if interrupted else (self.assert_served, self.assert_clean)
        failures = list(self.failures(self.assert_worked, self.assert_kept, *after))
        assert not failures, '\n'.join(failures)


@pytest.mark.parametrize('options, proprietary', [('', False), ('cache=none', False), ('', True)],
                         ids=['default', 'uncached', 'proprietary'])
def test_two_guests(office, options, proprietary):
    practice = Practice(office, proprietary=proprietary)
    practice.add('A', options=options)
    practice.add('B', options=options)
    practice.begin()
    practice.judge()


def test_beside_a_local_process(office):
    """Without oplocks the server locks in the file system what its clients lock."""
    practice = Practice(office, 'oplocks = no', 'posix locking = yes')
    practice.add('A')
    practice.paths['local'] = office.folder / 'local.log'
    practice.office.begin()
    environment = dict(os.environ, BRENIK_UI='none', BRENIK_WINDIR=str(office.folder))
    with practice.paths['local'].open('w') as log:
        local = subprocess.Popen([os.environ['BRENIK_SHARE_WORKER'], os.environ['BRENIK_LIBRARY'], str(practice.folder),
                                  str(SEEDS['local']), str(SECONDS), str(PAUSE), '0'], stdout=log, env=environment)
    assert local.wait(END_LIMIT) == 0
    practice.judge()


def test_killed_guest(office):
    practice = Practice(office)
    practice.add('A')
    practice.add('B')
    practice.begin()
    time.sleep(SECONDS / 2)
    office.guests['A'].kill()
    practice.judge(interrupted=True)


def cut(office, seconds):
    office.guests['A'].set_link(False)
    time.sleep(seconds)
    office.guests['A'].set_link(True)


def test_short_cuts(office):
    practice = Practice(office)
    practice.add('A', work('A', 70))
    practice.add('B', work('B', 70))
    practice.begin()
    cut(office, 20)
    for _ in range(10):
        time.sleep(2)
        cut(office, 2)
    practice.judge(interrupted=True)


def test_a_long_cut(office):
    """Meanwhile the server gives the locks to others. With a short echo interval the client notices within the cut."""
    practice = Practice(office)
    practice.add('A', work('A', 100), 'echo_interval=2')
    practice.add('B', work('B', 100))
    practice.begin()
    office.guests['A'].set_link(False)
    time.sleep(10)
    assert office.server.kill('A')
    time.sleep(65)
    office.guests['A'].set_link(True)
    practice.judge(interrupted=True)


def test_killed_server(office):
    """First only the process that serves one of the guests, at last all of it."""
    practice = Practice(office)
    practice.add('A', work('A', 2 * SECONDS))
    practice.add('B', work('B', 2 * SECONDS))
    practice.begin()
    kills = 0
    for _ in range(5):
        time.sleep(SECONDS / 6)
        kills += office.server.kill('A')
    time.sleep(1)
    assert kills >= 3 and practice.locks
    office.server.stop()
    office.server.start()
    practice.judge(interrupted=True)


def test_check_beside_work(office):
    """Nothing is wrong at any moment, wherever one looks from."""
    practice = Practice(office)
    practice.add('A')
    job = 'for i in 1 2 3 4 5 6 7 8; do brenik check /practice; echo "check ended with $?"; sleep 1; done >/dev/ttyS1'
    office.add_guest('B', job)
    practice.begin()
    practice.end()
    said = office.guests['B'].log.read_text()
    ends = re.findall(r'check ended with (\d+)', said)
    failures = list(practice.failures(practice.assert_kept, practice.assert_served, practice.assert_clean))
    assert len(practice.logs[SEEDS['A']].written) >= LEAST_WORK and practice.locks >= LEAST_LOCKS
    assert not failures and ends == ['0'] * 8, '\n'.join([*failures, said[:2000]])


def test_refused_without_locks(office):
    """A mount that keeps locks to itself makes sharing impossible, and that is said."""
    practice = Practice(office)
    practice.add('A', work('A', 2, trace=1) + 'brenik check /practice >/dev/ttyS0 2>&1; echo "check ended with $?"', 'nobrl')
    office.begin()
    practice.end()
    log, said = practice.logs[SEEDS['A']], office.guests['A'].console()
    trace = (practice.folder / 'Trace.Log').read_text('latin-1')
    assert not log.done and {tuple(words[1:3]) for words in log.refused} == {('initialize', '14')}
    assert 'lock' in trace.lower()
    assert not re.search('check ended with 0', said) and 'lock' in said.lower()


def test_beside_an_older_library(office):
    practice = Practice(office)
    practice.add('A', options='cache=none')
    practice.add('B', work('B', library='older'), 'cache=none')
    practice.begin()
    practice.judge()


def test_older_libraries_fail(office):
    """The proof that the judgement means something: on this share, libraries that are not made for it do harm."""
    practice = Practice(office)
    for name in 'AB':
        practice.add(name, work(name, library='older'))
    practice.begin()
    practice.end()
    assert all(log.done for log in practice.logs.values()) and practice.locks >= LEAST_LOCKS
    harm = list(practice.failures(practice.assert_kept, practice.assert_served, practice.assert_clean))
    print('\n'.join(harm))
    assert harm
